#include "ostrel/TestParameterList.h"

#include "zel/ParameterImp.h"

namespace ostrel5 {

// Every member is compiled once, here, for the library's users.
template class HandleList<TestParameter, zel::ParameterImp>;

} // namespace ostrel5
