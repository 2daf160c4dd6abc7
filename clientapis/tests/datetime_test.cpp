#include <gtest/gtest.h>

#include <type_traits>
#include <utility>

#include "ostrel/DateTime.h"

using ostrel5::DateTime;

namespace {

// Detects `a >= b` and `a != b`, which must not exist for DateTime.
template <class T, class = void> struct HasGreaterEqual : std::false_type {};
template <class T>
struct HasGreaterEqual<T, std::void_t<decltype(std::declval<T>() >= std::declval<T>())>>
    : std::true_type {};
template <class T, class = void> struct HasNotEqual : std::false_type {};
template <class T>
struct HasNotEqual<T, std::void_t<decltype(std::declval<T>() != std::declval<T>())>>
    : std::true_type {};

static_assert(!HasGreaterEqual<DateTime const &>::value, "DateTime has no >=");
static_assert(!HasNotEqual<DateTime const &>::value, "DateTime has no !=");
static_assert(HasGreaterEqual<zel::DateTime const &>::value, "the detector works");

} // namespace

TEST(DateTime, UnsetOrdersBeforeEverySetTime) {
  DateTime unset, alsoUnset, epoch(0LL), later(1700000000LL);
  EXPECT_EQ(unset.getUnixTimeStamp(), 0);
  EXPECT_FALSE(unset.toZELDateTime().isSet());
  EXPECT_TRUE(unset == alsoUnset);
  EXPECT_FALSE(unset == epoch); // same stamp, but one of them is not set
  EXPECT_TRUE(unset < epoch);
  EXPECT_FALSE(epoch < unset);
  EXPECT_TRUE(epoch > unset);
  EXPECT_TRUE(unset <= alsoUnset);
  EXPECT_FALSE(unset < alsoUnset);
  EXPECT_TRUE(epoch < later);
  EXPECT_TRUE(later > epoch);
  EXPECT_TRUE(epoch <= later);
  EXPECT_FALSE(later <= epoch);
  EXPECT_TRUE(later <= later);
}

TEST(DateTime, TimeStampsSurviveAndCopiesShareTheObject) {
  DateTime t(-86400LL);
  EXPECT_EQ(t.getUnixTimeStamp(), -86400);
  DateTime copy(t);
  EXPECT_EQ(&copy.toZELDateTime(), &t.toZELDateTime());
  DateTime assigned;
  assigned = t;
  EXPECT_EQ(&assigned.toZELDateTime(), &t.toZELDateTime());
  assigned = assigned;
  EXPECT_EQ(assigned.getUnixTimeStamp(), -86400);

  zel::DateTime precise = zel::DateTime::fromUnixTimeMillis(1500);
  DateTime fromZel(precise);
  EXPECT_EQ(fromZel.getUnixTimeStamp(), 1);
  EXPECT_TRUE(DateTime(1LL) < fromZel); // the milliseconds count in comparisons
  EXPECT_NE(&fromZel.toZELDateTime(), &precise);
}
