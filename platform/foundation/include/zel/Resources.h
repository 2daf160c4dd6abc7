#pragma once
// Holders: the ways the system owns heap objects.
//
//   SharedResource<PointerStorage<T, 0, 3>, 1>  shared; the count changes
//       under a zel::mutex in a heap control block; the last release deletes
//       the object, then the block. Copies may live on different threads.
//   SharedResource<PointerStorage<T, 0, 3>, 0>  shared with a plain count:
//       cheaper, but every copy must stay on one thread at a time.
//   CopiedResource<PointerStorage<T, 0, 1>>     private object; a copy
//       duplicates it (through T::clone() when T has one, for abstract types).
//   TransferResource<PointerStorage<T, 0, 3>>   one owner; a copy moves the
//       object and leaves the source empty.
//
// A holder with a null pointer has no control block; copying it gives another
// empty holder without touching any count. A SharedResource may be made with
// deleteOnRelease = false: it then counts references but never deletes (for
// objects owned elsewhere, such as application observers).
//
// PointerStorage<T, Shape, Copy>: Shape 0 holds one object (delete), 1 an
// array (delete[]). Copy names how CopiedResource duplicates: 1 through
// clone() (required then), 3 through the copy constructor.

#include <type_traits>
#include <utility>

#include "zel/Mutex.h"

namespace zel {

namespace detail {
template <class T, class = void> struct HasClone : std::false_type {};
template <class T>
struct HasClone<T, std::void_t<decltype(std::declval<T const &>().clone())>>
    : std::is_convertible<decltype(std::declval<T const &>().clone()), T *> {};

/// Duplicates an object: T::clone() when T has one, else the copy constructor.
template <class T> T *duplicate(T const &value) {
  if constexpr (HasClone<T>::value)
    return static_cast<T *>(value.clone());
  else
    return new T(value);
}
} // namespace detail

template <class T, int Shape = 0, int Copy = 3> struct PointerStorage {
  static_assert(Shape == 0 || Shape == 1, "PointerStorage shape is 0 (object) or 1 (array)");
  using element_type = T;
  static void destroy(T *p) noexcept {
    if constexpr (Shape == 1)
      delete[] p;
    else
      delete p;
  }
  static T *duplicate(T const *p) {
    if (!p)
      return nullptr;
    if constexpr (Copy == 1) {
      static_assert(detail::HasClone<T>::value, "PointerStorage<T, 0, 1> needs T::clone()");
      return static_cast<T *>(p->clone());
    } else {
      return detail::duplicate(*p);
    }
  }
};

template <class Storage, int Locked = 1> class SharedResource {
public:
  using element_type = typename Storage::element_type;
  using T = element_type;

  SharedResource() noexcept = default;
  /// Takes the object; null gives an empty holder.
  explicit SharedResource(T *object, bool deleteOnRelease = true)
      : m_p(object), m_block(object ? new Block(deleteOnRelease) : nullptr) {}
  SharedResource(SharedResource const &other) noexcept : m_p(other.m_p), m_block(other.m_block) {
    if (m_block)
      m_block->acquire();
  }
  SharedResource(SharedResource &&other) noexcept : m_p(other.m_p), m_block(other.m_block) {
    other.m_p = nullptr;
    other.m_block = nullptr;
  }
  ~SharedResource() { release(); }

  SharedResource &operator=(SharedResource const &other) noexcept {
    if (m_block != other.m_block) {
      SharedResource copy(other);
      swap(copy);
    }
    return *this;
  }
  SharedResource &operator=(SharedResource &&other) noexcept {
    if (this != &other) {
      release();
      m_p = other.m_p;
      m_block = other.m_block;
      other.m_p = nullptr;
      other.m_block = nullptr;
    }
    return *this;
  }

  T *get() const noexcept { return m_p; }
  T &operator*() const noexcept { return *m_p; }
  T *operator->() const noexcept { return m_p; }
  bool isValid() const noexcept { return m_p != nullptr; }
  explicit operator bool() const noexcept { return m_p != nullptr; }
  /// Number of holders sharing the object; 0 for an empty holder.
  long useCount() const noexcept { return m_block ? m_block->count() : 0; }
  bool deletesOnRelease() const noexcept { return m_block && m_block->owns; }

  void reset() noexcept { release(); }
  void reset(T *object, bool deleteOnRelease = true) {
    SharedResource fresh(object, deleteOnRelease);
    swap(fresh);
  }
  void swap(SharedResource &other) noexcept {
    std::swap(m_p, other.m_p);
    std::swap(m_block, other.m_block);
  }

  friend bool operator==(SharedResource const &a, SharedResource const &b) noexcept {
    return a.m_p == b.m_p;
  }
  friend bool operator!=(SharedResource const &a, SharedResource const &b) noexcept {
    return a.m_p != b.m_p;
  }

private:
  struct LockedBlock {
    explicit LockedBlock(bool o) : owns(o) {}
    void acquire() noexcept {
      mutex::scoped_lock g(m);
      ++n;
    }
    long releaseOne() noexcept {
      mutex::scoped_lock g(m);
      return --n;
    }
    long count() noexcept {
      mutex::scoped_lock g(m);
      return n;
    }
    mutex m;
    long n = 1;
    bool owns;
  };
  struct PlainBlock {
    explicit PlainBlock(bool o) : owns(o) {}
    void acquire() noexcept { ++n; }
    long releaseOne() noexcept { return --n; }
    long count() const noexcept { return n; }
    long n = 1;
    bool owns;
  };
  using Block = std::conditional_t<Locked != 0, LockedBlock, PlainBlock>;

  void release() noexcept {
    if (!m_block)
      return;
    if (m_block->releaseOne() == 0) {
      if (m_block->owns)
        Storage::destroy(m_p);
      delete m_block;
    }
    m_p = nullptr;
    m_block = nullptr;
  }

  T *m_p = nullptr;
  Block *m_block = nullptr;
};

namespace detail {
/// What the two single-owner holders share: one owned pointer, its
/// accessors, and deletion. Copy semantics are the holders' own.
template <class Storage> class SingleOwner {
public:
  using element_type = typename Storage::element_type;
  using T = element_type;

  T *get() const noexcept { return m_p; }
  T &operator*() const noexcept { return *m_p; }
  T *operator->() const noexcept { return m_p; }
  bool isValid() const noexcept { return m_p != nullptr; }
  explicit operator bool() const noexcept { return m_p != nullptr; }
  void reset(T *object = nullptr) noexcept {
    Storage::destroy(m_p);
    m_p = object;
  }
  /// Gives the object away (e.g. to a shared holder); the holder is empty afterwards.
  T *release() noexcept {
    T *p = m_p;
    m_p = nullptr;
    return p;
  }

protected:
  explicit SingleOwner(T *object = nullptr) noexcept : m_p(object) {}
  ~SingleOwner() { Storage::destroy(m_p); }
  SingleOwner(SingleOwner const &) = delete;
  SingleOwner &operator=(SingleOwner const &) = delete;

  /// Mutable so that a transferring copy can empty a const source.
  mutable T *m_p;
};
} // namespace detail

template <class Storage> class CopiedResource : public detail::SingleOwner<Storage> {
  using Base = detail::SingleOwner<Storage>;
  using Base::m_p;

public:
  using typename Base::element_type;
  using typename Base::T;

  CopiedResource() noexcept = default;
  explicit CopiedResource(T *object) noexcept : Base(object) {}
  CopiedResource(CopiedResource const &other) : Base(Storage::duplicate(other.m_p)) {}
  CopiedResource(CopiedResource &&other) noexcept : Base(other.release()) {}
  CopiedResource &operator=(CopiedResource const &other) {
    if (this != &other) {
      CopiedResource copy(other);
      std::swap(m_p, copy.m_p);
    }
    return *this;
  }
  CopiedResource &operator=(CopiedResource &&other) noexcept {
    if (this != &other)
      this->reset(other.release());
    return *this;
  }
};

template <class Storage> class TransferResource : public detail::SingleOwner<Storage> {
  using Base = detail::SingleOwner<Storage>;
  using Base::m_p;

public:
  using typename Base::element_type;
  using typename Base::T;

  TransferResource() noexcept = default;
  explicit TransferResource(T *object) noexcept : Base(object) {}
  /// Moves the object out of `other`, which is left empty.
  TransferResource(TransferResource const &other) noexcept : Base(other.m_p) {
    other.m_p = nullptr;
  }
  TransferResource &operator=(TransferResource const &other) noexcept {
    if (this != &other) {
      T *p = other.m_p;
      other.m_p = nullptr;
      this->reset(p);
    }
    return *this;
  }
};

} // namespace zel
