#include "ostrel/ModuleType.h"

namespace ostrel5 {

OSTREL5_DEFINE_CONSTANT_CLASS(ModuleType, zel::ModuleTypeImp::table())
OSTREL5_DEFINE_WRAPPED_CONSTANT(ModuleType)

} // namespace ostrel5
