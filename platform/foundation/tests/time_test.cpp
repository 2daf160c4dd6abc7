// TimeValue, Stopwatch and DateTime: normalisation and the millisecond
// formula, frozen stopwatches, the unset DateTime's ordering, and ISO 8601
// round trips across the calendar's corners.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <string>

#include "zel/DateTime.h"
#include "zel/Stopwatch.h"
#include "zel/System.h"
#include "zel/TimeValue.h"

using zel::DateTime;
using zel::String;
using zel::TimeValue;

TEST(TimeValue, NormalisesAndComputesMilliseconds) {
  TimeValue t(5, 123456);
  EXPECT_EQ(t.milliseconds(), 5123);

  // Differences below zero keep microseconds positive; the formula still holds.
  TimeValue minusHalf = TimeValue(0, 0) - TimeValue(0, 500000);
  EXPECT_EQ(minusHalf.seconds(), -1);
  EXPECT_EQ(minusHalf.microseconds(), 500000);
  EXPECT_EQ(minusHalf.milliseconds(), -500);

  EXPECT_EQ(TimeValue::fromMilliseconds(-1500), TimeValue(-2, 500000));

  std::int64_t before = zel::System::getCurrentTimeMillis();
  TimeValue now = TimeValue::getCurrentTime();
  std::int64_t after = zel::System::getCurrentTimeMillis();
  EXPECT_GE(now.milliseconds(), before);
  EXPECT_LE(now.milliseconds(), after);
}

RC_GTEST_PROP(TimeValue, NormalFormKeepsTheTotal, (int seconds, int micros)) {
  TimeValue t(seconds, micros);
  RC_ASSERT(t.microseconds() >= 0);
  RC_ASSERT(t.microseconds() <= 999999);
  RC_ASSERT(t.totalMicroseconds() == std::int64_t(seconds) * 1000000 + micros);
  TimeValue other(micros, seconds);
  RC_ASSERT((t - other) + other == t);
  RC_ASSERT((t < other) == (t.totalMicroseconds() < other.totalMicroseconds()));
}

TEST(Stopwatch, MeasuresFreezesAndRestarts) {
  zel::Stopwatch watch;
  EXPECT_TRUE(watch.isRunning());
  zel::System::mssleep(20);
  watch.stop();
  std::int64_t frozen = watch.elapsedMilliseconds();
  EXPECT_GE(frozen, 20);
  zel::System::mssleep(5);
  EXPECT_EQ(watch.elapsedMilliseconds(), frozen);
  EXPECT_NEAR(watch.elapsedSeconds(), frozen / 1000.0, 0.001);

  watch.start();
  EXPECT_LT(watch.elapsedMilliseconds(), frozen);
}

TEST(DateTime, UnsetValueRules) {
  DateTime unset;
  DateTime epoch = DateTime::fromUnixTimeStamp(0);
  DateTime before = DateTime::fromUnixTimeStamp(-100);
  EXPECT_FALSE(unset.isSet());
  EXPECT_TRUE(epoch.isSet());
  EXPECT_EQ(unset.getUnixTimeStamp(), 0);

  // Unset is not the epoch, although both give time stamp 0.
  EXPECT_NE(unset, epoch);
  EXPECT_EQ(unset, DateTime());
  EXPECT_LT(unset, epoch);
  EXPECT_LT(unset, before) << "unset orders before every set value, negative ones too";
  EXPECT_GT(before, unset);
  EXPECT_FALSE(unset < DateTime());
  EXPECT_LE(unset, DateTime());
  EXPECT_GE(unset, DateTime());
  EXPECT_FALSE(epoch <= unset);

  EXPECT_EQ(unset.toIso8601(), "");
  EXPECT_EQ(unset.toString(), "");
  EXPECT_EQ(unset.dateTimeStampString(), "");

  DateTime kept = DateTime::fromUnixTimeStamp(1795303899);
  EXPECT_FALSE(kept.fromIso8601("not a date"));
  EXPECT_EQ(kept.getUnixTimeStamp(), 1795303899) << "a failed parse leaves the value alone";
  EXPECT_FALSE(unset.fromIso8601(""));
  EXPECT_FALSE(unset.isSet());
}

TEST(DateTime, Iso8601KnownValuesAndRejections) {
  EXPECT_EQ(DateTime::fromUnixTimeStamp(1795303899).toIso8601(), "2026-11-21T23:31:39Z");
  EXPECT_EQ(DateTime::fromUnixTimeStamp(0).toString(), "1970-01-01T00:00:00Z");
  EXPECT_EQ(DateTime::fromUnixTimeStamp(-1).toIso8601(), "1969-12-31T23:59:59Z");
  EXPECT_EQ(DateTime::fromUnixTimeStamp(951782400).toIso8601(), "2000-02-29T00:00:00Z");
  EXPECT_EQ(DateTime::fromUnixTimeMillis(-1).toIso8601Millis(), "1969-12-31T23:59:59.999Z");
  EXPECT_EQ(DateTime::fromUnixTimeMillis(-1).getUnixTimeStamp(), -1);

  DateTime d;
  ASSERT_TRUE(d.fromIso8601("2026-11-22T01:31:39+02:00"));
  EXPECT_EQ(d.getUnixTimeStamp(), 1795303899);
  ASSERT_TRUE(d.fromIso8601(" 2026-11-21 18:31:39-0500 "));
  EXPECT_EQ(d.getUnixTimeStamp(), 1795303899);
  ASSERT_TRUE(d.fromIso8601("2026-11-21T23:31:39.5Z"));
  EXPECT_EQ(d.millisecondPart(), 500);
  EXPECT_EQ(d.toIso8601(), "2026-11-21T23:31:39Z");
  EXPECT_EQ(d.toIso8601Millis(), "2026-11-21T23:31:39.500Z");
  ASSERT_TRUE(d.fromIso8601("2024-02-29T00:00:00.123456Z"));
  EXPECT_EQ(d.millisecondPart(), 123);

  for (char const *bad :
       {"2026-11-21T23:31:39", "2026-13-01T00:00:00Z", "2023-02-29T00:00:00Z",
        "2100-02-29T00:00:00Z", "2026-11-21T24:00:00Z", "2026-11-21T23:60:00Z",
        "2026-11-21T23:31:60Z", "2026-1-21T23:31:39Z", "2026-11-21T23:31:39Zjunk",
        "2026-11-21T23:31:39.Z", "2026-11-21X23:31:39Z", "2026-11-21T23:31:39+2:00"}) {
    DateTime t;
    EXPECT_FALSE(t.fromIso8601(bad)) << bad;
  }
}

RC_GTEST_PROP(DateTime, TimeStampAndIso8601RoundTrip, ()) {
  // Years 0001 to 9999, the span a four-digit year can write.
  long long seconds = *rc::gen::inRange(-62135596800LL, 253402300800LL);
  int millis = *rc::gen::inRange(0, 1000);
  DateTime d = DateTime::fromUnixTimeStamp(seconds);
  RC_ASSERT(d.getUnixTimeStamp() == seconds);
  DateTime back;
  RC_ASSERT(back.fromIso8601(d.toIso8601()));
  RC_ASSERT(back == d);

  DateTime withMillis = DateTime::fromUnixTimeMillis(seconds * 1000 + millis);
  RC_ASSERT(back.fromIso8601(withMillis.toIso8601Millis()));
  RC_ASSERT(back == withMillis);
  RC_ASSERT(back.getUnixTimeStamp() == seconds);
}

RC_GTEST_PROP(DateTime, OrderFollowsTheTimeStamp, (long long a, long long b)) {
  DateTime x = DateTime::fromUnixTimeMillis(a), y = DateTime::fromUnixTimeMillis(b);
  RC_ASSERT((x < y) == (a < b));
  RC_ASSERT((x <= y) == (a <= b));
  RC_ASSERT((x > y) == (a > b));
  RC_ASSERT((x == y) == (a == b));
  RC_ASSERT(DateTime() < x);
}

TEST(DateTime, LocalStampFollowsTheTimeZone) {
  char const *saved = getenv("TZ");
  std::string savedTz = saved ? saved : "";
  DateTime d = DateTime::fromUnixTimeStamp(1795303899);

  setenv("TZ", "UTC", 1);
  tzset();
  EXPECT_EQ(d.dateTimeStampString(), "2026-11-21 23:31:39");
  setenv("TZ", "XYZ-2", 1); // two hours east of UTC
  tzset();
  EXPECT_EQ(d.dateTimeStampString(), "2026-11-22 01:31:39");
  EXPECT_EQ(d.toIso8601(), "2026-11-21T23:31:39Z") << "the ISO form is always UTC";

  if (saved)
    setenv("TZ", savedTz.c_str(), 1);
  else
    unsetenv("TZ");
  tzset();

  DateTime now = DateTime::getCurrentDateTime();
  std::time_t t = std::time(nullptr);
  EXPECT_LE(std::llabs(now.getUnixTimeStamp() - t), 1);
}
