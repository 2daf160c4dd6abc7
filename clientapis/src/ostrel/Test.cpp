#include "ostrel/Test.h"

#include "zel/AssertionFailure.h"
#include "zel/IDeviceImp.h"
#include "zel/IModuleImp.h"
#include "zel/StateManager.h"
#include "zel/TestImp.h"
#include "zel/ZELLocale.h"

namespace ostrel5 {

Test::Test() noexcept = default;
Test::Test(boost::shared_ptr<zel::TestImp> const &imp) noexcept : SharedHandle(imp) {}
Test::Test(Test const &other) noexcept = default;
Test &Test::operator=(Test const &other) noexcept = default;
Test::~Test() = default;

zel::String Test::guid() const { return m_imp->guid(); }
zel::String Test::localizedName() const { return m_imp->localizedName(); }
zel::String Test::localizedDescription() const { return m_imp->localizedDescription(); }
zel::String Test::customerErrorCode() const { return m_imp->customerErrorCode(); }
zel::String Test::helpConcept() const { return m_imp->helpConcept(); }
zel::String const &Test::keyInModule() const { return m_imp->keyInModule(); }

Test::TestType Test::type() const { return m_imp->type() == zel::TestImp::TEST ? TEST : BENCHMARK; }

bool Test::isInteractive() const { return m_imp->isInteractive(); }
bool Test::createsOwnGUI() const { return m_imp->createsOwnGUI(); }
bool Test::isDestructive() const { return m_imp->isDestructive(); }
bool Test::supportsParallelTesting() const { return m_imp->supportsParallelTesting(); }

bool Test::isEnabled() const {
  return m_imp->isEnabledInIniFile(zel::ZELLocale::getGlobalLocale());
}

DeviceCapability Test::deviceCapabilitiesSupported() const {
  return DeviceCapability(m_imp->deviceCapabilitiesSupported());
}

zel::OperatingSystemSet const &Test::disabledOperatingSystems() const {
  return m_imp->disabledOperatingSystems(zel::ZELLocale::getGlobalLocale());
}

TestParameterList Test::parameters() const { return TestParameterList(m_imp->parameters()); }

TestParameter Test::parameter(zel::String const &key) const {
  return TestParameter(m_imp->parameter(key));
}

DeviceList Test::devices() const {
  return DeviceList(zel::StateManager::instance()->getDevicesByTest(*m_imp));
}

Device Test::firstDevice() const {
  zel::Array<boost::shared_ptr<zel::IDeviceImp>> devices =
      zel::StateManager::instance()->getDevicesByTest(*m_imp);
  return devices.size() == 0 ? Device() : Device(devices[0]);
}

Module Test::module() const {
  return Module(zel::StateManager::instance()->firstModuleByTest(*m_imp));
}

unsigned int Test::tipCount() const { return m_imp->tipCount(); }

Tip Test::tip(unsigned int index) const { return Tip(m_imp->tip(index)); }

zel::String Test::toString(unsigned int indent, bool verbose) const {
  return m_imp->toString(indent, verbose);
}

boost::shared_ptr<zel::TestImp const> Test::getImp() const {
  ZEL_ASSERT(!!m_imp);
  return m_imp;
}

} // namespace ostrel5
