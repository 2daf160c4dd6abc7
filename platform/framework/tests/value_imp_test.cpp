#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <optional>
#include <vector>

#include "zel/Exception.h"
#include "zel/ValueImp.h"

using zel::Array;
using zel::DataTypeImp;
using zel::DiscreteMeasurement;
using zel::LocalizedString;
using zel::NonDiscreteMeasurement;
using zel::String;
using zel::TypeMismatch;
using zel::ValueImp;

namespace {

zel::Table smallTable() {
  zel::Table t(1, 2);
  t.setCell(0, 0, "a");
  t.setCell(0, 1, 7);
  return t;
}

// One sample of every type, with what each accessor must give. A field left
// empty means "throws TypeMismatch".
struct Row {
  char const *name;
  std::function<ValueImp()> make;
  DataTypeImp type;
  String text;
  std::optional<long long> integer;
  std::optional<double> number;
  std::optional<bool> truth;
  std::optional<unsigned> strings;   // stringArraySize
  std::optional<unsigned> uint32s;   // Uint32ArraySize
  std::optional<unsigned> localized; // localizedStringArraySize
};

std::vector<Row> const &rows() {
  using T = DataTypeImp;
  static std::vector<Row> const table = {
      {"uint32",
       [] { return ValueImp(4000000000u); },
       T::UINT32,
       "4000000000",
       4000000000LL,
       4e9,
       true,
       {},
       {},
       {}},
      {"int32", [] { return ValueImp(-5); }, T::INT32, "-5", -5, -5.0, true, {}, {}, {}},
      {"uint64",
       [] { return ValueImp(18446744073709551615ull); },
       T::UINT64,
       "18446744073709551615",
       -1,
       18446744073709551615.0,
       true,
       {},
       {},
       {}},
      {"int64",
       [] { return ValueImp(-9000000000LL); },
       T::INT64,
       "-9000000000",
       -9000000000LL,
       -9e9,
       true,
       {},
       {},
       {}},
      {"zero is false", [] { return ValueImp(0u); }, T::UINT32, "0", 0, 0.0, false, {}, {}, {}},
      {"double",
       [] { return ValueImp(2.5, T::DOUBLE); },
       T::DOUBLE,
       "2.5",
       {},
       2.5,
       {},
       {},
       {},
       {}},
      {"string", [] { return ValueImp("12"); }, T::STRING, "12", {}, {}, {}, {}, {}, {}},
      {"boolean", [] { return ValueImp(true); }, T::BOOLEAN, "true", 1, {}, true, {}, {}, {}},
      {"percent",
       [] { return ValueImp(45.5, T::PERCENT); },
       T::PERCENT,
       "45.5%",
       {},
       45.5,
       {},
       {},
       {},
       {}},
      {"string array",
       [] {
         return ValueImp(Array<String>{"a", "b c"});
       },
       T::STRINGARRAY,
       "a,b c",
       {},
       {},
       {},
       2u,
       {},
       {}},
      {"uint32 array",
       [] {
         return ValueImp(Array<unsigned>{1, 2, 3});
       },
       T::UINT32ARRAY,
       "1,2,3",
       {},
       {},
       {},
       3u,
       3u,
       {}},
      {"int32 array",
       [] {
         return ValueImp(Array<int>{-1, 2});
       },
       T::INT32ARRAY,
       "-1,2",
       {},
       {},
       {},
       2u,
       {},
       {}},
      {"reading",
       [] { return ValueImp(DiscreteMeasurement(3.3, "V")); },
       T::DISCRETEMEASUREMENT,
       "3.3 V",
       {},
       3.3,
       {},
       {},
       {},
       {}},
      {"table",
       [] { return ValueImp(smallTable()); },
       T::TABLE,
       "+---+---+\n| a | 7 |\n+---+---+\n",
       {},
       {},
       {},
       {},
       {},
       {}},
      {"reading array",
       [] {
         return ValueImp(Array<DiscreteMeasurement>{{12, "V"}, {5, ""}});
       },
       T::DISCRETEMEASUREMENTARRAY,
       "12 V,5",
       {},
       {},
       {},
       2u,
       {},
       {}},
      {"series",
       [] { return ValueImp(NonDiscreteMeasurement(1.25, 3.5, 2.25, "GHz")); },
       T::NONDISCRETEMEASUREMENT,
       "2.25 GHz (min 1.25; max 3.5)",
       {},
       2.25,
       {},
       {},
       {},
       {}},
      {"localized",
       [] { return ValueImp(LocalizedString("res.ok", "Fine")); },
       T::LOCALIZEDSTRING,
       "Fine",
       {},
       {},
       {},
       {},
       {},
       {}},
      {"localized array",
       [] {
         return ValueImp(Array<LocalizedString>{{"k1", "One"}, {"k2", "Two"}});
       },
       T::LOCALIZEDSTRINGARRAY,
       "One,Two",
       {},
       {},
       {},
       2u,
       {},
       2u},
      {"no data", [] { return ValueImp(); }, DataTypeImp::sentinel(), "", {}, {}, {}, {}, {}, {}},
  };
  return table;
}

template <class F> void expectAccessor(char const *row, char const *what, F f, bool shouldWork) {
  if (shouldWork) {
    EXPECT_NO_THROW(f()) << row << ": " << what;
  } else {
    EXPECT_THROW(f(), TypeMismatch) << row << ": " << what;
  }
}

} // namespace

TEST(ValueImp, EveryTypeAnswersEveryAccessorOrThrowsTypeMismatch) {
  for (Row const &r : rows()) {
    ValueImp v = r.make();
    EXPECT_EQ(v.type(), r.type) << r.name;
    EXPECT_EQ(v.hasData(), r.type.isValid()) << r.name;
    EXPECT_EQ(v.toString(), r.text) << r.name;

    expectAccessor(
        r.name, "value", [&] { return v.value(); }, r.integer.has_value());
    if (r.integer) {
      EXPECT_EQ(v.value(), *r.integer) << r.name;
    }
    expectAccessor(
        r.name, "valueDouble", [&] { return v.valueDouble(); }, r.number.has_value());
    if (r.number) {
      EXPECT_DOUBLE_EQ(v.valueDouble(), *r.number) << r.name;
    }
    expectAccessor(
        r.name, "valueBool", [&] { return v.valueBool(); }, r.truth.has_value());
    if (r.truth) {
      EXPECT_EQ(v.valueBool(), *r.truth) << r.name;
    }
    expectAccessor(
        r.name, "stringArraySize", [&] { return v.stringArraySize(); }, r.strings.has_value());
    if (r.strings) {
      EXPECT_EQ(v.stringArraySize(), *r.strings) << r.name;
    }
    expectAccessor(
        r.name, "Uint32ArraySize", [&] { return v.Uint32ArraySize(); }, r.uint32s.has_value());
    if (r.uint32s) {
      EXPECT_EQ(v.Uint32ArraySize(), *r.uint32s) << r.name;
    }
    expectAccessor(
        r.name, "localizedStringArraySize", [&] { return v.localizedStringArraySize(); },
        r.localized.has_value());
    if (r.localized) {
      EXPECT_EQ(v.localizedStringArraySize(), *r.localized) << r.name;
    }
    expectAccessor(
        r.name, "valueTable", [&] { return v.valueTable(); }, r.type == DataTypeImp::TABLE);
    expectAccessor(
        r.name, "valueString", [&] { return v.valueString(); }, r.type == DataTypeImp::STRING);
  }
}

TEST(ValueImp, ArrayElementsReadAsTextInTheirStringForm) {
  ValueImp numbers(Array<int>{-1, 20});
  EXPECT_EQ(numbers.getStringInArray(0), "-1");
  EXPECT_EQ(numbers.getStringInArray(1), "20");
  ValueImp readings(Array<DiscreteMeasurement>{{1.5, "A"}});
  EXPECT_EQ(readings.getStringInArray(0), "1.5 A");
  ValueImp texts(Array<LocalizedString>{{"key", "Text"}});
  EXPECT_EQ(texts.getStringInArray(0), "Text");
  EXPECT_EQ(texts.getLocalizedStringInArray(0).key(), "key");
  EXPECT_EQ(ValueImp(Array<unsigned>{9, 8}).getUint32InArray(1), 8u);
  EXPECT_THROW(ValueImp(Array<int>{1}).getUint32InArray(0), TypeMismatch);
}

TEST(ValueImp, ArrayIndexPastTheEndIsAnAssertion) {
  ValueImp v(Array<String>{"only"});
  try {
    v.getStringInArray(1);
    FAIL() << "no assertion";
  } catch (zel::StructuredException const &e) {
    EXPECT_EQ(e.getCode(), 7u);
    EXPECT_EQ(e.getText(), "Assertion failed: index < size()");
  }
  EXPECT_THROW(ValueImp(Array<unsigned>{}).getUint32InArray(0), zel::StructuredException);
}

TEST(ValueImp, LocalizedStringsShowTheirTextOrTheirKey) {
  ValueImp one(LocalizedString("res.fan", "Fan"));
  EXPECT_EQ(one.toString(true), "Fan");
  EXPECT_EQ(one.toString(false), "res.fan");
  ValueImp many(Array<LocalizedString>{{"a", "A"}, {"b", "B"}});
  EXPECT_EQ(many.toString(false), "a,b");
  Array<String> keys;
  ValueImp::toStringArray(many, keys, false);
  EXPECT_EQ(keys, (Array<String>{"a", "b"}));
}

TEST(ValueImp, ToStringArrayReplacesTheArrayWithTheValuesPieces) {
  Array<String> out{"stale"};
  ValueImp::toStringArray(ValueImp(Array<unsigned>{4, 5}), out, true);
  EXPECT_EQ(out, (Array<String>{"4", "5"}));
  ValueImp::toStringArray(ValueImp(smallTable()), out, true);
  EXPECT_EQ(out, (Array<String>{"a", "7"}));
  ValueImp::toStringArray(ValueImp(DiscreteMeasurement(1, "W")), out, true);
  EXPECT_EQ(out, (Array<String>{"1 W"}));
  ValueImp::toStringArray(ValueImp(), out, true);
  EXPECT_TRUE(out.isEmpty());
}

TEST(ValueImp, TextIsReadStrictlyAsTheDeclaredType) {
  using T = DataTypeImp;
  struct Case {
    char const *text;
    DataTypeImp type;
    bool fits;
    String form; // toString of the result when it fits
  };
  std::vector<Case> const cases = {
      {"5", T::STRING, true, "5"},
      {" 42 ", T::UINT32, true, "42"},
      {"4294967295", T::UINT32, true, "4294967295"},
      {"4294967296", T::UINT32, false, ""},
      {"-1", T::UINT32, false, ""},
      {"12abc", T::UINT32, false, ""},
      {"", T::UINT32, false, ""},
      {"-2147483648", T::INT32, true, "-2147483648"},
      {"2147483648", T::INT32, false, ""},
      {"18446744073709551615", T::UINT64, true, "18446744073709551615"},
      {"-1", T::UINT64, false, ""},
      {"-9223372036854775808", T::INT64, true, "-9223372036854775808"},
      {"1e3", T::DOUBLE, true, "1000"},
      {"1.5x", T::DOUBLE, false, ""},
      {"YES", T::BOOLEAN, true, "true"},
      {"off", T::BOOLEAN, true, "false"},
      {"maybe", T::BOOLEAN, false, ""},
      {"45.5 %", T::PERCENT, true, "45.5%"},
      {"45", T::PERCENT, true, "45%"},
      {"%", T::PERCENT, false, ""},
      {"a,,b", T::STRINGARRAY, true, "a,,b"},
      {"", T::STRINGARRAY, true, ""},
      {"1, 2,3", T::UINT32ARRAY, true, "1,2,3"},
      {"1,x", T::UINT32ARRAY, false, ""},
      {"", T::INT32ARRAY, true, ""},
      {"-3,4", T::INT32ARRAY, true, "-3,4"},
      {"3.3 V", T::DISCRETEMEASUREMENT, true, "3.3 V"},
      {"7", T::DISCRETEMEASUREMENT, true, "7"},
      {"V", T::DISCRETEMEASUREMENT, false, ""},
      {"1 V,2 V", T::DISCRETEMEASUREMENTARRAY, true, "1 V,2 V"},
      {"1 V,volts", T::DISCRETEMEASUREMENTARRAY, false, ""},
      {"2 C (min 1; max 3)", T::NONDISCRETEMEASUREMENT, true, "2 C (min 1; max 3)"},
      {"2 (min 1;max 3)", T::NONDISCRETEMEASUREMENT, true, "2 (min 1; max 3)"},
      {"2 C (min 1)", T::NONDISCRETEMEASUREMENT, false, ""},
      {"2 C", T::NONDISCRETEMEASUREMENT, false, ""},
      {"Hello", T::LOCALIZEDSTRING, true, "Hello"},
      {"x,y", T::LOCALIZEDSTRINGARRAY, true, "x,y"},
      {"+---+", T::TABLE, false, ""},
      {"1", DataTypeImp::sentinel(), false, ""},
  };
  for (Case const &c : cases) {
    SCOPED_TRACE(String(c.text) + " as " + c.type.toString());
    if (!c.fits) {
      EXPECT_THROW(ValueImp(String(c.text), c.type), TypeMismatch);
      continue;
    }
    ValueImp v(String(c.text), c.type);
    EXPECT_EQ(v.type(), c.type);
    EXPECT_EQ(v.toString(), c.form);
  }
}

TEST(ValueImp, ANumberIsHeldAsAnIntegerTypeOnlyWhenWholeAndInRange) {
  using T = DataTypeImp;
  EXPECT_EQ(ValueImp(7.0, T::UINT32).value(), 7);
  EXPECT_EQ(ValueImp(-7.0, T::INT64).value(), -7);
  EXPECT_EQ(ValueImp(4294967295.0, T::UINT32).value(), 4294967295LL);
  EXPECT_THROW(ValueImp(4294967296.0, T::UINT32), TypeMismatch);
  EXPECT_THROW(ValueImp(-1.0, T::UINT64), TypeMismatch);
  EXPECT_THROW(ValueImp(1.5, T::INT32), TypeMismatch);
  EXPECT_THROW(ValueImp(std::nan(""), T::INT64), TypeMismatch);
  EXPECT_THROW(ValueImp(9223372036854775808.0, T::INT64), TypeMismatch);
  EXPECT_THROW(ValueImp(1.0, T::STRING), TypeMismatch);
  EXPECT_EQ(ValueImp(150.0, T::PERCENT).toString(), "150%");
}

TEST(ValueImp, EqualityComparesTypeAndContent) {
  EXPECT_EQ(ValueImp(5u), ValueImp(5u));
  EXPECT_NE(ValueImp(5u), ValueImp(5ul)); // UINT32 against UINT64
  EXPECT_NE(ValueImp(5), ValueImp(5u));
  EXPECT_NE(ValueImp(2.0, DataTypeImp::DOUBLE), ValueImp(2.0, DataTypeImp::PERCENT));
  double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(ValueImp(nan, DataTypeImp::DOUBLE), ValueImp(nan, DataTypeImp::DOUBLE));
  EXPECT_EQ(ValueImp(DiscreteMeasurement(nan, "V")), ValueImp(DiscreteMeasurement(nan, "V")));
  EXPECT_NE(ValueImp(LocalizedString("a", "X")), ValueImp(LocalizedString("b", "X")));
  EXPECT_NE(ValueImp(DiscreteMeasurement(1, "V")), ValueImp(DiscreteMeasurement(1, "mV")));
  EXPECT_EQ(ValueImp(), ValueImp());
  EXPECT_NE(ValueImp(), ValueImp(""));
  zel::Table changed = smallTable();
  changed.setCell(0, 1, 8);
  EXPECT_EQ(ValueImp(smallTable()), ValueImp(smallTable()));
  EXPECT_NE(ValueImp(smallTable()), ValueImp(changed));
}

TEST(ValueImp, ACellValueKeepsItsKind) {
  using T = DataTypeImp;
  EXPECT_EQ(ValueImp(zel::ZELValue(3)).type(), T::INT32);
  EXPECT_EQ(ValueImp(zel::ZELValue(3u)).type(), T::UINT32);
  EXPECT_EQ(ValueImp(zel::ZELValue(3LL)).type(), T::INT64);
  EXPECT_EQ(ValueImp(zel::ZELValue(3ULL)).type(), T::UINT64);
  EXPECT_EQ(ValueImp(zel::ZELValue(0.5)).type(), T::DOUBLE);
  EXPECT_EQ(ValueImp(zel::ZELValue(false)).type(), T::BOOLEAN);
  EXPECT_EQ(ValueImp(zel::ZELValue("t")), ValueImp("t"));
  EXPECT_EQ(ValueImp(zel::ZELValue(-4)), ValueImp(-4));
  EXPECT_FALSE(ValueImp(zel::ZELValue()).hasData());
}

// Every value that has a text form survives toString() and reading back as
// its own type.
RC_GTEST_PROP(ValueImpProperty, NumbersSurviveTheirStringForm,
              (int i, unsigned u, long long l, unsigned long long ul)) {
  for (ValueImp const &v : {ValueImp(i), ValueImp(u), ValueImp(l), ValueImp(ul)})
    RC_ASSERT(ValueImp(v.toString(), v.type()) == v);
}

RC_GTEST_PROP(ValueImpProperty, DoublesAndPercentsSurviveTheirStringForm, (double d)) {
  for (ValueImp const &v : {ValueImp(d, DataTypeImp::DOUBLE), ValueImp(d, DataTypeImp::PERCENT),
                            ValueImp(DiscreteMeasurement(d, "rpm")),
                            ValueImp(NonDiscreteMeasurement(d, d * 2, d / 3, "W"))})
    RC_ASSERT(ValueImp(v.toString(), v.type()) == v);
}

RC_GTEST_PROP(ValueImpProperty, NumberArraysSurviveTheirStringForm,
              (std::vector<unsigned> us, std::vector<int> is)) {
  Array<unsigned> ua;
  for (unsigned x : us)
    ua.append(x);
  Array<int> ia;
  for (int x : is)
    ia.append(x);
  for (ValueImp const &v : {ValueImp(ua), ValueImp(ia)}) {
    ValueImp back(v.toString(), v.type());
    RC_ASSERT(back == v);
    RC_ASSERT(back.stringArraySize() == v.stringArraySize());
  }
}
