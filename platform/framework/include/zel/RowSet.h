#pragma once
// zel::RowSet<Bits>: a set of catalogue rows 0 .. Bits-1 held as a fixed
// array of 64-bit words, one bit per row.
//
// It is the storage of zel::CapabilityImp and zel::PropertyCategoryImp. A
// fixed bit set makes the questions that device matching asks over and over
// (subset, shared member, union, equality) a handful of word operations, with
// no allocation and no branch per member. Members are always visited in row
// order, which is the order the catalogues list them in.
//
// A plain value: trivially copyable, thread-compatible.

#include <cstddef>
#include <cstdint>

namespace zel {

template <unsigned Bits> class RowSet {
public:
  static constexpr unsigned BITS = Bits;
  static constexpr unsigned WORDS = (Bits + 63) / 64;

  constexpr RowSet() noexcept : m_w{} {}

  /// The set with just `row`; a row at or past Bits gives the empty set.
  static constexpr RowSet single(unsigned row) noexcept {
    RowSet s;
    s.insert(row);
    return s;
  }

  constexpr bool contains(unsigned row) const noexcept {
    return row < Bits && ((m_w[row >> 6] >> (row & 63)) & 1u) != 0;
  }
  /// Adds `row`; a row at or past Bits is ignored.
  constexpr void insert(unsigned row) noexcept {
    if (row < Bits)
      m_w[row >> 6] |= std::uint64_t(1) << (row & 63);
  }
  constexpr void erase(unsigned row) noexcept {
    if (row < Bits)
      m_w[row >> 6] &= ~(std::uint64_t(1) << (row & 63));
  }

  constexpr bool isEmpty() const noexcept {
    std::uint64_t any = 0;
    for (unsigned i = 0; i < WORDS; ++i)
      any |= m_w[i];
    return any == 0;
  }
  unsigned count() const noexcept {
    unsigned n = 0;
    for (unsigned i = 0; i < WORDS; ++i)
      n += static_cast<unsigned>(__builtin_popcountll(m_w[i]));
    return n;
  }
  /// True when every member of this set is in `other`.
  constexpr bool isSubsetOf(RowSet const &other) const noexcept {
    std::uint64_t missing = 0;
    for (unsigned i = 0; i < WORDS; ++i)
      missing |= m_w[i] & ~other.m_w[i];
    return missing == 0;
  }
  /// True when the two sets share at least one member.
  constexpr bool intersects(RowSet const &other) const noexcept {
    std::uint64_t shared = 0;
    for (unsigned i = 0; i < WORDS; ++i)
      shared |= m_w[i] & other.m_w[i];
    return shared != 0;
  }

  /// The first member at or after `from`, or Bits when there is none.
  unsigned next(unsigned from) const noexcept {
    if (from >= Bits)
      return Bits;
    unsigned i = from >> 6;
    std::uint64_t w = m_w[i] & (~std::uint64_t(0) << (from & 63));
    for (;;) {
      if (w != 0)
        return i * 64 + static_cast<unsigned>(__builtin_ctzll(w));
      if (++i == WORDS)
        return Bits;
      w = m_w[i];
    }
  }
  /// The row of the n-th member in row order (n from 0), or Bits when the
  /// set has n members or fewer.
  unsigned nth(unsigned n) const noexcept {
    for (unsigned i = 0; i < WORDS; ++i) {
      unsigned c = static_cast<unsigned>(__builtin_popcountll(m_w[i]));
      if (n >= c) {
        n -= c;
        continue;
      }
      std::uint64_t w = m_w[i];
      while (n-- > 0)
        w &= w - 1; // drop the lowest member
      return i * 64 + static_cast<unsigned>(__builtin_ctzll(w));
    }
    return Bits;
  }

  constexpr std::uint64_t word(unsigned i) const noexcept { return m_w[i]; }

  constexpr RowSet &operator|=(RowSet const &rhs) noexcept {
    for (unsigned i = 0; i < WORDS; ++i)
      m_w[i] |= rhs.m_w[i];
    return *this;
  }
  constexpr RowSet &operator&=(RowSet const &rhs) noexcept {
    for (unsigned i = 0; i < WORDS; ++i)
      m_w[i] &= rhs.m_w[i];
    return *this;
  }
  friend constexpr RowSet operator|(RowSet lhs, RowSet const &rhs) noexcept { return lhs |= rhs; }
  friend constexpr RowSet operator&(RowSet lhs, RowSet const &rhs) noexcept { return lhs &= rhs; }
  friend constexpr bool operator==(RowSet const &a, RowSet const &b) noexcept {
    std::uint64_t diff = 0;
    for (unsigned i = 0; i < WORDS; ++i)
      diff |= a.m_w[i] ^ b.m_w[i];
    return diff == 0;
  }
  friend constexpr bool operator!=(RowSet const &a, RowSet const &b) noexcept { return !(a == b); }

  /// The capability rule shared by both catalogues (see CapabilityImp.h):
  /// false when `required` holds a member of `neverMet`; true when this set
  /// holds `wildcard`; otherwise whether every member of `required` other
  /// than `wildcard` is in this set.
  constexpr bool isCapableOf(RowSet const &required, unsigned wildcard,
                             RowSet const &neverMet) const noexcept {
    if (required.intersects(neverMet))
      return false;
    if (contains(wildcard))
      return true;
    RowSet rest = required;
    rest.erase(wildcard);
    return rest.isSubsetOf(*this);
  }

private:
  std::uint64_t m_w[WORDS];
};

} // namespace zel
