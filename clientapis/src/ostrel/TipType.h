#pragma once
// ostrel5::TipType: the kind of a tip: 13 rows, UNINITIALIZED .. RMA_TIP, each string
// equal to its name.
// A wrapped constant; rows: ZEL_TIPTYPE_ROWS in zel/TipTypeImp.h; common operations:
// ostrel/ConstantClass.h. Converts to and from zel::TipTypeImp by row number.

#include "ostrel/ConstantClass.h"
#include "zel/TipTypeImp.h"

namespace ostrel5 {

class TipType : public SharedAll::ApiWrapper {
public:
  typedef zel::rows::TipType::TipType_ENUM TipType_ENUM;
  OSTREL5_CONSTANT_CLASS(TipType, zel::rows::TipType)
  OSTREL5_WRAPPED_CONSTANT(TipType)
  ZEL_TIPTYPE_ROWS(OSTREL5_CONSTANT_ACCESSOR)

  TipType(zel::TipTypeImp const &imp) noexcept : m_enum(imp.enumValue()) {}
  zel::TipTypeImp imp() const noexcept { return zel::TipTypeImp(m_enum); }

private:
  TipType_ENUM m_enum;
};

} // namespace ostrel5
