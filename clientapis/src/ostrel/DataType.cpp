#include "ostrel/DataType.h"

namespace ostrel5 {

OSTREL5_DEFINE_CONSTANT_CLASS(DataType, zel::DataTypeImp::table())
OSTREL5_DEFINE_WRAPPED_CONSTANT(DataType)

} // namespace ostrel5
