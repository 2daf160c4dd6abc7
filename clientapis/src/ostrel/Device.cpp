#include "ostrel/Device.h"

#include "ostrel/ClientMessageHandler.h"
#include "ostrel/PropertyCategory.h"
#include "ostrel/Value.h"
#include "zel/AssertionFailure.h"
#include "zel/IDeviceImp.h"
#include "zel/Logger.h"
#include "zel/PropertyImp.h"
#include "zel/StateManager.h"
#include "zel/TestImp.h"

#include "zelrlibscsi/ScsiDevice.h"

namespace ostrel5 {

namespace {

zel::Logger &logger() {
  static zel::Logger &log = zel::LogFactory::getLogger("libOstrel.Device");
  return log;
}

// The mirror's tests of `device` whose framework kind is `kind`, in the
// mirror's order.
zel::Array<boost::shared_ptr<zel::TestImp>> testsOfKind(zel::IDeviceImp const &device,
                                                        unsigned int kind) {
  zel::Array<boost::shared_ptr<zel::TestImp>> all =
      zel::StateManager::instance()->getTestsByDevice(device);
  zel::Array<boost::shared_ptr<zel::TestImp>> kept;
  for (boost::shared_ptr<zel::TestImp> const &test : all)
    if (test && static_cast<unsigned int>(test->type()) == kind)
      kept.append(test);
  return kept;
}

// The manufacturer keys of a device type, most specific first, ending in the
// three keys that every type shares.
char const *const *manufacturerKeys(DeviceCapability const &type) {
  static char const *const monitor[] = {"MonitorManufacturer", "Manufacturer", "DeviceManufacturer",
                                        "WinManufacturer", nullptr};
  static char const *const memoryChip[] = {"MemoryManufacturer", "Manufacturer",
                                           "DeviceManufacturer", "WinManufacturer", nullptr};
  static char const *const cpu[] = {"VendorString", "Manufacturer", "DeviceManufacturer",
                                    "WinManufacturer", nullptr};
  static char const *const battery[] = {"BatteryManufacturer", "Manufacturer", "DeviceManufacturer",
                                        "WinManufacturer", nullptr};
  static char const *const other[] = {"Manufacturer", "DeviceManufacturer", "WinManufacturer",
                                      nullptr};
  if (type == DeviceCapability::Monitor())
    return monitor;
  if (type == DeviceCapability::MemoryChip())
    return memoryChip;
  if (type == DeviceCapability::CPU())
    return cpu;
  if (type == DeviceCapability::Battery())
    return battery;
  return other;
}

} // namespace

Device::Device() noexcept = default;
Device::Device(boost::shared_ptr<zel::IDeviceImp const> const &imp) noexcept : SharedHandle(imp) {}
Device::Device(Device const &other) noexcept = default;
Device &Device::operator=(Device const &other) noexcept = default;
Device::~Device() = default;

zel::String const &Device::name() const {
  ZEL_ASSERT(m_imp);
  return m_imp->name();
}

zel::String Device::description() const {
  ZEL_ASSERT(m_imp);
  return m_imp->description();
}

zel::String const &Device::osLocator() const {
  ZEL_ASSERT(m_imp);
  return m_imp->osLocator();
}

zel::String const &Device::hwLocator() const {
  ZEL_ASSERT(m_imp);
  return m_imp->hwLocator();
}

zel::String Device::guid() const {
  ZEL_ASSERT(m_imp);
  return m_imp->guid();
}

DeviceCapability Device::deviceType() const {
  ZEL_ASSERT(m_imp);
  return DeviceCapability(m_imp->deviceType());
}

DeviceCapability Device::capabilities() const {
  ZEL_ASSERT(m_imp);
  return DeviceCapability(m_imp->capabilities());
}

DeviceState Device::deviceState() const {
  ZEL_ASSERT(m_imp);
  return DeviceState(m_imp->deviceState());
}

DeviceProperty Device::property(zel::String const &key) const {
  ZEL_ASSERT(m_imp);
  boost::shared_ptr<zel::PropertyImp const> found = m_imp->property(key);
  zel::Logger &log = logger();
  if (log.isEnabled(1)) {
    zel::String line = zel::String("property(): device: ") + m_imp->name() +
                       " guid = " + m_imp->guid() + " key = " + key + " property: ";
    if (found)
      line += found->key() + " value: " + found->value().toString(true);
    else
      line += "NULL value: NULL";
    log.log(1, line);
  }
  return DeviceProperty(found);
}

unsigned int Device::topPropertyCount() const {
  ZEL_ASSERT(m_imp);
  return m_imp->topPropertyCount();
}

DevicePropertyList Device::topProperties() const {
  ZEL_ASSERT(m_imp);
  return DevicePropertyList(m_imp->topProperties());
}

DevicePropertyList Device::getProperties(PropertyCategory const &category) const {
  ZEL_ASSERT(m_imp);
  return DevicePropertyList(m_imp->getProperties(category.imp()));
}

Device Device::parent() const {
  ZEL_ASSERT(m_imp);
  return Device(zel::StateManager::instance()->deviceByGuid(m_imp->parentGuid()));
}

DeviceList Device::children() const {
  ZEL_ASSERT(m_imp);
  return DeviceList(m_imp->children());
}

Device Device::firstChild() const {
  ZEL_ASSERT(m_imp);
  return Device(m_imp->firstChild());
}

ModuleList Device::modules() const {
  ZEL_ASSERT(m_imp);
  return ModuleList(zel::StateManager::instance()->getModulesByDevice(*m_imp));
}

TestList Device::tests() const {
  ZEL_ASSERT(m_imp);
  return TestList(testsOfKind(*m_imp, zel::TestImp::TEST));
}

Test Device::firstTest() const {
  ZEL_ASSERT(m_imp);
  zel::Array<boost::shared_ptr<zel::TestImp>> tests = testsOfKind(*m_imp, zel::TestImp::TEST);
  return tests.size() == 0 ? Test() : Test(tests[0]);
}

TestList Device::benchmarks() const {
  ZEL_ASSERT(m_imp);
  return TestList(testsOfKind(*m_imp, zel::TestImp::BENCHMARK));
}

zel::String Device::toString(unsigned int indent, bool verbose, bool withChildren,
                             bool withState) const {
  ZEL_ASSERT(m_imp);
  unsigned int mask;
  if (!withChildren)
    mask = verbose ? 0xfdff7f : 0xf20;
  else if (withState)
    mask = verbose ? 0xffffff : 0x20fa0;
  else
    mask = verbose ? 0xffff7f : 0x20f20;
  return m_imp->toString(indent, mask);
}

boost::shared_ptr<zel::IDeviceImp const> Device::getImp() const {
  ZEL_ASSERT(!!m_imp);
  return m_imp;
}

zel::String Device::manufacturer() const {
  ZEL_ASSERT(m_imp);
  // The first key present wins, even with an empty value: a device that
  // states an empty manufacturer has none, whatever the fall-back keys say.
  for (char const *const *key = manufacturerKeys(deviceType()); *key != nullptr; ++key) {
    DeviceProperty found = property(zel::String(*key));
    if (found.isValid())
      return found.value().toString();
  }
  return zel::String();
}

void Device::ejectOpticalDrive() const {
  ZEL_ASSERT(m_imp);
  if (!capabilities().isCapable(DeviceCapability::Optical()))
    return;
  zelrlibscsi::ScsiDevice drive(osLocator());
  // A drive without a medium, or one that refuses, simply stays closed.
  (void)drive.ejectMedia();
}

void Device::registerObserver(DeviceObserver *observer) const {
  ZEL_ASSERT(m_imp);
  ClientMessageHandler::instance().registerDeviceObserver(m_imp->guid(), observer);
}

void Device::unRegisterObserver(DeviceObserver *observer) const {
  ZEL_ASSERT(m_imp);
  ClientMessageHandler::instance().unRegisterDeviceObserver(observer);
}

} // namespace ostrel5
