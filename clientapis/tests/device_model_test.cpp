// Device, DeviceProperty and their lists, walked over a small machine that each
// test builds in the process-wide mirror:
//
//   sys "This computer" (System)
//   +-- cpu0 (CPU)          VendorString, Manufacturer, Cores
//   +-- mon0 (Monitor)      WinManufacturer only
//   +-- bat0 (Battery)      an empty BatteryManufacturer, then Manufacturer
//   +-- disk0 (HardDrive)   DISABLED; Partitions names two child properties
//   |   +-- part0 (DrivePartition)
//   +-- dvd0 (CDROM, Optical|CDROM)   at a path that is no device node
//
// Module "mod.storage" offers a test, a benchmark and a test of an unknown
// kind, all associated with disk0; dvd0 has only the benchmark.

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <boost/make_shared.hpp>

#include "ostrel/Device.h"
#include "ostrel/Module.h"
#include "ostrel/PropertyCategory.h"
#include "ostrel/Test.h"
#include "ostrel/Value.h"
#include "zel/Exception.h"
#include "zel/IDeviceImp.h"
#include "zel/Logger.h"
#include "zel/ModuleImp.h"
#include "zel/StateManager.h"
#include "zel/TestImp.h"

using namespace ostrel5;

namespace {

using Row = zel::CapabilityImp::Row;
using CatRow = zel::PropertyCategoryImp::Row;
using DevicePtr = boost::shared_ptr<zel::IDeviceImp>;

zel::StateManager &mirror() { return zel::StateManager::instance(); }

DevicePtr makeDevice(char const *guid, char const *name, zel::CapabilityImp const &type,
                     char const *parent) {
  DevicePtr device = boost::make_shared<zel::IDeviceImp>(zel::String(guid), zel::String(name), type,
                                                         zel::String(parent));
  device->setDescription(zel::String(name) + " (described)");
  return device;
}

void addProperty(DevicePtr const &device, char const *key, zel::ValueImp const &value,
                 CatRow category = CatRow::SysInfo, char const *moduleGuid = "") {
  device->setProperty(boost::make_shared<zel::PropertyImp>(
      zel::String(key), value, zel::PropertyCategoryImp(category), zel::String(key) + " name",
      zel::String(key) + " text", zel::String(moduleGuid)));
}

boost::shared_ptr<zel::TestImp> makeTest(char const *key, unsigned int kind) {
  return boost::make_shared<zel::TestImp>(zel::String("mod.storage"), zel::String(key), kind,
                                          zel::String(key), zel::String());
}

void buildMachine() {
  DevicePtr sys = makeDevice("sys", "This computer", zel::CapabilityImp(Row::System), "");

  DevicePtr cpu = makeDevice("cpu0", "Processor", zel::CapabilityImp(Row::CPU), "sys");
  addProperty(cpu, "VendorString", zel::ValueImp("GenuineIntel"));
  addProperty(cpu, "Manufacturer", zel::ValueImp("Intel Corporation"));
  addProperty(cpu, "Cores", zel::ValueImp(8u), CatRow::Summary, "mod.storage");

  DevicePtr monitor = makeDevice("mon0", "Display", zel::CapabilityImp(Row::Monitor), "sys");
  addProperty(monitor, "WinManufacturer", zel::ValueImp("Acme"));

  DevicePtr battery = makeDevice("bat0", "Battery", zel::CapabilityImp(Row::Battery), "sys");
  addProperty(battery, "BatteryManufacturer", zel::ValueImp(""));
  addProperty(battery, "Manufacturer", zel::ValueImp("Someone else"));

  DevicePtr disk = makeDevice("disk0", "Disk", zel::CapabilityImp(Row::HardDrive), "sys");
  disk->setOsLocator("/dev/null").setHwLocator("pci0000:00/ata1");
  disk->setDeviceState(zel::DeviceStateImp::DISABLED);
  zel::Array<zel::String> parts;
  parts.append(zel::String("p1"));
  parts.append(zel::String("p2"));
  zel::PropertyImp partitions(zel::String("Partitions"), zel::ValueImp(parts),
                              zel::PropertyCategoryImp(CatRow::Summary));
  partitions.addChildKey("Partition1").addChildKey("Partition2");
  disk->addProperty(partitions);
  addProperty(disk, "Model", zel::ValueImp("WD Blue"),
              CatRow::Model); // between the parent and its children
  addProperty(disk, "Partition2", zel::ValueImp("swap"));
  addProperty(disk, "Partition1", zel::ValueImp("root"));
  zel::PropertyImp later(zel::String("Temperature"), zel::ValueImp());
  later.setType(zel::DataTypeImp::UINT32).setWillBeDiscoveredLater(true);
  disk->addProperty(later);

  DevicePtr partition =
      makeDevice("part0", "Partition", zel::CapabilityImp(Row::DrivePartition), "disk0");

  DevicePtr dvd = makeDevice("dvd0", "DVD drive", zel::CapabilityImp(Row::CDROM), "sys");
  dvd->setCapabilities(zel::CapabilityImp(Row::Optical) | zel::CapabilityImp(Row::CDROM));
  dvd->setOsLocator("/nonexistent/dev/sr0");

  for (DevicePtr const &device : {sys, cpu, monitor, battery, disk, partition, dvd})
    mirror().addDevice(device);

  auto module = boost::make_shared<zel::ModuleImp>(zel::String("mod.storage"));
  mirror().addModule(module);
  auto test = makeTest("quick", 0);
  auto bench = makeTest("throughput", 1);
  auto odd = makeTest("future", 7);
  for (auto const &t : {test, bench, odd}) {
    mirror().addTest(t);
    mirror().associate(module, t);
    mirror().associate(t, disk);
  }
  mirror().associate(bench, dvd);
  mirror().associate(module, disk);
}

Device device(char const *guid) { return Device(mirror().deviceByGuid(zel::String(guid))); }

template <class List> std::vector<std::string> guids(List const &list) {
  std::vector<std::string> out;
  for (unsigned int i = 0; i < list.size(); ++i)
    out.push_back(list[i].guid().str());
  return out;
}

std::vector<std::string> keys(DevicePropertyList const &list) {
  std::vector<std::string> out;
  for (unsigned int i = 0; i < list.size(); ++i)
    out.push_back(list[i].key().str());
  return out;
}

void expectAssertion(char const *expression, std::function<void()> const &call) {
  try {
    call();
    ADD_FAILURE() << "no assertion for " << expression;
  } catch (zel::StructuredException const &e) {
    EXPECT_EQ(zel::StructuredException::ASSERTION_CODE, e.getCode());
    EXPECT_EQ(std::string("Assertion failed: ") + expression, e.getText().str());
  }
}

class DeviceModel : public ::testing::Test {
protected:
  void SetUp() override {
    mirror().clear();
    buildMachine();
  }
  void TearDown() override {
    if (m_capture)
      zel::LogFactory::removeAppender(m_capture);
    zel::LogFactory::reset();
    mirror().clear();
  }

  // Captures every line of the categories under `prefix` from now on.
  zel::CaptureAppender &capture(char const *prefix) {
    if (!m_capture) {
      m_capture = std::make_shared<zel::CaptureAppender>();
      zel::LogFactory::addAppender(m_capture);
    }
    zel::LogFactory::setThreshold(zel::String(prefix), 1);
    return *m_capture;
  }

  std::shared_ptr<zel::CaptureAppender> m_capture;
};

TEST_F(DeviceModel, WalksTheTreeThroughParentsAndChildren) {
  Device root(mirror().rootDevice());
  ASSERT_TRUE(root.isValid());
  EXPECT_EQ("This computer", root.name());
  EXPECT_EQ((std::vector<std::string>{"cpu0", "mon0", "bat0", "disk0", "dvd0"}),
            guids(root.children()));
  EXPECT_TRUE(root.firstChild() == device("cpu0"));
  EXPECT_FALSE(root.parent().isValid());

  Device partition = device("part0");
  EXPECT_TRUE(partition.parent() == device("disk0"));
  EXPECT_TRUE(partition.parent().parent() == root);
  EXPECT_EQ(0u, partition.children().size());
  EXPECT_FALSE(partition.firstChild().isValid());

  // The parent is looked up in the mirror at each call, not remembered.
  ASSERT_TRUE(mirror().removeDevice("disk0", nullptr, false));
  EXPECT_FALSE(partition.parent().isValid());
  EXPECT_EQ("Partition", partition.name()); // the handle keeps its object
}

TEST_F(DeviceModel, ConvertsTypesAndComparesByObject) {
  Device disk = device("disk0"), dvd = device("dvd0");
  EXPECT_TRUE(disk.deviceType() == DeviceCapability::HardDrive());
  EXPECT_TRUE(disk.deviceState() == DeviceState::DISABLED());
  EXPECT_TRUE(dvd.capabilities() == (DeviceCapability::Optical() | DeviceCapability::CDROM()));
  EXPECT_TRUE(Device(disk) == disk);
  EXPECT_TRUE(disk != dvd);
  EXPECT_TRUE(Device() == Device());
  EXPECT_TRUE(Device() != disk);
}

TEST_F(DeviceModel, PropertiesByKeyTopLevelAndCategory) {
  Device cpu = device("cpu0");
  DeviceProperty cores = cpu.property("Cores");
  ASSERT_TRUE(cores.isValid());
  EXPECT_EQ("Cores", cores.key());
  EXPECT_TRUE(cores.type() == DataType::UINT32());
  EXPECT_EQ(8u, cores.value().toUint32());
  EXPECT_TRUE(cores.category() == PropertyCategory::Summary());
  EXPECT_FALSE(cpu.property("NoSuchKey").isValid());

  Device disk = device("disk0");
  // Child properties are reachable by key but are not top properties.
  EXPECT_TRUE(disk.property("Partition1").isValid());
  EXPECT_EQ(3u, disk.topPropertyCount());
  EXPECT_EQ((std::vector<std::string>{"Partitions", "Model", "Temperature"}),
            keys(disk.topProperties()));
  EXPECT_EQ((std::vector<std::string>{"Partitions"}),
            keys(disk.getProperties(PropertyCategory::Summary())));
  EXPECT_EQ((std::vector<std::string>{"Model"}),
            keys(disk.getProperties(PropertyCategory::Model())));

  DeviceProperty temperature = disk.property("Temperature");
  EXPECT_TRUE(temperature.willBeDiscoveredLater());
  EXPECT_TRUE(temperature.type() == DataType::UINT32());
}

TEST_F(DeviceModel, ChildPropertiesComeFromTheDevice) {
  Device disk = device("disk0");
  DeviceProperty partitions = disk.property("Partitions");
  EXPECT_EQ(2u, partitions.childPropertyCount());
  EXPECT_EQ((std::vector<std::string>{"Partition1", "Partition2"}),
            keys(partitions.children(disk)));
  EXPECT_EQ(0u, disk.property("Model").childPropertyCount());

  DeviceProperty first = partitions.childPropertyByKey(disk, "Partition1");
  EXPECT_TRUE(first == disk.property("Partition1"));
  EXPECT_EQ("root", first.value().toString());

  zel::CaptureAppender &log = capture("libOstrel.DeviceProperty");
  // "Model" is a property of the device but no child of "Partitions".
  EXPECT_FALSE(partitions.childPropertyByKey(disk, "Model").isValid());
  std::vector<zel::LogRecord> records = log.records();
  ASSERT_EQ(1u, records.size());
  EXPECT_EQ("libOstrel.DeviceProperty", records[0].category);
  EXPECT_EQ(4, records[0].priority);
  EXPECT_EQ("Invalid child property key: Model", records[0].text);
}

TEST_F(DeviceModel, PropertyLookUpsAreLoggedAtPriorityOne) {
  zel::CaptureAppender &log = capture("libOstrel.Device");
  Device cpu = device("cpu0");
  cpu.property("Cores");
  cpu.property("Missing");
  EXPECT_EQ((std::vector<zel::String>{
                "property(): device: Processor guid = cpu0 key = Cores property: Cores value: 8",
                "property(): device: Processor guid = cpu0 key = Missing property: NULL value: "
                "NULL"}),
            log.texts("libOstrel.Device"));
  EXPECT_EQ(1, log.records()[0].priority);
}

TEST_F(DeviceModel, SourceModuleIsLookedUpByGuid) {
  Module source = device("cpu0").property("Cores").sourceModule();
  ASSERT_TRUE(source.isValid());
  EXPECT_EQ("mod.storage", source.guid());
  EXPECT_FALSE(device("cpu0").property("VendorString").sourceModule().isValid());
}

TEST_F(DeviceModel, ToArrayIsFilledOnceForTheWholeProcess) {
  Device disk = device("disk0");
  zel::Array<zel::String> const &first = disk.property("Partitions").toArray();
  ASSERT_EQ(2u, first.size());
  EXPECT_EQ("p2", first[1]);
  // A second property, of another type, gets the first one's strings.
  EXPECT_EQ(&first, &disk.property("Model").toArray());
  EXPECT_EQ("p2", disk.property("Model").toArray()[1]);
}

TEST_F(DeviceModel, ManufacturerFollowsTheKeysOfTheDeviceType) {
  // CPU: VendorString outranks Manufacturer.
  EXPECT_EQ("GenuineIntel", device("cpu0").manufacturer());
  // Monitor: no MonitorManufacturer, Manufacturer or DeviceManufacturer.
  EXPECT_EQ("Acme", device("mon0").manufacturer());
  // Battery: a present but empty BatteryManufacturer ends the search.
  EXPECT_EQ("", device("bat0").manufacturer());
  // No key at all.
  EXPECT_EQ("", device("dvd0").manufacturer());

  // Keys of other types do not count: VendorString on a disk is ignored.
  DevicePtr disk = mirror().deviceByGuid("disk0");
  addProperty(disk, "VendorString", zel::ValueImp("ignored"));
  addProperty(disk, "WinManufacturer", zel::ValueImp("Western Digital"));
  EXPECT_EQ("Western Digital", device("disk0").manufacturer());
  addProperty(disk, "Manufacturer", zel::ValueImp("WDC"));
  EXPECT_EQ("WDC", device("disk0").manufacturer());
}

TEST_F(DeviceModel, TestsAndBenchmarksAreSplitByKind) {
  Device disk = device("disk0");
  TestList tests = disk.tests();
  EXPECT_EQ((std::vector<std::string>{"mod.storage::quick"}), guids(tests));
  EXPECT_EQ((std::vector<std::string>{"mod.storage::throughput"}), guids(disk.benchmarks()));
  EXPECT_EQ("mod.storage::quick", disk.firstTest().guid());
  EXPECT_EQ((std::vector<std::string>{"mod.storage"}), guids(disk.modules()));

  Device dvd = device("dvd0");
  EXPECT_EQ(0u, dvd.tests().size());
  EXPECT_FALSE(dvd.firstTest().isValid()); // only a benchmark
  EXPECT_EQ(1u, dvd.benchmarks().size());
  EXPECT_EQ(0u, dvd.modules().size());
}

TEST_F(DeviceModel, ToStringPassesTheMaskOfItsFlags) {
  struct Case {
    bool verbose, withChildren, withState;
    unsigned int mask;
  };
  Case const cases[] = {
      {true, false, false, 0xfdff7f}, {false, false, false, 0xf20},  {true, false, true, 0xfdff7f},
      {false, false, true, 0xf20},    {true, true, true, 0xffffff},  {false, true, true, 0x20fa0},
      {true, true, false, 0xffff7f},  {false, true, false, 0x20f20},
  };
  Device disk = device("disk0");
  for (Case const &c : cases) {
    EXPECT_EQ(disk.getImp()->toString(2, c.mask),
              disk.toString(2, c.verbose, c.withChildren, c.withState))
        << std::hex << c.mask;
  }
}

TEST_F(DeviceModel, ListCopiesShareTheirArrayAndEachCallBuildsANewOne) {
  Device root(mirror().rootDevice());
  DeviceList children = root.children();
  DeviceList copy = children;
  copy.remove(0);
  EXPECT_EQ(4u, children.size());
  EXPECT_EQ("mon0", children[0].guid());
  EXPECT_EQ(5u, root.children().size());
}

TEST_F(DeviceModel, EmptyHandlesAndBadIndexesAssert) {
  Device none;
  expectAssertion("m_imp", [&] { none.name(); });
  expectAssertion("m_imp", [&] { none.property("x"); });
  expectAssertion("m_imp", [&] { none.ejectOpticalDrive(); });
  expectAssertion("!!m_imp", [&] { none.getImp(); });

  DeviceProperty noProperty;
  expectAssertion("!!m_imp", [&] { noProperty.key(); });
  expectAssertion("!!m_imp", [&] { noProperty.children(device("disk0")); });
  // A valid property asked about an empty device fails on the device.
  expectAssertion("!!m_imp", [&] { device("disk0").property("Partitions").children(none); });

  DeviceList children = Device(mirror().rootDevice()).children();
  expectAssertion("index < size()", [&] { children[5]; });
  expectAssertion("index <= sz", [&] { children.remove(6); });
}

TEST_F(DeviceModel, EjectTouchesOnlyOpticalDrivesAndSurvivesBadPaths) {
  zel::CaptureAppender &log = capture("zelrlibscsi");
  capture("libOstrel.Device");
  log.clear();
  // A disk is never asked, although its path would open.
  EXPECT_NO_THROW(device("disk0").ejectOpticalDrive());
  EXPECT_FALSE(log.containsFragment("/dev/null"));
  // An optical drive at a path that is no device node: tried, refused,
  // nothing thrown.
  EXPECT_NO_THROW(device("dvd0").ejectOpticalDrive());
  EXPECT_TRUE(log.containsFragment("/nonexistent/dev/sr0"));
  EXPECT_NO_THROW(device("dvd0").ejectOpticalDrive());
}

} // namespace
