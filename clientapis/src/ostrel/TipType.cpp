#include "ostrel/TipType.h"

namespace ostrel5 {

OSTREL5_DEFINE_CONSTANT_CLASS(TipType, zel::TipTypeImp::table())
OSTREL5_DEFINE_WRAPPED_CONSTANT(TipType)

} // namespace ostrel5
