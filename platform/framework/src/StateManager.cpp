#include "zel/StateManager.h"

#include <atomic>
#include <cstring>

#include <boost/make_shared.hpp>
#include <memory>
#include <unordered_set>
#include <utility>

#include "ObjectEncoding.h"
#include "PositionIndex.h"
#include "StateEncoding.h"
#include "zel/FileSystem.h"
#include "zel/Logger.h"
#include "zel/ModuleImp.h"

namespace zel {

namespace {

Logger &logger() { return LogFactory::getLogger("zel.StateManager"); }

/// Objects with a GUID, in insertion order, with a hash index. Replacing
/// keeps the place; removal closes the gap.
///
/// The index is built for look-ups by GUID on large mirrors: the GUIDs are
/// kept back to back in one block of text and the index is a flat slot
/// array (PositionIndex), so a look-up reads a few compact arrays and then
/// only the object's own reference count, instead of a hash node and the
/// separate heap block of its key, scattered among the objects.
template <class T> class OrderedStore {
public:
  using Ptr = boost::shared_ptr<T>;
  static constexpr std::uint32_t NONE = detail::PositionIndex::NONE;

  /// The position of `guid`, or NONE.
  std::uint32_t position(String const &guid) const { return position(guid, guid.hash()); }
  std::uint32_t position(String const &guid, std::size_t hash) const {
    return m_index.find(hash, [&](std::uint32_t at) { return keyIs(at, guid); });
  }
  Ptr find(String const &guid) const { return find(guid, guid.hash()); }
  /// With the GUID's hash (String::hash) computed beforehand, outside a lock.
  Ptr find(String const &guid, std::size_t hash) const {
    std::uint32_t at = position(guid, hash);
    return at == NONE ? Ptr() : m_items[at];
  }
  /// The object itself, valid while the store holds it; null when absent.
  T *raw(String const &guid) const {
    std::uint32_t at = position(guid);
    return at == NONE ? nullptr : m_items[at].get();
  }
  bool contains(String const &guid) const { return position(guid) != NONE; }
  /// True when the GUID was new.
  bool put(String const &guid, Ptr const &item) {
    std::size_t hash = guid.hash();
    std::uint32_t at = position(guid, hash);
    if (at != NONE) {
      m_items[at] = item;
      return false;
    }
    append(guid, hash, item);
    return true;
  }
  bool remove(String const &guid) {
    std::unordered_set<String> one{guid};
    return removeAll(one) != 0;
  }
  /// Removes every item whose GUID is in `guids`, in one pass.
  template <class GuidOf>
  std::size_t removeAll(std::unordered_set<String> const &guids, GuidOf of) {
    std::size_t removed = 0;
    for (auto const &item : m_items)
      removed += guids.count(of(*item));
    if (!removed)
      return 0;
    std::vector<Ptr> items;
    items.swap(m_items);
    std::size_t textSize = m_text.size();
    clear();
    m_items.reserve(items.size());
    m_keys.reserve(items.size());
    m_text.reserve(textSize);
    for (auto const &item : items) {
      String guid = of(*item);
      if (!guids.count(guid))
        append(guid, guid.hash(), item);
    }
    return removed;
  }
  std::size_t removeAll(std::unordered_set<String> const &guids) {
    return removeAll(guids, [](T const &t) { return String(t.guid()); });
  }
  std::vector<Ptr> const &items() const noexcept { return m_items; }
  std::size_t size() const noexcept { return m_items.size(); }
  void clear() {
    m_items.clear();
    m_keys.clear();
    m_text.clear();
    m_index.clear();
  }
  void reserve(std::size_t n) {
    m_items.reserve(n);
    m_keys.reserve(n);
    m_index.reserve(n);
  }
  Array<Ptr> toArray() const {
    Array<Ptr> out(m_items.size());
    for (auto const &p : m_items)
      out.append(p);
    return out;
  }

private:
  struct Key {
    std::size_t offset; // in m_text
    std::size_t size;
  };

  bool keyIs(std::uint32_t at, String const &guid) const {
    Key const &k = m_keys[at];
    return k.size == guid.size() && std::memcmp(m_text.data() + k.offset, guid.data(), k.size) == 0;
  }
  void append(String const &guid, std::size_t hash, Ptr const &item) {
    m_index.insert(hash, static_cast<std::uint32_t>(m_items.size()));
    m_keys.push_back(Key{m_text.size(), guid.size()});
    m_text.append(guid.data(), guid.size());
    m_items.push_back(item);
  }

  std::vector<Ptr> m_items;
  std::vector<Key> m_keys; // in step with m_items
  std::string m_text;      // the GUIDs, back to back
  detail::PositionIndex m_index;
};

struct PairHash {
  std::size_t operator()(std::pair<String, String> const &p) const noexcept {
    return p.first.hash() * 31u ^ p.second.hash();
  }
};

/// An association between two kinds of object, by GUID: the pairs in the
/// order they were made, and both directions as ordered lists.
class Relation {
public:
  using Pair = std::pair<String, String>;

  bool add(String const &a, String const &b) {
    if (a.isEmpty() || b.isEmpty() || !m_present.insert(Pair(a, b)).second)
      return false;
    m_log.emplace_back(a, b);
    m_forward[a].push_back(b);
    m_backward[b].push_back(a);
    return true;
  }
  std::vector<String> const &forward(String const &a) const {
    auto it = m_forward.find(a);
    return it == m_forward.end() ? empty() : it->second;
  }
  std::vector<String> const &backward(String const &b) const {
    auto it = m_backward.find(b);
    return it == m_backward.end() ? empty() : it->second;
  }
  /// Drops the pairs whose first (or second) GUID is in the set.
  void removeFirst(std::unordered_set<String> const &guids) {
    removeIf([&guids](Pair const &p) { return guids.count(p.first) != 0; });
  }
  void removeSecond(std::unordered_set<String> const &guids) {
    removeIf([&guids](Pair const &p) { return guids.count(p.second) != 0; });
  }
  std::vector<Pair> const &pairs() const noexcept { return m_log; }
  void clear() {
    m_log.clear();
    m_present.clear();
    m_forward.clear();
    m_backward.clear();
  }
  friend bool operator==(Relation const &a, Relation const &b) { return a.m_log == b.m_log; }

private:
  static std::vector<String> const &empty() {
    static std::vector<String> const none;
    return none;
  }
  template <class Pred> void removeIf(Pred pred) {
    std::vector<Pair> log;
    log.swap(m_log);
    bool any = false;
    for (Pair const &p : log)
      any = any || pred(p);
    if (!any) {
      m_log.swap(log);
      return;
    }
    clear();
    for (Pair const &p : log)
      if (!pred(p))
        add(p.first, p.second);
  }

  std::vector<Pair> m_log;
  std::unordered_set<Pair, PairHash> m_present;
  std::unordered_map<String, std::vector<String>> m_forward;
  std::unordered_map<String, std::vector<String>> m_backward;
};

String moduleGuidOf(IModuleImp const &m) { return m.guid(); }

} // namespace

struct StateManager::Data {
  OrderedStore<IDeviceImp> devices;
  String rootGuid;
  // Devices whose parent is not in the mirror, by the parent's GUID.
  std::unordered_map<String, std::vector<String>> waiting;
  OrderedStore<IModuleImp> modules;
  OrderedStore<TestImp> tests;
  Relation moduleTests;
  Relation moduleDevices;
  Relation testDevices;
  OrderedStore<IAlertImp> alerts;
  OrderedStore<IndicatorImp> indicators;
  OrderedStore<IndicatorRunImp> runs;

  // --- the device tree -----------------------------------------------------------

  /// True when `ancestor` is `device` or above it (following parent GUIDs).
  bool isAncestorOrSelf(String const &ancestor, IDeviceImp const &device) const {
    // GUIDs are references into devices the mirror holds (fixed identity):
    // the walk copies nothing.
    String const *guid = &device.guid();
    for (std::size_t steps = 0; steps <= devices.size() && !guid->isEmpty(); ++steps) {
      if (*guid == ancestor)
        return true;
      IDeviceImp const *d = devices.raw(*guid);
      if (!d)
        return false;
      guid = &d->parentGuid();
    }
    return !guid->isEmpty(); // a loop: treat as related, never link
  }

  /// Links `child` under `parent` unless that would make a loop.
  static bool linkable(Data const &data, IDeviceImp const &parent, IDeviceImp const &child) {
    return child.parentGuid() == parent.guid() && !data.isAncestorOrSelf(child.guid(), parent);
  }

  /// Links a device of the mirror under its parent, or lets it wait, and
  /// links the devices waiting for it.
  void link(DevicePtr const &device) {
    String const &parentGuid = device->parentGuid();
    if (!parentGuid.isEmpty()) {
      DevicePtr parent = devices.find(parentGuid);
      if (parent) {
        if (linkable(*this, *parent, *device))
          parent->addChild(device);
      } else {
        std::vector<String> &list = waiting[parentGuid];
        bool listed = false;
        for (String const &g : list)
          listed = listed || g == device->guid();
        if (!listed)
          list.push_back(device->guid());
      }
    } else if (rootGuid.isEmpty()) {
      rootGuid = device->guid();
    }
    if (waiting.empty())
      return;
    auto it = waiting.find(device->guid());
    if (it != waiting.end()) {
      std::vector<String> list;
      list.swap(it->second);
      waiting.erase(it);
      for (String const &g : list) {
        DevicePtr child = devices.find(g);
        if (child && linkable(*this, *device, *child))
          device->addChild(child);
      }
    }
  }

  void insertDevice(DevicePtr const &device) {
    devices.put(device->guid(), device);
    link(device);
  }

  void recomputeRoot() {
    rootGuid = String();
    for (auto const &d : devices.items())
      if (d->parentGuid().isEmpty()) {
        rootGuid = d->guid();
        return;
      }
  }

  /// Collects `device` and everything below it.
  void collectSubtree(DevicePtr const &device, std::unordered_set<String> &out) const {
    std::vector<DevicePtr> stack{device};
    while (!stack.empty()) {
      DevicePtr d = stack.back();
      stack.pop_back();
      if (!out.insert(d->guid()).second)
        continue;
      for (auto const &c : d->children())
        stack.push_back(c);
    }
  }

  void repointAlert(IAlertImp &alert) const {
    if (alert.deviceGuid().isEmpty())
      return;
    DevicePtr d = devices.find(alert.deviceGuid());
    if (d)
      alert.setDevice(d);
  }

  void addTest(TestPtr const &test) {
    tests.put(test->guid(), test);
    moduleTests.add(test->moduleGuid(), test->guid());
  }

  template <class T>
  Array<boost::shared_ptr<T>> resolve(OrderedStore<T> const &store,
                                      std::vector<String> const &guids) const {
    Array<boost::shared_ptr<T>> out(guids.size());
    for (String const &g : guids) {
      boost::shared_ptr<T> p = store.find(g);
      if (p)
        out.append(p);
    }
    return out;
  }

  void clear() {
    devices.clear();
    rootGuid = String();
    waiting.clear();
    modules.clear();
    tests.clear();
    moduleTests.clear();
    moduleDevices.clear();
    testDevices.clear();
    alerts.clear();
    indicators.clear();
    runs.clear();
  }

  /// A deep copy: devices, modules, tests, alerts, indicators and runs are
  /// copied; properties (never changed in place) are shared.
  void copyFrom(Data const &o) {
    clear();
    devices.reserve(o.devices.size());
    for (auto const &d : o.devices.items())
      devices.put(d->guid(), boost::make_shared<IDeviceImp>(*d));
    for (auto const &d : o.devices.items()) {
      DevicePtr mine = devices.find(d->guid());
      for (auto const &c : d->children()) {
        DevicePtr child = devices.find(c->guid());
        if (child)
          mine->addChild(child);
      }
    }
    rootGuid = o.rootGuid;
    waiting = o.waiting;
    for (auto const &m : o.modules.items())
      modules.put(m->guid(), ModulePtr(m->clone()));
    for (auto const &t : o.tests.items())
      tests.put(t->guid(), TestPtr(new TestImp(*t)));
    moduleTests = o.moduleTests;
    moduleDevices = o.moduleDevices;
    testDevices = o.testDevices;
    for (auto const &a : o.alerts.items()) {
      AlertPtr copy(new IAlertImp(*a));
      repointAlert(*copy);
      alerts.put(copy->guid(), copy);
    }
    for (auto const &i : o.indicators.items())
      indicators.put(i->guid(), IndicatorPtr(new IndicatorImp(*i)));
    for (auto const &r : o.runs.items())
      runs.put(r->guid(), IndicatorRunPtr(new IndicatorRunImp(*r)));
  }

  /// Merges `incoming` into this (see the class comment).
  void merge(Data const &in, StateChanges::MergeChanges *out) {
    if (devices.size() == 0)
      devices.reserve(in.devices.size());
    // Which incoming devices were new: those are linked as they come in.
    std::vector<bool> taken(in.devices.size(), false);
    Array<PropertyPtr> added;
    for (std::size_t i = 0; i < in.devices.size(); ++i) {
      DevicePtr const &d = in.devices.items()[i];
      std::uint32_t at = devices.position(d->guid());
      if (at == OrderedStore<IDeviceImp>::NONE) {
        DevicePtr copy = boost::make_shared<IDeviceImp>(*d);
        insertDevice(copy);
        taken[i] = true;
        if (out)
          out->newDevices.append(copy);
        continue;
      }
      DevicePtr const &mine = devices.items()[at];
      DeviceStateImp state = d->deviceState();
      if (mine->deviceState() != state)
        mine->setDeviceState(state);
      mine->mergeProperties(*d, out ? &added : nullptr);
      for (auto const &p : added)
        out->newProperties.append(StateChanges::NewProperty(mine, p));
      added.clear();
    }
    // Incoming tree links between devices the mirror already had. A device
    // new to the mirror needs none: it was linked when inserted, or waits
    // for its parent and is linked when that comes.
    for (std::size_t i = 0; i < in.devices.size(); ++i) {
      IDeviceImp const &d = *in.devices.items()[i];
      if (taken[i] || d.parentGuid().isEmpty())
        continue;
      DevicePtr mine = devices.find(d.guid());
      DevicePtr parent = devices.find(d.parentGuid());
      if (mine && parent && linkable(*this, *parent, *mine))
        parent->addChild(mine);
    }
    for (auto const &m : in.modules.items()) {
      ModulePtr mine = modules.find(m->guid());
      if (!mine || !(*mine == *m))
        modules.put(m->guid(), ModulePtr(m->clone()));
    }
    for (auto const &t : in.tests.items()) {
      TestPtr mine = tests.find(t->guid());
      if (!mine || *mine != *t)
        addTest(TestPtr(new TestImp(*t)));
    }
    for (auto const &p : in.moduleTests.pairs())
      moduleTests.add(p.first, p.second);
    for (auto const &p : in.moduleDevices.pairs())
      moduleDevices.add(p.first, p.second);
    for (auto const &p : in.testDevices.pairs())
      testDevices.add(p.first, p.second);
    for (auto const &a : in.alerts.items()) {
      AlertPtr mine = alerts.find(a->guid());
      if (mine && *mine == *a)
        continue;
      AlertPtr copy(new IAlertImp(*a));
      repointAlert(*copy);
      alerts.put(copy->guid(), copy);
      if (!mine && out)
        out->newAlerts.append(copy);
    }
    for (auto const &i : in.indicators.items()) {
      IndicatorPtr mine = indicators.find(i->guid());
      if (!mine || *mine != *i)
        indicators.put(i->guid(), IndicatorPtr(new IndicatorImp(*i)));
    }
    for (auto const &r : in.runs.items()) {
      IndicatorRunPtr mine = runs.find(r->guid());
      if (!mine || *mine != *r)
        runs.put(r->guid(), IndicatorRunPtr(new IndicatorRunImp(*r)));
    }
  }

  bool sameAs(Data const &o) const {
    if (devices.size() != o.devices.size() || rootGuid != o.rootGuid ||
        modules.size() != o.modules.size() || tests.size() != o.tests.size() ||
        alerts.size() != o.alerts.size() || indicators.size() != o.indicators.size() ||
        runs.size() != o.runs.size() || !(moduleTests == o.moduleTests) ||
        !(moduleDevices == o.moduleDevices) || !(testDevices == o.testDevices))
      return false;
    for (std::size_t i = 0; i < devices.size(); ++i) {
      IDeviceImp const &a = *devices.items()[i];
      IDeviceImp const &b = *o.devices.items()[i];
      if (!a.sameContent(b))
        return false;
      Array<DevicePtr> ca = a.children(), cb = b.children();
      if (ca.size() != cb.size())
        return false;
      for (std::size_t k = 0; k < ca.size(); ++k)
        if (ca[k]->guid() != cb[k]->guid())
          return false;
    }
    for (std::size_t i = 0; i < modules.size(); ++i)
      if (!(*modules.items()[i] == *o.modules.items()[i]))
        return false;
    for (std::size_t i = 0; i < tests.size(); ++i)
      if (*tests.items()[i] != *o.tests.items()[i])
        return false;
    for (std::size_t i = 0; i < alerts.size(); ++i)
      if (*alerts.items()[i] != *o.alerts.items()[i])
        return false;
    for (std::size_t i = 0; i < indicators.size(); ++i)
      if (*indicators.items()[i] != *o.indicators.items()[i])
        return false;
    for (std::size_t i = 0; i < runs.size(); ++i)
      if (*runs.items()[i] != *o.runs.items()[i])
        return false;
    return true;
  }
};

namespace {

/// Locks two mirrors in address order, so that two threads merging in
/// opposite directions cannot deadlock.
class PairLock {
public:
  PairLock(rwlock &writeLock, void const *writeObj, rwlock &readLock, void const *readObj,
           bool bothRead)
      : m_w(writeLock), m_r(readLock), m_bothRead(bothRead) {
    if (writeObj < readObj) {
      lockFirst();
      m_r.readLock();
    } else {
      m_r.readLock();
      lockFirst();
    }
  }
  ~PairLock() {
    m_r.readUnlock();
    if (m_bothRead)
      m_w.readUnlock();
    else
      m_w.writeUnlock();
  }
  PairLock(PairLock const &) = delete;
  PairLock &operator=(PairLock const &) = delete;

private:
  void lockFirst() {
    if (m_bothRead)
      m_w.readLock();
    else
      m_w.writeLock();
  }
  rwlock &m_w;
  rwlock &m_r;
  bool m_bothRead;
};

} // namespace

// ---- life cycle ----------------------------------------------------------------------

StateManager::StateManager() : m_data(new Data()) {}

StateManager::StateManager(Data *data) : m_data(data) {}

StateManager::StateManager(StateManager const &other) : m_data(new Data()) {
  rwlock::read_guard guard(other.m_lock);
  m_data->copyFrom(*other.m_data);
}

StateManager &StateManager::operator=(StateManager const &other) {
  if (this == &other)
    return *this;
  std::unique_ptr<Data> fresh(new Data());
  {
    rwlock::read_guard guard(other.m_lock);
    fresh->copyFrom(*other.m_data);
  }
  Data *old = nullptr;
  {
    rwlock::write_guard guard(m_lock);
    old = m_data;
    m_data = fresh.release();
  }
  delete old;
  return *this;
}

StateManager::~StateManager() { delete m_data; }

StateManager &StateManager::instance() {
  // Made on first use and never deleted: handles and threads may still
  // reach it while the process ends.
  static StateManager *const mirror = new StateManager();
  return *mirror;
}

void StateManager::clear() {
  rwlock::write_guard guard(m_lock);
  m_data->clear();
}

bool StateManager::isEmpty() const {
  rwlock::read_guard guard(m_lock);
  Data const &d = *m_data;
  return d.devices.size() == 0 && d.modules.size() == 0 && d.tests.size() == 0 &&
         d.alerts.size() == 0 && d.indicators.size() == 0 && d.runs.size() == 0 &&
         d.moduleTests.pairs().empty() && d.moduleDevices.pairs().empty() &&
         d.testDevices.pairs().empty();
}

// ---- devices ---------------------------------------------------------------------------

StateManager::DevicePtr StateManager::rootDevice() const {
  rwlock::read_guard guard(m_lock);
  return m_data->rootGuid.isEmpty() ? DevicePtr() : m_data->devices.find(m_data->rootGuid);
}

StateManager::DevicePtr StateManager::deviceByGuid(String const &guid) const {
  std::size_t hash = guid.hash(); // outside the lock
  rwlock::read_guard guard(m_lock);
  return m_data->devices.find(guid, hash);
}

Array<StateManager::DevicePtr> StateManager::getDevices(CapabilityImp const &capability,
                                                        bool deviceTypeOnly) const {
  bool all = capability == CapabilityImp::ALL();
  rwlock::read_guard guard(m_lock);
  if (all)
    return m_data->devices.toArray();
  Array<DevicePtr> out;
  for (auto const &d : m_data->devices.items()) {
    CapabilityImp const &have = deviceTypeOnly ? d->deviceType() : d->capabilities();
    if (have.isCapable(capability))
      out.append(d);
  }
  return out;
}

Array<StateManager::DevicePtr> StateManager::getDevices() const {
  rwlock::read_guard guard(m_lock);
  return m_data->devices.toArray();
}

unsigned int StateManager::deviceCount() const {
  rwlock::read_guard guard(m_lock);
  return static_cast<unsigned int>(m_data->devices.size());
}

bool StateManager::addDevice(DevicePtr const &device) {
  if (!device)
    return false;
  rwlock::write_guard guard(m_lock);
  DevicePtr mine = m_data->devices.find(device->guid());
  if (mine == device)
    return false;
  if (!mine) {
    m_data->insertDevice(device);
    return true;
  }
  mine->setDeviceState(device->deviceState());
  for (auto const &p : device->properties())
    mine->setProperty(p);
  return false;
}

void StateManager::addDeviceToTree(DevicePtr &device) {
  addDeviceToTree(static_cast<DevicePtr const &>(device));
}

void StateManager::addDeviceToTree(DevicePtr const &device) {
  if (!device)
    return;
  rwlock::write_guard guard(m_lock);
  DevicePtr mine = m_data->devices.find(device->guid());
  if (!mine) {
    m_data->insertDevice(device);
    return;
  }
  m_data->link(mine);
}

bool StateManager::removeDevice(String const &guid, IDeviceImp *parent, bool withSubtree) {
  rwlock::write_guard guard(m_lock);
  Data &d = *m_data;
  DevicePtr device = d.devices.find(guid);
  if (!device)
    return false;
  if (parent && parent->guid() != device->parentGuid())
    return false;
  std::unordered_set<String> gone;
  if (withSubtree) {
    d.collectSubtree(device, gone);
  } else {
    gone.insert(guid);
    std::vector<String> &list = d.waiting[guid];
    for (auto const &c : device->children())
      list.push_back(c->guid());
    if (list.empty())
      d.waiting.erase(guid);
  }
  if (!device->parentGuid().isEmpty()) {
    DevicePtr up = d.devices.find(device->parentGuid());
    if (up) {
      up->removeChild(guid);
    } else {
      auto it = d.waiting.find(device->parentGuid());
      if (it != d.waiting.end()) {
        auto &list = it->second;
        for (auto w = list.begin(); w != list.end(); ++w)
          if (*w == guid) {
            list.erase(w);
            break;
          }
        if (list.empty())
          d.waiting.erase(it);
      }
    }
  }
  d.devices.removeAll(gone);
  d.moduleDevices.removeSecond(gone);
  d.testDevices.removeSecond(gone);
  if (gone.count(d.rootGuid))
    d.recomputeRoot();
  return true;
}

bool StateManager::setProperty(String const &deviceGuid, PropertyPtr const &property) {
  if (!property)
    return false;
  rwlock::write_guard guard(m_lock);
  DevicePtr device = m_data->devices.find(deviceGuid);
  if (!device)
    return false;
  device->setProperty(property);
  return true;
}

bool StateManager::removeProperty(String const &deviceGuid, String const &key) {
  rwlock::write_guard guard(m_lock);
  DevicePtr device = m_data->devices.find(deviceGuid);
  return device && device->removeProperty(key);
}

// ---- modules and tests ------------------------------------------------------------------

void StateManager::addModule(ModulePtr const &module) {
  if (!module)
    return;
  rwlock::write_guard guard(m_lock);
  m_data->modules.put(module->guid(), module);
}

void StateManager::addModule(IModuleImp *module) { addModule(ModulePtr(module)); }

StateManager::ModulePtr StateManager::moduleByGuid(String const &guid) const {
  std::size_t hash = guid.hash(); // outside the lock
  rwlock::read_guard guard(m_lock);
  return m_data->modules.find(guid, hash);
}

Array<StateManager::ModulePtr> StateManager::getModules() const {
  rwlock::read_guard guard(m_lock);
  return m_data->modules.toArray();
}

unsigned int StateManager::moduleCount() const {
  rwlock::read_guard guard(m_lock);
  return static_cast<unsigned int>(m_data->modules.size());
}

bool StateManager::removeModule(String const &guid) {
  rwlock::write_guard guard(m_lock);
  std::unordered_set<String> one{guid};
  if (!m_data->modules.removeAll(one, moduleGuidOf))
    return false;
  m_data->moduleTests.removeFirst(one);
  m_data->moduleDevices.removeFirst(one);
  return true;
}

void StateManager::addTest(TestPtr const &test) {
  if (!test)
    return;
  rwlock::write_guard guard(m_lock);
  m_data->addTest(test);
}

void StateManager::addTest(TestImp *test) { addTest(TestPtr(test)); }

StateManager::TestPtr StateManager::testByGuid(String const &guid) const {
  std::size_t hash = guid.hash(); // outside the lock
  rwlock::read_guard guard(m_lock);
  return m_data->tests.find(guid, hash);
}

StateManager::TestPtr StateManager::testByKeyAndModule(String const &key,
                                                       String const &moduleGuid) const {
  return testByGuid(TestImp::guid(moduleGuid, key));
}

Array<StateManager::TestPtr> StateManager::getTests() const {
  rwlock::read_guard guard(m_lock);
  return m_data->tests.toArray();
}

Array<StateManager::TestPtr> StateManager::getTestsByKeyInModule(String const &key) const {
  rwlock::read_guard guard(m_lock);
  Array<TestPtr> out;
  for (auto const &t : m_data->tests.items())
    if (t->keyInModule() == key)
      out.append(t);
  return out;
}

unsigned int StateManager::testCount() const {
  rwlock::read_guard guard(m_lock);
  return static_cast<unsigned int>(m_data->tests.size());
}

bool StateManager::removeTest(String const &guid) {
  rwlock::write_guard guard(m_lock);
  std::unordered_set<String> one{guid};
  if (!m_data->tests.removeAll(one))
    return false;
  m_data->moduleTests.removeSecond(one);
  m_data->testDevices.removeFirst(one);
  return true;
}

// ---- associations -----------------------------------------------------------------------

void StateManager::associateModuleTest(String const &moduleGuid, String const &testGuid) {
  rwlock::write_guard guard(m_lock);
  m_data->moduleTests.add(moduleGuid, testGuid);
}
void StateManager::associateModuleDevice(String const &moduleGuid, String const &deviceGuid) {
  rwlock::write_guard guard(m_lock);
  m_data->moduleDevices.add(moduleGuid, deviceGuid);
}
void StateManager::associateTestDevice(String const &testGuid, String const &deviceGuid) {
  rwlock::write_guard guard(m_lock);
  m_data->testDevices.add(testGuid, deviceGuid);
}
void StateManager::associate(IModuleImp const &module, TestImp const &test) {
  associateModuleTest(module.guid(), test.guid());
}
void StateManager::associate(ModulePtr const &module, TestPtr const &test) {
  if (module && test)
    associate(*module, *test);
}
void StateManager::associate(IModuleImp const &module, IDeviceImp const &device) {
  associateModuleDevice(module.guid(), device.guid());
}
void StateManager::associate(ModulePtr const &module, DevicePtr const &device) {
  if (module && device)
    associate(*module, *device);
}
void StateManager::associate(TestImp const &test, IDeviceImp const &device) {
  associateTestDevice(test.guid(), device.guid());
}
void StateManager::associate(TestPtr const &test, DevicePtr const &device) {
  if (test && device)
    associate(*test, *device);
}

Array<StateManager::ModulePtr> StateManager::getModulesByDevice(IDeviceImp const &device) const {
  rwlock::read_guard guard(m_lock);
  return m_data->resolve(m_data->modules, m_data->moduleDevices.backward(device.guid()));
}
Array<StateManager::TestPtr> StateManager::getTestsByDevice(IDeviceImp const &device) const {
  rwlock::read_guard guard(m_lock);
  return m_data->resolve(m_data->tests, m_data->testDevices.backward(device.guid()));
}
Array<StateManager::DevicePtr> StateManager::getDevicesByModule(IModuleImp const &module) const {
  rwlock::read_guard guard(m_lock);
  return m_data->resolve(m_data->devices, m_data->moduleDevices.forward(module.guid()));
}
Array<StateManager::DevicePtr> StateManager::getDevicesByTest(TestImp const &test) const {
  rwlock::read_guard guard(m_lock);
  return m_data->resolve(m_data->devices, m_data->testDevices.forward(test.guid()));
}
Array<StateManager::TestPtr> StateManager::getTestsByModule(IModuleImp const &module) const {
  rwlock::read_guard guard(m_lock);
  return m_data->resolve(m_data->tests, m_data->moduleTests.forward(module.guid()));
}
StateManager::ModulePtr StateManager::firstModuleByTest(TestImp const &test) const {
  rwlock::read_guard guard(m_lock);
  for (String const &g : m_data->moduleTests.backward(test.guid())) {
    ModulePtr m = m_data->modules.find(g);
    if (m)
      return m;
  }
  return m_data->modules.find(test.moduleGuid());
}

Array<StateManager::ModulePtr>
StateManager::getModulesByDevice(boost::shared_ptr<IDeviceImp const> const &device) const {
  return device ? getModulesByDevice(*device) : Array<ModulePtr>();
}
Array<StateManager::TestPtr>
StateManager::getTestsByDevice(boost::shared_ptr<IDeviceImp const> const &device) const {
  return device ? getTestsByDevice(*device) : Array<TestPtr>();
}
Array<StateManager::DevicePtr>
StateManager::getDevicesByModule(boost::shared_ptr<IModuleImp const> const &module) const {
  return module ? getDevicesByModule(*module) : Array<DevicePtr>();
}
Array<StateManager::DevicePtr>
StateManager::getDevicesByTest(boost::shared_ptr<TestImp const> const &test) const {
  return test ? getDevicesByTest(*test) : Array<DevicePtr>();
}
Array<StateManager::TestPtr>
StateManager::getTestsByModule(boost::shared_ptr<IModuleImp const> const &module) const {
  return module ? getTestsByModule(*module) : Array<TestPtr>();
}
StateManager::ModulePtr
StateManager::firstModuleByTest(boost::shared_ptr<TestImp const> const &test) const {
  return test ? firstModuleByTest(*test) : ModulePtr();
}

// ---- alerts ---------------------------------------------------------------------------

void StateManager::addAlert(AlertPtr const &alert, IDeviceImp const *device) {
  if (!alert)
    return;
  rwlock::write_guard guard(m_lock);
  if (device)
    alert->setDeviceGuid(device->guid());
  m_data->repointAlert(*alert);
  m_data->alerts.put(alert->guid(), alert);
}

void StateManager::addAlert(IAlertImp const &alert, IDeviceImp const *device) {
  addAlert(AlertPtr(new IAlertImp(alert)), device);
}

void StateManager::addAlert(IAlertImp *alert, IDeviceImp const *device) {
  addAlert(AlertPtr(alert), device);
}

StateManager::AlertPtr StateManager::alertByGuid(String const &guid) const {
  std::size_t hash = guid.hash(); // outside the lock
  rwlock::read_guard guard(m_lock);
  return m_data->alerts.find(guid, hash);
}

Array<StateManager::AlertPtr> StateManager::getAlerts() const {
  rwlock::read_guard guard(m_lock);
  return m_data->alerts.toArray();
}

unsigned int StateManager::alertCount() const {
  rwlock::read_guard guard(m_lock);
  return static_cast<unsigned int>(m_data->alerts.size());
}

bool StateManager::removeAlert(String const &guid) {
  rwlock::write_guard guard(m_lock);
  return m_data->alerts.remove(guid);
}

// ---- indicators ------------------------------------------------------------------------

void StateManager::addIndicator(IndicatorPtr const &indicator) {
  if (!indicator)
    return;
  rwlock::write_guard guard(m_lock);
  m_data->indicators.put(indicator->guid(), indicator);
}
void StateManager::addIndicator(IndicatorImp const &indicator) {
  addIndicator(IndicatorPtr(new IndicatorImp(indicator)));
}
StateManager::IndicatorPtr StateManager::indicatorByGuid(String const &guid) const {
  std::size_t hash = guid.hash(); // outside the lock
  rwlock::read_guard guard(m_lock);
  return m_data->indicators.find(guid, hash);
}
Array<StateManager::IndicatorPtr> StateManager::getIndicators() const {
  rwlock::read_guard guard(m_lock);
  return m_data->indicators.toArray();
}
bool StateManager::removeIndicator(String const &guid) {
  rwlock::write_guard guard(m_lock);
  return m_data->indicators.remove(guid);
}
void StateManager::addIndicatorRun(IndicatorRunPtr const &run) {
  if (!run)
    return;
  rwlock::write_guard guard(m_lock);
  m_data->runs.put(run->guid(), run);
}
void StateManager::addIndicatorRun(IndicatorRunImp const &run) {
  addIndicatorRun(IndicatorRunPtr(new IndicatorRunImp(run)));
}
StateManager::IndicatorRunPtr StateManager::indicatorRunByGuid(String const &guid) const {
  std::size_t hash = guid.hash(); // outside the lock
  rwlock::read_guard guard(m_lock);
  return m_data->runs.find(guid, hash);
}
Array<StateManager::IndicatorRunPtr> StateManager::getIndicatorRuns() const {
  rwlock::read_guard guard(m_lock);
  return m_data->runs.toArray();
}
bool StateManager::removeIndicatorRun(String const &guid) {
  rwlock::write_guard guard(m_lock);
  return m_data->runs.remove(guid);
}

// ---- merging ----------------------------------------------------------------------------

void StateManager::previewMergeWithTracking(StateManager const &incoming,
                                            StateChanges::PreviewChanges &out) const {
  if (&incoming == this)
    return;
  PairLock lock(m_lock, this, incoming.m_lock, &incoming, true);
  Array<IDeviceImp::PropertyPair> differing;
  for (auto const &d : incoming.m_data->devices.items()) {
    std::uint32_t at = m_data->devices.position(d->guid());
    if (at == OrderedStore<IDeviceImp>::NONE)
      continue;
    DevicePtr const &mine = m_data->devices.items()[at];
    mine->differingValues(*d, differing);
    for (auto const &c : differing)
      out.changedProperties.append(StateChanges::ChangedProperty(mine, c.first, c.second));
    differing.clear();
  }
}

void StateManager::mergeWithTracking(StateManager const &incoming,
                                     StateChanges::MergeChanges *out) {
  if (&incoming == this)
    return;
  PairLock lock(m_lock, this, incoming.m_lock, &incoming, false);
  m_data->merge(*incoming.m_data, out);
}

bool StateManager::sameContent(StateManager const &other) const {
  if (&other == this)
    return true;
  PairLock lock(m_lock, this, other.m_lock, &other, true);
  return m_data->sameAs(*other.m_data);
}

String StateManager::toString(unsigned int deviceMask) const {
  rwlock::read_guard guard(m_lock);
  Data const &d = *m_data;
  String out = "StateManager: " + String::fromUInt(d.devices.size()) + " devices, " +
               String::fromUInt(d.modules.size()) + " modules, " +
               String::fromUInt(d.tests.size()) + " tests, " + String::fromUInt(d.alerts.size()) +
               " alerts\n";
  DevicePtr root = d.rootGuid.isEmpty() ? DevicePtr() : d.devices.find(d.rootGuid);
  if (root)
    out += root->toString(1, deviceMask | IDeviceImp::SHOW_CHILDREN);
  for (auto const &m : d.modules.items())
    out += m->toString(1, false);
  for (auto const &t : d.tests.items())
    out += t->toString(1, false);
  for (auto const &a : d.alerts.items())
    out += a->toString(1, false);
  for (auto const &i : d.indicators.items())
    out += i->toString(1, false);
  for (auto const &r : d.runs.items())
    out += r->toString(1, false);
  return out;
}

// ---- encoding ------------------------------------------------------------------------------

struct StateManagerAccess {
  using Data = StateManager::Data;
  static rwlock &lock(StateManager const &s) { return s.m_lock; }
  static StateManager::Data &data(StateManager const &s) { return *s.m_data; }
  static void swapData(StateManager &s, std::unique_ptr<StateManager::Data> &fresh) {
    StateManager::Data *old = nullptr;
    {
      rwlock::write_guard guard(s.m_lock);
      old = s.m_data;
      s.m_data = fresh.release();
    }
    fresh.reset(old);
  }
};

namespace {

template <class A> void saveRelation(A &ar, Relation const &r) {
  ar(static_cast<std::uint32_t>(r.pairs().size()));
  for (auto const &p : r.pairs())
    ar(p.first, p.second);
}

template <class A> void loadRelation(A &ar, Relation &r) {
  std::uint32_t n = encoding::loadSize(ar, 16);
  for (std::uint32_t i = 0; i < n; ++i) {
    String a, b;
    ar(a, b);
    if (!r.add(a, b))
      throw BadInput("encoded association is empty or repeated");
  }
}

template <class A, class T> void saveStore(A &ar, OrderedStore<T> const &store) {
  ar(static_cast<std::uint32_t>(store.size()));
  for (auto const &item : store.items())
    ar(*item);
}

template <class T, class A> void loadStore(A &ar, OrderedStore<T> &store, std::size_t minBytes) {
  std::uint32_t n = encoding::loadSize(ar, minBytes);
  for (std::uint32_t i = 0; i < n; ++i) {
    boost::shared_ptr<T> item(new T());
    ar(*item);
    if (!store.put(item->guid(), item))
      throw BadInput("encoded state holds a GUID twice");
  }
}

template <class A> void saveState(A &ar, StateManager const &state) {
  rwlock::read_guard guard(StateManagerAccess::lock(state));
  StateManagerAccess::Data const &d = StateManagerAccess::data(state);
  ar(static_cast<std::uint32_t>(d.devices.size()));
  for (auto const &device : d.devices.items()) {
    ar(*device);
    Array<StateManager::DevicePtr> children = device->children();
    ar(static_cast<std::uint32_t>(children.size()));
    for (auto const &c : children)
      ar(c->guid());
  }
  ar(static_cast<std::uint32_t>(d.modules.size()));
  for (auto const &m : d.modules.items()) {
    std::unique_ptr<ModuleImp> copy(m->clone());
    ar(*copy);
  }
  saveStore(ar, d.tests);
  saveRelation(ar, d.moduleTests);
  saveRelation(ar, d.moduleDevices);
  saveRelation(ar, d.testDevices);
  saveStore(ar, d.alerts);
  saveStore(ar, d.indicators);
  saveStore(ar, d.runs);
}

template <class A> void loadState(A &ar, StateManager &state) {
  encoding::DepthGuard depth;
  std::unique_ptr<StateManagerAccess::Data> fresh(new StateManagerAccess::Data());
  StateManagerAccess::Data &d = *fresh;
  std::uint32_t n = encoding::loadSize(ar, 40);
  d.devices.reserve(n);
  // The children's GUIDs, back to back in one block: device i's are the
  // entries [childStart[i], childStart[i + 1]) of childRefs.
  std::string childText;
  std::vector<std::pair<std::size_t, std::size_t>> childRefs; // offset, size
  std::vector<std::size_t> childStart;
  childStart.reserve(std::size_t(n) + 1);
  for (std::uint32_t i = 0; i < n; ++i) {
    StateManager::DevicePtr device = boost::make_shared<IDeviceImp>();
    ar(*device);
    if (!d.devices.put(device->guid(), device))
      throw BadInput("encoded state holds a device GUID twice");
    std::uint32_t k = encoding::loadSize(ar, 8);
    childStart.push_back(childRefs.size());
    for (std::uint32_t c = 0; c < k; ++c) {
      cereal::size_type size = 0;
      ar(cereal::make_size_tag(size));
      encoding::checkCount(size, 1);
      std::size_t offset = childText.size();
      childText.resize(offset + static_cast<std::size_t>(size));
      if (size)
        ar(cereal::binary_data(&childText[offset], static_cast<std::size_t>(size)));
      childRefs.emplace_back(offset, static_cast<std::size_t>(size));
    }
  }
  childStart.push_back(childRefs.size());
  // The tree exactly as written: each child once, under the parent it names.
  std::vector<bool> linked(d.devices.size(), false);
  String g;
  for (std::size_t i = 0; i < d.devices.size(); ++i) {
    StateManager::DevicePtr const &parent = d.devices.items()[i];
    for (std::size_t c = childStart[i]; c < childStart[i + 1]; ++c) {
      g.str().assign(childText, childRefs[c].first, childRefs[c].second);
      std::uint32_t at = d.devices.position(g);
      if (at == OrderedStore<IDeviceImp>::NONE || linked[at])
        throw BadInput("encoded device tree is inconsistent");
      StateManager::DevicePtr const &child = d.devices.items()[at];
      if (!StateManagerAccess::Data::linkable(d, *parent, *child))
        throw BadInput("encoded device tree is inconsistent");
      linked[at] = true;
      parent->addChild(child);
    }
  }
  for (std::size_t i = 0; i < d.devices.size(); ++i) {
    StateManager::DevicePtr const &device = d.devices.items()[i];
    String const &p = device->parentGuid();
    if (p.isEmpty()) {
      if (d.rootGuid.isEmpty())
        d.rootGuid = device->guid();
    } else if (!d.devices.contains(p)) {
      d.waiting[p].push_back(device->guid());
    } else if (!linked[i]) {
      throw BadInput("encoded device is not linked under its parent");
    }
  }
  std::uint32_t modules = encoding::loadSize(ar, 40);
  for (std::uint32_t i = 0; i < modules; ++i) {
    StateManager::ModulePtr module(new ModuleImp());
    ar(static_cast<ModuleImp &>(*module));
    if (!d.modules.put(module->guid(), module))
      throw BadInput("encoded state holds a module GUID twice");
  }
  loadStore<TestImp>(ar, d.tests, 40);
  loadRelation(ar, d.moduleTests);
  loadRelation(ar, d.moduleDevices);
  loadRelation(ar, d.testDevices);
  loadStore<IAlertImp>(ar, d.alerts, 40);
  for (auto const &a : d.alerts.items())
    d.repointAlert(*a);
  loadStore<IndicatorImp>(ar, d.indicators, 28);
  loadStore<IndicatorRunImp>(ar, d.runs, 40);
  StateManagerAccess::swapData(state, fresh);
}

} // namespace

// A whole state goes through the field writer and reader (Encoding.h): the
// same bytes as through the archive, at a fraction of the cost per field.
void save(OutputArchive &ar, StateManager const &state) {
  encoding::FieldWriter<OutputArchive> writer(ar);
  saveState(writer, state);
  writer.flush();
}

void load(InputArchive &ar, StateManager &state) {
  encoding::DecodeContext *context = encoding::DecodeContext::current();
  if (context && context->buf) {
    encoding::FieldReader reader(*context);
    loadState(reader, state);
  } else {
    loadState(ar, state);
  }
}

// ---- cache file -------------------------------------------------------------------------------

namespace {

constexpr char kCacheMagic[8] = {'O', 'S', 'T', 'R', 'M', 'I', 'R', 'R'};
constexpr std::size_t kCacheHeaderSize = 8 + 4 + 8 + 8;

// FNV-1a, 64 bits: catches any flipped byte of the body (the decoder alone
// would accept a changed character inside a text).
std::uint64_t checksum(char const *data, std::size_t size) {
  std::uint64_t h = 0xcbf29ce484222325ull;
  for (std::size_t i = 0; i < size; ++i) {
    h ^= static_cast<unsigned char>(data[i]);
    h *= 0x100000001b3ull;
  }
  return h;
}

void putLE(char *out, std::uint64_t v, unsigned bytes) {
  for (unsigned i = 0; i < bytes; ++i)
    out[i] = static_cast<char>((v >> (8 * i)) & 0xff);
}

std::uint64_t getLE(char const *p, unsigned bytes) {
  std::uint64_t v = 0;
  for (unsigned i = 0; i < bytes; ++i)
    v |= static_cast<std::uint64_t>(static_cast<unsigned char>(p[i])) << (8 * i);
  return v;
}

} // namespace

bool StateManager::saveCache(String const &path) const {
  // The body is encoded straight behind room left for the header, into the
  // buffer that is written: no copy of a body of tens of megabytes. The
  // buffer starts at the size the last file needed, as a mirror changes
  // little between saves and growing by doubling would touch twice the
  // memory.
  static std::atomic<std::size_t> lastSize{0};
  std::string file;
  std::size_t hint = lastSize.load(std::memory_order_relaxed);
  file.reserve(kCacheHeaderSize + hint + hint / 16);
  file.append(kCacheHeaderSize, '\0');
  try {
    encoding::encodeAppend(*this, file);
  } catch (std::exception const &e) {
    logger().log(4, String("saveCache: cannot encode the mirror: ") + e.what());
    return false;
  }
  std::size_t bodySize = file.size() - kCacheHeaderSize;
  lastSize.store(bodySize, std::memory_order_relaxed);
  std::memcpy(&file[0], kCacheMagic, sizeof kCacheMagic);
  putLE(&file[8], CACHE_FORMAT_VERSION, 4);
  putLE(&file[12], bodySize, 8);
  putLE(&file[20], checksum(file.data() + kCacheHeaderSize, bodySize), 8);
  if (!FileSystem::saveFile(path, String(std::move(file)))) {
    logger().log(4, "saveCache: cannot write " + path);
    return false;
  }
  return true;
}

bool StateManager::loadCache(String const &path) {
  String file;
  if (!FileSystem::loadFile(path, file)) {
    logger().log(3, "loadCache: cannot read " + path);
    return false;
  }
  if (file.size() < kCacheHeaderSize || std::memcmp(file.data(), kCacheMagic, 8) != 0) {
    logger().log(3, "loadCache: " + path + " is not a mirror cache");
    return false;
  }
  std::uint64_t version = getLE(file.data() + 8, 4);
  std::uint64_t length = getLE(file.data() + 12, 8);
  if (version != CACHE_FORMAT_VERSION) {
    logger().log(3, "loadCache: " + path + " has format version " + String::fromUInt(version) +
                        ", this build reads " + String::fromUInt(CACHE_FORMAT_VERSION));
    return false;
  }
  if (length != file.size() - kCacheHeaderSize) {
    logger().log(3, "loadCache: " + path + " is truncated or has trailing bytes");
    return false;
  }
  char const *body = file.data() + kCacheHeaderSize;
  if (getLE(file.data() + 20, 8) != checksum(body, static_cast<std::size_t>(length))) {
    logger().log(3, "loadCache: " + path + " is damaged (checksum)");
    return false;
  }
  StateManager fresh;
  try {
    encoding::decode(body, static_cast<std::size_t>(length), fresh);
  } catch (BadInput const &e) {
    logger().log(3, "loadCache: " + path + " is corrupt: " + e.what());
    return false;
  }
  std::unique_ptr<Data> taken;
  {
    // `fresh` is private to this call: no lock needed to take its content.
    taken.reset(fresh.m_data);
    fresh.m_data = new Data();
  }
  StateManagerAccess::swapData(*this, taken);
  return true;
}

} // namespace zel
