#pragma once
// Locks of the foundation.
//
// zel::mutex is recursive: the thread that holds it may lock it again and
// must unlock it as often. It has a constexpr constructor, so a mutex at
// namespace scope is initialised before any code runs and may be used from
// other static initialisers. zel::rwlock is a reader-writer lock (not
// recursive). Guards release on scope exit.

#include <pthread.h>

#include <shared_mutex>

namespace zel {

class mutex {
public:
  constexpr mutex() noexcept : m_m(PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP) {}
  ~mutex() { pthread_mutex_destroy(&m_m); }
  mutex(mutex const &) = delete;
  mutex &operator=(mutex const &) = delete;

  void lock() noexcept { pthread_mutex_lock(&m_m); }
  bool tryLock() noexcept { return pthread_mutex_trylock(&m_m) == 0; }
  bool try_lock() noexcept { return tryLock(); }
  void unlock() noexcept { pthread_mutex_unlock(&m_m); }

  /// Scope guard: locks in the constructor, unlocks in the destructor.
  class scoped_lock {
  public:
    explicit scoped_lock(mutex &m) noexcept : m_ref(m) { m_ref.lock(); }
    ~scoped_lock() { m_ref.unlock(); }
    scoped_lock(scoped_lock const &) = delete;
    scoped_lock &operator=(scoped_lock const &) = delete;

  private:
    mutex &m_ref;
  };

private:
  pthread_mutex_t m_m;
};

using MutexGuard = mutex::scoped_lock;

class rwlock {
public:
  rwlock() = default;
  rwlock(rwlock const &) = delete;
  rwlock &operator=(rwlock const &) = delete;

  void readLock() { m_m.lock_shared(); }
  void readUnlock() { m_m.unlock_shared(); }
  void writeLock() { m_m.lock(); }
  void writeUnlock() { m_m.unlock(); }
  bool tryReadLock() { return m_m.try_lock_shared(); }
  bool tryWriteLock() { return m_m.try_lock(); }

  class read_guard {
  public:
    explicit read_guard(rwlock &l) : m_ref(l) { m_ref.readLock(); }
    ~read_guard() { m_ref.readUnlock(); }
    read_guard(read_guard const &) = delete;
    read_guard &operator=(read_guard const &) = delete;

  private:
    rwlock &m_ref;
  };
  class write_guard {
  public:
    explicit write_guard(rwlock &l) : m_ref(l) { m_ref.writeLock(); }
    ~write_guard() { m_ref.writeUnlock(); }
    write_guard(write_guard const &) = delete;
    write_guard &operator=(write_guard const &) = delete;

  private:
    rwlock &m_ref;
  };

private:
  std::shared_mutex m_m;
};

} // namespace zel
