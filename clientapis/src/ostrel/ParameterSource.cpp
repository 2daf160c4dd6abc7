#include "ostrel/ParameterSource.h"

namespace ostrel5 {

OSTREL5_DEFINE_CONSTANT_CLASS(ParameterSource, zel::ParameterSourceImp::table())
OSTREL5_DEFINE_WRAPPED_CONSTANT(ParameterSource)

} // namespace ostrel5
