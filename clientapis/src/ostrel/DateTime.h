#pragma once
// ostrel5::DateTime: a point in time, or unset.
//
// Holds a zel::SharedResource with an *unlocked* count on a zel::DateTime:
// copies share the object and are cheap, but every copy of one DateTime must
// stay on one thread at a time. The value is never changed after
// construction.
//
// The default constructor gives an unset time (no time bound). Unset orders
// before every set time and equals only another unset one (the rules of
// zel::DateTime). Only ==, <, <= and > exist; there is deliberately no >=
// and no !=.

#include "zel/DateTime.h"
#include "zel/Resources.h"

namespace ostrel5 {

class DateTime {
public:
  /// Unset.
  DateTime();
  /// From a Unix time stamp in seconds.
  DateTime(long long unixTimeStamp);
  DateTime(zel::DateTime const &dateTime);
  DateTime(DateTime const &other);
  DateTime &operator=(DateTime const &other);
  ~DateTime();

  /// Seconds since the Unix epoch; 0 when unset.
  long long getUnixTimeStamp() const;
  zel::DateTime const &toZELDateTime() const;

  bool operator==(DateTime const &other) const;
  bool operator<(DateTime const &other) const;
  bool operator<=(DateTime const &other) const;
  bool operator>(DateTime const &other) const;

private:
  zel::SharedResource<zel::PointerStorage<zel::DateTime, 0, 3>, 0> m_imp;
};

} // namespace ostrel5
