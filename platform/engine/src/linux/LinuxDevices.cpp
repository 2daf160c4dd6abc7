// LinuxDevices: running the sources, and what changes afterwards (hot plug,
// live values, alerts) compared against the last enumeration.

#include "LinuxDevices.h"

#include <algorithm>
#include <exception>

#include "LinuxDevicesDetail.h"
#include "zel/Logger.h"

namespace morvain {

using namespace lxd;
using zel::String;

namespace {

zel::Logger &logger() { return zel::LogFactory::getLogger("Morvain.Linux"); }

struct SourceDef {
  char const *name;
  void (*run)(Context &);
};

// Power comes before sensors so that a battery's own sensors hang under it;
// storage before sensors for the drives' temperature sensors.
SourceDef const kSources[] = {{"dmi", dmiSource},         {"cpu", cpuSource},
                              {"memory", memorySource},   {"pci", pciSource},
                              {"usb", usbSource},         {"storage", storageSource},
                              {"optical", opticalSource}, {"network", networkSource},
                              {"power", powerSource},     {"sensors", sensorsSource}};

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

DevicePtr copyOf(zel::IDeviceImp const &d) { return DevicePtr(new zel::IDeviceImp(d)); }

/// The same identity and state without properties: the start of a partial
/// state for a device some of whose properties changed.
DevicePtr identityOf(zel::IDeviceImp const &d) {
  DevicePtr c(new zel::IDeviceImp(d.guid(), d.name(), d.deviceType(), d.parentGuid()));
  c->setCapabilities(d.capabilities())
      .setDescription(d.description())
      .setOsLocator(d.osLocator())
      .setHwLocator(d.hwLocator());
  c->setDeviceState(d.deviceState());
  return c;
}

std::string joinProblems(std::vector<std::string> const &problems) {
  std::string out;
  for (std::string const &p : problems)
    out += (out.empty() ? "" : "; ") + p;
  return out;
}

/// The partial device for `source` in `update`, made on first use.
DevicePtr partialIn(LiveUpdate &update, zel::IDeviceImp const &source) {
  DevicePtr p = update.state.deviceByGuid(source.guid());
  if (!p) {
    p = identityOf(source);
    update.state.addDevice(p);
  }
  return p;
}

/// Sets `fresh` live values on our record and reports those that changed, or
/// went away, into `update`.
void applyLive(Record &record, std::vector<PropertyPtr> const &fresh, LiveUpdate &update,
               bool reportAll) {
  zel::IDeviceImp &d = *record.device;
  for (PropertyPtr const &p : fresh) {
    PropertyPtr old = d.property(p->key());
    if (reportAll || !old || *old != *p)
      partialIn(update, d)->setProperty(p);
    if (!old || *old != *p)
      d.setProperty(p);
  }
  for (char const *key : liveKeys(record.live)) {
    if (!d.hasProperty(key))
      continue;
    bool present = std::any_of(fresh.begin(), fresh.end(),
                               [&](PropertyPtr const &p) { return p->key() == key; });
    if (!present) {
      d.removeProperty(key);
      update.deviceGuidsForPropertiesToRemove.append(d.guid());
      update.propertyKeysToRemove.append(key);
    }
  }
}

IndicatorEntry freeTemperatureIndicator(std::vector<std::string> const &guids) {
  IndicatorEntry e;
  e.indicator = zel::IndicatorImp("indicator:temperatures", LinuxDevices::INDICATOR_MODULE,
                                  "Temperatures", "Temperatures");
  e.indicator.setLocalizedDescription("Every temperature sensor and thermal zone of the computer");
  e.indicator.setInterval(2);
  e.deviceGuids = guids;
  return e;
}

} // namespace

LinuxDevices::LinuxDevices(String const &root)
    : m_rootText(root.isEmpty() ? String("/") : root), m_root(m_rootText.str()),
      m_pciNames(new PciNames()), m_snapshot(new Snapshot()) {}

LinuxDevices::~LinuxDevices() = default;

void LinuxDevices::setPollInterval(std::chrono::milliseconds interval) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_pollInterval = interval;
}

std::vector<SourceReport> LinuxDevices::enumerate(zel::StateManager &state,
                                                  std::function<bool()> const &cancelled) {
  Fs const fs(m_root);
  std::unique_ptr<Snapshot> snap(new Snapshot());
  Context ctx(fs);
  ctx.pci = m_pciNames.get();
  ctx.cancelled = cancelled;
  std::vector<SourceReport> reports;
  bool stopped = false;

  for (SourceDef const &source : kSources) {
    SourceReport report;
    report.sourceName = source.name;
    auto const start = std::chrono::steady_clock::now();
    if (stopped || ctx.isCancelled()) {
      stopped = true;
      report.failed = true;
      report.reason = "cancelled";
      reports.push_back(report);
      continue;
    }
    ctx.added.clear();
    ctx.problems.clear();
    try {
      source.run(ctx);
      if (ctx.isCancelled()) {
        stopped = true;
        report.failed = true;
        report.reason = "cancelled";
      }
    } catch (std::exception const &e) {
      report.failed = true;
      report.reason = e.what();
    } catch (...) {
      report.failed = true;
      report.reason = "an unknown exception";
    }
    if (report.failed) {
      // Nothing of a failed source stays, not even as somebody's parent.
      for (Record const &r : ctx.added)
        ctx.taken.erase(r.device->guid().str());
      for (auto it = ctx.paths.begin(); it != ctx.paths.end();)
        it = snap->index.count(it->second) ? std::next(it) : ctx.paths.erase(it);
      logger().log(3, String("source ") + source.name + " failed: " + report.reason);
    } else {
      for (Record &r : ctx.added) {
        state.addDevice(copyOf(*r.device));
        snap->add(std::move(r));
      }
      report.count = static_cast<unsigned int>(ctx.added.size());
      report.reason = joinProblems(ctx.problems);
    }
    ctx.added.clear();
    report.elapsedSeconds = secondsSince(start);
    reports.push_back(report);
  }

  snap->paths = ctx.paths;
  std::vector<std::string> temperatures;
  for (Record const &r : snap->records) {
    if (std::optional<zel::IAlertImp> a = alertFor(r, false)) {
      state.addAlert(*a);
      snap->alerts.emplace(a->guid().str(), *a);
    }
    if (std::optional<zel::IndicatorImp> i = indicatorFor(r)) {
      state.addIndicator(*i);
      snap->indicators.push_back(IndicatorEntry{*i, {r.device->guid().str()}});
      if (i->key() == "Temperature")
        temperatures.push_back(r.device->guid().str());
    }
  }
  if (!temperatures.empty()) {
    snap->indicators.push_back(freeTemperatureIndicator(temperatures));
    state.addIndicator(snap->indicators.back().indicator);
  }

  // The baseline of hot plug: what the watched folders hold now.
  for (std::string const &n : usbNames(fs))
    snap->usbNames.insert(n);
  for (std::string const &n : netNames(fs))
    snap->netNames.insert(n);
  std::set<std::string> blockEntries;
  for (Record const &r : snap->records)
    if (r.entry.compare(0, 6, "block:") == 0)
      blockEntries.insert(r.entry.substr(6));
  for (std::string const &n : blockNames(fs))
    snap->blockSignatures[n] = blockEntries.count(n) ? blockSignature(fs, n) : std::string();

  std::lock_guard<std::mutex> lock(m_mutex);
  m_snapshot = std::move(snap);
  m_lastPoll = std::chrono::steady_clock::now();
  return reports;
}

// --- live ------------------------------------------------------------------------------------

namespace {

/// One poll's work on the snapshot.
class Poll {
public:
  Poll(Fs const &fs, PciNames *pci, Snapshot &snap) : m_fs(fs), m_pci(pci), m_snap(snap) {}

  /// Builds an entry again and reports how its devices differ from before;
  /// `build` adds nothing when the entry is gone.
  template <class Build> void rebuild(std::string const &entry, Build const &build) {
    std::vector<std::string> before;
    for (Record const &r : m_snap.records)
      if (r.entry == entry)
        before.push_back(r.device->guid().str());
    Context ctx(m_fs);
    ctx.pci = m_pci;
    ctx.knownPaths = &m_snap.paths;
    for (Record const &r : m_snap.records)
      ctx.taken.insert(r.device->guid().str());
    for (std::string const &g : before)
      ctx.taken.erase(g);
    build(ctx);

    std::set<std::string> after;
    for (Record &r : ctx.added) {
      std::string const guid = r.device->guid().str();
      after.insert(guid);
      Record *old = m_snap.find(guid);
      if (old && old->entry == entry) {
        changed(*old, r);
        *old = std::move(r);
      } else {
        // A device that went away in this same poll (an interface that was
        // renamed) comes back in an update of its own, after its removal.
        LiveUpdate &target = m_removed.count(guid) ? m_readded : m_update;
        target.state.addDevice(copyOf(*r.device));
        if (std::optional<zel::IndicatorImp> i = indicatorFor(r)) {
          target.state.addIndicator(*i);
          m_snap.indicators.push_back(IndicatorEntry{*i, {guid}});
        }
        m_snap.add(std::move(r));
      }
    }
    for (auto const &p : ctx.paths)
      m_snap.paths[p.first] = p.second;
    std::set<std::string> gone;
    for (std::string const &g : before)
      if (!after.count(g))
        gone.insert(g);
    removeSubtrees(gone);
  }

  void live() {
    for (Record &r : m_snap.records)
      if (r.live != Live::NONE)
        applyLive(r, liveProperties(m_fs, r), m_update, false);
  }

  void alerts() {
    std::map<std::string, zel::IAlertImp> now;
    for (Record const &r : m_snap.records)
      if (std::optional<zel::IAlertImp> a = alertFor(r, true))
        now.emplace(a->guid().str(), *a);
    for (auto it = m_snap.alerts.begin(); it != m_snap.alerts.end();) {
      if (now.count(it->first)) {
        ++it;
        continue;
      }
      m_update.alertGuidsToRemove.append(String(it->first));
      it = m_snap.alerts.erase(it);
    }
    for (auto const &a : now) {
      if (m_snap.alerts.count(a.first))
        continue;
      m_update.state.addAlert(a.second);
      m_snap.alerts.emplace(a.first, a.second);
    }
  }

  void finish(std::vector<LiveUpdate> &out) {
    if (!m_update.isEmpty())
      out.push_back(std::move(m_update));
    if (!m_readded.isEmpty())
      out.push_back(std::move(m_readded));
  }

private:
  void changed(Record const &before, Record const &after) {
    zel::IDeviceImp const &b = *before.device;
    zel::IDeviceImp const &a = *after.device;
    for (PropertyPtr const &p : a.properties()) {
      PropertyPtr old = b.property(p->key());
      if (!old || *old != *p)
        partialIn(m_update, a)->setProperty(p);
    }
    for (PropertyPtr const &p : b.properties())
      if (!a.hasProperty(p->key())) {
        m_update.deviceGuidsForPropertiesToRemove.append(a.guid());
        m_update.propertyKeysToRemove.append(p->key());
      }
  }

  /// Removes devices with everything under them; reports the top ones (the
  /// client takes the subtree away with them) and their alerts.
  void removeSubtrees(std::set<std::string> const &guids) {
    if (guids.empty())
      return;
    std::set<std::string> all = guids;
    for (bool grew = true; grew;) {
      grew = false;
      for (Record const &r : m_snap.records)
        if (all.count(r.device->parentGuid().str()) && all.insert(r.device->guid().str()).second)
          grew = true;
    }
    for (std::string const &g : all) {
      Record const *r = m_snap.find(g);
      if (!r || !all.count(r->device->parentGuid().str()))
        m_update.deviceGuidsToRemove.append(String(g));
      m_removed.insert(g);
    }
    for (auto const &a : m_snap.alerts)
      if (all.count(a.second.deviceGuid().str()))
        m_update.alertGuidsToRemove.append(String(a.first));
    m_snap.remove(all);
  }

  Fs const &m_fs;
  PciNames *m_pci;
  Snapshot &m_snap;
  LiveUpdate m_update;
  LiveUpdate m_readded;
  std::set<std::string> m_removed;
};

template <class Names>
void watchFolder(Poll &poll, std::set<std::string> &seen, Names const &current, char const *prefix,
                 void (*build)(Context &, std::string const &)) {
  std::set<std::string> const now(current.begin(), current.end());
  for (std::string const &n : seen)
    if (!now.count(n))
      poll.rebuild(prefix + n, [](Context &) {});
  for (std::string const &n : now)
    if (!seen.count(n))
      poll.rebuild(prefix + n, [&](Context &ctx) { build(ctx, n); });
  seen = now;
}

void buildBlock(Context &ctx, std::string const &name) {
  blockEntry(ctx, name, isOptical(ctx.fs, name));
}

} // namespace

void LinuxDevices::pollChanges(std::vector<LiveUpdate> &out) {
  std::lock_guard<std::mutex> lock(m_mutex);
  auto const now = std::chrono::steady_clock::now();
  if (m_snapshot->records.empty() || now - m_lastPoll < m_pollInterval)
    return;
  m_lastPoll = now;
  Fs const fs(m_root);
  Poll poll(fs, m_pciNames.get(), *m_snapshot);
  try {
    Snapshot &s = *m_snapshot;
    // USB first: a disk or interface that comes with a USB device finds it.
    watchFolder(poll, s.usbNames, usbNames(fs), "usb:", usbEntry);

    std::vector<std::string> const blocks = blockNames(fs);
    std::set<std::string> const present(blocks.begin(), blocks.end());
    for (auto it = s.blockSignatures.begin(); it != s.blockSignatures.end();) {
      if (present.count(it->first)) {
        ++it;
        continue;
      }
      poll.rebuild("block:" + it->first, [](Context &) {});
      it = s.blockSignatures.erase(it);
    }
    for (std::string const &n : blocks) {
      auto it = s.blockSignatures.find(n);
      bool const known = it != s.blockSignatures.end();
      if (known && it->second.empty())
        continue; // skipped when first seen (a loop device, say); stays skipped
      std::string const sig = blockSignature(fs, n);
      if (known && sig == it->second)
        continue;
      std::string const entry = "block:" + n;
      poll.rebuild(entry, [&](Context &ctx) { buildBlock(ctx, n); });
      bool const made = std::any_of(s.records.begin(), s.records.end(),
                                    [&](Record const &r) { return r.entry == entry; });
      s.blockSignatures[n] = made ? sig : std::string();
    }

    watchFolder(poll, s.netNames, netNames(fs), "net:", netEntry);
    poll.live();
    poll.alerts();
  } catch (std::exception const &e) {
    logger().log(4, String("looking for changes failed: ") + e.what());
  }
  poll.finish(out);
}

bool LinuxDevices::refresh(String const &deviceGuid, String const &propertyKey, LiveUpdate &out) {
  std::lock_guard<std::mutex> lock(m_mutex);
  Record *r = m_snapshot->find(deviceGuid.str());
  if (!r)
    return false;
  Fs const fs(m_root);
  try {
    if (!r->entry.empty()) {
      // Read the device again the way the enumeration did; what else
      // changed in its entry is left to the next poll.
      std::string const entry = r->entry;
      Context ctx(fs);
      ctx.pci = m_pciNames.get();
      ctx.knownPaths = &m_snapshot->paths;
      for (Record const &other : m_snapshot->records)
        if (other.entry != entry)
          ctx.taken.insert(other.device->guid().str());
      std::size_t const colon = entry.find(':');
      std::string const kind = entry.substr(0, colon), name = entry.substr(colon + 1);
      if (kind == "usb")
        usbEntry(ctx, name);
      else if (kind == "block")
        buildBlock(ctx, name);
      else if (kind == "net")
        netEntry(ctx, name);
      auto fresh = std::find_if(ctx.added.begin(), ctx.added.end(),
                                [&](Record const &a) { return a.device->guid() == deviceGuid; });
      if (fresh == ctx.added.end())
        return false; // gone: the next poll reports it
      for (PropertyPtr const &p : fresh->device->properties())
        r->device->setProperty(p);
    }
    if (r->live != Live::NONE) {
      LiveUpdate ignored;
      applyLive(*r, liveProperties(fs, *r), ignored, false);
    }
  } catch (std::exception const &e) {
    logger().log(4, String("refresh of ") + deviceGuid + " failed: " + e.what());
    return false;
  }
  if (propertyKey.isEmpty()) {
    out.state.addDevice(copyOf(*r->device));
    return true;
  }
  PropertyPtr p = r->device->property(propertyKey);
  if (!p)
    return false;
  DevicePtr partial = identityOf(*r->device);
  partial->setProperty(p);
  out.state.addDevice(partial);
  return true;
}

bool LinuxDevices::readIndicator(zel::IndicatorImp const &indicator, LiveUpdate &out) {
  std::lock_guard<std::mutex> lock(m_mutex);
  std::string const guid = indicator.guid().str();
  auto it = std::find_if(m_snapshot->indicators.begin(), m_snapshot->indicators.end(),
                         [&](IndicatorEntry const &e) { return e.indicator.guid().str() == guid; });
  if (it == m_snapshot->indicators.end())
    return false;
  Fs const fs(m_root);
  bool any = false;
  try {
    for (std::string const &g : it->deviceGuids) {
      Record *r = m_snapshot->find(g);
      if (!r)
        continue;
      applyLive(*r, liveProperties(fs, *r), out, true);
      partialIn(out, *r->device);
      any = true;
    }
  } catch (std::exception const &e) {
    logger().log(4, String("reading indicator ") + indicator.guid() + " failed: " + e.what());
    return false;
  }
  return any;
}

} // namespace morvain
