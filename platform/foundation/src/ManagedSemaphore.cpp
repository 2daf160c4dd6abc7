#include "zel/ManagedSemaphore.h"

#include <chrono>
#include <climits>

namespace zel {

ManagedSemaphore::ManagedSemaphore(unsigned int initialCount, bool processLocal)
    : m_count(initialCount), m_processLocal(processLocal) {}

ManagedSemaphore::~ManagedSemaphore() = default;

void ManagedSemaphore::post(unsigned int n) {
  if (n == 0)
    return;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_count = (UINT_MAX - m_count < n) ? UINT_MAX : m_count + n;
  }
  if (n == 1)
    m_available.notify_one();
  else
    m_available.notify_all();
}

bool ManagedSemaphore::wait(unsigned int timeoutMs) {
  std::unique_lock<std::mutex> lock(m_mutex);
  // libstdc++ waits on the steady clock for wait_for.
  if (!m_available.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                            [this] { return m_count > 0; }))
    return false;
  --m_count;
  return true;
}

void ManagedSemaphore::wait() {
  std::unique_lock<std::mutex> lock(m_mutex);
  m_available.wait(lock, [this] { return m_count > 0; });
  --m_count;
}

bool ManagedSemaphore::tryWait() {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (m_count == 0)
    return false;
  --m_count;
  return true;
}

unsigned int ManagedSemaphore::count() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_count;
}

} // namespace zel
