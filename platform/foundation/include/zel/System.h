#pragma once
// zel::System: the process's window on the operating system (clocks, sleeps,
// background processes, errors, directories, environment).
//
// Every member is static and thread-safe, with the usual process-wide caveats:
// changeDirectory changes the working directory of every thread, and
// getSystemError reads the calling thread's errno.

#include <cstdint>

#include "zel/Array.h"
#include "zel/String.h"

namespace zel {

class System {
public:
  System() = delete;

  /// Unix time in whole seconds (wall clock).
  static std::int64_t getCurrentTimeStamp();
  /// Unix time in milliseconds (wall clock).
  static std::int64_t getCurrentTimeMillis();
  /// Milliseconds of a monotonic clock with an arbitrary origin: use it for
  /// durations and deadlines, never as a date.
  static std::int64_t getMonotonicMillis();
  /// Sleeps at least `milliseconds`, also when signals interrupt the sleep.
  static void mssleep(unsigned int milliseconds);

  /// Starts `path` in the background and returns its process id, or 0 when it
  /// cannot be started (errno then tells why, see getSystemError). `arguments`
  /// is one command line cut by splitArguments; the program gets `path` as
  /// argv[0]. The child reads standard input from /dev/null, shares standard
  /// output and error, runs in a process group of its own (a Ctrl-C meant for
  /// the caller does not reach it) and starts with no blocked signals.
  static unsigned int execInBackground(String const &path, String const &arguments);

  /// Cuts a command line into arguments: blanks (space, tab) separate them,
  /// except inside double quotes; the quotes themselves are removed. A quoted
  /// empty text ("") is an empty argument. There are no escapes.
  /// `"/tmp/base dir" cpu true` gives /tmp/base dir, cpu, true.
  static Array<String> splitArguments(String const &arguments);

  /// True while the process lives. An exited child of this process is reaped
  /// here (waitpid without blocking), and a zombie of any process counts as
  /// gone, so polling this until it is false ends once the process has exited.
  /// pid 0 gives false.
  static bool processExists(unsigned int pid);

  /// Kills the process by force (SIGKILL). A child of this process is then
  /// reaped (waiting up to about a second for the kernel to end it). True when
  /// the signal was delivered; false for pid 0, an unknown process or one we
  /// may not signal.
  static bool killPID(unsigned int pid);

  /// File name of the engine executable: "ostrel-engine".
  static char const *getEngineExecName();
  static unsigned int getProcessId();

  /// The calling thread's last system error code (errno).
  static unsigned long getSystemError();
  /// The system's text for an error code ("No such file or directory"); with
  /// `withCode` the code follows in parentheses ("No such file or directory (2)").
  static String getSystemErrorMsg(unsigned long code, bool withCode = false);

  static bool changeDirectory(String const &path);
  /// Absolute path of the working directory ("" if it cannot be read).
  static String getWorkingDirectory();
  /// True when the variable is set (possibly to the empty text); `value` is
  /// left alone otherwise.
  static bool getEnv(String const &name, String &value);
  static String getHostName();
  /// Absolute path of the running executable ("" if unknown).
  static String getExecutablePath();
  /// Directory of the running executable, without a trailing slash.
  static String getExecutableDirectory();
};

} // namespace zel
