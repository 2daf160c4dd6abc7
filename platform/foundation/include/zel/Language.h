#pragma once
// zel::Language: one language, as an ISO 639-1 code.
//
// Numbering. A known language's number is computed from its two letters,
// 1 + 26 * (first - 'a') + (second - 'a'), so "aa" is 1, "de" is 83, "en" is
// 118 and "zu" is 671. The numbers never change when the table of known codes
// grows, and they fit a message field of 16 bits. Number 0 is "no language":
// its text is empty.
//
// Parsing. Language(text) accepts a bare code ("de", "DE") and the usual
// locale names ("de_DE.UTF-8", "de-CH", "sr@latin", "en_US.ISO-8859-1"): the
// part before the first '_', '-', '.' or '@' is taken, case-blind. "C" and
// "POSIX" (with or without a codeset) mean English. The withdrawn codes
// "iw", "in" and "ji" are read as "he", "id" and "yi". Anything else that is
// not an ISO 639-1 code gives language 0.
//
// Default languages (getDefaultLang), on Linux, answered from the process's
// environment at the time of the call:
//
//   kind 10  USER_DEFAULT    the language set by setUserDefaultLang in this
//                            process; else that of the messages locale, the
//                            first non-empty of LC_ALL, LC_MESSAGES, LANG;
//                            else English.
//   kind 20  SYSTEM_DEFAULT  the language of LANG (the session's base locale,
//                            which the system sets up); else English.
//   kind 50  OPTIMAL_FIRST   the user's first user-interface language: the
//                            first known entry of LANGUAGE (a colon-separated
//                            list, as gettext reads it), else the language of
//                            the messages locale; empty when neither gives
//                            one.
//   kind 40  OPTIMAL_SECOND  the next distinct language of that same list
//                            (LANGUAGE entries, then the messages locale);
//                            empty when there is none.
//
// Unlike gettext, LANGUAGE is honoured even when the messages locale is "C":
// a user who names UI languages wants them. setUserDefaultLang changes kind
// 10 only; the user-interface kinds stay what the user's environment says, and
// a program that wants other texts sets the global locale instead.
//
// A Language is a small value, thread-compatible. getDefaultLang and
// setUserDefaultLang are thread-safe.

#include "zel/String.h"

namespace zel {

class Language {
public:
  enum Kind { USER_DEFAULT = 10, SYSTEM_DEFAULT = 20, OPTIMAL_SECOND = 40, OPTIMAL_FIRST = 50 };

  /// No language: number 0, empty text.
  Language() noexcept = default;
  /// See "Parsing" above.
  explicit Language(String const &text);
  explicit Language(char const *text) : Language(String(text)) {}
  /// The language of that number; 0 for a number of no known language.
  static Language fromNumber(int number);

  static Language English();

  int getNumber() const noexcept { return m_number; }
  bool isValid() const noexcept { return m_number != 0; }
  /// The two-letter code ("en"), or "" for language 0.
  String toString() const;

  /// The default language of one kind, see the table above. Unknown kinds
  /// give language 0.
  static Language getDefaultLang(int kind);
  /// Makes `language` the user default (kind 10) of this process. Language 0
  /// removes the setting again.
  static void setUserDefaultLang(Language const &language);

  /// True when `code` (lower case, two letters) is a known ISO 639-1 code.
  static bool isKnownCode(String const &code);

  friend bool operator==(Language a, Language b) noexcept { return a.m_number == b.m_number; }
  friend bool operator!=(Language a, Language b) noexcept { return a.m_number != b.m_number; }
  friend bool operator<(Language a, Language b) noexcept { return a.m_number < b.m_number; }

private:
  int m_number = 0;
};

} // namespace zel
