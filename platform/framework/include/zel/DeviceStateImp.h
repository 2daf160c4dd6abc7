#pragma once
// zel::DeviceStateImp: the state of a device. Row numbers are those of ostrel5::DeviceState.
// String equals name.

#include "zel/ConstantTable.h"

// Rows in order: X(NAME, "string").
#define ZEL_DEVICESTATE_ROWS(X)                                                                    \
  X(FUNCTIONAL, "FUNCTIONAL")                                                                      \
  X(DISABLED, "DISABLED")                                                                          \
  X(MISCONFIGURED, "MISCONFIGURED")                                                                \
  X(OTHER, "OTHER")

namespace zel {

namespace rows {
struct DeviceState {
  enum DeviceState_ENUM : unsigned int { ZEL_DEVICESTATE_ROWS(ZEL_CONSTANT_ENUMERATOR) };
};
} // namespace rows

/// One DeviceState row; see zel/ConstantTable.h for the common operations.
class DeviceStateImp : public rows::DeviceState,
                       public ConstantImp<DeviceStateImp, rows::DeviceState::DeviceState_ENUM> {
public:
  using ConstantImp::ConstantImp;
  static ConstantTable<ConstantRow> const &table() noexcept;
};

} // namespace zel
