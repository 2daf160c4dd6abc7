#include "ostrel/AlertType.h"

namespace ostrel5 {

OSTREL5_DEFINE_CONSTANT_CLASS(AlertType, zel::AlertTypeImp::table())

} // namespace ostrel5
