#pragma once
// zel::detail::PropertyTable: the property table of a zel::IDeviceImp, the
// properties in table order with an index of their keys.
//
// Copies of a device share one table and the first change through a device
// whose table is shared gives that device its own copy (copy-on-write). The
// mirror copies every device it takes in and merges whole devices into each
// other, so sharing makes a device copy one reference count, and a merge
// recognises a table it already holds by its address.
//
// Sharing rule: a table held more than once is never changed. A device
// changes its table in place only while it holds the one reference, under
// its own write lock (nobody can take a new reference to it then). The
// count is read with acquire order and released with release order, so that
// whatever a former holder read from the table happens before that change.

#include <boost/intrusive_ptr.hpp>
#include <boost/shared_ptr.hpp>

#include <atomic>
#include <cstdint>
#include <vector>

#include "PositionIndex.h"
#include "zel/IDeviceImp.h"
#include "zel/PropertyImp.h"
#include "zel/String.h"

namespace zel {
namespace detail {

struct PropertyTable {
  using Ptr = boost::shared_ptr<PropertyImp>;
  static constexpr std::uint32_t NONE = PositionIndex::NONE;

  PropertyTable() = default;
  PropertyTable(PropertyTable const &other) : items(other.items), index(other.index) {}
  PropertyTable &operator=(PropertyTable const &) = delete;

  /// True when this holder is the only one (see the sharing rule).
  bool unshared() const noexcept { return refs.load(std::memory_order_acquire) == 1; }

  /// The position of `key`, or NONE.
  std::uint32_t find(String const &key, std::size_t hash) const {
    return index.find(hash, [&](std::uint32_t at) { return items[at]->key() == key; });
  }
  std::uint32_t find(String const &key) const { return find(key, key.hash()); }

  /// Appends a property whose key (of hash `hash`) is not in the table.
  void append(Ptr const &p, std::size_t hash) {
    index.insert(hash, static_cast<std::uint32_t>(items.size()));
    items.push_back(p);
  }
  /// Appends `p` unless its key is there; false then.
  bool insert(Ptr const &p) {
    std::size_t h = p->key().hash();
    if (find(p->key(), h) != NONE)
      return false;
    append(p, h);
    return true;
  }
  /// Replaces the property of the same key in its place, or appends.
  void set(Ptr const &p) {
    std::size_t h = p->key().hash();
    std::uint32_t at = find(p->key(), h);
    if (at != NONE)
      items[at] = p;
    else
      append(p, h);
  }
  void reindex() {
    index.clear();
    index.reserve(items.size());
    for (std::size_t i = 0; i < items.size(); ++i)
      index.insert(items[i]->key().hash(), static_cast<std::uint32_t>(i));
  }

  mutable std::atomic<std::size_t> refs{0};
  std::vector<Ptr> items;
  PositionIndex index;
};

// intrusive_ptr_add_ref and intrusive_ptr_release are declared with
// IDeviceImp and defined in IDeviceImp.cpp.

} // namespace detail
} // namespace zel
