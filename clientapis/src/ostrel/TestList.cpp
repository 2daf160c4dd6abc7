#include "ostrel/TestList.h"

#include "zel/TestImp.h"

namespace ostrel5 {

// Every member is compiled once, here, for the library's users.
template class HandleList<Test, zel::TestImp>;

} // namespace ostrel5
