#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <vector>

#include "ostrel/Table.h"
#include "ostrel/Value.h"
#include "zel/Exception.h"
#include "zel/ValueImp.h"

using ostrel5::DataType;
using ostrel5::Value;
using zel::Array;
using zel::String;

namespace {

Value localizedArray() {
  return Value(zel::ValueImp(
      Array<zel::LocalizedString>{{"res.a", "Alpha"}, {"res.b", "Beta"}, {"res.c", "Gamma"}}));
}

} // namespace

TEST(Value, EachConstructorGivesItsType) {
  char const *texts[] = {"a", "b"};
  unsigned int numbers[] = {7, 8, 9};
  struct Case {
    Value value;
    DataType type;
    String text;
  };
  std::vector<Case> const cases = {
      {Value(-3), DataType::INT32(), "-3"},
      {Value(-3L), DataType::INT64(), "-3"},
      {Value(3u), DataType::UINT32(), "3"},
      {Value(3ul), DataType::UINT64(), "3"},
      {Value(3ull), DataType::UINT64(), "3"},
      {Value(false), DataType::BOOLEAN(), "false"},
      {Value("text"), DataType::STRING(), "text"},
      {Value(String("text")), DataType::STRING(), "text"},
      {Value(0.25), DataType::DOUBLE(), "0.25"},
      {Value(texts, 2), DataType::STRINGARRAY(), "a,b"},
      {Value(numbers, 3), DataType::UINT32ARRAY(), "7,8,9"},
      {Value(numbers, 0), DataType::UINT32ARRAY(), ""},
  };
  for (Case const &c : cases) {
    EXPECT_EQ(c.value.getType(), c.type) << c.text;
    EXPECT_EQ(c.value.toString(), c.text);
  }
  Value none;
  EXPECT_EQ(none.getType().enumValue(), DataType::constantCount());
  EXPECT_EQ(none.toString(), "");
}

TEST(Value, IntegerReadingIsStrictAndKeepsTheLowHalf) {
  Value wide(0x1FFFFFFFFull);
  EXPECT_EQ(wide.toUint64(), 0x1FFFFFFFFull);
  EXPECT_EQ(wide.toUint32(), 0xFFFFFFFFu);
  EXPECT_EQ(wide.toInt32(), -1);
  EXPECT_EQ(Value(-1).toUint64(), 0xFFFFFFFFFFFFFFFFull);
  EXPECT_EQ(Value(true).toInt32(), 1);
  // No fallback to the text, even when the text is a number.
  EXPECT_THROW(Value("12").toInt32(), zel::TypeMismatch);
  EXPECT_THROW(Value(1.0).toUint32(), zel::TypeMismatch);
  EXPECT_THROW(Value().toUint64(), zel::TypeMismatch);
}

TEST(Value, DoubleAndBoolFallBackToTheStringForm) {
  EXPECT_DOUBLE_EQ(Value(7u).toDouble(), 7.0);
  EXPECT_DOUBLE_EQ(Value("2.5").toDouble(), 2.5);
  EXPECT_DOUBLE_EQ(Value("2.5 volts").toDouble(), 2.5);
  EXPECT_DOUBLE_EQ(Value("abc").toDouble(), 0.0);
  EXPECT_DOUBLE_EQ(Value(true).toDouble(), 0.0); // "true" is no number
  EXPECT_TRUE(Value(1.0).toBool());              // "1"
  EXPECT_FALSE(Value(2.5).toBool());             // "2.5" is no truth word
  EXPECT_TRUE(Value("Yes").toBool());
  EXPECT_FALSE(Value("nope").toBool());
  EXPECT_TRUE(Value(2u).toBool()); // integers are read directly
}

TEST(Value, ArrayAccessorsAreForgivingOnScalars) {
  // One character: 0 strings, though stringAtIndex still gives it.
  EXPECT_EQ(Value("x").stringCount(), 0u);
  EXPECT_EQ(Value("x").stringAtIndex(0), "x");
  EXPECT_EQ(Value(7u).stringCount(), 0u);
  EXPECT_EQ(Value("xy").stringCount(), 1u);
  EXPECT_EQ(Value(12).stringCount(), 1u);
  EXPECT_EQ(Value("").stringCount(), 0u);
  EXPECT_EQ(Value("xy").stringAtIndex(41), "xy");
  EXPECT_EQ(Value("12").uint32Count(), 0u);
  EXPECT_EQ(Value("12").uint32AtIndex(0), 0u);
  EXPECT_EQ(Value(12u).uint32AtIndex(3), 0u);

  char const *texts[] = {"a", "bb", "c"};
  Value strings(texts, 3);
  EXPECT_EQ(strings.stringCount(), 3u);
  EXPECT_EQ(strings.stringAtIndex(1), "bb");
  EXPECT_EQ(strings.uint32Count(), 0u);
  unsigned int numbers[] = {4, 5};
  Value uints(numbers, 2);
  EXPECT_EQ(uints.uint32Count(), 2u);
  EXPECT_EQ(uints.uint32AtIndex(1), 5u);
  EXPECT_EQ(uints.stringCount(), 2u);
  EXPECT_EQ(uints.stringAtIndex(0), "4");

  Value localized = localizedArray();
  EXPECT_EQ(localized.stringCount(), 3u);
  EXPECT_EQ(localized.stringAtIndex(2), "Gamma");
}

TEST(Value, OnlyTypeMismatchIsCaught) {
  // An index past the end of a real array is an assertion, not a mismatch:
  // it must reach the caller instead of turning into a fallback answer.
  char const *texts[] = {"a"};
  EXPECT_THROW(Value(texts, 1).stringAtIndex(1), zel::StructuredException);
  unsigned int numbers[] = {1};
  EXPECT_THROW(Value(numbers, 1).uint32AtIndex(1), zel::StructuredException);
  EXPECT_THROW(localizedArray().stringAtIndex(3), zel::StructuredException);
  // The table accessor has no fallback at all.
  EXPECT_THROW(Value("t").toTable(), zel::TypeMismatch);
}

TEST(Value, StringArrayIsTheStringFormCutAtCommas) {
  EXPECT_EQ(Value("no comma here").toZELStringArray(), (Array<String>{"no comma here"}));
  EXPECT_EQ(Value("a, b").toZELStringArray(), (Array<String>{"a", " b"}));
  unsigned int numbers[] = {1, 22};
  EXPECT_EQ(Value(numbers, 2).toZELStringArray(), (Array<String>{"1", "22"}));
  EXPECT_EQ(Value(2.5).toZELStringArray(), (Array<String>{"2.5"}));
}

TEST(Value, TableValuesGiveANewTable) {
  zel::Table t(2, 1);
  t.setCell(0, 0, "k");
  t.setCell(1, 0, 5);
  Value v{zel::ValueImp(t)};
  ostrel5::Table view = v.toTable();
  EXPECT_EQ(view.getRows(), 2);
  EXPECT_EQ(view.getZELTable(), t);
  EXPECT_EQ(v.getType(), DataType::TABLE());
}

TEST(Value, AssignmentSharesAndSurvivesSelfAssignment) {
  Value a("shared"), c(3u);
  c = a;
  EXPECT_TRUE(c == a);
  Value &alias = c;
  c = alias;
  EXPECT_EQ(c.toString(), "shared");
}

TEST(Value, NotSetMarkers) {
  EXPECT_EQ(ostrel5::VALUE_NOT_SET(), 4294967295u);
  EXPECT_EQ(ostrel5::VALUE_NOT_SET_STRING(), "-1");
  EXPECT_EQ(&ostrel5::VALUE_NOT_SET_STRING(), &ostrel5::VALUE_NOT_SET_STRING());
}

RC_GTEST_PROP(ValueProperty, NumbersSurviveTheStringFormThroughTheDeclaredType,
              (int i, unsigned u, double d)) {
  // The road a test parameter takes: string form, then read as its type.
  Value vi(i), vu(u), vd(d);
  RC_ASSERT(Value(zel::ValueImp(vi.toString(), zel::DataTypeImp::INT32)) == vi);
  RC_ASSERT(Value(zel::ValueImp(vu.toString(), zel::DataTypeImp::UINT32)) == vu);
  RC_ASSERT(Value(zel::ValueImp(vd.toString(), zel::DataTypeImp::DOUBLE)) == vd);
  if (std::isfinite(d))
    RC_ASSERT(vd.toDouble() == d);
}
