#include "zel/ZELValue.h"

#include <cmath>

#include "zel/Exception.h"

namespace zel {

namespace {
char const *kindName(ZELValue::Kind kind) {
  static char const *const names[] = {"EMPTY",  "INT32",  "UINT32",  "INT64",
                                      "UINT64", "DOUBLE", "BOOLEAN", "STRING"};
  return kind <= ZELValue::STRING ? names[kind] : "?";
}

[[noreturn]] void mismatch(ZELValue::Kind held, char const *wanted) {
  throw TypeMismatch(String::format("Cell value of kind %s read as %s", kindName(held), wanted));
}
} // namespace

long long ZELValue::asInt64() const {
  if (!isInteger())
    mismatch(m_kind, "an integer");
  return static_cast<long long>(m_int);
}

unsigned long long ZELValue::asUInt64() const {
  if (!isInteger())
    mismatch(m_kind, "an integer");
  return m_int;
}

double ZELValue::asDouble() const {
  switch (m_kind) {
  case INT32:
  case INT64:
    return static_cast<double>(static_cast<long long>(m_int));
  case UINT32:
  case UINT64:
    return static_cast<double>(m_int);
  case DOUBLE:
    return m_double;
  default:
    mismatch(m_kind, "a number");
  }
}

bool ZELValue::asBool() const {
  if (m_kind != BOOLEAN)
    mismatch(m_kind, "a boolean");
  return m_int != 0;
}

String const &ZELValue::asString() const {
  if (m_kind != STRING)
    mismatch(m_kind, "a text");
  return m_text;
}

String ZELValue::toString() const {
  switch (m_kind) {
  case EMPTY:
    return String();
  case INT32:
  case INT64:
    return String::fromInt(static_cast<long long>(m_int));
  case UINT32:
  case UINT64:
    return String::fromUInt(m_int);
  case DOUBLE:
    return String::fromReal64(m_double);
  case BOOLEAN:
    return String::fromBoolean(m_int != 0);
  case STRING:
    return m_text;
  }
  return String();
}

String ZELValue::toString(long long value) { return String::fromInt(value); }

bool operator==(ZELValue const &a, ZELValue const &b) noexcept {
  if (a.m_kind != b.m_kind)
    return false;
  switch (a.m_kind) {
  case ZELValue::EMPTY:
    return true;
  case ZELValue::DOUBLE:
    return a.m_double == b.m_double || (std::isnan(a.m_double) && std::isnan(b.m_double));
  case ZELValue::STRING:
    return a.m_text == b.m_text;
  default:
    return a.m_int == b.m_int;
  }
}

} // namespace zel
