#pragma once
// zel::ModuleTypeImp: the kind of a diagnostic module. Row numbers are those of
// ostrel5::ModuleType. String equals name.

#include "zel/ConstantTable.h"

// Rows in order: X(NAME, "string").
#define ZEL_MODULETYPE_ROWS(X)                                                                     \
  X(ALL, "ALL")                                                                                    \
  X(DIAG, "DIAG")                                                                                  \
  X(SYSINFO, "SYSINFO")                                                                            \
  X(INDICATOR, "INDICATOR")

namespace zel {

namespace rows {
struct ModuleType {
  enum ModuleType_ENUM : unsigned int { ZEL_MODULETYPE_ROWS(ZEL_CONSTANT_ENUMERATOR) };
};
} // namespace rows

/// One ModuleType row; see zel/ConstantTable.h for the common operations.
class ModuleTypeImp : public rows::ModuleType,
                      public ConstantImp<ModuleTypeImp, rows::ModuleType::ModuleType_ENUM> {
public:
  using ConstantImp::ConstantImp;
  static ConstantTable<ConstantRow> const &table() noexcept;
};

} // namespace zel
