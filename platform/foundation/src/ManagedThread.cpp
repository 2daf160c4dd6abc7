#include "zel/ManagedThread.h"

#include <pthread.h>

#include <chrono>
#include <cstring>
#include <cxxabi.h>
#include <exception>
#include <system_error>

#include "zel/Exception.h"
#include "zel/Logger.h"

namespace zel {

namespace {

Logger &globalLogger() { return LogFactory::getLogger("OSTREL-Global"); }

// The kernel keeps 15 bytes of a thread name plus the terminator; a longer
// name makes pthread_setname_np fail with ERANGE, so it is cut instead.
void nameCurrentThread(String const &name) {
  if (name.isEmpty())
    return;
  char shortName[16];
  std::size_t n = name.length() < 15 ? name.length() : 15;
  std::memcpy(shortName, name.c_str(), n);
  shortName[n] = '\0';
  pthread_setname_np(pthread_self(), shortName);
}

} // namespace

ManagedThread::ManagedThread(Function function) : m_function(std::move(function)) {}

ManagedThread::~ManagedThread() {
  cancel();
  join();
}

bool ManagedThread::calledFromOwnThread() const {
  std::lock_guard<std::mutex> state(m_state);
  return m_running && m_runner == std::this_thread::get_id();
}

bool ManagedThread::run(char const *name) {
  // From inside the function the thread is running by definition; taking
  // m_control here could deadlock against a join() waiting for this thread.
  if (calledFromOwnThread())
    return false;
  std::lock_guard<std::mutex> control(m_control);
  {
    std::lock_guard<std::mutex> state(m_state);
    if (m_running)
      return false;
  }
  // The previous run has ended; collect its thread before starting anew.
  if (m_thread.joinable())
    m_thread.join();

  String threadName(name);
  {
    std::lock_guard<std::mutex> state(m_state);
    m_cancelled = false;
    m_running = true;
    m_name = threadName;
  }
  try {
    m_thread = std::thread(&ManagedThread::body, this, threadName);
  } catch (std::system_error const &e) {
    {
      std::lock_guard<std::mutex> state(m_state);
      m_running = false;
    }
    globalLogger().log(5, String("ManagedThread::run(") + threadName +
                              ") could not create a thread: " + e.what());
    return false;
  }
  return true;
}

void ManagedThread::body(String const &name) {
  nameCurrentThread(name);
  {
    std::lock_guard<std::mutex> state(m_state);
    m_runner = std::this_thread::get_id();
  }

  // Publishes the result and the end of the run however the function leaves,
  // including a forced unwind (pthread_exit), which must not be swallowed.
  struct EndOfRun {
    ManagedThread &self;
    int result = -1;
    ~EndOfRun() {
      std::lock_guard<std::mutex> state(self.m_state);
      self.m_result = result;
      self.m_running = false;
      self.m_runner = std::thread::id();
    }
  } end{*this};

  String failure;
  try {
    end.result = m_function ? m_function(*this) : 0;
    return;
  } catch (abi::__forced_unwind &) {
    throw;
  } catch (Exception const &e) {
    failure = e.toString();
  } catch (StructuredException const &e) {
    failure = e.toString();
  } catch (std::exception const &e) {
    failure = e.what();
  } catch (...) {
    failure = "unknown exception";
  }
  end.result = -1;
  globalLogger().log(5, String("ManagedThread \"") + name +
                            "\": thread function ended by an exception: " + failure);
}

void ManagedThread::cancel() {
  {
    std::lock_guard<std::mutex> state(m_state);
    m_cancelled = true;
  }
  m_wake.notify_all();
}

bool ManagedThread::testCancel() const {
  std::lock_guard<std::mutex> state(m_state);
  return m_cancelled;
}

bool ManagedThread::testCancel(unsigned int milliseconds) const {
  std::unique_lock<std::mutex> state(m_state);
  // wait_for measures on the steady clock, so a change of the wall clock
  // neither shortens nor stretches the wait.
  return m_wake.wait_for(state, std::chrono::milliseconds(milliseconds),
                         [this] { return m_cancelled; });
}

int ManagedThread::join() {
  if (calledFromOwnThread())
    return result(); // waiting for oneself would never end
  std::lock_guard<std::mutex> control(m_control);
  if (m_thread.joinable())
    m_thread.join();
  return result();
}

bool ManagedThread::isRunning() const {
  std::lock_guard<std::mutex> state(m_state);
  return m_running;
}

int ManagedThread::result() const {
  std::lock_guard<std::mutex> state(m_state);
  return m_result;
}

String ManagedThread::name() const {
  std::lock_guard<std::mutex> state(m_state);
  return m_name;
}

} // namespace zel
