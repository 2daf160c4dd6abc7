#pragma once
// zel::TestRunManager: a registry of test runs by guid, in order of
// registration.
//
// Not a singleton: the client keeps one for the process (in its global hook
// list), the engine its own, and the engine's answer to a run enumeration is
// a fresh manager that the client merges into its own and then destroys.
//
// Locks. The registry guards itself with an internal lock that is never held
// while calling out (into a run's update() and so into observers).
// externalMutex() is a second, recursive mutex that the manager never takes
// itself: callers hold it around a look-up and the change of the run they
// found (the client's message handler, a multi-pass run's end of pass), so
// that those steps are seen whole. Lock order for callers: a script's run
// mutex, then externalMutex(), then a multi-pass run's mutex.
//
// Copies: a copy holds copies of the runs (zel::TestRunImp copy semantics:
// data, no observers), never the same objects; that is what a message needs.

#include <boost/shared_ptr.hpp>

#include "zel/Array.h"
#include "zel/HashTable.h"
#include "zel/Mutex.h"
#include "zel/String.h"
#include "zel/TestRunImp.h"
#include "zel/TestStateImp.h"

namespace zel {

struct TestRunCodec;

class TestRunManager {
public:
  TestRunManager();
  TestRunManager(TestRunManager const &other);
  TestRunManager &operator=(TestRunManager const &other);
  virtual ~TestRunManager();

  /// Registers a run under its guid, at the end. A run whose guid is already
  /// registered takes that entry's place instead (false). Null: false.
  bool addTestRun(boost::shared_ptr<TestRunImp> const &run);
  /// Unregisters the run of that guid; false when there is none.
  bool removeTestRun(String const &guid);
  /// The run of that guid; empty when there is none. Constant time.
  boost::shared_ptr<TestRunImp> testRunByGuid(String const &guid) const;
  /// All runs in order of registration (a snapshot).
  Array<boost::shared_ptr<TestRunImp>> getTestRuns() const;
  /// The runs whose state equals `state`, in order; TestStateImp::ALL gives
  /// every run.
  Array<boost::shared_ptr<TestRunImp>> testRuns(TestStateImp const &state) const;
  unsigned int testRunCount() const;
  void clear();

  /// The callers' mutex (recursive); see the header.
  mutex &externalMutex() const { return m_external; }

  /// Takes in what another manager (the engine's answer) knows, run by run in
  /// its order: a guid unknown here is registered as a copy of that run; a
  /// known one is brought up to date with update(), which fires its
  /// observers, except when the local run is EXITED: a finished run is never
  /// changed again, as with progress reports. Merging a manager into itself
  /// does nothing.
  void merge(TestRunManager const &other);

private:
  friend struct TestRunCodec;

  mutable mutex m_lock;
  mutable mutex m_external;
  OrderedHashTable<String, boost::shared_ptr<TestRunImp>> m_runs;
};

} // namespace zel
