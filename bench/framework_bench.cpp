// The mirror (zel::StateManager) on a machine of 10,000 devices with 30
// properties each: merging an enumeration, look-up by GUID, and the cache
// file. Each subject runs beside a baseline in the same run:
//   - deviceByGuid against a bare std::unordered_map<std::string, ...> find;
//   - cache write/read against writing/reading the same number of bytes
//     with zel::FileSystem (so the ratio is the cost of encoding).
// Goals (printed as counters): merge under 100 ms, look-up under 200 ns,
// cache write and read over 100 MB/s.

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <string>
#include <unordered_map>

#include "zel/FileSystem.h"
#include "zel/StateManager.h"

using namespace zel;

namespace {

constexpr int kDevices = 10000;
constexpr int kProperties = 30;

String guidOf(int i) { return String::format("{device-%08d-0000-4000-8000-%012d}", i, i * 7); }

/// A root, 99 buses under it, the rest spread over the buses; 30 properties
/// each, of mixed types, one of them with two child properties.
StateManager const &machine() {
  static StateManager const *const state = [] {
    StateManager *s = new StateManager();
    CapabilityImp type("PCI|HardDrive");
    for (int i = 0; i < kDevices; ++i) {
      String parent = i == 0 ? String() : guidOf(i < 100 ? 0 : 1 + i % 99);
      boost::shared_ptr<IDeviceImp> d(
          new IDeviceImp(guidOf(i), String::format("Device %d", i), type, parent));
      d->setOsLocator(String::format("/sys/devices/pci0000:00/0000:00:%02x.%d", i % 256, i % 8));
      for (int p = 0; p < kProperties; ++p) {
        ValueImp v = p % 3 == 0   ? ValueImp(static_cast<unsigned int>(i * p))
                     : p % 3 == 1 ? ValueImp(String::format("value %d of device %d", p, i))
                                  : ValueImp(i * 0.5 + p, DataTypeImp::DOUBLE);
        boost::shared_ptr<PropertyImp> prop(new PropertyImp(String::format("Property%02d", p), v));
        prop->setLocalizedName(String::format("Property %d", p)).setModuleGuid("sysinfo");
        if (p == 0)
          prop->addChildKey("Property01").addChildKey("Property02");
        d->setProperty(prop);
      }
      s->addDevice(d);
    }
    return s;
  }();
  return *state;
}

/// The same machine with one property in a hundred changed.
StateManager const &machineChanged() {
  static StateManager const *const state = [] {
    StateManager *s = new StateManager(machine());
    for (auto const &d : s->getDevices())
      for (int p = 0; p < kProperties; p += 100 / kProperties + 3)
        if ((d->guid().hash() + p) % 100 == 0)
          d->setProperty(boost::shared_ptr<PropertyImp>(
              new PropertyImp(String::format("Property%02d", p), ValueImp(-1))));
    return s;
  }();
  return *state;
}

String cachePath() {
  char const *dir = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
  return String::format("%s/framework_bench_%d.cache", dir, static_cast<int>(::getpid()));
}

void setMs(benchmark::State &state, char const *name) {
  state.counters[name] =
      benchmark::Counter(static_cast<double>(state.iterations()) / 1000.0,
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

} // namespace

// An enumeration arriving in an empty mirror: everything is new.
static void BM_Mirror_MergeIntoEmpty(benchmark::State &state) {
  StateManager const &incoming = machine();
  for (auto _ : state) {
    state.PauseTiming();
    StateManager *mirror = new StateManager();
    StateChanges::MergeChanges changes;
    state.ResumeTiming();
    mirror->mergeWithTracking(incoming, &changes);
    benchmark::DoNotOptimize(changes.newDevices.size());
    state.PauseTiming();
    delete mirror;
    state.ResumeTiming();
  }
  setMs(state, "ms_goal<100");
}
BENCHMARK(BM_Mirror_MergeIntoEmpty)->Unit(benchmark::kMillisecond)->UseRealTime();

// A live update carrying the whole machine with 1 % of the values changed:
// preview then merge, as the client does.
static void BM_Mirror_PreviewAndMergeUpdate(benchmark::State &state) {
  StateManager mirror(machine());
  StateManager const &update = machineChanged();
  std::size_t changed = 0;
  for (auto _ : state) {
    StateChanges::PreviewChanges preview;
    mirror.previewMergeWithTracking(update, preview);
    mirror.mergeWithTracking(update, nullptr);
    changed = preview.size();
    state.PauseTiming();
    mirror.mergeWithTracking(machine(), nullptr); // back to the original values
    state.ResumeTiming();
  }
  state.counters["changed"] = static_cast<double>(changed);
  setMs(state, "ms_goal<100");
}
BENCHMARK(BM_Mirror_PreviewAndMergeUpdate)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_Mirror_DeviceByGuid(benchmark::State &state) {
  StateManager const &mirror = machine();
  std::vector<String> guids;
  for (int i = 0; i < kDevices; ++i)
    guids.push_back(guidOf((i * 7919) % kDevices));
  std::size_t i = 0;
  for (auto _ : state) {
    StateManager::DevicePtr d = mirror.deviceByGuid(guids[i]);
    benchmark::DoNotOptimize(d.get());
    if (++i == guids.size())
      i = 0;
  }
}
BENCHMARK(BM_Mirror_DeviceByGuid);

static void BM_Baseline_UnorderedMapFind(benchmark::State &state) {
  std::unordered_map<std::string, boost::shared_ptr<int>> map;
  std::vector<std::string> keys;
  for (int i = 0; i < kDevices; ++i) {
    map.emplace(guidOf(i).str(), boost::shared_ptr<int>(new int(i)));
    keys.push_back(guidOf((i * 7919) % kDevices).str());
  }
  std::size_t i = 0;
  for (auto _ : state) {
    auto it = map.find(keys[i]);
    boost::shared_ptr<int> copy = it->second;
    benchmark::DoNotOptimize(copy.get());
    if (++i == keys.size())
      i = 0;
  }
}
BENCHMARK(BM_Baseline_UnorderedMapFind);

static void BM_Mirror_CacheWrite(benchmark::State &state) {
  StateManager const &mirror = machine();
  String path = cachePath();
  for (auto _ : state)
    benchmark::DoNotOptimize(mirror.saveCache(path));
  String bytes;
  FileSystem::loadFile(path, bytes);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes.size()));
  state.counters["file_MB"] = static_cast<double>(bytes.size()) / 1e6;
  ::unlink(path.c_str());
}
BENCHMARK(BM_Mirror_CacheWrite)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_Mirror_CacheRead(benchmark::State &state) {
  String path = cachePath();
  machine().saveCache(path);
  String bytes;
  FileSystem::loadFile(path, bytes);
  StateManager mirror;
  for (auto _ : state)
    benchmark::DoNotOptimize(mirror.loadCache(path));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes.size()));
  state.counters["devices"] = mirror.deviceCount();
  ::unlink(path.c_str());
}
BENCHMARK(BM_Mirror_CacheRead)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same bytes through the file layer alone.
static void BM_Baseline_FileWriteRead(benchmark::State &state) {
  String path = cachePath();
  machine().saveCache(path);
  String bytes;
  FileSystem::loadFile(path, bytes);
  for (auto _ : state) {
    FileSystem::saveFile(path, bytes);
    String back;
    FileSystem::loadFile(path, back);
    benchmark::DoNotOptimize(back.size());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes.size() * 2));
  ::unlink(path.c_str());
}
BENCHMARK(BM_Baseline_FileWriteRead)->Unit(benchmark::kMillisecond)->UseRealTime();
