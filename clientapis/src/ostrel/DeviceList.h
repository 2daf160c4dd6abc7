#pragma once
// ostrel5::DeviceList: a shared array of Device handles (see HandleList.h:
// copies share the array, remove() is seen by every copy, an index at or past
// size() asserts "index < size()").

#include "ostrel/Device.h"
#include "ostrel/HandleList.h"

namespace zel {
class IDeviceImp;
}

namespace ostrel5 {

class DeviceList : public HandleList<Device, zel::IDeviceImp> {
public:
  using HandleList::HandleList;
};

} // namespace ostrel5
