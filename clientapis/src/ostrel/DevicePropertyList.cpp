#include "ostrel/DevicePropertyList.h"

#include "zel/PropertyImp.h"

namespace ostrel5 {

// Every member is compiled once, here, for the library's users.
template class HandleList<DeviceProperty, zel::PropertyImp>;

} // namespace ostrel5
