#pragma once
// ostrel5::ScriptletStatus: the status of a scriptlet: 7 rows, NOT_SET ..
// DESTINATION_LAUNCHED, each string equal to its name.
// A bare constant (the object is its 32-bit row number); common operations:
// ostrel/ConstantClass.h. It has no implementation class: the rows below are
// the only ones.

#include "ostrel/ConstantClass.h"

// Rows in order: X(NAME, "string").
#define OSTREL5_SCRIPTLETSTATUS_ROWS(X)                                                            \
  X(NOT_SET, "NOT_SET")                                                                            \
  X(LOADED, "LOADED")                                                                              \
  X(UNLOADED, "UNLOADED")                                                                          \
  X(VIEWED, "VIEWED")                                                                              \
  X(CLICKED, "CLICKED")                                                                            \
  X(MOUSE_OVER, "MOUSE_OVER")                                                                      \
  X(DESTINATION_LAUNCHED, "DESTINATION_LAUNCHED")

namespace ostrel5 {

namespace rows {
struct ScriptletStatus {
  enum ScriptletStatus_ENUM : unsigned int {
    OSTREL5_SCRIPTLETSTATUS_ROWS(ZEL_CONSTANT_ENUMERATOR)
  };
};
} // namespace rows

class ScriptletStatus {
public:
  typedef rows::ScriptletStatus::ScriptletStatus_ENUM ScriptletStatus_ENUM;
  OSTREL5_CONSTANT_CLASS(ScriptletStatus, rows::ScriptletStatus)
  OSTREL5_SCRIPTLETSTATUS_ROWS(OSTREL5_CONSTANT_ACCESSOR)

private:
  ScriptletStatus_ENUM m_enum;
};

} // namespace ostrel5
