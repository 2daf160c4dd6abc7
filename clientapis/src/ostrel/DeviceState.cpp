#include "ostrel/DeviceState.h"

namespace ostrel5 {

OSTREL5_DEFINE_CONSTANT_CLASS(DeviceState, zel::DeviceStateImp::table())
OSTREL5_DEFINE_WRAPPED_CONSTANT(DeviceState)

} // namespace ostrel5
