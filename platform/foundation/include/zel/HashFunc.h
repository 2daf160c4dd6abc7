#pragma once
// Equality and hash function objects for the hash tables. Keys compare
// exactly (case-sensitive for strings); callers lower-case where they want
// case-blind keys.

#include <cstddef>
#include <functional>

#include "zel/String.h"

namespace zel {

template <class K> struct EqualFunc {
  bool operator()(K const &a, K const &b) const { return a == b; }
};

template <class K> struct HashFunc {
  std::size_t operator()(K const &k) const { return std::hash<K>()(k); }
};

template <> struct HashFunc<String> {
  std::size_t operator()(String const &k) const noexcept { return k.hash(); }
};

} // namespace zel
