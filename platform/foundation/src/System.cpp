#include "zel/System.h"

#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ProcessSpawn.h"

extern char **environ;

namespace zel {

namespace detail {

pid_t spawnProcess(String const &path, Array<String> const &arguments, bool ownProcessGroup) {
  std::vector<char *> argv;
  argv.reserve(arguments.size() + 2);
  argv.push_back(const_cast<char *>(path.c_str()));
  for (std::size_t i = 0; i < arguments.size(); ++i)
    argv.push_back(const_cast<char *>(arguments[i].c_str()));
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attr;
  int rc = posix_spawn_file_actions_init(&actions);
  if (rc != 0) {
    errno = rc;
    return -1;
  }
  rc = posix_spawnattr_init(&attr);
  if (rc != 0) {
    posix_spawn_file_actions_destroy(&actions);
    errno = rc;
    return -1;
  }

  // A background child must not compete for the terminal's input.
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);

  // The calling thread may block signals (worker threads often do); the child
  // must not inherit that, nor handlers' ignore settings such as SIGPIPE.
  sigset_t none, all;
  sigemptyset(&none);
  sigfillset(&all);
  short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
  posix_spawnattr_setsigmask(&attr, &none);
  posix_spawnattr_setsigdefault(&attr, &all);
  if (ownProcessGroup) {
    flags |= POSIX_SPAWN_SETPGROUP;
    posix_spawnattr_setpgroup(&attr, 0);
  }
  posix_spawnattr_setflags(&attr, flags);

  pid_t pid = -1;
  // A bare name is looked up in PATH; anything with a slash is taken as is.
  bool searchPath = path.find('/') == String::npos;
  rc = searchPath ? posix_spawnp(&pid, path.c_str(), &actions, &attr, argv.data(), environ)
                  : posix_spawn(&pid, path.c_str(), &actions, &attr, argv.data(), environ);
  posix_spawnattr_destroy(&attr);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) {
    errno = rc;
    return -1;
  }
  return pid;
}

bool reapIfExited(pid_t pid, int *status) {
  int st = 0;
  pid_t r;
  do {
    r = waitpid(pid, &st, WNOHANG);
  } while (r < 0 && errno == EINTR);
  if (r != pid)
    return false;
  if (status)
    *status = st;
  return true;
}

} // namespace detail

namespace {

bool validPid(unsigned int pid) { return pid != 0 && pid <= static_cast<unsigned int>(INT_MAX); }

std::int64_t clockMillis(clockid_t clock) {
  timespec ts;
  clock_gettime(clock, &ts);
  return static_cast<std::int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// A process that has exited but is not yet reaped by its parent still answers
// kill(pid, 0); its state letter in /proc tells it apart.
bool isZombie(pid_t pid) {
  char path[64];
  std::snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(pid));
  int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    return false;
  char buf[512];
  ssize_t n = read(fd, buf, sizeof buf - 1);
  close(fd);
  if (n <= 0)
    return false;
  buf[n] = '\0';
  // The command name is in parentheses and may itself hold ')' or blanks.
  char const *close = std::strrchr(buf, ')');
  if (!close || close[1] != ' ')
    return false;
  char state = close[2];
  return state == 'Z' || state == 'X';
}

} // namespace

std::int64_t System::getCurrentTimeStamp() {
  timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<std::int64_t>(ts.tv_sec);
}

std::int64_t System::getCurrentTimeMillis() { return clockMillis(CLOCK_REALTIME); }

std::int64_t System::getMonotonicMillis() { return clockMillis(CLOCK_MONOTONIC); }

void System::mssleep(unsigned int milliseconds) {
  timespec left;
  left.tv_sec = milliseconds / 1000;
  left.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000L;
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

Array<String> System::splitArguments(String const &arguments) {
  Array<String> out;
  std::string current;
  bool inToken = false; // something (possibly "") has started an argument
  bool inQuotes = false;
  for (char c : arguments.str()) {
    if (c == '"') {
      inQuotes = !inQuotes;
      inToken = true;
    } else if (!inQuotes && (c == ' ' || c == '\t')) {
      if (inToken) {
        out.append(String(current));
        current.clear();
        inToken = false;
      }
    } else {
      current += c;
      inToken = true;
    }
  }
  if (inToken)
    out.append(String(current));
  return out;
}

unsigned int System::execInBackground(String const &path, String const &arguments) {
  if (path.isEmpty()) {
    errno = ENOENT;
    return 0;
  }
  pid_t pid = detail::spawnProcess(path, splitArguments(arguments), true);
  return pid > 0 ? static_cast<unsigned int>(pid) : 0;
}

bool System::processExists(unsigned int pid) {
  if (!validPid(pid))
    return false;
  pid_t p = static_cast<pid_t>(pid);
  int saved = errno;
  int status;
  pid_t r;
  do {
    r = waitpid(p, &status, WNOHANG);
  } while (r < 0 && errno == EINTR);
  bool exists;
  if (r == p)
    exists = false; // our child had exited and is reaped now
  else if (r == 0)
    exists = true; // our child, still running
  else if (kill(p, 0) != 0 && errno != EPERM)
    exists = false; // not our child and not there at all
  else
    exists = !isZombie(p);
  errno = saved;
  return exists;
}

bool System::killPID(unsigned int pid) {
  if (!validPid(pid))
    return false; // kill(0, ...) would hit our whole process group
  pid_t p = static_cast<pid_t>(pid);
  if (kill(p, SIGKILL) != 0)
    return false;
  // SIGKILL is asynchronous; give the kernel a moment to end the child so
  // that it does not linger as a zombie. Not our child: waitpid says ECHILD.
  std::int64_t deadline = getMonotonicMillis() + 1000;
  for (;;) {
    int status;
    pid_t r = waitpid(p, &status, WNOHANG);
    if (r == p || (r < 0 && errno != EINTR))
      break;
    if (getMonotonicMillis() >= deadline)
      break;
    mssleep(1);
  }
  return true;
}

char const *System::getEngineExecName() { return "ostrel-engine"; }

unsigned int System::getProcessId() { return static_cast<unsigned int>(getpid()); }

unsigned long System::getSystemError() { return static_cast<unsigned long>(errno); }

String System::getSystemErrorMsg(unsigned long code, bool withCode) {
  String text;
  if (code <= static_cast<unsigned long>(INT_MAX)) {
    char buf[256];
    // GNU strerror_r: returns the text, which may or may not be in buf.
    text = strerror_r(static_cast<int>(code), buf, sizeof buf);
  } else {
    text = String("Unknown error ") + String::fromUInt(code);
  }
  if (withCode)
    text += String(" (") + String::fromUInt(code) + ")";
  return text;
}

bool System::changeDirectory(String const &path) {
  return !path.isEmpty() && chdir(path.c_str()) == 0;
}

String System::getWorkingDirectory() {
  std::vector<char> buf(PATH_MAX);
  for (;;) {
    if (getcwd(buf.data(), buf.size()))
      return String(buf.data());
    if (errno != ERANGE)
      return String();
    buf.resize(buf.size() * 2);
  }
}

bool System::getEnv(String const &name, String &value) {
  if (name.isEmpty())
    return false;
  char const *v = std::getenv(name.c_str());
  if (!v)
    return false;
  value = String(v);
  return true;
}

String System::getHostName() {
  char buf[HOST_NAME_MAX + 1];
  if (gethostname(buf, sizeof buf) != 0)
    return String();
  buf[HOST_NAME_MAX] = '\0';
  return String(buf);
}

String System::getExecutablePath() {
  std::vector<char> buf(PATH_MAX);
  for (;;) {
    ssize_t n = readlink("/proc/self/exe", buf.data(), buf.size());
    if (n < 0)
      return String();
    if (static_cast<std::size_t>(n) < buf.size())
      return String(buf.data(), static_cast<std::size_t>(n));
    buf.resize(buf.size() * 2); // possibly cut: try a larger buffer
  }
}

String System::getExecutableDirectory() {
  String path = getExecutablePath();
  std::size_t slash = path.rfind(String("/"));
  if (slash == String::npos)
    return String();
  return slash == 0 ? String("/") : path.substring(0, slash);
}

} // namespace zel
