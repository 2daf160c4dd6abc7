#pragma once
// ostrel5::EventType: the kind of an event of a test run. A wrapped constant
// of 5 rows, UNINITIALIZED, ERR, WARNING, INFORMATIVE, PROGRESS, each string
// equal to its name; rows: ZEL_EVENTTYPE_ROWS in zel/EventTypeImp.h; common
// operations: ostrel/ConstantClass.h.

#include "ostrel/ConstantClass.h"
#include "zel/EventTypeImp.h"

namespace ostrel5 {

class EventType : public SharedAll::ApiWrapper {
public:
  typedef zel::rows::EventType::EventType_ENUM EventType_ENUM;
  OSTREL5_CONSTANT_CLASS(EventType, zel::rows::EventType)
  OSTREL5_WRAPPED_CONSTANT(EventType)
  ZEL_EVENTTYPE_ROWS(OSTREL5_CONSTANT_ACCESSOR)

  EventType(zel::EventTypeImp const &imp) noexcept : m_enum(imp.enumValue()) {}
  zel::EventTypeImp imp() const noexcept { return zel::EventTypeImp(m_enum); }

  /// The display name in the current language (zel::EventTypeImp::localizedString).
  zel::String localizedString() const;

private:
  EventType_ENUM m_enum;
};

} // namespace ostrel5
