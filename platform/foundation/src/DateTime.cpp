#include "zel/DateTime.h"

#include <time.h>

#include <cstdio>

namespace zel {

namespace {

// Proleptic Gregorian calendar <-> days since 1970-01-01, valid for every year
// a long long can hold; counting in 400-year eras keeps it free of time_t
// limits and of the time zone.
long long daysFromCivil(long long y, unsigned m, unsigned d) {
  y -= m <= 2;
  long long era = (y >= 0 ? y : y - 399) / 400;
  long long yoe = y - era * 400;                                   // 0..399
  long long doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1; // 0..365
  long long doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;           // 0..146096
  return era * 146097 + doe - 719468;
}

struct Civil {
  long long year;
  unsigned month, day, hour, minute, second, millis;
};

long long floorDiv(long long a, long long b) {
  return a / b - ((a % b != 0) && ((a < 0) != (b < 0)));
}

Civil civilFromMillis(long long millis) {
  long long secs = floorDiv(millis, 1000);
  Civil c;
  c.millis = static_cast<unsigned>(millis - secs * 1000);
  long long days = floorDiv(secs, 86400);
  long long sod = secs - days * 86400;
  c.hour = static_cast<unsigned>(sod / 3600);
  c.minute = static_cast<unsigned>(sod % 3600 / 60);
  c.second = static_cast<unsigned>(sod % 60);

  long long z = days + 719468;
  long long era = (z >= 0 ? z : z - 146096) / 146097;
  long long doe = z - era * 146097;
  long long yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  long long doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  long long mp = (5 * doy + 2) / 153;
  c.day = static_cast<unsigned>(doy - (153 * mp + 2) / 5 + 1);
  c.month = static_cast<unsigned>(mp < 10 ? mp + 3 : mp - 9);
  c.year = yoe + era * 400 + (c.month <= 2);
  return c;
}

bool isLeap(long long y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

unsigned daysInMonth(long long y, unsigned m) {
  static unsigned const days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return m == 2 && isLeap(y) ? 29 : days[m - 1];
}

// Reads exactly n decimal digits at p.
bool digits(char const *&p, int n, unsigned &out) {
  out = 0;
  for (int i = 0; i < n; ++i, ++p) {
    if (*p < '0' || *p > '9')
      return false;
    out = out * 10 + static_cast<unsigned>(*p - '0');
  }
  return true;
}

bool expect(char const *&p, char c) {
  if (*p != c)
    return false;
  ++p;
  return true;
}

} // namespace

DateTime DateTime::fromUnixTimeStamp(long long seconds) noexcept {
  return fromUnixTimeMillis(seconds * 1000);
}

DateTime DateTime::fromUnixTimeMillis(long long milliseconds) noexcept {
  DateTime d;
  d.m_millis = milliseconds;
  d.m_set = true;
  return d;
}

DateTime DateTime::getCurrentDateTime() {
  timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  return fromUnixTimeMillis(static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000);
}

long long DateTime::getUnixTimeStamp() const noexcept {
  return m_set ? floorDiv(m_millis, 1000) : 0;
}

int DateTime::millisecondPart() const noexcept {
  return m_set ? static_cast<int>(m_millis - floorDiv(m_millis, 1000) * 1000) : 0;
}

String DateTime::toIso8601() const {
  if (!m_set)
    return String();
  Civil c = civilFromMillis(m_millis);
  return String::format("%04lld-%02u-%02uT%02u:%02u:%02uZ", c.year, c.month, c.day, c.hour,
                        c.minute, c.second);
}

String DateTime::toIso8601Millis() const {
  if (!m_set)
    return String();
  Civil c = civilFromMillis(m_millis);
  return String::format("%04lld-%02u-%02uT%02u:%02u:%02u.%03uZ", c.year, c.month, c.day, c.hour,
                        c.minute, c.second, c.millis);
}

String DateTime::dateTimeStampString() const {
  if (!m_set)
    return String();
  time_t secs = static_cast<time_t>(getUnixTimeStamp());
  struct tm local;
  if (!localtime_r(&secs, &local))
    return String();
  char buf[64];
  std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02d", local.tm_year + 1900,
                local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
  return String(buf);
}

bool DateTime::fromIso8601(String const &text) {
  String trimmed = text.trim();
  char const *p = trimmed.c_str();
  unsigned year, month, day, hour, minute, second;
  if (!digits(p, 4, year) || !expect(p, '-') || !digits(p, 2, month) || !expect(p, '-') ||
      !digits(p, 2, day))
    return false;
  if (*p != 'T' && *p != 't' && *p != ' ')
    return false;
  ++p;
  if (!digits(p, 2, hour) || !expect(p, ':') || !digits(p, 2, minute) || !expect(p, ':') ||
      !digits(p, 2, second))
    return false;
  if (month < 1 || month > 12 || day < 1 || day > daysInMonth(year, month) || hour > 23 ||
      minute > 59 || second > 59)
    return false;

  unsigned millis = 0;
  if (*p == '.' || *p == ',') {
    ++p;
    int n = 0;
    for (; *p >= '0' && *p <= '9'; ++p, ++n)
      if (n < 3)
        millis = millis * 10 + static_cast<unsigned>(*p - '0');
    if (n == 0)
      return false;
    for (; n < 3; ++n)
      millis *= 10;
  }

  long long offsetMinutes = 0;
  if (*p == 'Z' || *p == 'z') {
    ++p;
  } else if (*p == '+' || *p == '-') {
    int sign = *p == '-' ? -1 : 1;
    ++p;
    unsigned oh, om;
    if (!digits(p, 2, oh))
      return false;
    if (*p == ':')
      ++p;
    if (!digits(p, 2, om) || oh > 23 || om > 59)
      return false;
    offsetMinutes = sign * static_cast<long long>(oh * 60 + om);
  } else {
    return false; // a time without a zone is ambiguous
  }
  if (*p != '\0')
    return false;

  long long secs = daysFromCivil(year, month, day) * 86400 + hour * 3600LL + minute * 60LL +
                   second - offsetMinutes * 60;
  m_millis = secs * 1000 + millis;
  m_set = true;
  return true;
}

} // namespace zel
