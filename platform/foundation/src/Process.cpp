#include "zel/Process.h"

#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>

#include "ProcessSpawn.h"
#include "zel/System.h"

namespace zel {

Process::Process() = default;

Process::~Process() { kill(); }

bool Process::start(String const &path, Array<String> const &arguments) {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (m_running && !reapLocked())
    return false;
  pid_t pid = detail::spawnProcess(path, arguments, false);
  if (pid <= 0)
    return false;
  m_pid = pid;
  m_running = true;
  m_exitCode = -1;
  return true;
}

// Reaps the child when it has exited. True when it is no longer running.
// The child's pid is only ever used while m_running is true and under the
// lock, so it cannot name a recycled process.
bool Process::reapLocked() {
  if (!m_running)
    return true;
  int status = 0;
  if (!detail::reapIfExited(m_pid, &status))
    return false;
  m_running = false;
  if (WIFEXITED(status))
    m_exitCode = WEXITSTATUS(status);
  else if (WIFSIGNALED(status))
    m_exitCode = 128 + WTERMSIG(status);
  return true;
}

unsigned int Process::pid() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return static_cast<unsigned int>(m_pid);
}

bool Process::isRunning() {
  std::lock_guard<std::mutex> lock(m_mutex);
  return !reapLocked();
}

bool Process::wait(unsigned int timeoutMs) {
  using Clock = std::chrono::steady_clock;
  Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  unsigned int pause = 1;
  for (;;) {
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      if (reapLocked())
        return true;
    }
    Clock::time_point now = Clock::now();
    if (now >= deadline)
      return false;
    // Rounded up, so the wait never ends before the full time has passed.
    std::int64_t left = std::chrono::ceil<std::chrono::milliseconds>(deadline - now).count();
    // Poll quickly at first (short-lived children), then back off. The lock
    // is not held while sleeping, so kill() from another thread gets through.
    System::mssleep(std::min<std::int64_t>(pause, left));
    pause = std::min(pause * 2, 20u);
  }
}

bool Process::wait(unsigned int timeoutMs, int &exitCode) {
  if (!wait(timeoutMs))
    return false;
  exitCode = this->exitCode();
  return true;
}

bool Process::kill() {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (reapLocked())
      return true;
    ::kill(m_pid, SIGKILL);
  }
  // SIGKILL cannot be caught; the child ends as soon as the kernel gets to it.
  return wait(5000);
}

int Process::exitCode() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_exitCode;
}

} // namespace zel
