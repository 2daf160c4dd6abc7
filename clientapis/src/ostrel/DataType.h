#pragma once
// ostrel5::DataType: the data type of a value, a device property or a test
// parameter. A wrapped constant of 17 rows, UINT32 .. LOCALIZEDSTRINGARRAY,
// each string equal to its name (rows: ZEL_DATATYPE_ROWS in zel/DataTypeImp.h;
// common operations: ostrel/ConstantClass.h). Converts to and from
// zel::DataTypeImp by row number.

#include "ostrel/ConstantClass.h"
#include "zel/DataTypeImp.h"

namespace ostrel5 {

class DataType : public SharedAll::ApiWrapper {
public:
  typedef zel::rows::DataType::DataType_ENUM DataType_ENUM;
  OSTREL5_CONSTANT_CLASS(DataType, zel::rows::DataType)
  OSTREL5_WRAPPED_CONSTANT(DataType)
  ZEL_DATATYPE_ROWS(OSTREL5_CONSTANT_ACCESSOR)

  DataType(zel::DataTypeImp const &imp) noexcept : m_enum(imp.enumValue()) {}
  zel::DataTypeImp imp() const noexcept { return zel::DataTypeImp(m_enum); }

private:
  DataType_ENUM m_enum;
};

} // namespace ostrel5
