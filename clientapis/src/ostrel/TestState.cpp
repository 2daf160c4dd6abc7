#include "ostrel/TestState.h"

namespace ostrel5 {

OSTREL5_DEFINE_CONSTANT_CLASS(TestState, zel::TestStateImp::table())
OSTREL5_DEFINE_WRAPPED_CONSTANT(TestState)

} // namespace ostrel5
