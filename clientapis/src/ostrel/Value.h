#pragma once
// ostrel5::Value: the one variant type of the public interface.
//
// A Value is a handle: it holds one pointer to a private heap block, and the
// block holds a locked shared holder of a zel::ValueImp. Copying a Value
// makes a new block with one more reference to the same zel::ValueImp, so
// values are shared, never duplicated; no operation changes the data, which
// makes the sharing invisible. Copies may live on different threads (the
// count is locked); the data is read-only.
//
// Reading is strict for integers and forgiving elsewhere:
//   - toInt32/toUint32/toUint64 forward to the 64-bit integer of the
//     implementation (the 32-bit forms keep the low half); a zel::TypeMismatch
//     reaches the caller;
//   - toDouble and toBool fall back to reading the string form
//     (zel::String::strToReal64, zel::String::strToBoolean) on a mismatch;
//   - the array accessors fall back to treating the value as its string form
//     (see each operation).
// zel::TypeMismatch is the only exception caught: any other one (an
// assertion on an array index, say) goes on to the caller.

#include "ostrel/DataType.h"
#include "zel/Array.h"
#include "zel/Resources.h"
#include "zel/String.h"

namespace zel {
class ValueImp;
}

namespace ostrel5 {

class Table;

/// 4294967295: a numeric setting that nobody has set.
unsigned int VALUE_NOT_SET();
/// "-1": a textual setting (a time held as text) that nobody has set.
zel::String const &VALUE_NOT_SET_STRING();

class Value {
public:
  /// No data: getType() is the DataType sentinel and toString() is empty.
  Value();
  /// A copy of the implementation object.
  Value(zel::ValueImp const &imp);
  Value(int value);
  Value(long value);
  Value(unsigned int value);
  Value(unsigned long value);
  Value(unsigned long long value);
  Value(bool value);
  Value(char const *text);
  Value(zel::String const &text);
  /// A DOUBLE.
  Value(double value);
  /// A STRINGARRAY of `count` texts, in order.
  Value(char const *const *texts, int count);
  /// A UINT32ARRAY of `count` numbers, in order.
  Value(unsigned int *const values, int count);
  Value(Value const &other);
  Value &operator=(Value const &other);
  ~Value();

  DataType getType() const;
  int toInt32() const;
  unsigned int toUint32() const;
  unsigned long long toUint64() const;
  double toDouble() const;
  bool toBool() const;
  /// The string form of the implementation (zel::ValueImp::toString(true)).
  zel::String toString() const;
  /// A new Table on a copy of the value's table; zel::TypeMismatch when the
  /// value is no table.
  Table toTable() const;
  /// The string form cut at every ",", whatever the type.
  zel::Array<zel::String> toZELStringArray() const;

  /// The number of texts of an array; for a value that is no array, 1 when
  /// its string form is longer than one character and 0 otherwise.
  unsigned int stringCount() const;
  /// Element `index` of an array as text; for a value that is no array, the
  /// string form whatever the index.
  zel::String stringAtIndex(unsigned int index) const;
  /// The size of a UINT32ARRAY; 0 for any other type.
  unsigned int uint32Count() const;
  /// Element `index` of a UINT32ARRAY; 0 for any other type.
  unsigned int uint32AtIndex(unsigned int index) const;

  bool operator==(Value const &other) const;
  bool operator!=(Value const &other) const;

private:
  struct Block;
  explicit Value(zel::ValueImp *adopted);

  Block *m_imp;
};

} // namespace ostrel5
