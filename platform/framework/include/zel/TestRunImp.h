#pragma once
// zel::TestRunImp: one execution of one test on one device, as the client
// and the engine each see it.
//
// Life of a run. Made from a test and a device (state NOTSTARTED, result
// TESTNOTSTARTED, percent 0, no events, the test's parameters copied). The
// client sets it up (parameters, limits, flags), moves it to INITIALIZING and
// sends a copy to the engine. The engine works on its own copy and answers
// with whole copies of it; update() applies each answer to the client's run
// and tells the observers what changed. A run is over when its state is
// EXITED. One object serves one pass; the only run started again is one that
// ended DEVICETESTINGBLOCKED: setState(INITIALIZING) reopens it.
//
// Notices (zel/TestRunImpObserver.h). Setters never notify run observers;
// only these do:
//   triggerTestInitializing()  -> handleTestInitializing
//   triggerTestAborting()      -> handleTestAborting
//   triggerPercentComplete()   -> handleTestPercentComplete
//   addEvent(e)                -> handleTestEvent, lastEvent() == e
//   update(received), in this order, for what the report changes:
//     1. state observers (old, new), when the state changed
//     2. -> RUNNING                                    handleTestStart
//     3. each event whose guid the run does not know,
//        in the report's order                         handleTestEvent
//     4. percentage changed                            handleTestPercentComplete
//     5. progress text changed                         handleTestProgressMessage
//     6. -> ABORTING                                   handleTestAborting
//     7. -> EXITED, by the reported result:
//        TESTNOTSTARTED, DEVICETESTINGBLOCKED          handleTestNotStarted
//        USERABORTED, MAXTIMEEXCEEDED, or any result
//        when the run was ABORTING before              handleTestAborted
//        anything else (a real completion)             handleTestFinished
//   A report that changes nothing tells nobody; an event seen before is never
//   told twice. update() on an EXITED run changes nothing and tells nobody:
//   late reports cannot bring a finished run back.
// setState() tells the state observers only, once per real change.
//
// Threads and locks. The run guards itself: every member may be called from
// any thread. Its lock is never held while an observer runs, so observers
// may call back into the run. All data of a change is in place before the
// first observer is told, so an observer that throws leaves a consistent
// run behind; the exception leaves the notifying call and the notices still
// pending from it are dropped (the events stay known and are not told again).
// An observer removed while a notice is being delivered is not called after
// its removal returned (but may be running when it returns).
//
// Copies. A copy (constructor or assignment) carries the data: guid, the test
// and device (shared, read-only), deep copies of the parameters and events,
// every field and the event cursor. It carries no observers: assignment keeps
// the target's own. This is what travels in messages.
//
// Units: minTime/maxTime and elapsedTime in seconds, estimatedTimeLeft in
// seconds, beginningTime in milliseconds of the wall clock.

#include <boost/shared_ptr.hpp>

#include <cstdint>

#include "zel/Array.h"
#include "zel/HashTable.h"
#include "zel/Mutex.h"
#include "zel/String.h"
#include "zel/TestResultImp.h"
#include "zel/TestRunEventImp.h"
#include "zel/TestStateImp.h"

namespace zel {

class TestImp;
class IDeviceImp;
class ParameterImp;
class TestRunImpObserver;
class TestRunImpStateObserver;
struct TestRunCodec;

class TestRunImp {
public:
  /// maxTime() of a run without a time limit.
  static constexpr std::uint64_t NO_MAX_TIME = ~std::uint64_t(0);

  /// A run with a fresh guid and no test or device: what the decoder fills
  /// in, and what the engine sends for a guid it does not know (setGuid).
  TestRunImp();
  /// A new run of `test` on `device`: fresh guid, copies of both (shared by
  /// the run's copies), deep copies of the test's parameters.
  TestRunImp(TestImp const &test, IDeviceImp const &device);
  TestRunImp(TestRunImp const &other);
  TestRunImp &operator=(TestRunImp const &other);
  virtual ~TestRunImp();

  // ---- identity, test, device, parameters

  String guid() const;
  /// Gives the run another identity. Only for the engine's answer about a
  /// guid it does not know; a registered run must keep its guid.
  void setGuid(String const &guid);
  /// The test and device of the run; empty for a run made by the default
  /// constructor.
  boost::shared_ptr<TestImp> test() const;
  boost::shared_ptr<IDeviceImp> device() const;

  /// The running test's parameters, in the test's order. The objects are the
  /// run's own (set them up before the run is sent; the run's lock does not
  /// cover their insides).
  Array<boost::shared_ptr<ParameterImp>> parameters() const;
  unsigned int parameterCount() const;
  /// The parameter of that key, compared without regard to case; empty when
  /// the test has none.
  boost::shared_ptr<ParameterImp> parameter(String const &key) const;

  // ---- set up by the client

  void setMinTime(std::uint64_t seconds);
  std::uint64_t minTime() const;
  /// NO_MAX_TIME unless set.
  void setMaxTime(std::uint64_t seconds);
  std::uint64_t maxTime() const;
  void setMsgBoxSupported(bool supported);
  bool msgBoxSupported() const;
  /// True unless set.
  void setPromptingEnabled(bool enabled);
  bool promptingEnabled() const;
  /// The multi-pass run's number (1-based, script order); 0 unless set.
  void setIndex(unsigned int index);
  unsigned int index() const;
  void setCurrentPass(unsigned int pass);
  unsigned int currentPass() const;
  void setIdentityForAllPasses(unsigned int identity);
  unsigned int identityForAllPasses() const;
  void setErrorLimit(unsigned int limit);
  unsigned int errorLimit() const;
  void setBeginningTime(long long milliseconds);
  long long beginningTime() const;
  /// The result the engine is to report without running the test. The
  /// TestResult sentinel (the default) means none.
  void setForcedResult(TestResultImp result);
  TestResultImp forcedResult() const;
  bool hasForcedResult() const;

  // ---- state and result

  /// Changes the state; state observers hear (old, new) when it differs.
  void setState(TestStateImp state);
  TestStateImp state() const;
  void setFinalResult(TestResultImp result);
  TestResultImp result() const;

  // ---- reported by the engine (or a local runner)

  /// Values above 100 are taken as 100.
  void setPercentComplete(unsigned int percent);
  unsigned int percentComplete() const;
  void setEstimatedTimeLeft(unsigned int seconds);
  unsigned int estimatedTimeLeft() const;
  void setProgressInformation(String const &text);
  String progressInformation() const;
  void setElapsedTime(std::uint64_t seconds);
  std::uint64_t elapsedTime() const;
  void setErrorCode(String const &code);
  String getErrorCode() const;
  void setErrorCount(unsigned int count);
  unsigned int errorCount() const;
  /// The process id of the program that ran the test (0 when unknown).
  void setClientPID(unsigned int pid);
  unsigned int clientPID() const;

  // ---- events

  /// Takes `event` (null is ignored). An event whose guid the run knows
  /// already is deleted and tells nobody (false). Otherwise it is appended
  /// and handleTestEvent goes out with lastEvent() == event.
  bool addEvent(TestRunEventImp *event);
  /// During a handleTestEvent notice, on the notifying thread: the event of
  /// that notice. Otherwise the event added last; null when there is none.
  /// Owned by the run and valid as long as the run lives (and is not
  /// assigned to); treat it as read-only.
  TestRunEventImp *lastEvent() const;
  /// A FIFO cursor over the events, shared by all readers of this run: a copy
  /// of the oldest event not yet taken, and the cursor moves past it. When
  /// every event has been taken: a default-constructed event (no key,
  /// type UNINITIALIZED), and the cursor stays; hasNextEvent() tells the two
  /// apart.
  TestRunEventImp nextEvent();
  bool hasNextEvent() const;
  unsigned int eventCount() const;
  /// Copies of all events, in order of arrival.
  Array<TestRunEventImp> events() const;

  // ---- notices

  void triggerTestInitializing();
  void triggerTestAborting();
  void triggerPercentComplete();

  /// Applies an engine report about this run (see the header for what is
  /// told). Copies state, result, percent, estimated time left, progress
  /// text, elapsed time, error code, error count, client pid and the new
  /// events; what the client set up (parameters, limits, flags, index, pass,
  /// forced result, identity, beginning time) stays. The guid is not
  /// compared: finding the right run is the caller's part. False, with
  /// nothing changed, when this run is EXITED.
  bool update(TestRunImp const &received);

  // ---- observers (not owned, no duplicates)

  void registerTestRunImpObserver(TestRunImpObserver *observer);
  void unregisterTestRunImpObserver(TestRunImpObserver *observer);
  void addStateObserver(TestRunImpStateObserver *observer);
  void removeStateObserver(TestRunImpStateObserver *observer);

  /// "Test Run: <guid>" then the test, device, state, result and percent on
  /// indented lines; `verbose` adds limits, times, progress text, error code
  /// and the events. Two blanks per indent step; lines end with "\n".
  String toString(unsigned int indent = 0, bool verbose = false) const;

private:
  friend struct TestRunCodec;
  enum class Notice : unsigned char;
  struct Pending;
  class Delivery;

  // Everything a copy carries.
  struct Data {
    String guid;
    boost::shared_ptr<TestImp> test;
    boost::shared_ptr<IDeviceImp> device;
    Array<boost::shared_ptr<ParameterImp>> parameters;
    std::uint64_t minTime = 0;
    std::uint64_t maxTime = NO_MAX_TIME;
    bool msgBoxSupported = false;
    bool promptingEnabled = true;
    unsigned int index = 0;
    unsigned int currentPass = 0;
    unsigned int identityForAllPasses = 0;
    unsigned int errorLimit = 0;
    long long beginningTime = 0;
    TestResultImp forcedResult = TestResultImp::sentinel();
    TestStateImp state = TestStateImp::NOTSTARTED;
    TestResultImp result = TestResultImp::TESTNOTSTARTED;
    unsigned int percent = 0;
    unsigned int estimatedTimeLeft = 0;
    String progressInformation;
    std::uint64_t elapsedTime = 0;
    String errorCode;
    unsigned int errorCount = 0;
    unsigned int clientPID = 0;
    Array<boost::shared_ptr<TestRunEventImp>> events;
    unsigned int nextEvent = 0;

    Data() = default;
    // Parameters and events are deep-copied: copies never share mutable parts.
    Data(Data const &other);
    Data &operator=(Data const &other);
    Data(Data &&) noexcept = default;
    Data &operator=(Data &&) noexcept = default;
  };

  Data snapshot() const;
  void install(Data &&data);
  bool knowsEvent(String const &guid) const;
  void deliver(Array<Pending> const &pending);

  mutable mutex m_lock;
  Data m_d;
  // Guids of m_d.events, for de-duplication; rebuilt whenever m_d is replaced.
  HashTable<String, bool> m_eventGuids;
  Array<TestRunImpObserver *> m_observers;
  Array<TestRunImpStateObserver *> m_stateObservers;
};

} // namespace zel
