#include "zel/TimeValue.h"

#include <time.h>

namespace zel {

TimeValue::TimeValue(std::int64_t seconds, std::int64_t microseconds) noexcept {
  seconds += microseconds / 1000000;
  microseconds %= 1000000;
  if (microseconds < 0) { // C++ division truncates towards zero
    microseconds += 1000000;
    seconds -= 1;
  }
  m_seconds = seconds;
  m_micros = static_cast<std::int32_t>(microseconds);
}

TimeValue TimeValue::getCurrentTime() {
  timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  return TimeValue(ts.tv_sec, ts.tv_nsec / 1000);
}

TimeValue TimeValue::fromMilliseconds(std::int64_t milliseconds) noexcept {
  return TimeValue(milliseconds / 1000, (milliseconds % 1000) * 1000);
}

} // namespace zel
