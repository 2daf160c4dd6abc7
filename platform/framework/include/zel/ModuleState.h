#pragma once
// zel::ModuleState: where a module stands in the engine's life cycle.
//   UNKNOWN      not looked at yet
//   LOADED       found and loaded, tests not enumerated
//   ENUMERATED   its tests are known
//   FAILED       could not be loaded or enumerated
//   DISABLED     switched off by configuration
// Strings equal names. See zel/ConstantTable.h for the common operations.

#include "zel/ConstantTable.h"

#define ZEL_MODULESTATE_ROWS(X)                                                                    \
  X(UNKNOWN, "UNKNOWN")                                                                            \
  X(LOADED, "LOADED")                                                                              \
  X(ENUMERATED, "ENUMERATED")                                                                      \
  X(FAILED, "FAILED")                                                                              \
  X(DISABLED, "DISABLED")

namespace zel {

namespace rows {
struct ModuleState {
  enum ModuleState_ENUM : unsigned int { ZEL_MODULESTATE_ROWS(ZEL_CONSTANT_ENUMERATOR) };
};
} // namespace rows

class ModuleState : public rows::ModuleState,
                    public ConstantImp<ModuleState, rows::ModuleState::ModuleState_ENUM> {
public:
  using ConstantImp::ConstantImp;
  static ConstantTable<ConstantRow> const &table() noexcept;
};

} // namespace zel
