#include "ostrel/DateTime.h"

namespace ostrel5 {

DateTime::DateTime() : m_imp(new zel::DateTime()) {}

DateTime::DateTime(long long unixTimeStamp)
    : m_imp(new zel::DateTime(zel::DateTime::fromUnixTimeStamp(unixTimeStamp))) {}

DateTime::DateTime(zel::DateTime const &dateTime) : m_imp(new zel::DateTime(dateTime)) {}

DateTime::DateTime(DateTime const &other) : m_imp(other.m_imp) {}

DateTime &DateTime::operator=(DateTime const &other) {
  m_imp = other.m_imp;
  return *this;
}

DateTime::~DateTime() = default;

long long DateTime::getUnixTimeStamp() const { return m_imp->getUnixTimeStamp(); }

zel::DateTime const &DateTime::toZELDateTime() const { return *m_imp; }

bool DateTime::operator==(DateTime const &other) const { return *m_imp == *other.m_imp; }
bool DateTime::operator<(DateTime const &other) const { return *m_imp < *other.m_imp; }
bool DateTime::operator<=(DateTime const &other) const { return *m_imp <= *other.m_imp; }
bool DateTime::operator>(DateTime const &other) const { return *m_imp > *other.m_imp; }

} // namespace ostrel5
