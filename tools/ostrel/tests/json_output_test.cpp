// The JSON form of values: each data type keeps its JSON kind, so that
// scripts reading `ostrel --json` get numbers as numbers, signs intact, and
// arrays as arrays.

#include <gtest/gtest.h>

#include "JsonOutput.h"
#include "ostrel/DataType.h"
#include "ostrel/Value.h"

using json = ostrel5::host::Json;
using ostrel5::Value;
using ostrel5::host::valueJson;

TEST(ValueJson, ScalarsKeepTheirKindAndSign) {
  EXPECT_EQ(valueJson(Value(-5)), json(-5));
  EXPECT_TRUE(valueJson(Value(-5)).is_number_integer());
  EXPECT_EQ(valueJson(Value(-4000000000L)), json(-4000000000LL));
  EXPECT_EQ(valueJson(Value(4000000000U)), json(4000000000ULL));
  EXPECT_EQ(valueJson(Value(18000000000000000000ULL)), json(18000000000000000000ULL));
  EXPECT_EQ(valueJson(Value(2.5)), json(2.5));
  EXPECT_EQ(valueJson(Value(true)), json(true));
  EXPECT_EQ(valueJson(Value(false)), json(false));
  EXPECT_EQ(valueJson(Value("a, b")), json("a, b"));
  EXPECT_TRUE(valueJson(Value()).is_null());
}

TEST(ValueJson, ArraysBecomeArraysElementByElement) {
  char const *const texts[] = {"first", "with, comma", ""};
  EXPECT_EQ(valueJson(Value(texts, 3)), json({"first", "with, comma", ""}));

  unsigned int numbers[] = {0, 7, 4294967295U};
  EXPECT_EQ(valueJson(Value(numbers, 3)), json({0U, 7U, 4294967295U}));
}
