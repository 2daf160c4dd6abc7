#pragma once
// zel::DateTime: a point in time with millisecond resolution, or "unset".
//
// A default-constructed DateTime is unset: it stands for "no time" (an open
// bound of a time span, a record without a time stamp). Rules for unset:
// - getUnixTimeStamp() and getUnixTimeMillis() give 0;
// - it equals only another unset value and orders before every set one, so
//   sorting puts records without a time first;
// - every text form is the empty text.
//
// Set values hold Unix time in milliseconds. Values made from a time stamp in
// seconds have 0 milliseconds; getCurrentDateTime() keeps the milliseconds of
// the clock. Comparison uses the milliseconds too.
//
// Text forms: toIso8601() / toString() give UTC with whole seconds
// ("2026-11-21T23:31:39Z", the form written to files and messages);
// toIso8601Millis() adds ".mmm"; dateTimeStampString() gives local time
// "YYYY-MM-DD HH:MM:SS" for log lines read by people.
//
// A plain value type; thread-compatible.

#include <cstdint>

#include "zel/String.h"

namespace zel {

class DateTime {
public:
  /// Unset.
  DateTime() noexcept = default;

  static DateTime fromUnixTimeStamp(long long seconds) noexcept;
  static DateTime fromUnixTimeMillis(long long milliseconds) noexcept;
  /// Now, from the wall clock.
  static DateTime getCurrentDateTime();

  bool isSet() const noexcept { return m_set; }
  /// Whole seconds (rounded towards the past); 0 when unset.
  long long getUnixTimeStamp() const noexcept;
  /// 0 when unset.
  long long getUnixTimeMillis() const noexcept { return m_set ? m_millis : 0; }
  /// Milliseconds within the second, 0..999 (0 when unset).
  int millisecondPart() const noexcept;

  /// "YYYY-MM-DDTHH:MM:SSZ" in UTC; "" when unset.
  String toIso8601() const;
  /// "YYYY-MM-DDTHH:MM:SS.mmmZ" in UTC; "" when unset.
  String toIso8601Millis() const;
  String toString() const { return toIso8601(); }
  /// "YYYY-MM-DD HH:MM:SS" in the local time zone; "" when unset.
  String dateTimeStampString() const;

  /// Reads "YYYY-MM-DDTHH:MM:SS" with an optional fraction (".5", ".123";
  /// digits past the milliseconds are dropped) and a required zone: "Z" or an
  /// offset "+HH:MM", "-HH:MM", "+HHMM". "T" may also be "t" or a blank;
  /// blanks around the text are ignored. Fields must be in range (seconds
  /// 0..59). On success the value is set and true is returned; otherwise the
  /// value is left as it was.
  bool fromIso8601(String const &text);

  friend bool operator==(DateTime const &a, DateTime const &b) noexcept {
    return a.m_set == b.m_set && (!a.m_set || a.m_millis == b.m_millis);
  }
  friend bool operator!=(DateTime const &a, DateTime const &b) noexcept { return !(a == b); }
  friend bool operator<(DateTime const &a, DateTime const &b) noexcept {
    if (!a.m_set || !b.m_set)
      return !a.m_set && b.m_set;
    return a.m_millis < b.m_millis;
  }
  friend bool operator>(DateTime const &a, DateTime const &b) noexcept { return b < a; }
  friend bool operator<=(DateTime const &a, DateTime const &b) noexcept { return !(b < a); }
  friend bool operator>=(DateTime const &a, DateTime const &b) noexcept { return !(a < b); }

private:
  long long m_millis = 0;
  bool m_set = false;
};

} // namespace zel
