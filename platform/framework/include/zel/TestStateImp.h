#pragma once
// zel::TestStateImp: a test run's state. Row numbers are those of ostrel5::TestState.
// String equals name.

#include "zel/ConstantTable.h"

// Rows in order: X(NAME, "string").
#define ZEL_TESTSTATE_ROWS(X)                                                                      \
  X(ALL, "ALL")                                                                                    \
  X(NOTSTARTED, "NOTSTARTED")                                                                      \
  X(INITIALIZING, "INITIALIZING")                                                                  \
  X(RUNNING, "RUNNING")                                                                            \
  X(ABORTING, "ABORTING")                                                                          \
  X(EXITED, "EXITED")                                                                              \
  X(MODULE_STARTING, "MODULE_STARTING")

namespace zel {

namespace rows {
struct TestState {
  enum TestState_ENUM : unsigned int { ZEL_TESTSTATE_ROWS(ZEL_CONSTANT_ENUMERATOR) };
};
} // namespace rows

/// One TestState row; see zel/ConstantTable.h for the common operations.
class TestStateImp : public rows::TestState,
                     public ConstantImp<TestStateImp, rows::TestState::TestState_ENUM> {
public:
  using ConstantImp::ConstantImp;
  static ConstantTable<ConstantRow> const &table() noexcept;
};

} // namespace zel
