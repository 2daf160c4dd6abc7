#include "ostrel/EventType.h"

namespace ostrel5 {

OSTREL5_DEFINE_CONSTANT_CLASS(EventType, zel::EventTypeImp::table())
OSTREL5_DEFINE_WRAPPED_CONSTANT(EventType)

zel::String EventType::localizedString() const { return imp().localizedString(); }

} // namespace ostrel5
