#pragma once
// zel::TestRunImpObserver: what a zel::TestRunImp tells about its run.
//
// The nine notices, in slot order, each receiving the run. Who fires what
// (see zel/TestRunImp.h for the whole mapping):
//   handleTestInitializing     triggerTestInitializing()
//   handleTestStart            the state becomes RUNNING through update()
//   handleTestAborting         triggerTestAborting(); the state becomes ABORTING through update()
//   handleTestAborted          EXITED through update() after ABORTING, or with a stop result
//   handleTestFinished         EXITED through update() with any other result (a real completion)
//   handleTestNotStarted       EXITED through update() with TESTNOTSTARTED or DEVICETESTINGBLOCKED
//   handleTestEvent            addEvent(), and each new event of update(); the run's
//                              lastEvent() is that event for the length of the call
//   handleTestPercentComplete  triggerPercentComplete(); a changed percentage through update()
//   handleTestProgressMessage  a changed progress text through update()
//
// Notices come on the thread that made the change (the one that applies the
// engine's messages, or a local runner's), never with a lock of the run held,
// so an observer may read the run, and even change it. An observer may throw:
// the exception leaves the notifying call, and the notices still pending from
// that call are not delivered. The run does not own its observers.

namespace zel {

class TestRunImp;

class TestRunImpObserver {
public:
  virtual ~TestRunImpObserver();

  virtual void handleTestInitializing(TestRunImp &run) = 0;
  virtual void handleTestStart(TestRunImp &run) = 0;
  virtual void handleTestAborting(TestRunImp &run) = 0;
  virtual void handleTestAborted(TestRunImp &run) = 0;
  virtual void handleTestFinished(TestRunImp &run) = 0;
  virtual void handleTestNotStarted(TestRunImp &run) = 0;
  virtual void handleTestEvent(TestRunImp &run) = 0;
  virtual void handleTestPercentComplete(TestRunImp &run) = 0;
  virtual void handleTestProgressMessage(TestRunImp &run) = 0;
};

} // namespace zel
