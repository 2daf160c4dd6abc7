#include "zel/Language.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "zel/Mutex.h"

namespace zel {

namespace {

// ISO 639-1, sorted, so that membership is a binary search.
constexpr char const *kCodes[] = {
    "aa", "ab", "ae", "af", "ak", "am", "an", "ar", "as", "av", "ay", "az", "ba", "be", "bg", "bh",
    "bi", "bm", "bn", "bo", "br", "bs", "ca", "ce", "ch", "co", "cr", "cs", "cu", "cv", "cy", "da",
    "de", "dv", "dz", "ee", "el", "en", "eo", "es", "et", "eu", "fa", "ff", "fi", "fj", "fo", "fr",
    "fy", "ga", "gd", "gl", "gn", "gu", "gv", "ha", "he", "hi", "ho", "hr", "ht", "hu", "hy", "hz",
    "ia", "id", "ie", "ig", "ii", "ik", "io", "is", "it", "iu", "ja", "jv", "ka", "kg", "ki", "kj",
    "kk", "kl", "km", "kn", "ko", "kr", "ks", "ku", "kv", "kw", "ky", "la", "lb", "lg", "li", "ln",
    "lo", "lt", "lu", "lv", "mg", "mh", "mi", "mk", "ml", "mn", "mr", "ms", "mt", "my", "na", "nb",
    "nd", "ne", "ng", "nl", "nn", "no", "nr", "nv", "ny", "oc", "oj", "om", "or", "os", "pa", "pi",
    "pl", "ps", "pt", "qu", "rm", "rn", "ro", "ru", "rw", "sa", "sc", "sd", "se", "sg", "si", "sk",
    "sl", "sm", "sn", "so", "sq", "sr", "ss", "st", "su", "sv", "sw", "ta", "te", "tg", "th", "ti",
    "tk", "tl", "tn", "to", "tr", "ts", "tt", "tw", "ty", "ug", "uk", "ur", "uz", "ve", "vi", "vo",
    "wa", "wo", "xh", "yi", "yo", "za", "zh", "zu"};

constexpr bool sortedCodes() {
  for (std::size_t i = 1; i < sizeof(kCodes) / sizeof(kCodes[0]); ++i) {
    char const *p = kCodes[i - 1];
    char const *q = kCodes[i];
    if (p[0] > q[0] || (p[0] == q[0] && p[1] >= q[1]))
      return false;
  }
  return true;
}
static_assert(sortedCodes(), "the code table must stay sorted for binary_search");

bool known(char a, char b) {
  char const code[3] = {a, b, 0};
  auto less = [](char const *x, char const *y) { return std::strcmp(x, y) < 0; };
  return std::binary_search(std::begin(kCodes), std::end(kCodes), code, less);
}

int numberOf(char a, char b) { return 1 + 26 * (a - 'a') + (b - 'a'); }

char lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

// The language part of a locale name: up to the first '_', '-', '.' or '@'.
String languagePart(String const &text) {
  String t = text.trim();
  std::size_t end = 0;
  while (end < t.length() && std::strchr("_-.@", t[end]) == nullptr)
    ++end;
  return t.substring(0, end);
}

int parse(String const &text) {
  String part = languagePart(text);
  if (part == "C" || part == "POSIX")
    return numberOf('e', 'n');
  if (part.length() != 2)
    return 0;
  char a = lower(part[0]);
  char b = lower(part[1]);
  if (a == 'i' && b == 'w')
    b = 'e', a = 'h';
  else if (a == 'i' && b == 'n')
    b = 'd';
  else if (a == 'j' && b == 'i')
    a = 'y';
  if (a < 'a' || a > 'z' || b < 'a' || b > 'z' || !known(a, b))
    return 0;
  return numberOf(a, b);
}

zel::mutex g_userDefaultLock;
int g_userDefault = 0; // guarded by g_userDefaultLock

String env(char const *name) {
  char const *v = std::getenv(name);
  return String(v ? v : "");
}

// The locale that decides the language of messages, as POSIX defines it.
String messagesLocale() {
  for (char const *name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    String v = env(name);
    if (!v.trim().isEmpty())
      return v;
  }
  return String();
}

// The user's ordered, de-duplicated list of user-interface languages.
std::vector<Language> uiCandidates() {
  std::vector<Language> out;
  auto add = [&out](Language l) {
    if (l.isValid() && std::find(out.begin(), out.end(), l) == out.end())
      out.push_back(l);
  };
  for (String const &entry : env("LANGUAGE").tokenize(":"))
    add(Language(entry));
  add(Language(messagesLocale()));
  return out;
}

} // namespace

Language::Language(String const &text) : m_number(parse(text)) {}

Language Language::fromNumber(int number) {
  Language l;
  if (number >= 1 && number <= 26 * 26) {
    char a = static_cast<char>('a' + (number - 1) / 26);
    char b = static_cast<char>('a' + (number - 1) % 26);
    if (known(a, b))
      l.m_number = number;
  }
  return l;
}

Language Language::English() { return fromNumber(numberOf('e', 'n')); }

String Language::toString() const {
  if (m_number == 0)
    return String();
  char code[2] = {static_cast<char>('a' + (m_number - 1) / 26),
                  static_cast<char>('a' + (m_number - 1) % 26)};
  return String(code, 2);
}

bool Language::isKnownCode(String const &code) {
  return code.length() == 2 && code[0] >= 'a' && code[0] <= 'z' && code[1] >= 'a' &&
         code[1] <= 'z' && known(code[0], code[1]);
}

Language Language::getDefaultLang(int kind) {
  switch (kind) {
  case USER_DEFAULT: {
    {
      mutex::scoped_lock g(g_userDefaultLock);
      if (g_userDefault != 0)
        return fromNumber(g_userDefault);
    }
    Language l(messagesLocale());
    return l.isValid() ? l : English();
  }
  case SYSTEM_DEFAULT: {
    Language l(env("LANG"));
    return l.isValid() ? l : English();
  }
  case OPTIMAL_FIRST:
  case OPTIMAL_SECOND: {
    std::vector<Language> c = uiCandidates();
    std::size_t index = kind == OPTIMAL_FIRST ? 0 : 1;
    return index < c.size() ? c[index] : Language();
  }
  default:
    return Language();
  }
}

void Language::setUserDefaultLang(Language const &language) {
  mutex::scoped_lock g(g_userDefaultLock);
  g_userDefault = language.getNumber();
}

} // namespace zel
