#pragma once
// ostrel5::ScriptletCategory: the category of a scriptlet: 6 rows. All has the empty
// string on purpose, so an empty text looks up to All, not to the sentinel.
// A bare constant (the object is its 32-bit row number); common operations:
// ostrel/ConstantClass.h. It has no implementation class: the rows below are
// the only ones.

#include "ostrel/ConstantClass.h"

// Rows in order: X(NAME, "string").
#define OSTREL5_SCRIPTLETCATEGORY_ROWS(X)                                                          \
  X(All, "")                                                                                       \
  X(Offer, "Offer")                                                                                \
  X(HealthActionItem, "HealthActionItem")                                                          \
  X(SecurityActionItem, "SecurityActionItem")                                                      \
  X(Information, "Information")                                                                    \
  X(Solution, "Solution")

namespace ostrel5 {

namespace rows {
struct ScriptletCategory {
  enum ScriptletCategory_ENUM : unsigned int {
    OSTREL5_SCRIPTLETCATEGORY_ROWS(ZEL_CONSTANT_ENUMERATOR)
  };
};
} // namespace rows

class ScriptletCategory {
public:
  typedef rows::ScriptletCategory::ScriptletCategory_ENUM ScriptletCategory_ENUM;
  OSTREL5_CONSTANT_CLASS(ScriptletCategory, rows::ScriptletCategory)
  OSTREL5_SCRIPTLETCATEGORY_ROWS(OSTREL5_CONSTANT_ACCESSOR)

private:
  ScriptletCategory_ENUM m_enum;
};

} // namespace ostrel5
