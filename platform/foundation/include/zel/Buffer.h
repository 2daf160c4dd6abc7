#pragma once
// zel::Buffer<T>: a contiguous, resizable block of plain values (bytes,
// characters), used for binary data and byte strings. Value semantics;
// thread-compatible. Out-of-range indexes fail "index < size()".

#include <cstddef>
#include <cstring>
#include <type_traits>
#include <vector>

#include "zel/AssertionFailure.h"
#include "zel/String.h"

namespace zel {

template <class T> class Buffer {
  static_assert(std::is_trivially_copyable<T>::value, "Buffer holds plain values");

public:
  Buffer() = default;
  explicit Buffer(std::size_t size) : m_v(size) {}
  Buffer(T const *data, std::size_t size) : m_v(data, data + size) {}

  T *data() noexcept { return m_v.data(); }
  T const *data() const noexcept { return m_v.data(); }
  std::size_t size() const noexcept { return m_v.size(); }
  bool isEmpty() const noexcept { return m_v.empty(); }
  void resize(std::size_t size) { m_v.resize(size); }
  void reserve(std::size_t size) { m_v.reserve(size); }
  void clear() noexcept { m_v.clear(); }
  void append(T const *data, std::size_t size) { m_v.insert(m_v.end(), data, data + size); }
  void append(T value) { m_v.push_back(value); }

  T &operator[](std::size_t index) {
    ZEL_ASSERT(index < size());
    return m_v[index];
  }
  T const &operator[](std::size_t index) const {
    ZEL_ASSERT(index < size());
    return m_v[index];
  }

  /// The bytes as a String (for Buffer<char> and Buffer<unsigned char>).
  String toString() const {
    static_assert(sizeof(T) == 1, "toString is for byte buffers");
    return String(reinterpret_cast<char const *>(m_v.data()), m_v.size());
  }
  static Buffer fromString(String const &text) {
    static_assert(sizeof(T) == 1, "fromString is for byte buffers");
    return Buffer(reinterpret_cast<T const *>(text.data()), text.size());
  }

  friend bool operator==(Buffer const &a, Buffer const &b) { return a.m_v == b.m_v; }
  friend bool operator!=(Buffer const &a, Buffer const &b) { return a.m_v != b.m_v; }

private:
  std::vector<T> m_v;
};

} // namespace zel
