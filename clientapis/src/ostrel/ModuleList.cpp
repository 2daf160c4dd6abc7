#include "ostrel/ModuleList.h"

#include "zel/IModuleImp.h"

namespace ostrel5 {

// Every member is compiled once, here, for the library's users.
template class HandleList<Module, zel::IModuleImp>;

} // namespace ostrel5
