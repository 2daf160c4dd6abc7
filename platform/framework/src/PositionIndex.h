#pragma once
// zel::detail::PositionIndex: a hash index from a key to its position in the
// owner's ordered vector, for the property table of a device and the GUID
// indexes of the mirror.
//
// Open addressing with linear probing over one array of 8-byte slots (32
// bits of the key's hash and the position). It keeps no keys: the owner
// confirms a candidate by comparing its own key at that position. A look-up
// thus reads one or two adjacent cache lines instead of following heap
// nodes, and copying or clearing the index is one block operation.
//
// The capacity is a power of two and at least twice the number of entries,
// which keeps the probe sequences short and guarantees an empty slot to stop
// at. There is no removal: an owner that removes entries rebuilds the index
// from its vector (its vector closes the gap anyway, which moves positions).

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zel {
namespace detail {

class PositionIndex {
public:
  static constexpr std::uint32_t NONE = 0xffffffffu;

  std::size_t size() const noexcept { return m_count; }

  /// The position filed under `hash` that `same(position)` confirms as the
  /// key looked for; NONE when there is none.
  template <class Same> std::uint32_t find(std::size_t hash, Same same) const {
    if (m_count == 0)
      return NONE;
    std::size_t const mask = m_slots.size() - 1;
    std::uint32_t const h = static_cast<std::uint32_t>(hash);
    for (std::size_t i = h & mask;; i = (i + 1) & mask) {
      Slot const &s = m_slots[i];
      if (s.position == NONE)
        return NONE;
      if (s.hash == h && same(s.position))
        return s.position;
    }
  }

  /// Files `position` under `hash`; the caller has checked that its key is
  /// not in the index.
  void insert(std::size_t hash, std::uint32_t position) {
    if ((m_count + 1) * 2 > m_slots.size())
      rehash(capacityFor(m_count + 1));
    place(static_cast<std::uint32_t>(hash), position);
    ++m_count;
  }

  /// Room for `n` entries without growing.
  void reserve(std::size_t n) {
    std::size_t want = capacityFor(n);
    if (want > m_slots.size())
      rehash(want);
  }

  void clear() noexcept {
    m_slots.clear();
    m_count = 0;
  }

private:
  struct Slot {
    std::uint32_t hash;
    std::uint32_t position;
  };

  static std::size_t capacityFor(std::size_t n) {
    std::size_t cap = 8;
    while (cap < n * 2)
      cap *= 2;
    return cap;
  }

  void place(std::uint32_t h, std::uint32_t position) {
    std::size_t const mask = m_slots.size() - 1;
    std::size_t i = h & mask;
    while (m_slots[i].position != NONE)
      i = (i + 1) & mask;
    m_slots[i] = Slot{h, position};
  }

  void rehash(std::size_t capacity) {
    std::vector<Slot> old;
    old.swap(m_slots);
    m_slots.assign(capacity, Slot{0, NONE});
    for (Slot const &s : old)
      if (s.position != NONE)
        place(s.hash, s.position);
  }

  std::vector<Slot> m_slots;
  std::size_t m_count = 0;
};

} // namespace detail
} // namespace zel
