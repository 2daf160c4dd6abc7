#pragma once
// ostrel5::ApplicationRunType: how an application run was started: 3 rows. All has the
// empty string on purpose, so an empty text looks up to All, not to the
// sentinel.
// A bare constant (the object is its 32-bit row number); common operations:
// ostrel/ConstantClass.h. It has no implementation class: the rows below are
// the only ones.

#include "ostrel/ConstantClass.h"

// Rows in order: X(NAME, "string").
#define OSTREL5_APPLICATIONRUNTYPE_ROWS(X)                                                         \
  X(All, "")                                                                                       \
  X(Scheduled, "Scheduled")                                                                        \
  X(Manual, "Manual")

namespace ostrel5 {

namespace rows {
struct ApplicationRunType {
  enum ApplicationRunType_ENUM : unsigned int {
    OSTREL5_APPLICATIONRUNTYPE_ROWS(ZEL_CONSTANT_ENUMERATOR)
  };
};
} // namespace rows

class ApplicationRunType {
public:
  typedef rows::ApplicationRunType::ApplicationRunType_ENUM ApplicationRunType_ENUM;
  OSTREL5_CONSTANT_CLASS(ApplicationRunType, rows::ApplicationRunType)
  OSTREL5_APPLICATIONRUNTYPE_ROWS(OSTREL5_CONSTANT_ACCESSOR)

private:
  ApplicationRunType_ENUM m_enum;
};

} // namespace ostrel5
