// zel::StateManager: merge and preview reports, the device tree, look-ups,
// copies, the cache file against damaged input, and readers during merges.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <set>
#include <thread>
#include <tuple>
#include <vector>

#include "StateEncoding.h"
#include "zel/FileSystem.h"
#include "zel/ModuleImp.h"
#include "zel/StateManager.h"

using namespace zel;
using DevicePtr = StateManager::DevicePtr;

namespace {

DevicePtr device(char const *guid, char const *parent = "", char const *caps = "HardDrive") {
  return DevicePtr(new IDeviceImp(guid, String("Device ") + guid, CapabilityImp(caps), parent));
}

boost::shared_ptr<PropertyImp> prop(char const *key, ValueImp const &v) {
  return boost::shared_ptr<PropertyImp>(new PropertyImp(key, v));
}

boost::shared_ptr<IAlertImp> alert(char const *guid) {
  return boost::shared_ptr<IAlertImp>(
      new IAlertImp(guid, "Key", AlertTypeImp::HARDWARE_ISSUE, {"", "t"}, {"", "m"}));
}

/// A temporary file name, removed at the end of the test.
struct TempPath {
  String path;
  TempPath() {
    static std::atomic<int> n{0};
    // tmpfs when there is one: the damaged-file loops rewrite a file
    // thousands of times, which some overlay file systems make slow.
    char const *dir = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    path =
        String::format("%s/state_manager_test_%d_%d.cache", dir, static_cast<int>(::getpid()), ++n);
  }
  ~TempPath() { std::remove(path.c_str()); }
};

Table smallTable() {
  Table t(2, 2);
  t.setCellSpans(0, 0, 1, 2);
  t.setCell(0, 0, ZELValue("head"), true);
  t.setCell(1, 0, ZELValue(3));
  t.setCell(1, 1, ZELValue(2.5)).setIdentifierString("id");
  return t;
}

/// Writes bytes as they are (no temporary file, no flush to disk: the
/// damaged-file loops write thousands of files).
void writeRaw(String const &path, String const &bytes) {
  std::ofstream out(path.c_str(), std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  ASSERT_TRUE(out.good());
}

/// Every DataType, every kind of object and association.
StateManager richState() {
  StateManager s;
  DevicePtr root = device("root", "", "All");
  Array<ValueImp> values{
      ValueImp(4000000000u),
      ValueImp(-7),
      ValueImp(18446744073709551615ull),
      ValueImp(-9000000000ll),
      ValueImp(0.1, DataTypeImp::DOUBLE),
      ValueImp("caf\xC3\xA9"),
      ValueImp(true),
      ValueImp(45.5, DataTypeImp::PERCENT),
      ValueImp(Array<String>{"a", "", "c"}),
      ValueImp(Array<unsigned int>{1, 2}),
      ValueImp(Array<int>{-1, 0}),
      ValueImp(DiscreteMeasurement(3.3, "V")),
      ValueImp(smallTable()),
      ValueImp(Array<DiscreteMeasurement>{{1, "rpm"}, {2, ""}}),
      ValueImp(NonDiscreteMeasurement(1, 3, 2, "C")),
      ValueImp(LocalizedString("k", "text")),
      ValueImp(Array<LocalizedString>{{"a", "A"}, {"b", "B"}}),
      ValueImp(),
  };
  for (std::size_t i = 0; i < values.size(); ++i) {
    auto p = prop(String::format("P%zu", i).c_str(), values[i]);
    p->setLocalizedName("name").setModuleGuid("mod");
    if (i == 0)
      p->addChildKey("P1");
    if (i + 1 == values.size())
      p->setType(DataTypeImp::UINT32).setWillBeDiscoveredLater(true);
    root->setProperty(p);
  }
  s.addDevice(root);
  DevicePtr disk = device("disk", "root");
  disk->setDeviceState(DeviceStateImp::DISABLED);
  disk->setOsLocator("/dev/sda").setHwLocator("pci0:1");
  s.addDevice(disk);
  s.addDevice(device("part", "disk"));
  s.addDevice(device("orphan", "missing-parent"));

  boost::shared_ptr<ModuleImp> m(new ModuleImp("mod"));
  m->setVersion(VersionImp(1, 0, "x", 2));
  s.addModule(m);
  boost::shared_ptr<TestImp> t(new TestImp("mod", "Read", 0, "Read test", ""));
  t->addParameter(ParameterImp("Passes", DataTypeImp::UINT32, ValueImp(2u)));
  s.addTest(t);
  s.addTest(boost::shared_ptr<TestImp>(new TestImp("mod", "Speed", 1, "Speed", "")));
  s.associate(m, disk);
  s.associate(t, disk);
  s.associate(t, root);
  auto a = alert("alert-1");
  a->addValue("DeviceID", "disk");
  s.addAlert(a, disk.get());
  IndicatorImp ind("ind", "mod", "temp", "Temp");
  s.addIndicator(ind);
  IndicatorRunImp run(ind);
  run.setGuid("run-1");
  s.addIndicatorRun(run);
  return s;
}

/// Every look-up a client makes, as text, so two mirrors can be compared.
String lookups(StateManager const &s) {
  String out;
  DevicePtr root = s.rootDevice();
  out += "root=" + (root ? root->guid() : String("-")) +
         ";count=" + String::fromUInt(s.deviceCount()) + "\n";
  for (DevicePtr const &d : s.getDevices(CapabilityImp::ALL(), false)) {
    out += d->toString(0, 0xffffff);
    DevicePtr same = s.deviceByGuid(d->guid());
    out += same == d ? "" : "BAD deviceByGuid\n";
    for (auto const &m : s.getModulesByDevice(*d))
      out += " module " + m->guid() + "\n";
    for (auto const &t : s.getTestsByDevice(*d))
      out += " test " + t->guid() + "\n";
  }
  for (auto const &m : s.getModules()) {
    out += m->toString(0, true);
    for (auto const &t : s.getTestsByModule(*m))
      out += " has " + t->guid() + "\n";
    for (auto const &d : s.getDevicesByModule(*m))
      out += " on " + d->guid() + "\n";
  }
  for (auto const &t : s.getTests()) {
    out += t->toString(0, true);
    auto m = s.firstModuleByTest(*t);
    out += " first module " + (m ? m->guid() : String("-")) + "\n";
    for (auto const &d : s.getDevicesByTest(*t))
      out += " device " + d->guid() + "\n";
    out += s.testByKeyAndModule(t->keyInModule(), t->moduleGuid()) ? "" : "BAD by key\n";
  }
  for (auto const &a : s.getAlerts())
    out += a->toString(0, true) + (a->device() ? " device object\n" : " no device\n");
  for (auto const &i : s.getIndicators())
    out += i->toString(0, true);
  for (auto const &r : s.getIndicatorRuns())
    out += r->toString(0, true);
  return out;
}

} // namespace

// ---- merge and preview ----------------------------------------------------------------

TEST(StateManagerMerge, ReportsExactlyWhatIsNewAndPreviewChangesNothing) {
  StateManager mirror;
  DevicePtr disk = device("disk");
  disk->setProperty(prop("Size", ValueImp(100u)));
  disk->setProperty(prop("Model", ValueImp("X1")));
  mirror.addDevice(disk);
  mirror.addAlert(alert("old-alert"));

  StateManager incoming;
  DevicePtr disk2 = device("disk");
  disk2->setProperty(prop("Size", ValueImp(200u)));  // changed value
  disk2->setProperty(prop("Model", ValueImp("X1"))); // unchanged value
  disk2->setProperty(prop("Temp", ValueImp(40)));    // new property on an existing device
  incoming.addDevice(disk2);
  DevicePtr usb = device("usb");
  usb->setProperty(prop("Vendor", ValueImp("V"))); // comes with the new device
  incoming.addDevice(usb);
  incoming.addAlert(alert("old-alert"));
  incoming.addAlert(alert("new-alert"));

  String before = lookups(mirror);
  StateChanges::PreviewChanges preview;
  mirror.previewMergeWithTracking(incoming, preview);
  EXPECT_EQ(lookups(mirror), before);
  ASSERT_EQ(preview.size(), 1u);
  EXPECT_EQ(preview.changes()[0].device(), disk);
  EXPECT_EQ(preview.changes()[0].oldProperty()->value(), ValueImp(100u));
  EXPECT_EQ(preview.changes()[0].newProperty()->value(), ValueImp(200u));

  boost::shared_ptr<PropertyImp> oldSize = disk->property("Size");
  StateChanges::MergeChanges changes;
  mirror.mergeWithTracking(incoming, &changes);
  ASSERT_EQ(changes.newDevices.size(), 1u);
  EXPECT_EQ(changes.newDevices[0]->guid(), "usb");
  EXPECT_EQ(changes.newDevices[0], mirror.deviceByGuid("usb"));
  EXPECT_NE(changes.newDevices[0], usb); // the mirror holds its own copy
  ASSERT_EQ(changes.newProperties.size(), 1u);
  EXPECT_EQ(changes.newProperties[0].first, disk);
  EXPECT_EQ(changes.newProperties[0].second->key(), "Temp");
  ASSERT_EQ(changes.newAlerts.size(), 1u);
  EXPECT_EQ(changes.newAlerts[0]->guid(), "new-alert");

  // The device object is updated in place; the old property object is not.
  EXPECT_EQ(mirror.deviceByGuid("disk"), disk);
  EXPECT_EQ(disk->property("Size")->value(), ValueImp(200u));
  EXPECT_EQ(oldSize->value(), ValueImp(100u));
  EXPECT_EQ(mirror.deviceByGuid("usb")->property("Vendor")->value(), ValueImp("V"));

  // Merging the same state again reports nothing and previews nothing.
  StateChanges::MergeChanges again;
  mirror.mergeWithTracking(incoming, &again);
  EXPECT_TRUE(again.isEmpty());
  StateChanges::PreviewChanges none;
  mirror.previewMergeWithTracking(incoming, none);
  EXPECT_TRUE(none.isEmpty());
  mirror.mergeWithTracking(incoming, nullptr);
  mirror.mergeWithTracking(mirror, nullptr); // self: nothing happens
  EXPECT_EQ(mirror.deviceCount(), 2u);
}

TEST(StateManagerMerge, CarriesModulesTestsAssociationsAndIndicators) {
  StateManager mirror;
  StateManager incoming = richState();
  mirror.mergeWithTracking(incoming, nullptr);
  EXPECT_EQ(lookups(mirror), lookups(incoming));
  EXPECT_TRUE(mirror.sameContent(incoming));
  // Objects are copies: changing the incoming state afterwards leaves the mirror.
  incoming.testByGuid(TestImp::guid("mod", "Read"))->setLocalizedName("changed");
  EXPECT_EQ(mirror.testByGuid(TestImp::guid("mod", "Read"))->localizedName(), "Read test");
  // A merged alert points at the mirror's own device object.
  EXPECT_EQ(mirror.alertByGuid("alert-1")->device(), mirror.deviceByGuid("disk"));
}

TEST(StateManagerMerge, ReplacesWhatDiffersWithoutReportingItAsNew) {
  StateManager mirror = richState();
  StateManager incoming;
  boost::shared_ptr<ModuleImp> m(new ModuleImp("mod"));
  m->setVersion(VersionImp(2, 0, "y", 0));
  incoming.addModule(m);
  boost::shared_ptr<TestImp> t(new TestImp("mod", "Read", 0, "Read test v2", ""));
  incoming.addTest(t);
  auto a = alert("alert-1");
  a->setMessage(LocalizedString("", "worse"));
  incoming.addAlert(a);
  DevicePtr disk = device("disk", "root");
  disk->setDeviceState(DeviceStateImp::FUNCTIONAL);
  incoming.addDevice(disk);

  StateManager::TestPtr oldTest = mirror.testByGuid(t->guid());
  StateChanges::MergeChanges changes;
  mirror.mergeWithTracking(incoming, &changes);
  EXPECT_TRUE(changes.isEmpty());
  EXPECT_EQ(mirror.moduleByGuid("mod")->version(), VersionImp(2, 0, "y", 0));
  EXPECT_EQ(mirror.testByGuid(t->guid())->localizedName(), "Read test v2");
  EXPECT_EQ(oldTest->localizedName(), "Read test");   // handles keep their object
  EXPECT_EQ(mirror.getTests()[0]->guid(), t->guid()); // replaced in place
  EXPECT_EQ(mirror.alertByGuid("alert-1")->message().text(), "worse");
  EXPECT_EQ(mirror.deviceByGuid("disk")->deviceState(), DeviceStateImp::FUNCTIONAL);
  // Associations survive a replacement.
  EXPECT_EQ(mirror.getDevicesByTest(*t).size(), 2u);
}

TEST(StateManagerMerge, OppositeMergesOnTwoThreadsFinish) {
  StateManager a = richState();
  StateManager b;
  b.addDevice(device("x"));
  std::atomic<int> done{0};
  std::thread one([&] {
    for (int i = 0; i < 200; ++i)
      a.mergeWithTracking(b, nullptr);
    ++done;
  });
  std::thread two([&] {
    for (int i = 0; i < 200; ++i)
      b.mergeWithTracking(a, nullptr);
    ++done;
  });
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (done.load() < 2 && std::chrono::steady_clock::now() < deadline)
    std::this_thread::yield();
  ASSERT_EQ(done.load(), 2) << "merges in opposite directions deadlocked";
  one.join();
  two.join();
  EXPECT_TRUE(a.deviceByGuid("x"));
  EXPECT_TRUE(b.deviceByGuid("disk"));
}

namespace {

/// A state from (device, parent, key, value) tuples over small ranges, so
/// that two such states overlap.
StateManager stateFrom(std::vector<std::tuple<unsigned, unsigned, unsigned, int>> const &rows) {
  StateManager s;
  for (auto const &r : rows) {
    String guid = String::format("d%u", std::get<0>(r) % 8);
    DevicePtr d = s.deviceByGuid(guid);
    if (!d) {
      unsigned parent = std::get<1>(r) % 9;
      d = device(guid.c_str(), parent == 8 ? "" : String::format("d%u", parent).c_str());
      s.addDevice(d);
    }
    d->setProperty(
        prop(String::format("k%u", std::get<2>(r) % 4).c_str(), ValueImp(std::get<3>(r) % 3)));
  }
  return s;
}

} // namespace

// Whatever the two states, the merge reports exactly the devices and the
// properties the mirror lacked, the preview exactly the differing values,
// afterwards the mirror holds every incoming value, and a second merge
// reports nothing.
RC_GTEST_PROP(StateManagerMerge, ReportsExactlyTheDifference,
              (std::vector<std::tuple<unsigned, unsigned, unsigned, int>> before,
               std::vector<std::tuple<unsigned, unsigned, unsigned, int>> update)) {
  StateManager mirror = stateFrom(before);
  StateManager const snapshot(mirror);
  StateManager const incoming = stateFrom(update);

  std::set<std::string> newDevices, newProperties, changed;
  for (DevicePtr const &d : incoming.getDevices()) {
    DevicePtr old = snapshot.deviceByGuid(d->guid());
    if (!old) {
      newDevices.insert(d->guid().str());
      continue;
    }
    for (auto const &p : d->properties()) {
      auto had = old->property(p->key());
      if (!had)
        newProperties.insert((d->guid() + "/" + p->key()).str());
      else if (had->value() != p->value())
        changed.insert((d->guid() + "/" + p->key()).str());
    }
  }

  StateChanges::PreviewChanges preview;
  mirror.previewMergeWithTracking(incoming, preview);
  RC_ASSERT(mirror.sameContent(snapshot));
  std::set<std::string> previewed;
  for (auto const &c : preview.changes())
    previewed.insert((c.device()->guid() + "/" + c.newProperty()->key()).str());
  RC_ASSERT(previewed == changed);

  StateChanges::MergeChanges changes;
  mirror.mergeWithTracking(incoming, &changes);
  std::set<std::string> gotDevices, gotProperties;
  for (auto const &d : changes.newDevices)
    gotDevices.insert(d->guid().str());
  for (auto const &p : changes.newProperties)
    gotProperties.insert((p.first->guid() + "/" + p.second->key()).str());
  RC_ASSERT(gotDevices == newDevices);
  RC_ASSERT(gotProperties == newProperties);
  for (DevicePtr const &d : incoming.getDevices())
    for (auto const &p : d->properties())
      RC_ASSERT(mirror.deviceByGuid(d->guid())->property(p->key())->value() == p->value());

  StateChanges::MergeChanges again;
  mirror.mergeWithTracking(incoming, &again);
  RC_ASSERT(again.isEmpty());
}

// ---- the tree -------------------------------------------------------------------------

TEST(StateManagerTree, LinksWhateverTheOrderAndRemovesSubtrees) {
  StateManager s;
  s.addDevice(device("leaf", "mid")); // waits for its parent
  s.addDevice(device("mid", "root"));
  EXPECT_FALSE(s.rootDevice());
  s.addDevice(device("root"));
  s.addDevice(device("other", "root"));
  DevicePtr root = s.rootDevice();
  ASSERT_TRUE(root);
  ASSERT_EQ(root->childCount(), 2u);
  EXPECT_EQ(root->children()[0]->guid(), "mid");
  EXPECT_EQ(s.deviceByGuid("mid")->firstChild()->guid(), "leaf");
  DevicePtr mid = s.deviceByGuid("mid");
  s.addDeviceToTree(mid); // harmless when already linked
  EXPECT_EQ(root->childCount(), 2u);

  // Loops are never linked.
  s.addDevice(device("a", "b"));
  s.addDevice(device("b", "a"));
  EXPECT_EQ(s.deviceByGuid("a")->childCount() + s.deviceByGuid("b")->childCount(), 0u);

  boost::shared_ptr<TestImp> t(new TestImp("m", "k", 0, "n", ""));
  s.addTest(t);
  s.associate(t, s.deviceByGuid("leaf"));
  DevicePtr leaf = s.deviceByGuid("leaf");
  EXPECT_FALSE(s.removeDevice("nope", nullptr, true));
  EXPECT_FALSE(s.removeDevice("mid", s.deviceByGuid("other").get(), true)); // wrong parent
  EXPECT_TRUE(s.removeDevice("mid", nullptr, true));
  EXPECT_FALSE(s.deviceByGuid("mid"));
  EXPECT_FALSE(s.deviceByGuid("leaf"));
  EXPECT_EQ(root->childCount(), 1u);
  EXPECT_TRUE(s.getDevicesByTest(*t).isEmpty());
  EXPECT_EQ(leaf->guid(), "leaf"); // a held handle stays usable
  EXPECT_FALSE(s.removeDevice("mid", nullptr, true));

  // Removing the root alone leaves its child waiting; it comes back linked.
  EXPECT_TRUE(s.removeDevice("root", nullptr, false));
  EXPECT_FALSE(s.rootDevice());
  EXPECT_TRUE(s.deviceByGuid("other"));
  s.addDevice(device("root"));
  EXPECT_EQ(s.rootDevice()->firstChild()->guid(), "other");
}

TEST(StateManagerTree, RemovalsDropTheirAssociationsOnly) {
  StateManager s = richState();
  StateManager::TestPtr read = s.testByGuid(TestImp::guid("mod", "Read"));
  EXPECT_TRUE(s.removeTest(read->guid()));
  EXPECT_FALSE(s.removeTest(read->guid()));
  EXPECT_TRUE(s.getTestsByDevice(*s.deviceByGuid("disk")).isEmpty());
  EXPECT_EQ(s.getTestsByModule(*s.moduleByGuid("mod")).size(), 1u);
  EXPECT_TRUE(s.removeModule("mod"));
  EXPECT_TRUE(s.getModulesByDevice(*s.deviceByGuid("disk")).isEmpty());
  // The alert about a removed device stays, with the device it knew.
  EXPECT_TRUE(s.removeDevice("disk", nullptr, true));
  EXPECT_FALSE(s.deviceByGuid("part"));
  ASSERT_TRUE(s.alertByGuid("alert-1"));
  EXPECT_EQ(s.alertByGuid("alert-1")->deviceGuid(), "disk");
  EXPECT_TRUE(s.removeAlert("alert-1"));
  EXPECT_EQ(s.alertCount(), 0u);

  StateManager assigned;
  assigned = s;
  EXPECT_TRUE(assigned.sameContent(s));
  assigned.clear();
  EXPECT_TRUE(assigned.isEmpty());
  EXPECT_EQ(s.deviceCount(), 2u); // root and orphan
}

TEST(StateManagerLookups, FiltersOrdersAndRegistersOnce) {
  StateManager s;
  s.addDevice(device("cpu", "", "CPU"));
  DevicePtr disk = device("disk", "", "HardDrive");
  disk->setCapabilities(CapabilityImp("HardDrive|SATA"));
  s.addDevice(disk);
  EXPECT_EQ(s.getDevices(CapabilityImp::ALL(), false).size(), 2u);
  auto sata = s.getDevices(CapabilityImp("SATA"), false);
  ASSERT_EQ(sata.size(), 1u);
  EXPECT_EQ(sata[0]->guid(), "disk");
  EXPECT_TRUE(s.getDevices(CapabilityImp("SATA"), true).isEmpty()); // not its type
  EXPECT_EQ(s.getDevices(CapabilityImp("HardDrive"), true).size(), 1u);
  EXPECT_TRUE(s.getDevices(CapabilityImp("NoSuchThing"), false).isEmpty());

  // The client's registration of its own module and checks: re-adding is harmless.
  for (int round = 0; round < 2; ++round) {
    StateManager::ModulePtr m = s.moduleByGuid("libOstrel");
    if (!m) {
      m.reset(new ModuleImp("libOstrel"));
      s.addModule(m);
    }
    StateManager::TestPtr t = s.testByKeyAndModule("DiskCheck", "libOstrel");
    if (!t) {
      t.reset(new TestImp("libOstrel", "DiskCheck", 0, "Disk Check", ""));
      s.addTest(t);
    }
    s.associate(m, t);
  }
  EXPECT_EQ(s.moduleCount(), 1u);
  EXPECT_EQ(s.testCount(), 1u);
  auto m = s.moduleByGuid("libOstrel");
  ASSERT_EQ(s.getTestsByModule(*m).size(), 1u);
  EXPECT_EQ(s.firstModuleByTest(*s.getTests()[0]), m);
  EXPECT_EQ(s.getTestsByKeyInModule("DiskCheck").size(), 1u);

  // instance() reads both ways.
  EXPECT_EQ(&StateManager::instance(), StateManager::instance().operator->());
  StateManager::instance()->clear();
  EXPECT_EQ(StateManager::instance().deviceCount(), 0u);

  EXPECT_TRUE(s.removeProperty("cpu", "x") == false);
  s.setProperty("cpu", prop("x", ValueImp(1)));
  EXPECT_TRUE(s.removeProperty("cpu", "x"));
  EXPECT_TRUE(s.removeAlert("none") == false);
}

// ---- copies and the cache -----------------------------------------------------------------

TEST(StateManagerCache, EveryLookupSurvivesCopyEncodingAndCacheFile) {
  StateManager original = richState();
  String expected = lookups(original);

  StateManager copy(original);
  EXPECT_EQ(lookups(copy), expected);
  EXPECT_NE(copy.deviceByGuid("disk"), original.deviceByGuid("disk"));
  copy.removeDevice("disk", nullptr, true);
  EXPECT_EQ(lookups(original), expected);

  StateManager decoded;
  encoding::decode(encoding::encode(original), decoded);
  EXPECT_EQ(lookups(decoded), expected);
  EXPECT_TRUE(decoded.sameContent(original));

  TempPath file;
  ASSERT_TRUE(original.saveCache(file.path));
  StateManager loaded;
  loaded.addDevice(device("stale"));
  ASSERT_TRUE(loaded.loadCache(file.path));
  EXPECT_EQ(lookups(loaded), expected);
  EXPECT_TRUE(loaded.sameContent(original));
  EXPECT_FALSE(loaded.deviceByGuid("stale"));
  // The child property and the not-yet-known value came back as such.
  auto p0 = loaded.rootDevice()->property("P0");
  EXPECT_EQ(p0->children(*loaded.rootDevice()).size(), 1u);
  EXPECT_TRUE(loaded.rootDevice()->property("P17")->willBeDiscoveredLater());
  EXPECT_EQ(loaded.rootDevice()->property("P12")->value().valueTable(), smallTable());
}

TEST(StateManagerCache, DamagedFilesAreRefusedAndLeaveTheMirror) {
  StateManager small;
  DevicePtr d = device("d");
  d->setProperty(prop("K", ValueImp(Array<String>{"x"})));
  small.addDevice(d);
  small.addDevice(device("c", "d"));
  small.addTest(boost::shared_ptr<TestImp>(new TestImp("m", "k", 0, "n", "")));
  small.addAlert(alert("a"));
  TempPath file;
  ASSERT_TRUE(small.saveCache(file.path));
  String bytes;
  ASSERT_TRUE(FileSystem::loadFile(file.path, bytes));

  StateManager mirror = richState();
  String expected = lookups(mirror);
  TempPath damaged;
  auto refused = [&](String const &content, char const *what, std::size_t at) {
    writeRaw(damaged.path, content);
    EXPECT_FALSE(mirror.loadCache(damaged.path)) << what << " at " << at;
  };
  for (std::size_t cut = 0; cut < bytes.size(); ++cut)
    refused(bytes.substring(0, cut), "truncated", cut);
  refused(bytes + "x", "trailing byte", bytes.size());
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    std::string raw = bytes.str();
    raw[i] = static_cast<char>(raw[i] ^ 0x5a);
    refused(String(raw), "flipped byte", i);
  }
  String newer = bytes;
  std::string raw = newer.str();
  raw[8] = 2; // format version 2
  refused(String(raw), "newer version", 8);
  EXPECT_FALSE(mirror.loadCache("/nonexistent/dir/cache"));
  EXPECT_EQ(lookups(mirror), expected);
}

namespace {

/// A cache file around `body`, with a correct header and checksum.
String cacheAround(String const &body) {
  std::string h("OSTRMIRR", 8);
  std::uint64_t n = body.size();
  std::uint64_t sum = 0xcbf29ce484222325ull; // FNV-1a 64 of the body
  for (std::size_t i = 0; i < body.size(); ++i)
    sum = (sum ^ static_cast<unsigned char>(body[i])) * 0x100000001b3ull;
  for (int i = 0; i < 4; ++i)
    h += static_cast<char>((StateManager::CACHE_FORMAT_VERSION >> (8 * i)) & 0xff);
  for (int i = 0; i < 8; ++i)
    h += static_cast<char>((n >> (8 * i)) & 0xff);
  for (int i = 0; i < 8; ++i)
    h += static_cast<char>((sum >> (8 * i)) & 0xff);
  return String(h) + body;
}

} // namespace

// Random files, and valid bodies with random edits behind a correct header,
// so that the decoder itself meets the damage: a load either gives some
// valid mirror or is refused with the mirror unchanged; it never crashes.
RC_GTEST_PROP(StateManagerCache, RandomBytesNeverLoadAndNeverCrash,
              (std::vector<char> noise, std::vector<std::pair<unsigned, char>> edits)) {
  static StateManager const reference = richState();
  static String const body = encoding::encode(richState());
  StateManager mirror(reference);
  TempPath file;
  String content(noise.data(), noise.size());
  if (!noise.empty() && (noise[0] & 1)) {
    content = cacheAround(content);
  } else if (!noise.empty() && (noise[0] & 2)) {
    std::string edited = body.str();
    for (auto const &e : edits)
      edited[e.first % edited.size()] ^= static_cast<char>(e.second | 1);
    content = cacheAround(String(edited));
  }
  writeRaw(file.path, content);
  if (!mirror.loadCache(file.path))
    RC_ASSERT(mirror.sameContent(reference));
}

// ---- threads --------------------------------------------------------------------------

TEST(StateManagerThreads, ReadersRunDuringMerges) {
  StateManager mirror;
  std::atomic<bool> stop{false};
  std::atomic<long> reads{0};
  std::vector<std::thread> readers;
  for (int r = 0; r < 3; ++r)
    readers.emplace_back([&] {
      while (!stop.load()) {
        for (DevicePtr const &d : mirror.getDevices()) {
          auto p = d->property("Value");
          if (p)
            (void)p->value().toString();
          (void)d->topProperties();
          (void)mirror.deviceByGuid(d->guid());
          (void)d->children();
        }
        (void)mirror.rootDevice();
        (void)mirror.getAlerts();
        reads.fetch_add(1);
      }
    });
  for (int round = 0; round < 60; ++round) {
    StateManager update;
    update.addDevice(device("root"));
    for (int i = 0; i < 20; ++i) {
      DevicePtr d = device(String::format("d%d", i).c_str(), "root");
      d->setProperty(prop("Value", ValueImp(round)));
      update.addDevice(d);
    }
    update.addAlert(alert(String::format("a%d", round).c_str()));
    StateChanges::PreviewChanges preview;
    mirror.previewMergeWithTracking(update, preview);
    mirror.mergeWithTracking(update, nullptr);
    if (round % 10 == 9)
      mirror.removeDevice("d3", nullptr, true);
  }
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (reads.load() < 10 && std::chrono::steady_clock::now() < deadline)
    std::this_thread::yield();
  stop = true;
  for (auto &t : readers)
    t.join();
  EXPECT_GE(reads.load(), 10);
  EXPECT_EQ(mirror.deviceByGuid("d5")->property("Value")->value(), ValueImp(59));
  EXPECT_EQ(mirror.alertCount(), 60u);
}
