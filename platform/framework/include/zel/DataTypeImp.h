#pragma once
// zel::DataTypeImp: the data type of a value, a property or a test parameter.
// Row numbers are those of the public ostrel5::DataType; string equals name.

#include "zel/ConstantTable.h"

// Rows in order: X(NAME, "string").
#define ZEL_DATATYPE_ROWS(X)                                                                       \
  X(UINT32, "UINT32")                                                                              \
  X(INT32, "INT32")                                                                                \
  X(UINT64, "UINT64")                                                                              \
  X(INT64, "INT64")                                                                                \
  X(DOUBLE, "DOUBLE")                                                                              \
  X(STRING, "STRING")                                                                              \
  X(BOOLEAN, "BOOLEAN")                                                                            \
  X(PERCENT, "PERCENT")                                                                            \
  X(STRINGARRAY, "STRINGARRAY")                                                                    \
  X(UINT32ARRAY, "UINT32ARRAY")                                                                    \
  X(INT32ARRAY, "INT32ARRAY")                                                                      \
  X(DISCRETEMEASUREMENT, "DISCRETEMEASUREMENT")                                                    \
  X(TABLE, "TABLE")                                                                                \
  X(DISCRETEMEASUREMENTARRAY, "DISCRETEMEASUREMENTARRAY")                                          \
  X(NONDISCRETEMEASUREMENT, "NONDISCRETEMEASUREMENT")                                              \
  X(LOCALIZEDSTRING, "LOCALIZEDSTRING")                                                            \
  X(LOCALIZEDSTRINGARRAY, "LOCALIZEDSTRINGARRAY")

namespace zel {

namespace rows {
struct DataType {
  enum DataType_ENUM : unsigned int { ZEL_DATATYPE_ROWS(ZEL_CONSTANT_ENUMERATOR) };
};
} // namespace rows

/// A DataType row: `DataTypeImp t = DataTypeImp::STRING; switch (t.enumValue()) ...`.
/// See zel/ConstantTable.h for the common operations and the sentinel.
class DataTypeImp : public rows::DataType,
                    public ConstantImp<DataTypeImp, rows::DataType::DataType_ENUM> {
public:
  using ConstantImp::ConstantImp;
  static ConstantTable<ConstantRow> const &table() noexcept;
};

} // namespace zel
