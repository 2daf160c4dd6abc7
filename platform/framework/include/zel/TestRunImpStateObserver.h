#pragma once
// zel::TestRunImpStateObserver: told by a zel::TestRunImp of each change of
// its state, with the state before and after.
//
// Called once per real change (setting the state it already has tells
// nobody), after the run holds the new state, on the thread that changed it
// and with no lock of the run held. Whether the change came from setState()
// or from an engine report through update() makes no difference. The run
// does not own its state observers; removeStateObserver() before destroying
// one. An exception leaves the call that changed the state.

#include "zel/TestStateImp.h"

namespace zel {

class TestRunImp;

class TestRunImpStateObserver {
public:
  virtual ~TestRunImpStateObserver();

  virtual void handleStateChange(TestRunImp &run, TestStateImp const &oldState,
                                 TestStateImp const &newState) = 0;
};

} // namespace zel
