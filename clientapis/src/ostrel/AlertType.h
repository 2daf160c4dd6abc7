#pragma once
// ostrel5::AlertType: the kind of an alert: 15 rows, ALL .. CRITICAL, each string equal
// to its name.
// A bare constant (the object is its 32-bit row number); rows: ZEL_ALERTTYPE_ROWS in
// zel/AlertTypeImp.h; common operations: ostrel/ConstantClass.h. Converts to and from
// zel::AlertTypeImp by row number.

#include "ostrel/ConstantClass.h"
#include "zel/AlertTypeImp.h"

namespace ostrel5 {

class AlertType {
public:
  typedef zel::rows::AlertType::AlertType_ENUM AlertType_ENUM;
  OSTREL5_CONSTANT_CLASS(AlertType, zel::rows::AlertType)
  ZEL_ALERTTYPE_ROWS(OSTREL5_CONSTANT_ACCESSOR)

  AlertType(zel::AlertTypeImp const &imp) noexcept : m_enum(imp.enumValue()) {}
  zel::AlertTypeImp imp() const noexcept { return zel::AlertTypeImp(m_enum); }

private:
  AlertType_ENUM m_enum;
};

} // namespace ostrel5
