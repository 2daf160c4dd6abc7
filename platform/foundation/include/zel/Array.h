#pragma once
// zel::Array<T>: a growable array of values.
//
// Capacity starts at 0 and grows by doubling from 8 (8, 16, 32, ...). An index
// at or past the size fails the assertion "index < size()"; remove() accepts
// index == size() as a no-op and fails "index <= sz" past that. Copies are
// independent (value semantics), so a copy taken under a lock is a safe
// snapshot to walk after releasing it. Thread-compatible: concurrent const
// use is safe, mutation needs external locking.

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <utility>
#include <vector>

#include "zel/AssertionFailure.h"

namespace zel {

template <class T> class Array {
public:
  using value_type = T;
  using iterator = typename std::vector<T>::iterator;
  using const_iterator = typename std::vector<T>::const_iterator;

  static constexpr std::size_t INITIAL_CAPACITY = 8;

  Array() = default;
  /// Empty, with room for `capacity` elements.
  explicit Array(std::size_t capacity) { m_v.reserve(capacity); }
  Array(std::initializer_list<T> init) {
    reserveFor(init.size());
    m_v.insert(m_v.end(), init.begin(), init.end());
  }
  Array(Array const &other) {
    reserveFor(other.size());
    m_v.insert(m_v.end(), other.m_v.begin(), other.m_v.end());
  }
  Array(Array &&other) noexcept = default;
  Array &operator=(Array const &other) {
    if (this != &other) {
      Array copy(other);
      swap(copy);
    }
    return *this;
  }
  Array &operator=(Array &&other) noexcept = default;

  std::size_t size() const noexcept { return m_v.size(); }
  std::size_t capacity() const noexcept { return m_v.capacity(); }
  bool isEmpty() const noexcept { return m_v.empty(); }

  T &operator[](std::size_t index) {
    ZEL_ASSERT(index < size());
    return m_v[index];
  }
  T const &operator[](std::size_t index) const {
    ZEL_ASSERT(index < size());
    return m_v[index];
  }
  T &get(std::size_t index) { return (*this)[index]; }
  T const &get(std::size_t index) const { return (*this)[index]; }

  void append(T const &value) {
    grow();
    m_v.push_back(value);
  }
  void append(T &&value) {
    grow();
    m_v.push_back(std::move(value));
  }
  void appendAll(Array const &other) {
    reserveFor(size() + other.size());
    m_v.insert(m_v.end(), other.m_v.begin(), other.m_v.end());
  }
  /// Inserts before `index`; index == size() appends.
  void insert(std::size_t index, T const &value) {
    std::size_t sz = size();
    ZEL_ASSERT(index <= sz);
    grow();
    m_v.insert(m_v.begin() + static_cast<std::ptrdiff_t>(index), value);
  }
  /// Removes the element at `index`; later elements move down by one and
  /// keep their order. index == size() does nothing.
  void remove(std::size_t index) {
    std::size_t sz = size();
    ZEL_ASSERT(index <= sz);
    if (index == sz)
      return;
    m_v.erase(m_v.begin() + static_cast<std::ptrdiff_t>(index));
  }
  /// Removes the first element equal to value; false when there is none.
  bool removeValue(T const &value) {
    auto it = std::find(m_v.begin(), m_v.end(), value);
    if (it == m_v.end())
      return false;
    m_v.erase(it);
    return true;
  }
  /// Index of the first element equal to value, or size() when absent.
  std::size_t indexOf(T const &value) const {
    return static_cast<std::size_t>(std::find(m_v.begin(), m_v.end(), value) - m_v.begin());
  }
  bool contains(T const &value) const { return indexOf(value) != size(); }
  /// Removes every element; the capacity stays.
  void clear() noexcept { m_v.clear(); }
  void swap(Array &other) noexcept { m_v.swap(other.m_v); }

  T *data() noexcept { return m_v.data(); }
  T const *data() const noexcept { return m_v.data(); }
  iterator begin() noexcept { return m_v.begin(); }
  iterator end() noexcept { return m_v.end(); }
  const_iterator begin() const noexcept { return m_v.begin(); }
  const_iterator end() const noexcept { return m_v.end(); }

  friend bool operator==(Array const &a, Array const &b) { return a.m_v == b.m_v; }
  friend bool operator!=(Array const &a, Array const &b) { return a.m_v != b.m_v; }

private:
  void grow() {
    if (m_v.size() == m_v.capacity())
      m_v.reserve(m_v.capacity() == 0 ? INITIAL_CAPACITY : m_v.capacity() * 2);
  }
  void reserveFor(std::size_t n) {
    if (n <= m_v.capacity())
      return;
    std::size_t cap = m_v.capacity() == 0 ? INITIAL_CAPACITY : m_v.capacity();
    while (cap < n)
      cap *= 2;
    m_v.reserve(cap);
  }

  std::vector<T> m_v;
};

} // namespace zel
