#include "zel/ZELLocale.h"

#include <cstdlib>
#include <cstring>

#include "zel/Mutex.h"

namespace zel {

namespace {

zel::mutex g_globalLock;
// Made on first access and never destroyed, so that code running during
// static destruction still finds a locale.
ZELLocale *g_global = nullptr; // guarded by g_globalLock

ZELLocale &globalLocked() {
  if (!g_global)
    g_global = new ZELLocale(ZELLocale::getDefaultLocale());
  return *g_global;
}

String messagesLocale() {
  for (char const *name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    char const *v = std::getenv(name);
    if (v && !String(v).trim().isEmpty())
      return String(v).trim();
  }
  return String();
}

// "DE" of "de_DE.UTF-8@euro"; "" when the name has no territory.
String territoryOf(String const &localeName) {
  std::size_t us = localeName.find('_');
  if (us == String::npos)
    return String();
  std::size_t end = us + 1;
  while (end < localeName.length() && std::strchr(".@", localeName[end]) == nullptr)
    ++end;
  return localeName.substring(us + 1, end - us - 1);
}

} // namespace

ZELLocale::ZELLocale() : m_language(Language::English()) {}

ZELLocale::ZELLocale(Language const &language, String const &customer, String const &variant,
                     String const &attribute0, String const &attribute1, String const &attribute2,
                     String const &attribute3)
    : m_language(language), m_customer(customer),
      m_variant(variant), m_attributes{attribute0, attribute1, attribute2, attribute3} {}

ZELLocale::ZELLocale(Language const &language, String const &customer, String const &variant)
    : m_language(language), m_customer(customer), m_variant(variant) {}

ZELLocale::~ZELLocale() = default;

String const &ZELLocale::getAttribute(std::size_t index) const noexcept {
  return index < ATTRIBUTE_COUNT ? m_attributes[index] : String::EMPTY();
}

String ZELLocale::toString() const {
  String out = m_language.toString();
  if (!m_variant.isEmpty())
    out += "_" + m_variant;
  if (!m_customer.isEmpty())
    out += "/" + m_customer;
  return out;
}

ZELLocale ZELLocale::fromString(String const &text) {
  String rest = text.trim();
  String customer;
  std::size_t slash = rest.find('/');
  if (slash != String::npos) {
    customer = rest.substring(slash + 1);
    rest = rest.substring(0, slash);
  }
  String variant;
  std::size_t us = rest.find('_');
  if (us != String::npos) {
    variant = rest.substring(us + 1);
    rest = rest.substring(0, us);
  }
  return ZELLocale(Language(rest), customer, variant);
}

bool operator==(ZELLocale const &a, ZELLocale const &b) {
  return a.m_language == b.m_language && a.m_customer == b.m_customer &&
         a.m_variant == b.m_variant && a.m_attributes == b.m_attributes;
}

ZELLocale ZELLocale::getGlobalLocale() {
  mutex::scoped_lock g(g_globalLock);
  return globalLocked();
}

void ZELLocale::setGlobalLocale(ZELLocale const &locale) {
  ZELLocale copy(locale); // copied outside the lock; only the swap is guarded
  mutex::scoped_lock g(g_globalLock);
  if (!g_global)
    g_global = new ZELLocale(std::move(copy));
  else
    *g_global = std::move(copy);
}

ZELLocale ZELLocale::getDefaultLocale() {
  Language language = Language::getDefaultLang(Language::USER_DEFAULT);
  String messages = messagesLocale();
  String variant;
  if (Language(messages) == language)
    variant = territoryOf(messages);
  return ZELLocale(language, String(), variant);
}

} // namespace zel
