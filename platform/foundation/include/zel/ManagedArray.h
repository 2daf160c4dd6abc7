#pragma once
// zel::ManagedArray<T>: an array that owns heap objects.
//
// Elements are pointers the array deletes on removal, on clear and in its
// destructor. T may be abstract: a copy of the array duplicates every element
// through T::clone() when T has one, else through T's copy constructor.
// Positions out of range fail the assertion "index < size()". Null elements
// are allowed. Thread-compatible.

#include <cstddef>
#include <utility>
#include <vector>

#include "zel/AssertionFailure.h"
#include "zel/Resources.h"

namespace zel {

template <class T> class ManagedArray {
public:
  ManagedArray() = default;
  ManagedArray(ManagedArray const &other) {
    m_v.reserve(other.m_v.size());
    try {
      for (T *p : other.m_v)
        m_v.push_back(p ? detail::duplicate(*p) : nullptr);
    } catch (...) {
      clear();
      throw;
    }
  }
  ManagedArray(ManagedArray &&other) noexcept : m_v(std::move(other.m_v)) { other.m_v.clear(); }
  ManagedArray &operator=(ManagedArray const &other) {
    if (this != &other) {
      ManagedArray copy(other);
      m_v.swap(copy.m_v);
    }
    return *this;
  }
  ManagedArray &operator=(ManagedArray &&other) noexcept {
    if (this != &other) {
      clear();
      m_v.swap(other.m_v);
    }
    return *this;
  }
  ~ManagedArray() { clear(); }

  std::size_t size() const noexcept { return m_v.size(); }
  bool isEmpty() const noexcept { return m_v.empty(); }

  T &operator[](std::size_t index) const {
    ZEL_ASSERT(index < size());
    return *m_v[index];
  }
  /// The element pointer (still owned by the array).
  T *at(std::size_t index) const {
    ZEL_ASSERT(index < size());
    return m_v[index];
  }

  /// Takes ownership of object and appends it.
  void append(T *object) {
    try {
      m_v.push_back(object);
    } catch (...) {
      delete object;
      throw;
    }
  }
  /// Appends a duplicate of value.
  void appendCopy(T const &value) { append(detail::duplicate(value)); }
  /// Takes ownership of object and inserts it before index (index == size() appends).
  void insert(std::size_t index, T *object) {
    std::size_t sz = size();
    if (index > sz) {
      delete object;
      ZEL_ASSERT(index <= sz);
    }
    m_v.insert(m_v.begin() + static_cast<std::ptrdiff_t>(index), object);
  }
  void insertCopy(std::size_t index, T const &value) { insert(index, detail::duplicate(value)); }
  /// Deletes the element at index; later elements move down by one.
  void remove(std::size_t index) { delete detach(index); }
  /// Takes the element out without deleting it; the caller owns it.
  T *detach(std::size_t index) {
    ZEL_ASSERT(index < size());
    T *p = m_v[index];
    m_v.erase(m_v.begin() + static_cast<std::ptrdiff_t>(index));
    return p;
  }
  /// Index of the element with this address, or size().
  std::size_t indexOf(T const *object) const {
    for (std::size_t i = 0; i < m_v.size(); ++i)
      if (m_v[i] == object)
        return i;
    return m_v.size();
  }
  /// Deletes every element.
  void clear() noexcept {
    std::vector<T *> doomed;
    doomed.swap(m_v);
    for (T *p : doomed)
      delete p;
  }

  auto begin() const noexcept { return m_v.begin(); }
  auto end() const noexcept { return m_v.end(); }

private:
  std::vector<T *> m_v;
};

} // namespace zel
