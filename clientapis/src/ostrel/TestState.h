#pragma once
// ostrel5::TestState: the state of a test run: 7 rows, ALL .. MODULE_STARTING, each string
// equal to its name.
// A wrapped constant; rows: ZEL_TESTSTATE_ROWS in zel/TestStateImp.h; common operations:
// ostrel/ConstantClass.h. Converts to and from zel::TestStateImp by row number.

#include "ostrel/ConstantClass.h"
#include "zel/TestStateImp.h"

namespace ostrel5 {

class TestState : public SharedAll::ApiWrapper {
public:
  typedef zel::rows::TestState::TestState_ENUM TestState_ENUM;
  OSTREL5_CONSTANT_CLASS(TestState, zel::rows::TestState)
  OSTREL5_WRAPPED_CONSTANT(TestState)
  ZEL_TESTSTATE_ROWS(OSTREL5_CONSTANT_ACCESSOR)

  TestState(zel::TestStateImp const &imp) noexcept : m_enum(imp.enumValue()) {}
  zel::TestStateImp imp() const noexcept { return zel::TestStateImp(m_enum); }

private:
  TestState_ENUM m_enum;
};

} // namespace ostrel5
