#include "zel/TestRunImp.h"

#include <utility>

#include "TestRunGuid.h"
#include "zel/IDeviceImp.h"
#include "zel/ParameterImp.h"
#include "zel/TestImp.h"
#include "zel/TestRunImpObserver.h"
#include "zel/TestRunImpStateObserver.h"

namespace zel {

// ---- what a change has to tell, collected under the lock, told after it

enum class TestRunImp::Notice : unsigned char {
  StateChange,
  Initializing,
  Start,
  Aborting,
  Aborted,
  Finished,
  NotStarted,
  Event,
  Percent,
  Progress,
};

struct TestRunImp::Pending {
  Notice notice;
  boost::shared_ptr<TestRunEventImp> event;         // Event only
  TestStateImp oldState = TestStateImp::sentinel(); // StateChange only
  TestStateImp newState = TestStateImp::sentinel();

  explicit Pending(Notice n) : notice(n) {}
  Pending(Notice n, boost::shared_ptr<TestRunEventImp> e) : notice(n), event(std::move(e)) {}
  Pending(TestStateImp from, TestStateImp to)
      : notice(Notice::StateChange), oldState(from), newState(to) {}
};

// The event a handleTestEvent notice is about, per thread, so that
// lastEvent() inside the observer is that event even when another thread
// adds events to the same run meanwhile. Frames nest (an observer may add
// an event itself) and unwind on exceptions.
class TestRunImp::Delivery {
public:
  // A null event pushes no frame (notices other than handleTestEvent).
  Delivery(TestRunImp const *run, TestRunEventImp *event)
      : m_run(run), m_event(event), m_previous(top()) {
    if (m_event)
      top() = this;
  }
  ~Delivery() {
    if (m_event)
      top() = m_previous;
  }
  Delivery(Delivery const &) = delete;
  Delivery &operator=(Delivery const &) = delete;

  static TestRunEventImp *eventFor(TestRunImp const *run) {
    for (Delivery *d = top(); d; d = d->m_previous)
      if (d->m_run == run)
        return d->m_event;
    return nullptr;
  }

private:
  static Delivery *&top() {
    static thread_local Delivery *current = nullptr;
    return current;
  }

  TestRunImp const *m_run;
  TestRunEventImp *m_event;
  Delivery *m_previous;
};

namespace {

Array<boost::shared_ptr<ParameterImp>>
copyParameters(Array<boost::shared_ptr<ParameterImp>> const &from) {
  Array<boost::shared_ptr<ParameterImp>> out(from.size());
  for (auto const &p : from)
    if (p)
      out.append(boost::shared_ptr<ParameterImp>(p->clone()));
  return out;
}

Array<boost::shared_ptr<TestRunEventImp>>
copyEvents(Array<boost::shared_ptr<TestRunEventImp>> const &from) {
  Array<boost::shared_ptr<TestRunEventImp>> out(from.size());
  for (auto const &e : from)
    if (e)
      out.append(boost::shared_ptr<TestRunEventImp>(new TestRunEventImp(*e)));
  return out;
}

// Results that only a stop request produces: the run did not end by itself.
bool isStopResult(TestResultImp const &r) {
  return r == TestResultImp::USERABORTED || r == TestResultImp::MAXTIMEEXCEEDED;
}

} // namespace

// ---- Data

TestRunImp::Data::Data(Data const &o)
    : guid(o.guid), test(o.test), device(o.device), parameters(copyParameters(o.parameters)),
      minTime(o.minTime), maxTime(o.maxTime), msgBoxSupported(o.msgBoxSupported),
      promptingEnabled(o.promptingEnabled), index(o.index), currentPass(o.currentPass),
      identityForAllPasses(o.identityForAllPasses), errorLimit(o.errorLimit),
      beginningTime(o.beginningTime), forcedResult(o.forcedResult), state(o.state),
      result(o.result), percent(o.percent), estimatedTimeLeft(o.estimatedTimeLeft),
      progressInformation(o.progressInformation), elapsedTime(o.elapsedTime),
      errorCode(o.errorCode), errorCount(o.errorCount), clientPID(o.clientPID),
      events(copyEvents(o.events)), nextEvent(o.nextEvent) {}

TestRunImp::Data &TestRunImp::Data::operator=(Data const &o) {
  if (this != &o) {
    Data copy(o);
    *this = std::move(copy);
  }
  return *this;
}

// ---- construction and copies

TestRunImp::TestRunImp() { m_d.guid = testrun::newGuid(); }

TestRunImp::TestRunImp(TestImp const &test, IDeviceImp const &device) {
  m_d.guid = testrun::newGuid();
  m_d.test.reset(new TestImp(test));
  m_d.device.reset(new IDeviceImp(device));
  // The run's parameters are its own: overriding one must not touch the test.
  m_d.parameters = copyParameters(m_d.test->parameters());
}

TestRunImp::TestRunImp(TestRunImp const &other) { install(other.snapshot()); }

TestRunImp &TestRunImp::operator=(TestRunImp const &other) {
  if (this != &other)
    install(other.snapshot());
  return *this;
}

TestRunImp::~TestRunImp() = default;

TestRunImp::Data TestRunImp::snapshot() const {
  MutexGuard guard(m_lock);
  return m_d;
}

void TestRunImp::install(Data &&data) {
  HashTable<String, bool> guids;
  for (auto const &e : data.events)
    guids.put(e->guid(), true);
  if (data.nextEvent > data.events.size())
    data.nextEvent = static_cast<unsigned int>(data.events.size());
  MutexGuard guard(m_lock);
  m_d = std::move(data);
  m_eventGuids = std::move(guids);
}

bool TestRunImp::knowsEvent(String const &guid) const { return m_eventGuids.contains(guid); }

// ---- plain fields

#define ZEL_LOCKED_GET(expr)                                                                       \
  MutexGuard guard(m_lock);                                                                        \
  return expr

#define ZEL_LOCKED_SET(field, value)                                                               \
  MutexGuard guard(m_lock);                                                                        \
  field = value

String TestRunImp::guid() const { ZEL_LOCKED_GET(m_d.guid); }
void TestRunImp::setGuid(String const &guid) { ZEL_LOCKED_SET(m_d.guid, guid); }
boost::shared_ptr<TestImp> TestRunImp::test() const { ZEL_LOCKED_GET(m_d.test); }
boost::shared_ptr<IDeviceImp> TestRunImp::device() const { ZEL_LOCKED_GET(m_d.device); }

Array<boost::shared_ptr<ParameterImp>> TestRunImp::parameters() const {
  ZEL_LOCKED_GET(m_d.parameters);
}

unsigned int TestRunImp::parameterCount() const {
  ZEL_LOCKED_GET(static_cast<unsigned int>(m_d.parameters.size()));
}

boost::shared_ptr<ParameterImp> TestRunImp::parameter(String const &key) const {
  MutexGuard guard(m_lock);
  for (auto const &p : m_d.parameters)
    if (p->key().equalNoCase(key))
      return p;
  return boost::shared_ptr<ParameterImp>();
}

void TestRunImp::setMinTime(std::uint64_t seconds) { ZEL_LOCKED_SET(m_d.minTime, seconds); }
std::uint64_t TestRunImp::minTime() const { ZEL_LOCKED_GET(m_d.minTime); }
void TestRunImp::setMaxTime(std::uint64_t seconds) { ZEL_LOCKED_SET(m_d.maxTime, seconds); }
std::uint64_t TestRunImp::maxTime() const { ZEL_LOCKED_GET(m_d.maxTime); }
void TestRunImp::setMsgBoxSupported(bool v) { ZEL_LOCKED_SET(m_d.msgBoxSupported, v); }
bool TestRunImp::msgBoxSupported() const { ZEL_LOCKED_GET(m_d.msgBoxSupported); }
void TestRunImp::setPromptingEnabled(bool v) { ZEL_LOCKED_SET(m_d.promptingEnabled, v); }
bool TestRunImp::promptingEnabled() const { ZEL_LOCKED_GET(m_d.promptingEnabled); }
void TestRunImp::setIndex(unsigned int v) { ZEL_LOCKED_SET(m_d.index, v); }
unsigned int TestRunImp::index() const { ZEL_LOCKED_GET(m_d.index); }
void TestRunImp::setCurrentPass(unsigned int v) { ZEL_LOCKED_SET(m_d.currentPass, v); }
unsigned int TestRunImp::currentPass() const { ZEL_LOCKED_GET(m_d.currentPass); }
void TestRunImp::setIdentityForAllPasses(unsigned int v) {
  ZEL_LOCKED_SET(m_d.identityForAllPasses, v);
}
unsigned int TestRunImp::identityForAllPasses() const { ZEL_LOCKED_GET(m_d.identityForAllPasses); }
void TestRunImp::setErrorLimit(unsigned int v) { ZEL_LOCKED_SET(m_d.errorLimit, v); }
unsigned int TestRunImp::errorLimit() const { ZEL_LOCKED_GET(m_d.errorLimit); }
void TestRunImp::setBeginningTime(long long ms) { ZEL_LOCKED_SET(m_d.beginningTime, ms); }
long long TestRunImp::beginningTime() const { ZEL_LOCKED_GET(m_d.beginningTime); }
void TestRunImp::setForcedResult(TestResultImp r) { ZEL_LOCKED_SET(m_d.forcedResult, r); }
TestResultImp TestRunImp::forcedResult() const { ZEL_LOCKED_GET(m_d.forcedResult); }
bool TestRunImp::hasForcedResult() const { ZEL_LOCKED_GET(m_d.forcedResult.isValid()); }
TestStateImp TestRunImp::state() const { ZEL_LOCKED_GET(m_d.state); }
void TestRunImp::setFinalResult(TestResultImp r) { ZEL_LOCKED_SET(m_d.result, r); }
TestResultImp TestRunImp::result() const { ZEL_LOCKED_GET(m_d.result); }
void TestRunImp::setPercentComplete(unsigned int v) {
  ZEL_LOCKED_SET(m_d.percent, v > 100 ? 100 : v);
}
unsigned int TestRunImp::percentComplete() const { ZEL_LOCKED_GET(m_d.percent); }
void TestRunImp::setEstimatedTimeLeft(unsigned int v) { ZEL_LOCKED_SET(m_d.estimatedTimeLeft, v); }
unsigned int TestRunImp::estimatedTimeLeft() const { ZEL_LOCKED_GET(m_d.estimatedTimeLeft); }
void TestRunImp::setProgressInformation(String const &v) {
  ZEL_LOCKED_SET(m_d.progressInformation, v);
}
String TestRunImp::progressInformation() const { ZEL_LOCKED_GET(m_d.progressInformation); }
void TestRunImp::setElapsedTime(std::uint64_t v) { ZEL_LOCKED_SET(m_d.elapsedTime, v); }
std::uint64_t TestRunImp::elapsedTime() const { ZEL_LOCKED_GET(m_d.elapsedTime); }
void TestRunImp::setErrorCode(String const &v) { ZEL_LOCKED_SET(m_d.errorCode, v); }
String TestRunImp::getErrorCode() const { ZEL_LOCKED_GET(m_d.errorCode); }
void TestRunImp::setErrorCount(unsigned int v) { ZEL_LOCKED_SET(m_d.errorCount, v); }
unsigned int TestRunImp::errorCount() const { ZEL_LOCKED_GET(m_d.errorCount); }
void TestRunImp::setClientPID(unsigned int v) { ZEL_LOCKED_SET(m_d.clientPID, v); }
unsigned int TestRunImp::clientPID() const { ZEL_LOCKED_GET(m_d.clientPID); }

#undef ZEL_LOCKED_GET
#undef ZEL_LOCKED_SET

void TestRunImp::setState(TestStateImp state) {
  TestStateImp old = TestStateImp::sentinel();
  {
    MutexGuard guard(m_lock);
    old = m_d.state;
    if (old == state)
      return;
    m_d.state = state;
  }
  Array<Pending> pending;
  pending.append(Pending(old, state));
  deliver(pending);
}

// ---- events

bool TestRunImp::addEvent(TestRunEventImp *event) {
  if (!event)
    return false;
  boost::shared_ptr<TestRunEventImp> owned(event);
  {
    MutexGuard guard(m_lock);
    if (knowsEvent(owned->guid()))
      return false; // `owned` deletes the duplicate
    m_d.events.append(owned);
    m_eventGuids.put(owned->guid(), true);
  }
  Array<Pending> pending;
  pending.append(Pending(Notice::Event, owned));
  deliver(pending);
  return true;
}

TestRunEventImp *TestRunImp::lastEvent() const {
  if (TestRunEventImp *during = Delivery::eventFor(this))
    return during;
  MutexGuard guard(m_lock);
  return m_d.events.isEmpty() ? nullptr : m_d.events[m_d.events.size() - 1].get();
}

TestRunEventImp TestRunImp::nextEvent() {
  boost::shared_ptr<TestRunEventImp> next;
  {
    MutexGuard guard(m_lock);
    if (m_d.nextEvent < m_d.events.size())
      next = m_d.events[m_d.nextEvent++];
  }
  return next ? TestRunEventImp(*next) : TestRunEventImp();
}

bool TestRunImp::hasNextEvent() const {
  MutexGuard guard(m_lock);
  return m_d.nextEvent < m_d.events.size();
}

unsigned int TestRunImp::eventCount() const {
  MutexGuard guard(m_lock);
  return static_cast<unsigned int>(m_d.events.size());
}

Array<TestRunEventImp> TestRunImp::events() const {
  Array<boost::shared_ptr<TestRunEventImp>> held;
  {
    MutexGuard guard(m_lock);
    held = m_d.events;
  }
  // Events never change once held, so they are copied outside the lock.
  Array<TestRunEventImp> out(held.size());
  for (auto const &e : held)
    out.append(*e);
  return out;
}

// ---- notices

void TestRunImp::triggerTestInitializing() {
  Array<Pending> pending;
  pending.append(Pending(Notice::Initializing));
  deliver(pending);
}

void TestRunImp::triggerTestAborting() {
  Array<Pending> pending;
  pending.append(Pending(Notice::Aborting));
  deliver(pending);
}

void TestRunImp::triggerPercentComplete() {
  Array<Pending> pending;
  pending.append(Pending(Notice::Percent));
  deliver(pending);
}

bool TestRunImp::update(TestRunImp const &received) {
  if (&received == this)
    return false;

  // What the engine reports, read under the sender's lock only (never both
  // locks at once). Its events are shared here, read-only, and copied below
  // only when new.
  struct Report {
    TestStateImp state = TestStateImp::sentinel();
    TestResultImp result = TestResultImp::sentinel();
    unsigned int percent = 0;
    unsigned int estimatedTimeLeft = 0;
    String progressInformation;
    std::uint64_t elapsedTime = 0;
    String errorCode;
    unsigned int errorCount = 0;
    unsigned int clientPID = 0;
    Array<boost::shared_ptr<TestRunEventImp>> events;
  } r;
  {
    MutexGuard guard(received.m_lock);
    Data const &d = received.m_d;
    r.state = d.state;
    r.result = d.result;
    r.percent = d.percent;
    r.estimatedTimeLeft = d.estimatedTimeLeft;
    r.progressInformation = d.progressInformation;
    r.elapsedTime = d.elapsedTime;
    r.errorCode = d.errorCode;
    r.errorCount = d.errorCount;
    r.clientPID = d.clientPID;
    r.events = d.events;
  }

  Array<Pending> pending;
  {
    MutexGuard guard(m_lock);
    if (m_d.state == TestStateImp::EXITED)
      return false;

    TestStateImp const old = m_d.state;
    bool const stateChanged = old != r.state;
    bool const percentChanged = m_d.percent != r.percent;
    bool const progressChanged = m_d.progressInformation != r.progressInformation;

    m_d.state = r.state;
    m_d.result = r.result;
    m_d.percent = r.percent;
    m_d.estimatedTimeLeft = r.estimatedTimeLeft;
    m_d.progressInformation = r.progressInformation;
    m_d.elapsedTime = r.elapsedTime;
    m_d.errorCode = r.errorCode;
    m_d.errorCount = r.errorCount;
    m_d.clientPID = r.clientPID;

    Array<Pending> newEvents;
    for (auto const &e : r.events) {
      if (!e || knowsEvent(e->guid()))
        continue;
      boost::shared_ptr<TestRunEventImp> copy(new TestRunEventImp(*e));
      m_d.events.append(copy);
      m_eventGuids.put(copy->guid(), true);
      newEvents.append(Pending(Notice::Event, copy));
    }

    // The order of the notices of one report; see the header.
    if (stateChanged)
      pending.append(Pending(old, r.state));
    if (stateChanged && r.state == TestStateImp::RUNNING)
      pending.append(Pending(Notice::Start));
    pending.appendAll(newEvents);
    if (percentChanged)
      pending.append(Pending(Notice::Percent));
    if (progressChanged)
      pending.append(Pending(Notice::Progress));
    if (stateChanged && r.state == TestStateImp::ABORTING)
      pending.append(Pending(Notice::Aborting));
    if (stateChanged && r.state == TestStateImp::EXITED) {
      if (r.result == TestResultImp::TESTNOTSTARTED ||
          r.result == TestResultImp::DEVICETESTINGBLOCKED)
        pending.append(Pending(Notice::NotStarted));
      else if (isStopResult(r.result) || old == TestStateImp::ABORTING)
        pending.append(Pending(Notice::Aborted));
      else
        pending.append(Pending(Notice::Finished));
    }
  }
  deliver(pending);
  return true;
}

// ---- observers

void TestRunImp::registerTestRunImpObserver(TestRunImpObserver *observer) {
  if (!observer)
    return;
  MutexGuard guard(m_lock);
  if (!m_observers.contains(observer))
    m_observers.append(observer);
}

void TestRunImp::unregisterTestRunImpObserver(TestRunImpObserver *observer) {
  MutexGuard guard(m_lock);
  m_observers.removeValue(observer);
}

void TestRunImp::addStateObserver(TestRunImpStateObserver *observer) {
  if (!observer)
    return;
  MutexGuard guard(m_lock);
  if (!m_stateObservers.contains(observer))
    m_stateObservers.append(observer);
}

void TestRunImp::removeStateObserver(TestRunImpStateObserver *observer) {
  MutexGuard guard(m_lock);
  m_stateObservers.removeValue(observer);
}

// Each notice walks a snapshot of the observers taken when it starts, so an
// observer may register or remove observers while being told; one removed
// meanwhile is skipped (checked again just before its call). No lock is held
// during a call.
void TestRunImp::deliver(Array<Pending> const &pending) {
  for (Pending const &p : pending) {
    if (p.notice == Notice::StateChange) {
      Array<TestRunImpStateObserver *> targets;
      {
        MutexGuard guard(m_lock);
        targets = m_stateObservers;
      }
      for (TestRunImpStateObserver *o : targets) {
        {
          MutexGuard guard(m_lock);
          if (!m_stateObservers.contains(o))
            continue;
        }
        o->handleStateChange(*this, p.oldState, p.newState);
      }
      continue;
    }

    Array<TestRunImpObserver *> targets;
    {
      MutexGuard guard(m_lock);
      targets = m_observers;
    }
    Delivery frame(this, p.event.get());
    for (TestRunImpObserver *o : targets) {
      {
        MutexGuard guard(m_lock);
        if (!m_observers.contains(o))
          continue;
      }
      switch (p.notice) {
      case Notice::Initializing:
        o->handleTestInitializing(*this);
        break;
      case Notice::Start:
        o->handleTestStart(*this);
        break;
      case Notice::Aborting:
        o->handleTestAborting(*this);
        break;
      case Notice::Aborted:
        o->handleTestAborted(*this);
        break;
      case Notice::Finished:
        o->handleTestFinished(*this);
        break;
      case Notice::NotStarted:
        o->handleTestNotStarted(*this);
        break;
      case Notice::Event:
        o->handleTestEvent(*this);
        break;
      case Notice::Percent:
        o->handleTestPercentComplete(*this);
        break;
      case Notice::Progress:
        o->handleTestProgressMessage(*this);
        break;
      case Notice::StateChange:
        break;
      }
    }
  }
}

// ---- text

String TestRunImp::toString(unsigned int indent, bool verbose) const {
  Data d = snapshot();
  String pad(static_cast<std::size_t>(indent) * 2, ' ');
  String in = pad + "  ";
  String out = pad + "Test Run: " + d.guid + "\n";
  if (d.test)
    out += in + "Test: " + d.test->localizedName() + " [" + d.test->guid() + "]\n";
  if (d.device)
    out += in + "Device: " + d.device->name() + " [" + d.device->guid() + "]\n";
  out += in + "State: " + d.state.toString() + "\n";
  out += in + "Result: " + d.result.toString() + "\n";
  out += in + "Percent: " + String::fromUInt(d.percent) + "\n";
  if (!verbose)
    return out;
  out += in + "Pass: " + String::fromUInt(d.currentPass) + " Index: " + String::fromUInt(d.index) +
         "\n";
  out += in + "Min time: " + String::fromUInt(d.minTime) +
         " Max time: " + (d.maxTime == NO_MAX_TIME ? String("none") : String::fromUInt(d.maxTime)) +
         "\n";
  if (d.forcedResult.isValid())
    out += in + "Forced result: " + d.forcedResult.toString() + "\n";
  out += in + "Elapsed: " + String::fromUInt(d.elapsedTime) +
         " Estimated left: " + String::fromUInt(d.estimatedTimeLeft) + "\n";
  if (!d.progressInformation.isEmpty())
    out += in + "Progress: " + d.progressInformation + "\n";
  if (!d.errorCode.isEmpty())
    out += in + "Error code: " + d.errorCode + "\n";
  out += in + "Errors: " + String::fromUInt(d.errorCount) + "/" + String::fromUInt(d.errorLimit) +
         "\n";
  for (auto const &p : d.parameters)
    out += p->toString(indent + 1, false);
  for (auto const &e : d.events)
    out += e->toString(indent + 1, false);
  return out;
}

} // namespace zel
