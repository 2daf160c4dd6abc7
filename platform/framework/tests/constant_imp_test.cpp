// The implementation constants: row tables and look-ups, the overall result
// rule, the prompting words, and the display texts read from data/lang.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <unistd.h>

#include "zel/AlertTypeImp.h"
#include "zel/DataTypeImp.h"
#include "zel/DeviceStateImp.h"
#include "zel/EventTypeImp.h"
#include "zel/GlobalParameters.h"
#include "zel/ModuleTypeImp.h"
#include "zel/ParameterSourceImp.h"
#include "zel/PromptingImp.h"
#include "zel/Resource.h"
#include "zel/TestResultImp.h"
#include "zel/TestStateImp.h"
#include "zel/TipTypeImp.h"
#include "zel/ZELLocale.h"

using namespace zel;

namespace {

std::string lowered(char const *text) {
  std::string s(text);
  for (char &c : s)
    if (c >= 'A' && c <= 'Z')
      c = static_cast<char>(c - 'A' + 'a');
  return s;
}

template <class C> struct Expect { static unsigned int const rows; };
template <> unsigned int const Expect<TestResultImp>::rows = 44;
template <> unsigned int const Expect<TestStateImp>::rows = 7;
template <> unsigned int const Expect<EventTypeImp>::rows = 5;
template <> unsigned int const Expect<DeviceStateImp>::rows = 4;
template <> unsigned int const Expect<ModuleTypeImp>::rows = 4;
template <> unsigned int const Expect<DataTypeImp>::rows = 17;
template <> unsigned int const Expect<ParameterSourceImp>::rows = 3;
template <> unsigned int const Expect<PromptingImp>::rows = 4;
template <> unsigned int const Expect<TipTypeImp>::rows = 13;
template <> unsigned int const Expect<AlertTypeImp>::rows = 15;

template <class C> class ImpConstants : public ::testing::Test {};
using ImpTypes =
    ::testing::Types<TestResultImp, TestStateImp, EventTypeImp, DeviceStateImp, ModuleTypeImp,
                     DataTypeImp, ParameterSourceImp, PromptingImp, TipTypeImp, AlertTypeImp>;
TYPED_TEST_SUITE(ImpConstants, ImpTypes);

TYPED_TEST(ImpConstants, EveryRowIsFoundByItsStringInBothCaseModes) {
  using C = TypeParam;
  unsigned int const n = C::constantCount();
  ASSERT_EQ(Expect<C>::rows, n);
  static_assert(sizeof(C) == 4, "an implementation constant is its row number");
  for (unsigned int i = 0; i < n; ++i) {
    C row = C::getConstantByIndex(i);
    SCOPED_TRACE(row.toString().str());
    EXPECT_EQ(i, static_cast<unsigned int>(row.enumValue()));
    EXPECT_TRUE(row.isValid());
    EXPECT_FALSE(row.toString().isEmpty());
    EXPECT_EQ(row, C::getConstantByString(row.toString(), true));
    EXPECT_EQ(row, C::getConstantByString(row.toString(), false));
    std::string lower = lowered(row.toString().c_str());
    EXPECT_EQ(row, C::getConstantByString(lower.c_str(), false));
    EXPECT_EQ(C::sentinel(), C::getConstantByString(lower.c_str(), true));
  }
}

TYPED_TEST(ImpConstants, MissesGiveTheSentinel) {
  using C = TypeParam;
  unsigned int const n = C::constantCount();
  for (unsigned int index : {n, n + 1, 0xFFFFFFFFu}) {
    C s = C::getConstantByIndex(index);
    EXPECT_EQ(n, static_cast<unsigned int>(s.enumValue()));
    EXPECT_FALSE(s.isValid());
    EXPECT_TRUE(s.toString().isEmpty());
    EXPECT_STREQ("", s.name());
  }
  EXPECT_EQ(C::sentinel(), C::getConstantByString("", false));
  EXPECT_EQ(C::sentinel(), C::getConstantByString(static_cast<char const *>(nullptr), true));
  EXPECT_EQ(C::sentinel(), C::getConstantByString(String("no such row"), false));
  // Only the whole text matches: a prefix or a text with a blank added is no row.
  String first = C::getConstantByIndex(0).toString();
  EXPECT_EQ(C::sentinel(), C::getConstantByString(first + " ", false));
  EXPECT_EQ(C::sentinel(), C::getConstantByString(first.substring(0, first.length() - 1), false));
}

TEST(TestResultImp, IrregularRowsKeepTheirStringsAndNumbers) {
  struct Case {
    TestResultImp row;
    char const *text;
    int value;
    int priority;
  } const cases[] = {
      {TestResultImp::FAIL, "FAIL", 23, -4096},
      {TestResultImp::UNKNOWNERROR, "UNKNOWN ERROR", 19, -3},
      {TestResultImp::NODIALTONE, "NODIALTONE", 47, 28},
      {TestResultImp::NOTAPPLICABLE, "NOTAPPLICABLE", 48, 29},
      {TestResultImp::WARN, "WARNING", 51, 32},
      {TestResultImp::TESTINGHALTED, "TESTINGHALTED", 56, 37},
      {TestResultImp::UNKNOWN_PARTS_FOUND, "UNKNOWN_PARTS_FOUND", 60, 40},
      {TestResultImp::MISSINGREQUIREDDEVICES, "MISSING REQUIRED DEVICES", 62, 40},
      {TestResultImp::PARTS_MATCH_COMPLETED, "PARTS_MATCH_COMPLETED", 59, 41},
      {TestResultImp::PASS, "PASS", 0, 4096},
      {TestResultImp::NOTSUPPORTED, "NOT SUPPORTED", 27, 4098},
  };
  for (Case const &c : cases) {
    EXPECT_EQ(c.text, c.row.toString());
    EXPECT_EQ(c.value, c.row.value()) << c.text;
    EXPECT_EQ(c.priority, c.row.priority()) << c.text;
  }
  EXPECT_EQ(0, TestResultImp::sentinel().value());
  EXPECT_EQ(0, TestResultImp::sentinel().priority());
  EXPECT_EQ(TestResultImp::WARN, TestResultImp::getConstantByString("warning", false));
  EXPECT_EQ(TestResultImp::sentinel(), TestResultImp::getConstantByString("WARN", false));
  EXPECT_EQ(TestResultImp(), TestResultImp(TestResultImp::TESTNOTSTARTED));
}

TEST(TestResultImp, ValuesAreUniqueAndPrioritiesRiseWithTheRows) {
  unsigned int const n = TestResultImp::constantCount();
  for (unsigned int i = 0; i < n; ++i) {
    TestResultImp a = TestResultImp::getConstantByIndex(i);
    if (i + 1 < n) {
      EXPECT_LE(a.priority(), TestResultImp::getConstantByIndex(i + 1).priority()) << i;
    }
    for (unsigned int j = i + 1; j < n; ++j)
      EXPECT_NE(a.value(), TestResultImp::getConstantByIndex(j).value()) << i << " " << j;
  }
}

Array<unsigned int> counters(std::initializer_list<std::pair<TestResultImp, unsigned int>> set,
                             std::size_t size = TestResultImp::constantCount()) {
  Array<unsigned int> c;
  for (std::size_t i = 0; i < size; ++i)
    c.append(0);
  for (auto const &entry : set)
    c[entry.first.enumValue()] += entry.second;
  return c;
}

TEST(TestResultImp, OverallResultTakesTheLowestPriorityWithACount) {
  using T = TestResultImp;
  // Nothing counted: nothing ran.
  EXPECT_EQ(T(T::TESTNOTSTARTED), T::overallResult(Array<unsigned int>()));
  EXPECT_EQ(T(T::TESTNOTSTARTED), T::overallResult(counters({})));
  EXPECT_EQ(T(T::TESTNOTSTARTED), T::overallResult(Array<T>()));
  // FAIL outranks everything, whatever the counts.
  EXPECT_EQ(T(T::FAIL), T::overallResult(counters({{T::PASS, 100}, {T::FAIL, 1}, {T::WARN, 3}})));
  EXPECT_EQ(T(T::UNKNOWNERROR), T::overallResult(counters({{T::PASS, 1}, {T::UNKNOWNERROR, 1}})));
  EXPECT_EQ(T(T::PASS), T::overallResult(counters({{T::PASS, 1}, {T::COMPLETED, 5}})));
  EXPECT_EQ(T(T::NOTSUPPORTED), T::overallResult(counters({{T::NOTSUPPORTED, 2}})));
  EXPECT_EQ(T(T::TESTNOTSTARTED),
            T::overallResult(counters({{T::PASS, 1}, {T::TESTNOTSTARTED, 1}})));
  // Priority 40 is shared by three rows: the earliest row wins, whatever the counts.
  EXPECT_EQ(T(T::UNKNOWN_PARTS_FOUND), T::overallResult(counters({{T::MISSINGREQUIREDDEVICES, 9},
                                                                  {T::AMBIGUOUS_PARTS_FOUND, 1},
                                                                  {T::UNKNOWN_PARTS_FOUND, 1},
                                                                  {T::PARTS_MATCH_COMPLETED, 1}})));
  EXPECT_EQ(
      T(T::AMBIGUOUS_PARTS_FOUND),
      T::overallResult(counters({{T::MISSINGREQUIREDDEVICES, 1}, {T::AMBIGUOUS_PARTS_FOUND, 1}})));
  // A short array counts the missing rows as 0; entries past the table are ignored.
  EXPECT_EQ(T(T::FAIL), T::overallResult(counters({{T::FAIL, 1}}, 1)));
  EXPECT_EQ(T(T::UNKNOWNERROR), T::overallResult(Array<unsigned int>{0, 3}));
  EXPECT_EQ(T(T::TESTNOTSTARTED), T::overallResult(Array<unsigned int>{0}));
  EXPECT_EQ(T(T::PASS), T::overallResult(counters({{T::PASS, 1}}, T::PASS + 1)));
  Array<unsigned int> tooLong = counters({{T::PASS, 1}}, T::constantCount() + 3);
  tooLong[T::constantCount()] = 7;
  tooLong[T::constantCount() + 2] = 7;
  EXPECT_EQ(T(T::PASS), T::overallResult(tooLong));
  // Results: the sentinel counts for nothing.
  EXPECT_EQ(T(T::WARN), T::overallResult(Array<T>{T::PASS, T::sentinel(), T::WARN, T::PASS}));
  EXPECT_EQ(T(T::TESTNOTSTARTED), T::overallResult(Array<T>{T::sentinel()}));
}

// The two forms agree, and the result is the counted row that no other
// counted row outranks.
RC_GTEST_PROP(TestResultImp, OverallResultIsTheBestCountedRow, ()) {
  using T = TestResultImp;
  auto rows = *rc::gen::container<std::vector<unsigned int>>(
      rc::gen::inRange<unsigned int>(0, T::constantCount() + 1));
  Array<T> results;
  Array<unsigned int> c = counters({});
  for (unsigned int r : rows) {
    results.append(T(static_cast<T::TestResult_ENUM>(r)));
    if (r < T::constantCount())
      ++c[r];
  }
  T overall = T::overallResult(results);
  RC_ASSERT(overall == T::overallResult(c));
  bool any = false;
  for (unsigned int r = 0; r < T::constantCount(); ++r) {
    if (c[r] == 0)
      continue;
    any = true;
    T row = T::getConstantByIndex(r);
    RC_ASSERT(overall.priority() <= row.priority());
    if (overall.priority() == row.priority())
      RC_ASSERT(overall.enumValue() <= row.enumValue());
  }
  if (any)
    RC_ASSERT(c[overall.enumValue()] > 0u);
  else
    RC_ASSERT(overall == T(T::TESTNOTSTARTED));
}

TEST(PromptingImp, WordsRoundTripAndUnknownTextIsEnabled) {
  using P = PromptingImp;
  EXPECT_EQ(P(P::NOT_SET), P());
  for (unsigned int i = 0; i < P::constantCount(); ++i) {
    P p = P::getConstantByIndex(i);
    EXPECT_FALSE(p.attributeString().isEmpty());
    EXPECT_EQ(p, P::fromAttributeString(p.attributeString())) << p.attributeString();
    EXPECT_EQ(p, P::fromAttributeString(p.attributeString().toUpper()));
    EXPECT_EQ(p, P::fromAttributeString(p.toString())) << "row string " << p.toString();
  }
  EXPECT_EQ("enabled", P(P::ENABLED).attributeString());
  EXPECT_EQ("disabled", P(P::DISABLED).attributeString());
  EXPECT_EQ("enabledfirstpassonly", P(P::ENABLED_FIRST_PASS_ONLY).attributeString());
  EXPECT_EQ("notset", P(P::NOT_SET).attributeString());
  EXPECT_EQ("", P::sentinel().attributeString());

  struct Case {
    char const *text;
    P expected;
  } const cases[] = {
      {"  Disabled\t", P::DISABLED},
      {"false", P::DISABLED},
      {"NO", P::DISABLED},
      {"0", P::DISABLED},
      {"off", P::DISABLED},
      {"true", P::ENABLED},
      {"1", P::ENABLED},
      {"", P::ENABLED},
      {"maybe", P::ENABLED},
      {"enabled first", P::ENABLED},
      {"disabledx", P::ENABLED},
  };
  for (Case const &c : cases)
    EXPECT_EQ(c.expected, P::fromAttributeString(c.text)) << '"' << c.text << '"';
}

TEST(PromptingImp, PromptUserReadsTheSetting) {
  using P = PromptingImp;
  ZELLocale const locale;
  struct Case {
    char const *setting; // null: not set
    P expected;
  } const cases[] = {
      {nullptr, P::ENABLED},
      {"disabled", P::DISABLED},
      {" EnabledFirstPassOnly ", P::ENABLED_FIRST_PASS_ONLY},
      {"notset", P::NOT_SET},
      {"garbage", P::ENABLED},
  };
  for (Case const &c : cases) {
    if (c.setting)
      Resource::setString("Ostrel.PromptUser", c.setting);
    else
      Resource::clearString("Ostrel.PromptUser");
    if (!c.setting && std::getenv("OSTREL_Ostrel_PromptUser"))
      continue;
    EXPECT_EQ(c.expected, GlobalParameters::promptUser(locale)) << (c.setting ? c.setting : "-");
  }
  Resource::clearString("Ostrel.PromptUser");
}

// Display texts: the global locale picks the file, English fills gaps, the
// row's string stands in when no file has the key.
class ConstantTexts : public ::testing::Test {
protected:
  void SetUp() override { saved = ZELLocale::getGlobalLocale(); }
  void TearDown() override {
    ZELLocale::setGlobalLocale(saved);
    Resource::reset();
  }
  static void setLanguage(char const *code) {
    ZELLocale::setGlobalLocale(ZELLocale(Language(code), "", ""));
  }
  ZELLocale saved;
};

TEST_F(ConstantTexts, InstalledFilesCoverEveryRowInEnglishAndGerman) {
  for (char const *code : {"en", "de"}) {
    setLanguage(code);
    for (unsigned int i = 0; i < TestResultImp::constantCount(); ++i) {
      TestResultImp r = TestResultImp::getConstantByIndex(i);
      String key = String("TestResult.") + r.name(), text;
      EXPECT_TRUE(Resource::getString("constants", key.c_str(), text, ZELLocale::getGlobalLocale()))
          << code << " " << key;
      EXPECT_EQ(text, r.localizedName());
    }
    for (unsigned int i = 0; i < EventTypeImp::constantCount(); ++i) {
      String key = String("EventType.") + EventTypeImp::getConstantByIndex(i).name(), text;
      EXPECT_TRUE(Resource::getString("constants", key.c_str(), text, ZELLocale::getGlobalLocale()))
          << code << " " << key;
    }
    for (unsigned int i = 0; i < PromptingImp::constantCount(); ++i) {
      String key = String("Prompting.") + PromptingImp::getConstantByIndex(i).name(), text;
      EXPECT_TRUE(Resource::getString("constants", key.c_str(), text, ZELLocale::getGlobalLocale()))
          << code << " " << key;
    }
  }
}

TEST_F(ConstantTexts, LocaleChoosesTheLanguage) {
  setLanguage("en");
  EXPECT_EQ("Fail", TestResultImp(TestResultImp::FAIL).localizedName());
  EXPECT_EQ("Warning", TestResultImp(TestResultImp::WARN).localizedName());
  EXPECT_EQ("Error", EventTypeImp(EventTypeImp::ERR).localizedString());
  EXPECT_EQ("Enabled", PromptingImp(PromptingImp::ENABLED).localizedName());
  setLanguage("de");
  EXPECT_EQ("Fehlgeschlagen", TestResultImp(TestResultImp::FAIL).localizedName());
  EXPECT_EQ("Übersprungen", TestResultImp(TestResultImp::SKIPPED).localizedName());
  EXPECT_EQ("Fehler", EventTypeImp(EventTypeImp::ERR).localizedString());
  EXPECT_EQ("Deaktiviert", PromptingImp(PromptingImp::DISABLED).localizedName());
  // A language without a file of its own reads English.
  setLanguage("fi");
  EXPECT_EQ("Fail", TestResultImp(TestResultImp::FAIL).localizedName());
  EXPECT_EQ("Progress", EventTypeImp(EventTypeImp::PROGRESS).localizedString());
  // The sentinel has no display text.
  EXPECT_EQ("", TestResultImp::sentinel().localizedName());
  EXPECT_EQ("", EventTypeImp::sentinel().localizedString());
}

TEST_F(ConstantTexts, GapsFallBackToEnglishThenToTheRowString) {
  char dir[] = "/tmp/constant_texts_XXXXXX";
  ASSERT_NE(nullptr, mkdtemp(dir));
  std::string const base(dir);
  std::ofstream(base + "/constants_en.xml")
      << "<properties><property key=\"TestResult.FAIL\" value=\"Failed (en)\"/>"
         "<property key=\"TestResult.PASS\" value=\"Passed (en)\"/></properties>\n";
  std::ofstream(base + "/constants_de.xml")
      << "<properties><property key=\"TestResult.FAIL\" value=\"Failed (de)\"/></properties>\n";
  Resource::changeDefaultDatabaseDirectory(base);

  setLanguage("de");
  EXPECT_EQ("Failed (de)", TestResultImp(TestResultImp::FAIL).localizedName());
  EXPECT_EQ("Passed (en)", TestResultImp(TestResultImp::PASS).localizedName());
  EXPECT_EQ("TEST NOT STARTED", TestResultImp(TestResultImp::TESTNOTSTARTED).localizedName());
  EXPECT_EQ("WARNING", EventTypeImp(EventTypeImp::WARNING).localizedString());

  // No file at all: every text is the row's string.
  std::remove((base + "/constants_en.xml").c_str());
  std::remove((base + "/constants_de.xml").c_str());
  EXPECT_EQ("UNKNOWN ERROR", TestResultImp(TestResultImp::UNKNOWNERROR).localizedName());
  EXPECT_EQ("ENABLED_FIRST_PASS_ONLY",
            PromptingImp(PromptingImp::ENABLED_FIRST_PASS_ONLY).localizedName());
  rmdir(dir);
}

} // namespace
