#pragma once
// ostrel5::DeviceState: the state of a device: 4 rows, FUNCTIONAL .. OTHER, each string
// equal to its name.
// A wrapped constant; rows: ZEL_DEVICESTATE_ROWS in zel/DeviceStateImp.h; common operations:
// ostrel/ConstantClass.h. Converts to and from zel::DeviceStateImp by row number.

#include "ostrel/ConstantClass.h"
#include "zel/DeviceStateImp.h"

namespace ostrel5 {

class DeviceState : public SharedAll::ApiWrapper {
public:
  typedef zel::rows::DeviceState::DeviceState_ENUM DeviceState_ENUM;
  OSTREL5_CONSTANT_CLASS(DeviceState, zel::rows::DeviceState)
  OSTREL5_WRAPPED_CONSTANT(DeviceState)
  ZEL_DEVICESTATE_ROWS(OSTREL5_CONSTANT_ACCESSOR)

  DeviceState(zel::DeviceStateImp const &imp) noexcept : m_enum(imp.enumValue()) {}
  zel::DeviceStateImp imp() const noexcept { return zel::DeviceStateImp(m_enum); }

private:
  DeviceState_ENUM m_enum;
};

} // namespace ostrel5
