#pragma once
// Hash tables of the foundation.
//
//   HashTable<K, V>               unordered key -> value map.
//   OrderedHashTable<K, V>        key -> value map that remembers insertion
//                                 order: entries are reachable by key and by
//                                 position; replacing a value keeps its place;
//                                 removal moves later entries down by one.
//   ManagedOrderedHashTable<K, V> the same, owning heap values (V may be
//                                 abstract); a copy duplicates every value
//                                 (through V::clone() when V has one).
//
// Positions out of range fail the assertion "index < size()". All tables are
// values (copies are independent) and thread-compatible: concurrent const use
// is safe, mutation needs external locking. The bucket count given to the
// constructors is a hint for the initial size.

#include <cstddef>
#include <unordered_map>
#include <utility>
#include <vector>

#include "zel/Array.h"
#include "zel/AssertionFailure.h"
#include "zel/HashFunc.h"
#include "zel/Resources.h"

namespace zel {

template <class K, class V, class Eq = EqualFunc<K>, class Hash = HashFunc<K>> class HashTable {
public:
  explicit HashTable(std::size_t buckets = 32) : m_map(buckets) {}

  /// Stores value under key, replacing an earlier one. True when the key was new.
  bool put(K const &key, V const &value) {
    auto [it, added] = m_map.try_emplace(key, value);
    if (!added)
      it->second = value;
    return added;
  }
  /// Stores value only when the key is absent. True when stored.
  bool insertIfAbsent(K const &key, V const &value) { return m_map.try_emplace(key, value).second; }
  bool get(K const &key, V &out) const {
    auto it = m_map.find(key);
    if (it == m_map.end())
      return false;
    out = it->second;
    return true;
  }
  V *find(K const &key) {
    auto it = m_map.find(key);
    return it == m_map.end() ? nullptr : &it->second;
  }
  V const *find(K const &key) const {
    auto it = m_map.find(key);
    return it == m_map.end() ? nullptr : &it->second;
  }
  bool contains(K const &key) const { return m_map.find(key) != m_map.end(); }
  bool remove(K const &key) { return m_map.erase(key) != 0; }
  std::size_t size() const noexcept { return m_map.size(); }
  bool isEmpty() const noexcept { return m_map.empty(); }
  void clear() noexcept { m_map.clear(); }
  Array<K> keys() const {
    Array<K> out(m_map.size());
    for (auto const &kv : m_map)
      out.append(kv.first);
    return out;
  }
  auto begin() const noexcept { return m_map.begin(); }
  auto end() const noexcept { return m_map.end(); }
  auto begin() noexcept { return m_map.begin(); }
  auto end() noexcept { return m_map.end(); }

private:
  std::unordered_map<K, V, Hash, Eq> m_map;
};

template <class K, class V, class Eq = EqualFunc<K>, class Hash = HashFunc<K>>
class OrderedHashTable {
public:
  static constexpr std::size_t npos = static_cast<std::size_t>(-1);
  using Entry = std::pair<K, V>;

  explicit OrderedHashTable(std::size_t buckets = 32) : m_index(buckets) {}

  /// Stores value under key: an existing entry is replaced in its place, a
  /// new one goes to the end. True when the key was new.
  bool put(K const &key, V const &value) {
    auto it = m_index.find(key);
    if (it != m_index.end()) {
      m_entries[it->second].second = value;
      return false;
    }
    m_index.emplace(key, m_entries.size());
    m_entries.emplace_back(key, value);
    return true;
  }
  /// Stores value only when the key is absent (at the end). True when stored.
  bool insertIfAbsent(K const &key, V const &value) {
    if (m_index.find(key) != m_index.end())
      return false;
    m_index.emplace(key, m_entries.size());
    m_entries.emplace_back(key, value);
    return true;
  }
  V *find(K const &key) {
    auto it = m_index.find(key);
    return it == m_index.end() ? nullptr : &m_entries[it->second].second;
  }
  V const *find(K const &key) const {
    auto it = m_index.find(key);
    return it == m_index.end() ? nullptr : &m_entries[it->second].second;
  }
  bool get(K const &key, V &out) const {
    V const *v = find(key);
    if (!v)
      return false;
    out = *v;
    return true;
  }
  bool contains(K const &key) const { return m_index.find(key) != m_index.end(); }
  /// Position of key in insertion order, or npos.
  std::size_t indexOf(K const &key) const {
    auto it = m_index.find(key);
    return it == m_index.end() ? npos : it->second;
  }
  K const &keyAt(std::size_t index) const {
    ZEL_ASSERT(index < size());
    return m_entries[index].first;
  }
  V &valueAt(std::size_t index) {
    ZEL_ASSERT(index < size());
    return m_entries[index].second;
  }
  V const &valueAt(std::size_t index) const {
    ZEL_ASSERT(index < size());
    return m_entries[index].second;
  }
  /// Removes the entry at a position; later entries move down by one.
  void removeAt(std::size_t index) {
    ZEL_ASSERT(index < size());
    m_index.erase(m_entries[index].first);
    m_entries.erase(m_entries.begin() + static_cast<std::ptrdiff_t>(index));
    for (std::size_t i = index; i < m_entries.size(); ++i)
      m_index[m_entries[i].first] = i;
  }
  bool remove(K const &key) {
    std::size_t i = indexOf(key);
    if (i == npos)
      return false;
    removeAt(i);
    return true;
  }
  std::size_t size() const noexcept { return m_entries.size(); }
  bool isEmpty() const noexcept { return m_entries.empty(); }
  void clear() noexcept {
    m_entries.clear();
    m_index.clear();
  }
  auto begin() const noexcept { return m_entries.begin(); }
  auto end() const noexcept { return m_entries.end(); }

private:
  std::vector<Entry> m_entries;
  std::unordered_map<K, std::size_t, Hash, Eq> m_index;
};

template <class K, class V, class Eq = EqualFunc<K>, class Hash = HashFunc<K>>
class ManagedOrderedHashTable {
  using Holder = CopiedResource<PointerStorage<V, 0, 3>>;

public:
  static constexpr std::size_t npos = static_cast<std::size_t>(-1);

  explicit ManagedOrderedHashTable(std::size_t buckets = 32) : m_table(buckets) {}

  /// Takes ownership of value and stores it under key; an existing entry's
  /// object is deleted and replaced in its place. True when the key was new.
  bool put(K const &key, V *value) { return m_table.put(key, Holder(value)); }
  /// Stores a duplicate of value (see put).
  bool putCopy(K const &key, V const &value) { return put(key, detail::duplicate(value)); }
  /// Stores a duplicate of value only when the key is absent; the first
  /// object stored under a key stays. True when stored.
  bool insertCopyIfAbsent(K const &key, V const &value) {
    if (m_table.contains(key))
      return false;
    return m_table.put(key, Holder(detail::duplicate(value)));
  }
  /// Takes ownership when stored; deletes value when the key is present.
  bool insertIfAbsent(K const &key, V *value) {
    if (m_table.contains(key)) {
      delete value;
      return false;
    }
    return m_table.put(key, Holder(value));
  }
  V *find(K const &key) const {
    Holder const *h = m_table.find(key);
    return h ? h->get() : nullptr;
  }
  bool contains(K const &key) const { return m_table.contains(key); }
  std::size_t indexOf(K const &key) const { return m_table.indexOf(key); }
  K const &keyAt(std::size_t index) const { return m_table.keyAt(index); }
  V &valueAt(std::size_t index) const { return *m_table.valueAt(index).get(); }
  /// Deletes the object at a position; later entries move down by one.
  void removeAt(std::size_t index) { m_table.removeAt(index); }
  bool remove(K const &key) { return m_table.remove(key); }
  std::size_t size() const noexcept { return m_table.size(); }
  bool isEmpty() const noexcept { return m_table.isEmpty(); }
  void clear() noexcept { m_table.clear(); }

private:
  OrderedHashTable<K, Holder, Eq, Hash> m_table;
};

} // namespace zel
