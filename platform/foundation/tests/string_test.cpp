#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <climits>
#include <string>

#include "zel/String.h"

using zel::String;

TEST(StringConversions, IntegersOnOddInput) {
  bool ok = true;
  EXPECT_EQ(String::strToInt("  42 ", 10, &ok), 42);
  EXPECT_TRUE(ok);
  EXPECT_EQ(String::strToInt("-17"), -17);
  EXPECT_EQ(String::strToInt("12abc", 10, &ok), 12);
  EXPECT_FALSE(ok);
  EXPECT_EQ(String::strToInt("abc", 10, &ok), 0);
  EXPECT_FALSE(ok);
  EXPECT_EQ(String::strToInt("", 10, &ok), 0);
  EXPECT_FALSE(ok);
  EXPECT_EQ(String::strToInt("   ", 10, &ok), 0);
  EXPECT_FALSE(ok);
  EXPECT_EQ(String::strToInt("99999999999", 10, &ok), INT_MAX);
  EXPECT_FALSE(ok);
  EXPECT_EQ(String::strToInt("-99999999999", 10, &ok), INT_MIN);
  EXPECT_FALSE(ok);
  EXPECT_EQ(String::strToInt("ff", 16), 255);
  EXPECT_EQ(String::strToInt("0x1F", 16), 31);
}

TEST(StringConversions, MinusOneBecomesTheUnsetUnsignedValue) {
  // "-1" is the written form of "not set" for 32-bit unsigned limits.
  unsigned int viaSigned = static_cast<unsigned int>(String::strToInt("-1"));
  EXPECT_EQ(viaSigned, 0xFFFFFFFFu);
  bool ok = false;
  EXPECT_EQ(String::strToUInt("-1", 10, &ok), 0xFFFFFFFFu);
  EXPECT_TRUE(ok);
  EXPECT_EQ(String::strToUInt("4294967295", 10, &ok), 0xFFFFFFFFu);
  EXPECT_TRUE(ok);
  EXPECT_EQ(String::strToUInt("4294967296", 10, &ok), 0xFFFFFFFFu);
  EXPECT_FALSE(ok);
  EXPECT_EQ(String::strToUInt("20000", 10), 20000u);
}

TEST(StringConversions, BooleansAndReals) {
  for (char const *t : {"true", "TRUE", " True ", "yes", "1", "on"})
    EXPECT_TRUE(String::strToBoolean(t)) << t;
  for (char const *t : {"false", "", "*", "0", "no", "truex", "2"})
    EXPECT_FALSE(String::strToBoolean(t)) << t;
  bool ok = false;
  EXPECT_DOUBLE_EQ(String::strToReal64(" 2.5e3 ", &ok), 2500.0);
  EXPECT_TRUE(ok);
  EXPECT_EQ(String::strToReal64("x", &ok), 0.0);
  EXPECT_FALSE(ok);
  EXPECT_EQ(String::fromBoolean(true), "true");
  EXPECT_EQ(String::fromBoolean(false), "false");
}

RC_GTEST_PROP(StringProperties, IntegerTextRoundTrips, (long long v)) {
  bool ok = false;
  RC_ASSERT(String::strToInt64(String::fromInt(v), 10, &ok) == v);
  RC_ASSERT(ok);
}

RC_GTEST_PROP(StringProperties, RealTextRoundTripsExactly, (double v)) {
  RC_PRE(v == v); // NaN never compares equal
  bool ok = false;
  RC_ASSERT(String::strToReal64(String::fromReal64(v), &ok) == v);
}

RC_GTEST_PROP(StringProperties, ParsersNeverCrashOnAnyText, (std::string text)) {
  String s(text);
  String::strToInt(s);
  String::strToUInt(s, 16);
  String::strToReal64(s);
  String::strToBoolean(s);
  String::UTF8Decode(s);
  RC_ASSERT(String::isValidUTF8(String::UTF8Decode(s)));
}

RC_GTEST_PROP(StringProperties, TokenizeJoinsBack, (std::string text)) {
  String s(text);
  auto parts = s.tokenize(",");
  String joined;
  for (std::size_t i = 0; i < parts.size(); ++i)
    joined += (i ? "," : "") + parts[i];
  RC_ASSERT(joined == s);
  std::size_t commas = 0;
  for (char c : text)
    commas += c == ',';
  RC_ASSERT(parts.size() == commas + 1);
}

TEST(StringText, TokenizeKeepsBlanksAndEmptyTokens) {
  auto a = String("a, b").tokenize(",");
  ASSERT_EQ(a.size(), 2u);
  EXPECT_EQ(a[0], "a");
  EXPECT_EQ(a[1], " b");
  EXPECT_EQ(String("abc").tokenize(",").size(), 1u);
  EXPECT_EQ(String("").tokenize(",").size(), 1u);
  auto lines = String("x\n\ny").tokenize("\n");
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[1], "");
}

TEST(StringText, TrimCaseAndCompare) {
  EXPECT_EQ(String(" \t\r\n x y \n").trim(), "x y");
  EXPECT_EQ(String(" \t ").trim(), "");
  EXPECT_EQ(String("MiXeD").toLower(), "mixed");
  // Only ASCII letters change, so UTF-8 stays intact.
  EXPECT_EQ(String("\xC3\x84pfel").toLower(), "\xC3\x84pfel");
  EXPECT_TRUE(String("CapAbiLities").equalNoCase("capabilities"));
  EXPECT_FALSE(String("abc").equalNoCase("abcd"));
  EXPECT_LT(String("abc").compareNoCase("ABD"), 0);
  EXPECT_GT(String("b").compareNoCase("A"), 0);
  EXPECT_EQ(String("a b\tc\n").removeBlanks(), "abc");
  EXPECT_EQ(String("a.b.c").replaceAll(".", "::"), "a::b::c");
  EXPECT_EQ(String("hello").substring(10), "");
  EXPECT_EQ(String("hello").substring(1, 3), "ell");
  EXPECT_EQ(&String::EMPTY(), &String::EMPTY());
}

TEST(StringText, Utf8DecodeReplacesOnlyMalformedSequences) {
  String good("caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80");
  EXPECT_EQ(String::UTF8Decode(good), good);
  EXPECT_EQ(good.charCount(), 8u);
  // Lone continuation, truncated sequence, overlong slash, surrogate.
  EXPECT_EQ(String::UTF8Decode("a\x80z"), "a\xEF\xBF\xBDz");
  EXPECT_EQ(String::UTF8Decode("\xE2\x82"), "\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(String::UTF8Decode("\xC0\xAF"), "\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(String::UTF8Decode("\xED\xA0\x80"), "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
  // Every byte survives the narrow form unchanged.
  std::string all;
  for (int i = 1; i < 256; ++i)
    all += static_cast<char>(i);
  EXPECT_EQ(std::string(String(all).getLowerByteString()), all);
}

TEST(StringText, FixedWidthAndFormatting) {
  EXPECT_EQ(String::getFixedStr("Test: ", 10, 0), "Test:     ");
  EXPECT_EQ(String::getFixedStr("a longer text", 4, 0), "a longer text");
  EXPECT_EQ(String::getFixedStr("a longer text", 4, String::FIXED_TRUNCATE), "a lo");
  // Width counts characters, not bytes.
  EXPECT_EQ(String::getFixedStr("\xC3\xA9", 3, 0), "\xC3\xA9  ");
  EXPECT_EQ(String::format("%u_%u", 3u, 14u), "3_14");
  EXPECT_EQ(String::format("Illegal number of passes: %i", -2), "Illegal number of passes: -2");
  std::string big(5000, 'x');
  EXPECT_EQ(String::format("%s!", big.c_str()).size(), 5001u);
  EXPECT_EQ(String::fromPointer(nullptr), "0x0");
}
