#pragma once
// ostrel5::ModuleList: a shared array of Module handles (see HandleList.h:
// copies share the array, remove() is seen by every copy, an index at or past
// size() asserts "index < size()").

#include "ostrel/HandleList.h"
#include "ostrel/Module.h"

namespace zel {
class IModuleImp;
}

namespace ostrel5 {

class ModuleList : public HandleList<Module, zel::IModuleImp> {
public:
  using HandleList::HandleList;
};

} // namespace ostrel5
