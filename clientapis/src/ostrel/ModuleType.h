#pragma once
// ostrel5::ModuleType: the kind of a diagnostic module: 4 rows, ALL .. INDICATOR, each
// string equal to its name.
// A wrapped constant; rows: ZEL_MODULETYPE_ROWS in zel/ModuleTypeImp.h; common operations:
// ostrel/ConstantClass.h. Converts to and from zel::ModuleTypeImp by row number.

#include "ostrel/ConstantClass.h"
#include "zel/ModuleTypeImp.h"

namespace ostrel5 {

class ModuleType : public SharedAll::ApiWrapper {
public:
  typedef zel::rows::ModuleType::ModuleType_ENUM ModuleType_ENUM;
  OSTREL5_CONSTANT_CLASS(ModuleType, zel::rows::ModuleType)
  OSTREL5_WRAPPED_CONSTANT(ModuleType)
  ZEL_MODULETYPE_ROWS(OSTREL5_CONSTANT_ACCESSOR)

  ModuleType(zel::ModuleTypeImp const &imp) noexcept : m_enum(imp.enumValue()) {}
  zel::ModuleTypeImp imp() const noexcept { return zel::ModuleTypeImp(m_enum); }

private:
  ModuleType_ENUM m_enum;
};

} // namespace ostrel5
