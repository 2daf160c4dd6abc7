#pragma once
// zel::ZELLocale: the locale every display text depends on.
//
// A locale is a language, a customer (the brand whose texts win, empty for
// the stock texts) and a variant (the region, "US", "CH", as written in
// resource file names), plus four free attribute strings that travel with
// the locale unchanged (copied, compared, encoded) for platform extensions;
// the system itself leaves them empty.
//
// Text form (toString): language, then "_" and the variant when there is
// one, then "/" and the customer when there is one: "en", "de_CH",
// "en_US/acme", "/acme" (no language). fromString reads the same form back.
//
// The class is a value type meant to be derived from by types that add no
// field (the public locale class of the client library does so): copies and
// slicing are harmless and the destructor is virtual.
//
// The global locale is one process-wide value. getGlobalLocale returns a copy
// taken under a lock and setGlobalLocale replaces it under the same lock, so
// both may be called from any thread. Until the first setGlobalLocale it is
// getDefaultLocale() as of the first access.

#include <array>

#include "zel/Language.h"
#include "zel/String.h"

namespace zel {

class ZELLocale {
public:
  static constexpr std::size_t ATTRIBUTE_COUNT = 4;

  /// English, no customer, no variant.
  ZELLocale();
  ZELLocale(Language const &language, String const &customer, String const &variant,
            String const &attribute0, String const &attribute1, String const &attribute2,
            String const &attribute3);
  /// Language, customer and variant; the attributes empty.
  ZELLocale(Language const &language, String const &customer, String const &variant);
  ZELLocale(ZELLocale const &) = default;
  ZELLocale(ZELLocale &&) noexcept = default;
  ZELLocale &operator=(ZELLocale const &) = default;
  ZELLocale &operator=(ZELLocale &&) noexcept = default;
  virtual ~ZELLocale();

  Language const &getLanguage() const noexcept { return m_language; }
  String const &getCustomer() const noexcept { return m_customer; }
  String const &getVariant() const noexcept { return m_variant; }
  /// Attribute 0..3; "" for an index past them.
  String const &getAttribute(std::size_t index) const noexcept;

  void setLanguage(Language const &language) { m_language = language; }
  void setCustomer(String const &customer) { m_customer = customer; }
  void setVariant(String const &variant) { m_variant = variant; }

  /// See "Text form" above.
  String toString() const;
  /// Reads the text form; the language part goes through Language(String).
  static ZELLocale fromString(String const &text);

  /// All seven parts equal (languages by number).
  friend bool operator==(ZELLocale const &a, ZELLocale const &b);
  friend bool operator!=(ZELLocale const &a, ZELLocale const &b) { return !(a == b); }

  /// A copy of the global locale.
  static ZELLocale getGlobalLocale();
  static void setGlobalLocale(ZELLocale const &locale);

  /// The platform's default locale, from the environment at the time of the
  /// call: the language of Language::getDefaultLang(USER_DEFAULT) (never
  /// empty: English when nothing says otherwise) and, as variant, the
  /// territory of the messages locale ("DE" of "de_DE.UTF-8") when that
  /// locale's language is the chosen one. No customer.
  static ZELLocale getDefaultLocale();

private:
  Language m_language;
  String m_customer;
  String m_variant;
  std::array<String, ATTRIBUTE_COUNT> m_attributes;
};

} // namespace zel
