#pragma once
// zel::ManagedThread: a re-runnable thread with cooperative cancellation.
//
// The object owns one thread function and runs it on a thread of its own each
// time run() is called. Cancellation is a request only: the function polls
// testCancel() (or waits in testCancel(ms)) and returns when it sees it. The
// object may be run again after the previous run has ended; every run starts
// with the cancel flag cleared, and a cancel() made after run() is seen even if
// it comes before the function reaches its first testCancel().
//
// Lifecycle guarantees (callers rely on them when shutting down twice):
// - cancel() is harmless on a thread that never ran, has ended or was joined;
// - join() is harmless when repeated and returns at once on a thread that
//   never ran; it returns the result of the last run (0 before any run);
// - the destructor cancels and joins a running thread.
//
// An exception that escapes the thread function is caught, logged on
// "OSTREL-Global" at priority 5, and makes the run's result -1: it never
// terminates the process.
//
// Thread-safety: every member may be called from any thread. join() must not
// be called from the thread function itself (it returns the current result
// without waiting), and the object must not be destroyed by its own thread.

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <type_traits>
#include <utility>

#include "zel/String.h"

namespace zel {

class ManagedThread {
public:
  using Function = std::function<int(ManagedThread &)>;

  /// Any callable taking the thread object and returning the run's result:
  /// a plain function, a lambda, a bound function.
  explicit ManagedThread(Function function);

  /// A function with an extra argument. The argument is copied into the object
  /// once and handed by value to every run, so each run sees the same value.
  template <class Arg>
  ManagedThread(int (*function)(ManagedThread &, Arg),
                typename std::decay<Arg>::type const &argument)
      : ManagedThread(Function(
            [function, argument](ManagedThread &self) { return function(self, argument); })) {}

  ~ManagedThread();

  ManagedThread(ManagedThread const &) = delete;
  ManagedThread &operator=(ManagedThread const &) = delete;

  /// Starts the function on a new thread. The OS thread gets `name` (cut to
  /// 15 bytes, the kernel's limit); a null name leaves the default. A previous
  /// run that has ended is joined first. False when a run is still going or
  /// the thread cannot be created.
  bool run(char const *name = nullptr);

  /// Asks the current run to stop. Never blocks.
  void cancel();

  /// True when the current run was asked to stop. Never blocks.
  bool testCancel() const;

  /// Waits up to `milliseconds` for a cancel request; returns as soon as one
  /// arrives. True when the run was asked to stop.
  bool testCancel(unsigned int milliseconds) const;

  /// Waits for the current run to end and returns its result. Returns at once
  /// when nothing runs.
  int join();

  /// True from run() until the thread function has returned.
  bool isRunning() const;

  /// Result of the last completed run (0 before any; -1 after an exception).
  int result() const;

  /// Name given to the last run ("" when none).
  String name() const;

private:
  void body(String const &name);
  /// True when called from inside the thread function of this object.
  bool calledFromOwnThread() const;

  Function m_function;

  // Serialises run() and join(), which manage m_thread. cancel() and
  // testCancel() do not take it, so they never wait behind a join.
  std::mutex m_control;
  std::thread m_thread;

  // Guards the flags below; m_wake signals cancel requests.
  mutable std::mutex m_state;
  mutable std::condition_variable m_wake;
  bool m_cancelled = false;
  bool m_running = false;
  int m_result = 0;
  std::thread::id m_runner; ///< id of the thread inside the function, while it runs
  String m_name;
};

} // namespace zel
