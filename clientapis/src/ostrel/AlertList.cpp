#include "ostrel/AlertList.h"

#include "zel/IAlertImp.h"

namespace ostrel5 {

// Every member is compiled once, here, for the library's users.
template class HandleList<Alert, zel::IAlertImp>;

} // namespace ostrel5
