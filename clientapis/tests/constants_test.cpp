// The public constant classes: rows, look-ups, sentinels, shapes, and the
// extras of TestResult, EventType and Prompting.

// TestResult::FAIL() is a row; keep the framework's FAIL() macro out of the way.
#define GTEST_DONT_DEFINE_FAIL 1
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "ostrel/AlertType.h"
#include "ostrel/AlertValueKey.h"
#include "ostrel/ApplicationRunType.h"
#include "ostrel/DataType.h"
#include "ostrel/DeviceState.h"
#include "ostrel/EventType.h"
#include "ostrel/ModuleType.h"
#include "ostrel/ParameterSource.h"
#include "ostrel/Prompting.h"
#include "ostrel/ScriptletCategory.h"
#include "ostrel/ScriptletStatus.h"
#include "ostrel/TestResult.h"
#include "ostrel/TestState.h"
#include "ostrel/TipType.h"
#include "zel/ZELLocale.h"

using namespace ostrel5;

namespace {

std::string lowered(zel::String const &text) {
  std::string s = text.str();
  for (char &c : s)
    if (c >= 'A' && c <= 'Z')
      c = static_cast<char>(c - 'A' + 'a');
  return s;
}

// Expected shape and row count of each class, and whether the empty text
// names a row (row 0) rather than the sentinel.
template <class C> struct Traits;
#define SHAPE(C, wrapped, rows, emptyIsRow0)                                                       \
  template <> struct Traits<C> {                                                                   \
    static constexpr bool WRAPPED = wrapped;                                                       \
    static constexpr unsigned int ROWS = rows;                                                     \
    static constexpr bool EMPTY_IS_ROW0 = emptyIsRow0;                                             \
  };
SHAPE(TestResult, false, 44, false)
SHAPE(TestState, true, 7, false)
SHAPE(EventType, true, 5, false)
SHAPE(DeviceState, true, 4, false)
SHAPE(ModuleType, true, 4, false)
SHAPE(DataType, true, 17, false)
SHAPE(ParameterSource, true, 3, false)
SHAPE(Prompting, false, 4, false)
SHAPE(TipType, true, 13, false)
SHAPE(AlertType, false, 15, false)
SHAPE(AlertValueKey, false, 46, false)
SHAPE(ApplicationRunType, false, 3, true)
SHAPE(ScriptletCategory, false, 6, true)
SHAPE(ScriptletStatus, false, 7, false)
#undef SHAPE

template <class C> class PublicConstants : public ::testing::Test {};
using PublicTypes =
    ::testing::Types<TestResult, TestState, EventType, DeviceState, ModuleType, DataType,
                     ParameterSource, Prompting, TipType, AlertType, AlertValueKey,
                     ApplicationRunType, ScriptletCategory, ScriptletStatus>;
TYPED_TEST_SUITE(PublicConstants, PublicTypes);

TYPED_TEST(PublicConstants, ShapeIsWrappedOrBareAsAssigned) {
  using C = TypeParam;
  static_assert(sizeof(std::underlying_type_t<decltype(std::declval<C>().enumValue())>) == 4,
                "the enumeration is a 32-bit row number");
  if constexpr (Traits<C>::WRAPPED) {
    EXPECT_TRUE((std::is_base_of<SharedAll::ApiWrapper, C>::value));
    EXPECT_TRUE(std::is_polymorphic<C>::value);
    EXPECT_TRUE(std::has_virtual_destructor<C>::value);
  } else {
    EXPECT_FALSE(std::is_polymorphic<C>::value);
    EXPECT_FALSE((std::is_base_of<SharedAll::ApiWrapper, C>::value));
    EXPECT_EQ(4u, sizeof(C));
    EXPECT_TRUE(std::is_trivially_copyable<C>::value);
    // An array of bare constants is an array of 32-bit row numbers.
    C array[3] = {C::getConstantByIndex(2), C::getConstantByIndex(0), C::getConstantByIndex(1)};
    static_assert(sizeof(array) == 3 * sizeof(std::uint32_t), "no padding");
    std::uint32_t raw[3];
    std::memcpy(raw, array, sizeof raw);
    EXPECT_EQ(2u, raw[0]);
    EXPECT_EQ(0u, raw[1]);
    EXPECT_EQ(1u, raw[2]);
  }
}

TYPED_TEST(PublicConstants, EveryRowIsFoundByItsStringInBothCaseModes) {
  using C = TypeParam;
  unsigned int const n = C::constantCount();
  ASSERT_EQ(Traits<C>::ROWS, n);
  C const sentinel = C::getConstantByIndex(n);
  for (unsigned int i = 0; i < n; ++i) {
    C row = C::getConstantByIndex(i);
    zel::String text = row.stringValue();
    SCOPED_TRACE(text.str());
    EXPECT_EQ(i, static_cast<unsigned int>(row.enumValue()));
    EXPECT_EQ(text, row.toString());
    EXPECT_TRUE(row == C(row.enumValue()));
    EXPECT_TRUE(row != sentinel);
    // The first row with that string is this one: strings are distinct.
    EXPECT_TRUE(row == C::getConstantByString(text, true));
    EXPECT_TRUE(row == C::getConstantByString(text.c_str(), false));
    std::string lower = lowered(text);
    EXPECT_TRUE(row == C::getConstantByString(lower.c_str(), false));
    if (lower != text.str()) {
      EXPECT_TRUE(sentinel == C::getConstantByString(lower.c_str(), true));
    }
    C copy(row);
    C assigned = C::getConstantByIndex(n);
    assigned = row;
    EXPECT_TRUE(copy == row && assigned == row);
  }
}

TYPED_TEST(PublicConstants, MissesGiveTheSentinelAndEmptyTextFollowsTheRow0Rule) {
  using C = TypeParam;
  unsigned int const n = C::constantCount();
  for (unsigned int index : {n, n + 1, 1000u, 0xFFFFFFFFu}) {
    C s = C::getConstantByIndex(index);
    EXPECT_EQ(n, static_cast<unsigned int>(s.enumValue()));
    EXPECT_TRUE(s.stringValue().isEmpty());
    EXPECT_TRUE(s == C::getConstantByIndex(n));
  }
  C const sentinel = C::getConstantByIndex(n);
  EXPECT_TRUE(sentinel == C::getConstantByString("no such row", false));
  C const empty = Traits<C>::EMPTY_IS_ROW0 ? C::getConstantByIndex(0) : sentinel;
  // A null text counts as the empty text.
  EXPECT_TRUE(empty == C::getConstantByString(static_cast<char const *>(nullptr), true));
  for (bool caseSensitive : {true, false}) {
    EXPECT_TRUE(empty == C::getConstantByString("", caseSensitive));
    EXPECT_TRUE(empty == C::getConstantByString(zel::String(), caseSensitive));
  }
}

// Converting between a public constant and its implementation constant
// copies the row number, and both read the same table.
template <class C> void expectSameRowsAsImp() {
  for (unsigned int i = 0; i <= C::constantCount(); ++i) {
    C row = C::getConstantByIndex(i);
    EXPECT_EQ(static_cast<unsigned int>(row.enumValue()),
              static_cast<unsigned int>(row.imp().enumValue()));
    EXPECT_EQ(row.stringValue(), row.imp().toString());
    EXPECT_TRUE(C(row.imp()) == row);
  }
}

TEST(PublicConstants, ShareRowNumbersWithTheImplementationConstants) {
  expectSameRowsAsImp<TestResult>();
  expectSameRowsAsImp<TestState>();
  expectSameRowsAsImp<EventType>();
  expectSameRowsAsImp<DeviceState>();
  expectSameRowsAsImp<ModuleType>();
  expectSameRowsAsImp<DataType>();
  expectSameRowsAsImp<ParameterSource>();
  expectSameRowsAsImp<Prompting>();
  expectSameRowsAsImp<TipType>();
  expectSameRowsAsImp<AlertType>();
  EXPECT_TRUE(DataType::STRING() == DataType(zel::DataTypeImp::STRING));
  EXPECT_TRUE(TestState::RUNNING() == TestState(TestState::TestState_ENUM::RUNNING));
}

TEST(PublicConstants, IrregularStringsAndRowPlaces) {
  struct Case {
    zel::String actual;
    char const *expected;
    unsigned int row;
    unsigned int actualRow;
  } const cases[] = {
      {TestResult::WARN().stringValue(), "WARNING", 29, TestResult::WARN().enumValue()},
      {TestResult::NODIALTONE().stringValue(), "NODIALTONE", 25,
       TestResult::NODIALTONE().enumValue()},
      {TestResult::NOTAPPLICABLE().stringValue(), "NOTAPPLICABLE", 26,
       TestResult::NOTAPPLICABLE().enumValue()},
      {TestResult::TESTINGHALTED().stringValue(), "TESTINGHALTED", 32,
       TestResult::TESTINGHALTED().enumValue()},
      {TestResult::AMBIGUOUS_PARTS_FOUND().stringValue(), "AMBIGUOUS_PARTS_FOUND", 36,
       TestResult::AMBIGUOUS_PARTS_FOUND().enumValue()},
      {TestResult::NOTSUPPORTED().stringValue(), "NOT SUPPORTED", 43,
       TestResult::NOTSUPPORTED().enumValue()},
      {EventType::ERR().stringValue(), "ERR", 1, EventType::ERR().enumValue()},
      {TestState::MODULE_STARTING().stringValue(), "MODULE_STARTING", 6,
       TestState::MODULE_STARTING().enumValue()},
      {ApplicationRunType::All().stringValue(), "", 0, ApplicationRunType::All().enumValue()},
      {ApplicationRunType::Manual().stringValue(), "Manual", 2,
       ApplicationRunType::Manual().enumValue()},
      {ScriptletCategory::SecurityActionItem().stringValue(), "SecurityActionItem", 3,
       ScriptletCategory::SecurityActionItem().enumValue()},
      {ScriptletStatus::DESTINATION_LAUNCHED().stringValue(), "DESTINATION_LAUNCHED", 6,
       ScriptletStatus::DESTINATION_LAUNCHED().enumValue()},
      {TipType::APP_LAUNCHER_AND_REFRESH_SYSINFO_TIP().stringValue(),
       "APP_LAUNCHER_AND_REFRESH_SYSINFO_TIP", 10,
       TipType::APP_LAUNCHER_AND_REFRESH_SYSINFO_TIP().enumValue()},
      {AlertType::CRITICAL().stringValue(), "CRITICAL", 14, AlertType::CRITICAL().enumValue()},
      {DataType::LOCALIZEDSTRINGARRAY().stringValue(), "LOCALIZEDSTRINGARRAY", 16,
       DataType::LOCALIZEDSTRINGARRAY().enumValue()},
      {ParameterSource::CLIENT().stringValue(), "CLIENT", 2, ParameterSource::CLIENT().enumValue()},
      // The key table is read column by column: the left column first.
      {AlertValueKey::REPORT_ID().stringValue(), "ReportID", 10,
       AlertValueKey::REPORT_ID().enumValue()},
      {AlertValueKey::PROBABLE_CAUSE_DRIVER_TIMESTAMP().stringValue(),
       "ProbableCauseDriverTimestamp", 24,
       AlertValueKey::PROBABLE_CAUSE_DRIVER_TIMESTAMP().enumValue()},
      {AlertValueKey::PROBABLE_CAUSE_DRIVER_CHECKSUM().stringValue(), "ProbableCauseDriverChecksum",
       25, AlertValueKey::PROBABLE_CAUSE_DRIVER_CHECKSUM().enumValue()},
      {AlertValueKey::OS_BOOT_TIME_TOTAL().stringValue(), "OSBootTimeTotal", 32,
       AlertValueKey::OS_BOOT_TIME_TOTAL().enumValue()},
      {AlertValueKey::OS_HIBERNATE_WRITE_TIME().stringValue(), "OSHibernateWriteTime", 45,
       AlertValueKey::OS_HIBERNATE_WRITE_TIME().enumValue()},
  };
  for (Case const &c : cases) {
    EXPECT_EQ(c.expected, c.actual);
    EXPECT_EQ(c.row, c.actualRow) << c.expected;
  }
}

TEST(TestResult, LookUpSearchesTheRowStringNotTheName) {
  TestResult const sentinel = TestResult::getConstantByIndex(TestResult::constantCount());
  EXPECT_TRUE(TestResult::WARN() == TestResult::getConstantByString("warning", false));
  EXPECT_TRUE(sentinel == TestResult::getConstantByString("warning", true));
  EXPECT_TRUE(TestResult::WARN() == TestResult::getConstantByString("WARNING", true));
  for (bool caseSensitive : {true, false})
    EXPECT_TRUE(sentinel == TestResult::getConstantByString("WARN", caseSensitive));
  EXPECT_TRUE(TestResult::NOTSUPPORTED() ==
              TestResult::getConstantByString(zel::String("not supported"), false));
  EXPECT_TRUE(sentinel == TestResult::getConstantByString("NOTSUPPORTED", false));
}

TEST(TestResult, ValuePriorityAndSentinel) {
  EXPECT_EQ(23, TestResult::FAIL().value());
  EXPECT_EQ(-4096, TestResult::FAIL().priority());
  EXPECT_EQ(0, TestResult::PASS().value());
  EXPECT_EQ(4096, TestResult::PASS().priority());
  EXPECT_EQ(62, TestResult::MISSINGREQUIREDDEVICES().value());
  EXPECT_EQ(40, TestResult::MISSINGREQUIREDDEVICES().priority());
  TestResult sentinel = TestResult::getConstantByIndex(TestResult::constantCount());
  EXPECT_EQ(0, sentinel.value());
  EXPECT_EQ(0, sentinel.priority());
  EXPECT_EQ(44u, static_cast<unsigned int>(sentinel.enumValue()));
}

TEST(TestResult, OverallResultThreeFormsAgree) {
  std::vector<TestResult> vector{TestResult::PASS(), TestResult::COMPLETED(), TestResult::WARN(),
                                 TestResult::PASS()};
  zel::Array<TestResult> array;
  zel::Array<unsigned int> counters;
  for (unsigned int i = 0; i < TestResult::constantCount(); ++i)
    counters.append(0);
  for (TestResult const &r : vector) {
    array.append(r);
    ++counters[r.enumValue()];
  }
  EXPECT_TRUE(TestResult::WARN() == TestResult::overallResult(vector));
  EXPECT_TRUE(TestResult::WARN() == TestResult::overallResult(array));
  EXPECT_TRUE(TestResult::WARN() == TestResult::overallResult(counters));
  EXPECT_TRUE(TestResult::TESTNOTSTARTED() == TestResult::overallResult(std::vector<TestResult>()));
  EXPECT_TRUE(TestResult::TESTNOTSTARTED() == TestResult::overallResult(zel::Array<TestResult>()));
  EXPECT_TRUE(TestResult::TESTNOTSTARTED() ==
              TestResult::overallResult(zel::Array<unsigned int>()));
}

TEST(TestResult, LocalizedNameFollowsTheGlobalLocale) {
  zel::ZELLocale const saved = zel::ZELLocale::getGlobalLocale();
  zel::ZELLocale::setGlobalLocale(zel::ZELLocale(zel::Language("de"), "", ""));
  EXPECT_EQ("Bestanden", TestResult::PASS().localizedName());
  EXPECT_EQ("Warnung", EventType::WARNING().localizedString());
  zel::ZELLocale::setGlobalLocale(zel::ZELLocale(zel::Language("en"), "", ""));
  EXPECT_EQ("Pass", TestResult::PASS().localizedName());
  EXPECT_EQ("Information", EventType::INFORMATIVE().localizedString());
  zel::ZELLocale::setGlobalLocale(saved);
}

TEST(Prompting, DefaultIsNotSetAndAttributeWordsRoundTrip) {
  EXPECT_TRUE(Prompting() == Prompting::NOT_SET());
  for (unsigned int i = 0; i < Prompting::constantCount(); ++i) {
    Prompting p = Prompting::getConstantByIndex(i);
    EXPECT_TRUE(p == Prompting::fromAttributeString(p.attributeString())) << p.attributeString();
  }
  EXPECT_EQ("enabledfirstpassonly", Prompting::ENABLED_FIRST_PASS_ONLY().attributeString());
  EXPECT_TRUE(Prompting::ENABLED() == Prompting::fromAttributeString("whatever"));
  EXPECT_TRUE(Prompting::DISABLED() == Prompting::fromAttributeString("FALSE"));
}

} // namespace
