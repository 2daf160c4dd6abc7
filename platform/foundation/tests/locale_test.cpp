#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <atomic>
#include <cstdlib>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "zel/Language.h"
#include "zel/ZELLocale.h"

using zel::Language;
using zel::String;
using zel::ZELLocale;

namespace {

// Sets the locale variables of one case and restores the previous ones.
class LocaleEnv {
public:
  explicit LocaleEnv(std::initializer_list<std::pair<std::string, std::string>> list) {
    std::map<std::string, std::string> values(list.begin(), list.end());
    for (char const *name : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}) {
      char const *old = std::getenv(name);
      m_saved.emplace_back(name, old ? std::string(old) : std::string("\x01unset"));
      auto it = values.find(name);
      if (it == values.end())
        ::unsetenv(name);
      else
        ::setenv(name, it->second.c_str(), 1);
    }
  }
  ~LocaleEnv() {
    for (auto const &s : m_saved)
      if (s.second == "\x01unset")
        ::unsetenv(s.first.c_str());
      else
        ::setenv(s.first.c_str(), s.second.c_str(), 1);
    Language::setUserDefaultLang(Language());
  }

private:
  std::vector<std::pair<std::string, std::string>> m_saved;
};

String lang(int kind) { return Language::getDefaultLang(kind).toString(); }

// The client library's locale type: derived, no field of its own.
class ClientLocale : public ZELLocale {
public:
  using ZELLocale::ZELLocale;
  ClientLocale(ZELLocale const &other) : ZELLocale(other) {}
};

} // namespace

TEST(LanguageValue, ParsingForms) {
  struct Row {
    char const *text, *code;
  } rows[] = {{"de", "de"},       {"DE", "de"},    {"de_DE.UTF-8", "de"}, {"de-CH", "de"},
              {"sr@latin", "sr"}, {"C", "en"},     {"POSIX", "en"},       {"C.UTF-8", "en"},
              {" fr ", "fr"},     {"iw_IL", "he"}, {"in", "id"},          {"ji", "yi"},
              {"xx", ""},         {"", ""},        {"deu", ""},           {"c", ""},
              {"e1", ""},         {"English", ""}};
  for (Row const &r : rows)
    EXPECT_EQ(Language(r.text).toString(), r.code) << r.text;
}

TEST(LanguageValue, StableNumbers) {
  // These numbers travel in messages and files: they must never change.
  EXPECT_EQ(Language("aa").getNumber(), 1);
  EXPECT_EQ(Language("de").getNumber(), 83);
  EXPECT_EQ(Language("en").getNumber(), 118);
  EXPECT_EQ(Language("zu").getNumber(), 671);
  EXPECT_EQ(Language("xx").getNumber(), 0);
  EXPECT_EQ(Language::fromNumber(3).getNumber(), 0); // "ac" is not a language
  EXPECT_EQ(Language::fromNumber(-5).getNumber(), 0);
  EXPECT_EQ(Language::fromNumber(677).getNumber(), 0);
  EXPECT_EQ(Language::English(), Language("en"));
  EXPECT_NE(Language("de"), Language("en"));
}

RC_GTEST_PROP(LanguageValue, NumberAndTextRoundTrip, (char a, char b)) {
  String code(std::string{a, b});
  Language l(code);
  if (Language::isKnownCode(code)) {
    RC_ASSERT(l.toString() == code);
    RC_ASSERT(Language::fromNumber(l.getNumber()) == l);
  } else if (l.isValid()) {
    // Only the upper-case spellings and the withdrawn aliases map elsewhere.
    RC_ASSERT(Language::isKnownCode(l.toString()));
  }
}

TEST(LanguageDefaults, FromEnvironment) {
  {
    LocaleEnv env({{"LANG", "de_DE.UTF-8"}});
    EXPECT_EQ(lang(10), "de");
    EXPECT_EQ(lang(20), "de");
    EXPECT_EQ(lang(50), "de");
    EXPECT_EQ(lang(40), "");
  }
  {
    // LC_ALL beats LC_MESSAGES beats LANG for the user; the system kind is LANG.
    LocaleEnv env({{"LANG", "fr_FR.UTF-8"}, {"LC_MESSAGES", "it_IT"}, {"LC_ALL", "es_ES"}});
    EXPECT_EQ(lang(10), "es");
    EXPECT_EQ(lang(20), "fr");
  }
  {
    LocaleEnv env({{"LANG", "fr_FR.UTF-8"}, {"LC_MESSAGES", "it_IT"}, {"LC_ALL", ""}});
    EXPECT_EQ(lang(10), "it"); // an empty variable counts as unset
  }
  {
    LocaleEnv env({{"LANG", "C"}});
    EXPECT_EQ(lang(10), "en");
    EXPECT_EQ(lang(20), "en");
    EXPECT_EQ(lang(50), "en");
  }
  {
    LocaleEnv env({});
    EXPECT_EQ(lang(10), "en");
    EXPECT_EQ(lang(20), "en");
    EXPECT_EQ(lang(50), ""); // the user named no UI language at all
    EXPECT_EQ(lang(40), "");
    EXPECT_EQ(lang(30), ""); // not a kind
  }
}

TEST(LanguageDefaults, LanguageListGivesTheCandidates) {
  {
    LocaleEnv env({{"LANGUAGE", "pt_BR:xx:pt:de"}, {"LANG", "fr_FR.UTF-8"}});
    EXPECT_EQ(lang(50), "pt");
    EXPECT_EQ(lang(40), "de"); // "xx" is skipped and "pt" is not repeated
    EXPECT_EQ(lang(10), "fr"); // LANGUAGE is about UI texts, not the user locale
  }
  {
    LocaleEnv env({{"LANGUAGE", "nl"}, {"LC_ALL", "C"}});
    EXPECT_EQ(lang(50), "nl"); // honoured even with the C locale
    EXPECT_EQ(lang(40), "en");
  }
  {
    LocaleEnv env({{"LANGUAGE", "::"}, {"LANG", "sv_SE"}});
    EXPECT_EQ(lang(50), "sv");
    EXPECT_EQ(lang(40), "");
  }
}

TEST(LanguageDefaults, UserDefaultOverrideTouchesKindTenOnly) {
  LocaleEnv env({{"LANGUAGE", "fi"}, {"LANG", "da_DK"}});
  Language::setUserDefaultLang(Language("ja"));
  EXPECT_EQ(lang(10), "ja");
  EXPECT_EQ(lang(20), "da");
  EXPECT_EQ(lang(50), "fi");
  EXPECT_EQ(ZELLocale::getDefaultLocale().getLanguage().toString(), "ja");
  EXPECT_EQ(ZELLocale::getDefaultLocale().getVariant(), ""); // "DK" belongs to Danish
  Language::setUserDefaultLang(Language());
  EXPECT_EQ(lang(10), "da");
  EXPECT_EQ(ZELLocale::getDefaultLocale().getVariant(), "DK");
}

TEST(LocaleValue, PartsTextAndEquality) {
  ZELLocale def;
  EXPECT_EQ(def.getLanguage(), Language::English());
  EXPECT_EQ(def.toString(), "en");

  ZELLocale l(Language("de"), "acme", "CH", "a0", "", "", "a3");
  EXPECT_EQ(l.toString(), "de_CH/acme");
  EXPECT_EQ(l.getAttribute(0), "a0");
  EXPECT_EQ(l.getAttribute(3), "a3");
  EXPECT_EQ(l.getAttribute(4), "");

  EXPECT_EQ(ZELLocale::fromString(l.toString()), ZELLocale(Language("de"), "acme", "CH"));
  EXPECT_EQ(ZELLocale::fromString("/acme").getLanguage().getNumber(), 0);

  EXPECT_NE(l, ZELLocale(Language("de"), "other", "CH", "a0", "", "", "a3"));
  EXPECT_NE(l, ZELLocale(Language("de"), "acme", "CH")); // attributes count too

  // A derived locale with no field of its own converts both ways intact.
  ClientLocale c(l);
  ZELLocale sliced = c;
  EXPECT_EQ(sliced, l);
  static_assert(sizeof(ClientLocale) == sizeof(ZELLocale), "no added field");
}

TEST(LocaleGlobal, DefaultsFromEnvironmentThenSet) {
  {
    LocaleEnv env({{"LC_ALL", "pt_BR.UTF-8"}});
    ZELLocale d = ZELLocale::getDefaultLocale();
    EXPECT_EQ(d.toString(), "pt_BR");
  }
  ZELLocale l(Language("fr"), "acme", "CA");
  ZELLocale::setGlobalLocale(l);
  EXPECT_EQ(ZELLocale::getGlobalLocale(), l);
  // The global is a copy: changing the argument afterwards changes nothing.
  l.setVariant("FR");
  EXPECT_EQ(ZELLocale::getGlobalLocale().getVariant(), "CA");
}

TEST(LocaleGlobal, ManyThreadsGetAndSet) {
  // Readers must always see one of the written locales whole, never a mix of
  // two (language of one, customer of another). Run under TSan too.
  std::vector<ZELLocale> written;
  char const *langs[] = {"de", "fr", "it", "ja"};
  for (int i = 0; i < 4; ++i)
    written.emplace_back(Language(langs[i]), String("customer-") + langs[i],
                         String("V") + langs[i]);
  ZELLocale::setGlobalLocale(written[0]);
  std::vector<std::thread> threads;
  std::atomic<int> mixed{0};
  for (int t = 0; t < 8; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < 2000; ++i) {
        if (t % 2 == 0) {
          ZELLocale::setGlobalLocale(written[static_cast<std::size_t>((t + i) % 4)]);
        } else {
          ZELLocale seen = ZELLocale::getGlobalLocale();
          String code = seen.getLanguage().toString();
          if (seen.getCustomer() != "customer-" + code || seen.getVariant() != "V" + code)
            ++mixed;
        }
      }
    });
  for (auto &th : threads)
    th.join();
  EXPECT_EQ(mixed.load(), 0);
}
