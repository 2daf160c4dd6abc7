#pragma once
// zel::ManagedSemaphore: a counting semaphore with timed waits.
//
// post(n) adds n counts and wakes waiters; each successful wait takes one.
// Time-outs are measured on the monotonic clock, so changing the wall clock
// does not cut a wait short or stretch it.
//
// The second constructor argument says whether the semaphore synchronises the
// threads of one process (true, the only use the system has). A semaphore
// shared between processes would have to live in shared memory, which the IPC
// layer owns; false is accepted, recorded and behaves as true.
//
// Thread-safety: every member may be called from any thread. The object must
// outlive every waiter.

#include <condition_variable>
#include <mutex>

namespace zel {

class ManagedSemaphore {
public:
  explicit ManagedSemaphore(unsigned int initialCount = 0, bool processLocal = true);
  ~ManagedSemaphore();
  ManagedSemaphore(ManagedSemaphore const &) = delete;
  ManagedSemaphore &operator=(ManagedSemaphore const &) = delete;

  /// Adds n counts (saturating at the largest unsigned int). post(0) does nothing.
  void post(unsigned int n = 1);
  /// Takes one count, waiting up to `timeoutMs`. False on time-out.
  bool wait(unsigned int timeoutMs);
  /// Takes one count, waiting as long as it takes.
  void wait();
  /// Takes one count when one is there; never blocks.
  bool tryWait();
  /// Counts available now (a snapshot; other threads may change it at once).
  unsigned int count() const;
  bool isProcessLocal() const noexcept { return m_processLocal; }

private:
  mutable std::mutex m_mutex;
  std::condition_variable m_available;
  unsigned int m_count;
  bool m_processLocal;
};

} // namespace zel
