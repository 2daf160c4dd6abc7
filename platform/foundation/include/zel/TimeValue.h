#pragma once
// zel::TimeValue: a wall-clock instant or a difference of two, as whole
// seconds plus microseconds.
//
// The value is kept normalised: microseconds() is always in 0..999999 and the
// sign lives in seconds(), so half a second before the epoch is {-1, 500000}.
// milliseconds() is seconds * 1000 + microseconds / 1000, which for such a
// value gives -500. A plain value type; thread-compatible.

#include <cstdint>

namespace zel {

class TimeValue {
public:
  constexpr TimeValue() noexcept = default;
  /// Any microseconds, also negative or >= 1000000, are carried into seconds.
  TimeValue(std::int64_t seconds, std::int64_t microseconds) noexcept;

  /// Now, on the wall clock (Unix time).
  static TimeValue getCurrentTime();
  static TimeValue fromMilliseconds(std::int64_t milliseconds) noexcept;

  std::int64_t seconds() const noexcept { return m_seconds; }
  /// 0..999999.
  std::int32_t microseconds() const noexcept { return m_micros; }
  /// seconds * 1000 + microseconds / 1000.
  std::int64_t milliseconds() const noexcept { return m_seconds * 1000 + m_micros / 1000; }
  std::int64_t totalMicroseconds() const noexcept { return m_seconds * 1000000 + m_micros; }

  friend TimeValue operator-(TimeValue const &a, TimeValue const &b) noexcept {
    return TimeValue(a.m_seconds - b.m_seconds, std::int64_t(a.m_micros) - b.m_micros);
  }
  friend TimeValue operator+(TimeValue const &a, TimeValue const &b) noexcept {
    return TimeValue(a.m_seconds + b.m_seconds, std::int64_t(a.m_micros) + b.m_micros);
  }
  friend bool operator==(TimeValue const &a, TimeValue const &b) noexcept {
    return a.m_seconds == b.m_seconds && a.m_micros == b.m_micros;
  }
  friend bool operator!=(TimeValue const &a, TimeValue const &b) noexcept { return !(a == b); }
  friend bool operator<(TimeValue const &a, TimeValue const &b) noexcept {
    return a.m_seconds < b.m_seconds || (a.m_seconds == b.m_seconds && a.m_micros < b.m_micros);
  }
  friend bool operator>(TimeValue const &a, TimeValue const &b) noexcept { return b < a; }
  friend bool operator<=(TimeValue const &a, TimeValue const &b) noexcept { return !(b < a); }
  friend bool operator>=(TimeValue const &a, TimeValue const &b) noexcept { return !(a < b); }

private:
  std::int64_t m_seconds = 0;
  std::int32_t m_micros = 0;
};

} // namespace zel
