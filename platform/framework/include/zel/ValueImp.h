#pragma once
// zel::ValueImp: the variant behind properties, test parameters and
// measurements. It holds one datum of one of the 17 DataType rows, or no
// data at all.
//
// What each type holds:
//   UINT32, INT32, UINT64, INT64   an integer of that width and sign
//   DOUBLE                          a double
//   PERCENT                         a double, in percent (45.5 means 45.5 %)
//   STRING, BOOLEAN                 a text, a truth value
//   STRINGARRAY, UINT32ARRAY, INT32ARRAY   arrays of those elements
//   DISCRETEMEASUREMENT             one reading: a number and its unit text
//                                   ("V", "rpm", "" for a bare count)
//   DISCRETEMEASUREMENTARRAY        an array of readings
//   NONDISCRETEMEASUREMENT          a summary of a series of readings taken
//                                   over time: minimum, maximum and average,
//                                   with one unit
//   TABLE                           a zel::Table
//   LOCALIZEDSTRING                 a display text and the resource key it
//                                   was looked up under; the producer (the
//                                   engine) resolves the text in the
//                                   client's language, so the value carries
//                                   no language machinery of its own
//   LOCALIZEDSTRINGARRAY            an array of those
// A default-constructed value holds no data: its type() is the DataType
// sentinel, its string form is empty and every typed accessor throws.
//
// Reading. The typed accessors convert where no information is invented and
// throw zel::TypeMismatch otherwise:
//   value()        the integer types, and BOOLEAN as 0 or 1; 64 bits, signed
//                  types sign-extended (callers keep the low half for 32 bits)
//   valueDouble()  the integer types, DOUBLE, PERCENT, DISCRETEMEASUREMENT
//                  (the reading) and NONDISCRETEMEASUREMENT (the average)
//   valueBool()    BOOLEAN, and the integer types (non-zero is true)
//   stringArraySize() / getStringInArray(i)
//                  every array type; an element is given in its string form
//   Uint32ArraySize() / getUint32InArray(i)     UINT32ARRAY only
//   localizedStringArraySize() / getLocalizedStringInArray(i)
//                  LOCALIZEDSTRINGARRAY only
// Everything else reads only its own type. An array index at or past the
// size fails the assertion "index < size()".
//
// String form (toString). Integers in decimal; doubles as the shortest text
// that reads back to the same number; booleans "true"/"false"; PERCENT as
// the number and "%" ("45.5%"); a reading as "3.3 V" (just "42" without a
// unit); a series as "2.3 V (min 1.2; max 3.4)"; a table as its text
// rendering; arrays as their elements' forms joined by "," without blanks,
// so that cutting the form at "," gives the elements back (elements that
// themselves contain "," cannot survive that, by the nature of the form).
// LOCALIZEDSTRING gives its text, or with localized == false its key.
//
// Parsing (the constructor from text and a type). The declared type decides:
// text is read strictly as that type ("abc" as UINT32, "300" as a negative-free
// 32-bit number out of range, "maybe" as BOOLEAN are all TypeMismatch).
// Integers and numbers may have blanks around them; BOOLEAN takes
// true/yes/on/1 and false/no/off/0 without regard to case; PERCENT takes an
// optional "%"; measurements take their string form back; arrays are cut at
// "," (the empty text is the empty array) and every element read as its
// type; STRING and the localised kinds take the text as it is (with an empty
// key). A TABLE cannot be read from text. So every value except a table, and
// except arrays of texts holding ",", survives toString() and back.
//
// Equality compares type and content: UINT32 5 and UINT64 5 differ. Two NaN
// doubles are equal, so that a value equals its copy.
//
// A plain value type: copies are deep. Thread-compatible.

#include <cstdint>
#include <variant>

#include "zel/Array.h"
#include "zel/DataTypeImp.h"
#include "zel/String.h"
#include "zel/Table.h"
#include "zel/ZELValue.h"

namespace zel {

/// One reading and its unit.
class DiscreteMeasurement {
public:
  DiscreteMeasurement() = default;
  DiscreteMeasurement(double value, String const &unit) : m_value(value), m_unit(unit) {}

  double value() const noexcept { return m_value; }
  String const &unit() const noexcept { return m_unit; }
  /// "3.3 V", or "42" without a unit.
  String toString() const;
  /// Reads toString()'s form: a number, then optionally blanks and a unit.
  static bool parse(String const &text, DiscreteMeasurement &out);

  friend bool operator==(DiscreteMeasurement const &a, DiscreteMeasurement const &b) noexcept;
  friend bool operator!=(DiscreteMeasurement const &a, DiscreteMeasurement const &b) noexcept {
    return !(a == b);
  }

private:
  double m_value = 0.0;
  String m_unit;
};

/// A series of readings summed up: minimum, maximum, average and one unit.
class NonDiscreteMeasurement {
public:
  NonDiscreteMeasurement() = default;
  NonDiscreteMeasurement(double minimum, double maximum, double average, String const &unit)
      : m_min(minimum), m_max(maximum), m_avg(average), m_unit(unit) {}

  double minimum() const noexcept { return m_min; }
  double maximum() const noexcept { return m_max; }
  double average() const noexcept { return m_avg; }
  String const &unit() const noexcept { return m_unit; }
  /// "2.3 V (min 1.2; max 3.4)": the average first, as it is what a reader
  /// looks for; no "," so the form stays one element when cut at ",".
  String toString() const;
  static bool parse(String const &text, NonDiscreteMeasurement &out);

  friend bool operator==(NonDiscreteMeasurement const &a, NonDiscreteMeasurement const &b) noexcept;
  friend bool operator!=(NonDiscreteMeasurement const &a,
                         NonDiscreteMeasurement const &b) noexcept {
    return !(a == b);
  }

private:
  double m_min = 0.0;
  double m_max = 0.0;
  double m_avg = 0.0;
  String m_unit;
};

/// A display text with the resource key it came from (the key may be empty).
class LocalizedString {
public:
  LocalizedString() = default;
  LocalizedString(String const &key, String const &text) : m_key(key), m_text(text) {}

  String const &key() const noexcept { return m_key; }
  String const &text() const noexcept { return m_text; }

  friend bool operator==(LocalizedString const &a, LocalizedString const &b) noexcept {
    return a.m_key == b.m_key && a.m_text == b.m_text;
  }
  friend bool operator!=(LocalizedString const &a, LocalizedString const &b) noexcept {
    return !(a == b);
  }

private:
  String m_key;
  String m_text;
};

class ValueImp {
public:
  /// No data.
  ValueImp() noexcept;
  ValueImp(int value);                //  INT32
  ValueImp(long value);               //  INT64
  ValueImp(long long value);          //  INT64
  ValueImp(unsigned int value);       //  UINT32
  ValueImp(unsigned long value);      //  UINT64
  ValueImp(unsigned long long value); //  UINT64
  ValueImp(bool value);               //  BOOLEAN
  ValueImp(char const *text);         //  STRING (null is the empty text)
  ValueImp(String const &text);       //  STRING
  ValueImp(String &&text) noexcept;   //  STRING (takes the text over)
  /// A number stored as `type`: DOUBLE or PERCENT as given; an integer type
  /// when the number is whole and in range. TypeMismatch otherwise.
  ValueImp(double value, DataTypeImp type);
  ValueImp(Array<String> const &values);              //  STRINGARRAY
  ValueImp(Array<unsigned int> const &values);        //  UINT32ARRAY
  ValueImp(Array<int> const &values);                 //  INT32ARRAY
  ValueImp(DiscreteMeasurement const &value);         //  DISCRETEMEASUREMENT
  ValueImp(Array<DiscreteMeasurement> const &values); //  DISCRETEMEASUREMENTARRAY
  ValueImp(NonDiscreteMeasurement const &value);      //  NONDISCRETEMEASUREMENT
  ValueImp(LocalizedString const &value);             //  LOCALIZEDSTRING
  ValueImp(Array<LocalizedString> const &values);     //  LOCALIZEDSTRINGARRAY
  explicit ValueImp(Table const &table);              //  TABLE
  /// Reads `text` as `type` (see the header); TypeMismatch when it does not fit.
  ValueImp(String const &text, DataTypeImp type);
  /// The type follows the cell's kind; an empty cell gives no data.
  explicit ValueImp(ZELValue const &cell);

  /// The DataType row; the sentinel when there is no data.
  DataTypeImp type() const noexcept { return m_type; }
  bool hasData() const noexcept { return m_data.index() != 0; }

  long long value() const;
  double valueDouble() const;
  bool valueBool() const;
  /// STRING only.
  String const &valueString() const;
  DiscreteMeasurement const &valueDiscreteMeasurement() const;
  NonDiscreteMeasurement const &valueNonDiscreteMeasurement() const;
  LocalizedString const &valueLocalizedString() const;
  Table const &valueTable() const;
  Array<String> const &valueStringArray() const;
  Array<unsigned int> const &valueUint32Array() const;
  Array<int> const &valueInt32Array() const;
  Array<DiscreteMeasurement> const &valueDiscreteMeasurementArray() const;
  Array<LocalizedString> const &valueLocalizedStringArray() const;

  unsigned int stringArraySize() const;
  String getStringInArray(unsigned int index) const;
  unsigned int Uint32ArraySize() const;
  unsigned int getUint32InArray(unsigned int index) const;
  unsigned int localizedStringArraySize() const;
  LocalizedString const &getLocalizedStringInArray(unsigned int index) const;

  String toString(bool localized = true) const;
  /// Replaces `out` with the value's pieces: an array's elements, a table's
  /// cell texts in cell-index order, a scalar's string form; nothing for no
  /// data.
  static void toStringArray(ValueImp const &value, Array<String> &out, bool localized);

  friend bool operator==(ValueImp const &a, ValueImp const &b);
  friend bool operator!=(ValueImp const &a, ValueImp const &b) { return !(a == b); }

private:
  using Storage = std::variant<std::monostate, bool, long long, unsigned long long, double, String,
                               Array<String>, Array<unsigned int>, Array<int>, DiscreteMeasurement,
                               Table, Array<DiscreteMeasurement>, NonDiscreteMeasurement,
                               LocalizedString, Array<LocalizedString>>;

  [[noreturn]] void mismatch(char const *wanted) const;

  DataTypeImp m_type = DataTypeImp::sentinel();
  Storage m_data;
};

} // namespace zel
