#pragma once
// zel::Process: a handle on one child process that this process started.
//
// The handle owns its child: the destructor kills and reaps a child that is
// still running, so no process outlives its handle by accident and none is
// left as a zombie. (A process meant to outlive its starter is started with
// zel::System::execInBackground instead.) The child is started as
// execInBackground starts it: standard input from /dev/null, shared standard
// output and error, no blocked signals, but in the caller's process group.
//
// Exit code: the status the child exited with, or 128 + the signal number
// when a signal ended it (the shell's convention), -1 while unknown.
//
// Thread-safety: every member may be called from any thread; the handle is
// shared by a locked holder. wait() does not block kill() or isRunning() of
// other threads. Do not hand pid() to zel::System::processExists or killPID:
// they reap the child and its exit code would be lost to this handle.

#include <mutex>

#include "zel/Array.h"
#include "zel/String.h"

namespace zel {

class Process {
public:
  Process();
  ~Process();
  Process(Process const &) = delete;
  Process &operator=(Process const &) = delete;

  /// Starts `path` with `arguments` (argv[1..]; argv[0] is `path`). A bare
  /// name is looked up in PATH. False when a child is still running from an
  /// earlier start or the program cannot be started (errno says why).
  bool start(String const &path, Array<String> const &arguments);

  /// Process id of the last started child (0 before any start).
  unsigned int pid() const;
  /// True while the child runs; reaps it once it has exited.
  bool isRunning();
  /// Waits up to `timeoutMs` for the child to end. True when it has ended
  /// (also when it had ended before, or none was started).
  bool wait(unsigned int timeoutMs);
  /// As wait(timeoutMs), giving the exit code when true.
  bool wait(unsigned int timeoutMs, int &exitCode);
  /// Kills the child by force and reaps it. True when the child has ended.
  bool kill();
  /// See the header comment; -1 until the child has ended and been reaped.
  int exitCode() const;

private:
  bool reapLocked();

  mutable std::mutex m_mutex;
  int m_pid = 0;
  bool m_running = false;
  int m_exitCode = -1;
};

} // namespace zel
