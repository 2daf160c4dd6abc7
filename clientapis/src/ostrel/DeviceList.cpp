#include "ostrel/DeviceList.h"

#include "zel/IDeviceImp.h"

namespace ostrel5 {

// Every member is compiled once, here, for the library's users.
template class HandleList<Device, zel::IDeviceImp>;

} // namespace ostrel5
