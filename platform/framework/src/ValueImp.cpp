#include "zel/ValueImp.h"

#include <cerrno>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "zel/Exception.h"

namespace zel {

namespace {

using T = DataTypeImp;

bool sameDouble(double a, double b) noexcept { return a == b || (std::isnan(a) && std::isnan(b)); }

[[noreturn]] void unreadable(String const &text, DataTypeImp type) {
  throw TypeMismatch(String::format("Cannot read \"%s\" as %s", text.c_str(),
                                    type.isValid() ? type.toString().c_str() : "a value"));
}

// A number at the start of `text` (after blanks); `rest` gets what follows.
bool leadingNumber(String const &text, double &value, String &rest) {
  char const *begin = text.c_str();
  while (*begin == ' ' || *begin == '\t')
    ++begin;
  if (*begin == '\0')
    return false;
  char *end = nullptr;
  errno = 0;
  value = std::strtod(begin, &end);
  if (end == begin || (errno == ERANGE && std::isinf(value)))
    return false;
  rest = String(end);
  return true;
}

bool wholeNumber(String const &text, double &value) {
  String rest;
  return leadingNumber(text, value, rest) && rest.trim().isEmpty();
}

bool isBlank(char c) noexcept {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

// Strict integer reading of [p, end): blanks around it, an optional sign,
// digits and nothing else, within the range of I (from_chars checks it and
// refuses "-" for unsigned types).
template <class I> bool readInteger(char const *p, char const *end, I &value) {
  while (p < end && isBlank(*p))
    ++p;
  while (end > p && isBlank(end[-1]))
    --end;
  if (p < end && *p == '+' && !(p + 1 < end && p[1] == '-'))
    ++p;
  if (p == end)
    return false;
  std::from_chars_result r = std::from_chars(p, end, value);
  return r.ec == std::errc() && r.ptr == end;
}

template <class I> I readScalar(String const &text, DataTypeImp type) {
  I value{};
  if (!readInteger(text.data(), text.data() + text.length(), value))
    unreadable(text, type);
  return value;
}

// Comma-separated integers; the empty text is the empty array. Walks the
// text in place: arrays of thousands of numbers are common in properties.
template <class I> Array<I> readIntegerList(String const &text, DataTypeImp type) {
  Array<I> out;
  char const *p = text.data();
  char const *end = p + text.length();
  if (p == end)
    return out;
  for (;;) {
    char const *comma = static_cast<char const *>(std::memchr(p, ',', std::size_t(end - p)));
    char const *stop = comma ? comma : end;
    I value{};
    if (!readInteger(p, stop, value))
      unreadable(text, type);
    out.append(value);
    if (!comma)
      return out;
    p = comma + 1;
  }
}

template <class I> String joinIntegers(Array<I> const &items) {
  std::string out;
  out.reserve(items.size() * 6);
  char buf[24];
  for (std::size_t i = 0; i < items.size(); ++i) {
    if (i)
      out += ',';
    std::to_chars_result r = std::to_chars(buf, buf + sizeof buf, items[i]);
    out.append(buf, r.ptr);
  }
  return String(std::move(out));
}

bool readBoolean(String const &text, bool &value) {
  String t = text.trim();
  for (char const *yes : {"true", "yes", "on", "1"})
    if (t.equalNoCase(yes)) {
      value = true;
      return true;
    }
  for (char const *no : {"false", "no", "off", "0"})
    if (t.equalNoCase(no)) {
      value = false;
      return true;
    }
  return false;
}

// The empty text is the empty array; otherwise one element per ",".
Array<String> elements(String const &text) {
  return text.isEmpty() ? Array<String>() : text.tokenize(",");
}

template <class E, class F> String join(Array<E> const &items, F form) {
  String out;
  bool firstOne = true;
  for (E const &item : items) {
    if (!firstOne)
      out += ',';
    firstOne = false;
    out += form(item);
  }
  return out;
}

} // namespace

// ------------------------------------------------------------ measurements

String DiscreteMeasurement::toString() const {
  String out = String::fromReal64(m_value);
  if (!m_unit.isEmpty())
    out += " " + m_unit;
  return out;
}

bool DiscreteMeasurement::parse(String const &text, DiscreteMeasurement &out) {
  double v = 0;
  String rest;
  if (!leadingNumber(text, v, rest))
    return false;
  out = DiscreteMeasurement(v, rest.trim());
  return true;
}

bool operator==(DiscreteMeasurement const &a, DiscreteMeasurement const &b) noexcept {
  return sameDouble(a.m_value, b.m_value) && a.m_unit == b.m_unit;
}

String NonDiscreteMeasurement::toString() const {
  return DiscreteMeasurement(m_avg, m_unit).toString() + " (min " + String::fromReal64(m_min) +
         "; max " + String::fromReal64(m_max) + ")";
}

bool NonDiscreteMeasurement::parse(String const &text, NonDiscreteMeasurement &out) {
  String t = text.trim();
  std::size_t open = t.rfind("(");
  if (open == String::npos || !t.endsWith(")"))
    return false;
  DiscreteMeasurement head;
  if (!DiscreteMeasurement::parse(t.substring(0, open), head))
    return false;
  Array<String> parts = t.substring(open + 1, t.length() - open - 2).tokenize(";");
  if (parts.size() != 2)
    return false;
  String lo = parts[0].trim(), hi = parts[1].trim();
  double mn = 0, mx = 0;
  if (!lo.startsWith("min ") || !hi.startsWith("max ") || !wholeNumber(lo.substring(4), mn) ||
      !wholeNumber(hi.substring(4), mx))
    return false;
  out = NonDiscreteMeasurement(mn, mx, head.value(), head.unit());
  return true;
}

bool operator==(NonDiscreteMeasurement const &a, NonDiscreteMeasurement const &b) noexcept {
  return sameDouble(a.m_min, b.m_min) && sameDouble(a.m_max, b.m_max) &&
         sameDouble(a.m_avg, b.m_avg) && a.m_unit == b.m_unit;
}

// ------------------------------------------------------------ construction

ValueImp::ValueImp() noexcept : m_type(T::sentinel()) {}
ValueImp::ValueImp(int value) : m_type(T::INT32), m_data(static_cast<long long>(value)) {}
ValueImp::ValueImp(long value) : m_type(T::INT64), m_data(static_cast<long long>(value)) {}
ValueImp::ValueImp(long long value) : m_type(T::INT64), m_data(value) {}
ValueImp::ValueImp(unsigned int value)
    : m_type(T::UINT32), m_data(static_cast<unsigned long long>(value)) {}
ValueImp::ValueImp(unsigned long value)
    : m_type(T::UINT64), m_data(static_cast<unsigned long long>(value)) {}
ValueImp::ValueImp(unsigned long long value) : m_type(T::UINT64), m_data(value) {}
ValueImp::ValueImp(bool value) : m_type(T::BOOLEAN), m_data(value) {}
ValueImp::ValueImp(char const *text) : m_type(T::STRING), m_data(String(text)) {}
ValueImp::ValueImp(String const &text) : m_type(T::STRING), m_data(text) {}
ValueImp::ValueImp(String &&text) noexcept
    : m_type(T::STRING), m_data(std::in_place_type<String>, std::move(text)) {}
ValueImp::ValueImp(Array<String> const &values) : m_type(T::STRINGARRAY), m_data(values) {}
ValueImp::ValueImp(Array<unsigned int> const &values) : m_type(T::UINT32ARRAY), m_data(values) {}
ValueImp::ValueImp(Array<int> const &values) : m_type(T::INT32ARRAY), m_data(values) {}
ValueImp::ValueImp(DiscreteMeasurement const &value)
    : m_type(T::DISCRETEMEASUREMENT), m_data(value) {}
ValueImp::ValueImp(Array<DiscreteMeasurement> const &values)
    : m_type(T::DISCRETEMEASUREMENTARRAY), m_data(values) {}
ValueImp::ValueImp(NonDiscreteMeasurement const &value)
    : m_type(T::NONDISCRETEMEASUREMENT), m_data(value) {}
ValueImp::ValueImp(LocalizedString const &value) : m_type(T::LOCALIZEDSTRING), m_data(value) {}
ValueImp::ValueImp(Array<LocalizedString> const &values)
    : m_type(T::LOCALIZEDSTRINGARRAY), m_data(values) {}
ValueImp::ValueImp(Table const &table) : m_type(T::TABLE), m_data(table) {}

ValueImp::ValueImp(double value, DataTypeImp type) : m_type(type) {
  // Whole numbers within the range of the integer type; 2^63 and 2^64 are
  // exactly representable, so the bounds below are exact.
  bool whole = std::isfinite(value) && std::trunc(value) == value;
  bool fits = false;
  switch (type.enumValue()) {
  case T::DOUBLE:
  case T::PERCENT:
    m_data = value;
    return;
  case T::INT32:
    fits = whole && value >= INT_MIN && value <= INT_MAX;
    break;
  case T::INT64:
    fits = whole && value >= -9223372036854775808.0 && value < 9223372036854775808.0;
    break;
  case T::UINT32:
    fits = whole && value >= 0 && value <= UINT_MAX;
    break;
  case T::UINT64:
    fits = whole && value >= 0 && value < 18446744073709551616.0;
    break;
  default:
    break;
  }
  if (fits && (type == T::INT32 || type == T::INT64)) {
    m_data = static_cast<long long>(value);
    return;
  }
  if (fits) {
    m_data = static_cast<unsigned long long>(value);
    return;
  }
  throw TypeMismatch(String::format("The number %s cannot be held as %s",
                                    String::fromReal64(value).c_str(),
                                    type.isValid() ? type.toString().c_str() : "a value"));
}

ValueImp::ValueImp(String const &text, DataTypeImp type) : m_type(type) {
  switch (type.enumValue()) {
  case T::UINT32:
    m_data = static_cast<unsigned long long>(readScalar<unsigned int>(text, type));
    return;
  case T::UINT64:
    m_data = readScalar<unsigned long long>(text, type);
    return;
  case T::INT32:
    m_data = static_cast<long long>(readScalar<int>(text, type));
    return;
  case T::INT64:
    m_data = readScalar<long long>(text, type);
    return;
  case T::DOUBLE: {
    double v = 0;
    if (!wholeNumber(text, v))
      unreadable(text, type);
    m_data = v;
    return;
  }
  case T::PERCENT: {
    String t = text.trim();
    if (t.endsWith("%"))
      t = t.substring(0, t.length() - 1);
    double v = 0;
    if (!wholeNumber(t, v))
      unreadable(text, type);
    m_data = v;
    return;
  }
  case T::STRING:
    m_data = text;
    return;
  case T::BOOLEAN: {
    bool b = false;
    if (!readBoolean(text, b))
      unreadable(text, type);
    m_data = b;
    return;
  }
  case T::STRINGARRAY:
    m_data = elements(text);
    return;
  case T::UINT32ARRAY:
    m_data = readIntegerList<unsigned int>(text, type);
    return;
  case T::INT32ARRAY:
    m_data = readIntegerList<int>(text, type);
    return;
  case T::DISCRETEMEASUREMENT: {
    DiscreteMeasurement m;
    if (!DiscreteMeasurement::parse(text, m))
      unreadable(text, type);
    m_data = m;
    return;
  }
  case T::DISCRETEMEASUREMENTARRAY: {
    Array<DiscreteMeasurement> out;
    for (String const &e : elements(text)) {
      DiscreteMeasurement m;
      if (!DiscreteMeasurement::parse(e, m))
        unreadable(text, type);
      out.append(m);
    }
    m_data = std::move(out);
    return;
  }
  case T::NONDISCRETEMEASUREMENT: {
    NonDiscreteMeasurement m;
    if (!NonDiscreteMeasurement::parse(text, m))
      unreadable(text, type);
    m_data = m;
    return;
  }
  case T::LOCALIZEDSTRING:
    m_data = LocalizedString(String(), text);
    return;
  case T::LOCALIZEDSTRINGARRAY: {
    Array<LocalizedString> out;
    for (String const &e : elements(text))
      out.append(LocalizedString(String(), e));
    m_data = std::move(out);
    return;
  }
  case T::TABLE:
    throw TypeMismatch("A TABLE cannot be read from text");
  default:
    unreadable(text, type);
  }
}

ValueImp::ValueImp(ZELValue const &cell) : m_type(T::sentinel()) {
  switch (cell.kind()) {
  case ZELValue::EMPTY:
    return;
  case ZELValue::INT32:
    m_type = T::INT32;
    m_data = cell.asInt64();
    return;
  case ZELValue::INT64:
    m_type = T::INT64;
    m_data = cell.asInt64();
    return;
  case ZELValue::UINT32:
    m_type = T::UINT32;
    m_data = cell.asUInt64();
    return;
  case ZELValue::UINT64:
    m_type = T::UINT64;
    m_data = cell.asUInt64();
    return;
  case ZELValue::DOUBLE:
    m_type = T::DOUBLE;
    m_data = cell.asDouble();
    return;
  case ZELValue::BOOLEAN:
    m_type = T::BOOLEAN;
    m_data = cell.asBool();
    return;
  case ZELValue::STRING:
    m_type = T::STRING;
    m_data = cell.asString();
    return;
  }
}

// ----------------------------------------------------------------- reading

void ValueImp::mismatch(char const *wanted) const {
  throw TypeMismatch(String::format("A value of type %s cannot be read as %s",
                                    hasData() ? m_type.toString().c_str() : "(none)", wanted));
}

long long ValueImp::value() const {
  if (auto const *b = std::get_if<bool>(&m_data))
    return *b ? 1 : 0;
  if (auto const *i = std::get_if<long long>(&m_data))
    return *i;
  if (auto const *u = std::get_if<unsigned long long>(&m_data))
    return static_cast<long long>(*u);
  mismatch("an integer");
}

double ValueImp::valueDouble() const {
  if (auto const *d = std::get_if<double>(&m_data))
    return *d;
  if (auto const *i = std::get_if<long long>(&m_data))
    return static_cast<double>(*i);
  if (auto const *u = std::get_if<unsigned long long>(&m_data))
    return static_cast<double>(*u);
  if (auto const *m = std::get_if<DiscreteMeasurement>(&m_data))
    return m->value();
  if (auto const *n = std::get_if<NonDiscreteMeasurement>(&m_data))
    return n->average();
  mismatch("a number");
}

bool ValueImp::valueBool() const {
  if (auto const *b = std::get_if<bool>(&m_data))
    return *b;
  if (auto const *i = std::get_if<long long>(&m_data))
    return *i != 0;
  if (auto const *u = std::get_if<unsigned long long>(&m_data))
    return *u != 0;
  mismatch("a boolean");
}

#define ZEL_VALUE_GETTER(Type, Name, Wanted)                                                       \
  Type const &ValueImp::Name() const {                                                             \
    if (auto const *p = std::get_if<Type>(&m_data))                                                \
      return *p;                                                                                   \
    mismatch(Wanted);                                                                              \
  }
ZEL_VALUE_GETTER(String, valueString, "a text")
ZEL_VALUE_GETTER(DiscreteMeasurement, valueDiscreteMeasurement, "a reading")
ZEL_VALUE_GETTER(NonDiscreteMeasurement, valueNonDiscreteMeasurement, "a series of readings")
ZEL_VALUE_GETTER(LocalizedString, valueLocalizedString, "a localised text")
ZEL_VALUE_GETTER(Table, valueTable, "a table")
ZEL_VALUE_GETTER(Array<String>, valueStringArray, "an array of texts")
ZEL_VALUE_GETTER(Array<unsigned int>, valueUint32Array, "an array of UINT32")
ZEL_VALUE_GETTER(Array<int>, valueInt32Array, "an array of INT32")
ZEL_VALUE_GETTER(Array<DiscreteMeasurement>, valueDiscreteMeasurementArray, "an array of readings")
ZEL_VALUE_GETTER(Array<LocalizedString>, valueLocalizedStringArray, "an array of localised texts")
#undef ZEL_VALUE_GETTER

unsigned int ValueImp::stringArraySize() const {
  return std::visit(
      [this](auto const &v) -> unsigned int {
        using V = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<V, Array<String>> || std::is_same_v<V, Array<unsigned int>> ||
                      std::is_same_v<V, Array<int>> ||
                      std::is_same_v<V, Array<DiscreteMeasurement>> ||
                      std::is_same_v<V, Array<LocalizedString>>)
          return static_cast<unsigned int>(v.size());
        else
          mismatch("an array");
      },
      m_data);
}

String ValueImp::getStringInArray(unsigned int index) const {
  return std::visit(
      [this, index](auto const &v) -> String {
        using V = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<V, Array<String>>)
          return v[index];
        else if constexpr (std::is_same_v<V, Array<unsigned int>>)
          return String::fromUInt(v[index]);
        else if constexpr (std::is_same_v<V, Array<int>>)
          return String::fromInt(v[index]);
        else if constexpr (std::is_same_v<V, Array<DiscreteMeasurement>>)
          return v[index].toString();
        else if constexpr (std::is_same_v<V, Array<LocalizedString>>)
          return v[index].text();
        else
          mismatch("an array");
      },
      m_data);
}

unsigned int ValueImp::Uint32ArraySize() const {
  return static_cast<unsigned int>(valueUint32Array().size());
}

unsigned int ValueImp::getUint32InArray(unsigned int index) const {
  return valueUint32Array()[index];
}

unsigned int ValueImp::localizedStringArraySize() const {
  return static_cast<unsigned int>(valueLocalizedStringArray().size());
}

LocalizedString const &ValueImp::getLocalizedStringInArray(unsigned int index) const {
  return valueLocalizedStringArray()[index];
}

// ------------------------------------------------------------- string form

String ValueImp::toString(bool localized) const {
  switch (m_data.index()) {
  case 0:
    return String();
  case 1:
    return String::fromBoolean(std::get<bool>(m_data));
  case 2:
    return String::fromInt(std::get<long long>(m_data));
  case 3:
    return String::fromUInt(std::get<unsigned long long>(m_data));
  case 4: {
    String out = String::fromReal64(std::get<double>(m_data));
    if (m_type == T::PERCENT)
      out += '%';
    return out;
  }
  case 5:
    return std::get<String>(m_data);
  case 6:
    return join(std::get<Array<String>>(m_data), [](String const &s) { return s; });
  case 7:
    return joinIntegers(std::get<Array<unsigned int>>(m_data));
  case 8:
    return joinIntegers(std::get<Array<int>>(m_data));
  case 9:
    return std::get<DiscreteMeasurement>(m_data).toString();
  case 10: {
    String out;
    std::get<Table>(m_data).renderText(out);
    return out;
  }
  case 11:
    return join(std::get<Array<DiscreteMeasurement>>(m_data),
                [](DiscreteMeasurement const &m) { return m.toString(); });
  case 12:
    return std::get<NonDiscreteMeasurement>(m_data).toString();
  case 13: {
    LocalizedString const &s = std::get<LocalizedString>(m_data);
    return localized ? s.text() : s.key();
  }
  case 14:
    return join(std::get<Array<LocalizedString>>(m_data),
                [localized](LocalizedString const &s) { return localized ? s.text() : s.key(); });
  }
  return String();
}

void ValueImp::toStringArray(ValueImp const &value, Array<String> &out, bool localized) {
  Array<String> result;
  if (auto const *table = std::get_if<Table>(&value.m_data)) {
    unsigned short r = 0, c = 0;
    for (unsigned int i = 0; table->getCellPosition(i, r, c); ++i)
      result.append(table->getCell(r, c).getValue().toString());
  } else if (auto const *texts = std::get_if<Array<LocalizedString>>(&value.m_data)) {
    for (LocalizedString const &s : *texts)
      result.append(localized ? s.text() : s.key());
  } else if (std::holds_alternative<Array<String>>(value.m_data) ||
             std::holds_alternative<Array<unsigned int>>(value.m_data) ||
             std::holds_alternative<Array<int>>(value.m_data) ||
             std::holds_alternative<Array<DiscreteMeasurement>>(value.m_data)) {
    unsigned int n = value.stringArraySize();
    for (unsigned int i = 0; i < n; ++i)
      result.append(value.getStringInArray(i));
  } else if (value.hasData()) {
    result.append(value.toString(localized));
  }
  out.swap(result);
}

bool operator==(ValueImp const &a, ValueImp const &b) {
  if (a.m_type != b.m_type || a.m_data.index() != b.m_data.index())
    return false;
  if (auto const *d = std::get_if<double>(&a.m_data))
    return sameDouble(*d, std::get<double>(b.m_data));
  return a.m_data == b.m_data;
}

} // namespace zel
