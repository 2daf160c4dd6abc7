#pragma once
// ostrel5::DevicePropertyList: a shared array of DeviceProperty handles (see
// HandleList.h: copies share the array, remove() is seen by every copy, an
// index at or past size() asserts "index < size()").

#include "ostrel/DeviceProperty.h"
#include "ostrel/HandleList.h"

namespace zel {
class PropertyImp;
}

namespace ostrel5 {

class DevicePropertyList : public HandleList<DeviceProperty, zel::PropertyImp> {
public:
  using HandleList::HandleList;
};

} // namespace ostrel5
