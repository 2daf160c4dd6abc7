#include "ostrel/Module.h"

#include "zel/IDeviceImp.h"
#include "zel/IModuleImp.h"
#include "zel/StateManager.h"
#include "zel/TestImp.h"

namespace ostrel5 {

namespace {

// The mirror's tests of `module` whose framework kind is `kind`, in the
// mirror's order; any other kind is in neither list.
TestList testsOfKind(zel::IModuleImp const &module, unsigned int kind) {
  zel::Array<boost::shared_ptr<zel::TestImp>> all =
      zel::StateManager::instance()->getTestsByModule(module);
  zel::Array<boost::shared_ptr<zel::TestImp>> kept;
  for (boost::shared_ptr<zel::TestImp> const &test : all)
    if (test && static_cast<unsigned int>(test->type()) == kind)
      kept.append(test);
  return TestList(kept);
}

} // namespace

Module::Module() noexcept = default;
Module::Module(boost::shared_ptr<zel::IModuleImp> const &imp) noexcept : SharedHandle(imp) {}
Module::Module(Module const &other) noexcept = default;
Module &Module::operator=(Module const &other) noexcept = default;
Module::~Module() = default;

bool Module::operator==(Module const &other) const { return guid() == other.guid(); }
bool Module::operator!=(Module const &other) const { return !(*this == other); }

zel::String Module::guid() const { return m_imp->guid(); }
zel::String const &Module::localizedName() const { return m_imp->localizedName(); }
zel::String const &Module::localizedDescription() const { return m_imp->localizedDescription(); }
zel::String const &Module::helpConcept() const { return m_imp->helpConcept(); }
zel::String const &Module::buildDate() const { return m_imp->buildDate(); }
zel::String const &Module::company() const { return m_imp->company(); }
Version Module::version() const { return Version(m_imp->version()); }
ModuleType Module::type() const { return ModuleType(m_imp->type()); }

TestList Module::tests() const { return testsOfKind(*m_imp, zel::TestImp::TEST); }
TestList Module::benchmarks() const { return testsOfKind(*m_imp, zel::TestImp::BENCHMARK); }

DeviceList Module::devices() const {
  return DeviceList(zel::StateManager::instance()->getDevicesByModule(*m_imp));
}

DeviceCapability Module::supportedCapabilities() const {
  return DeviceCapability(m_imp->supportedCapabilities(nullptr));
}

unsigned int Module::tipCount() const { return m_imp->tipCount(); }

Tip Module::tip(unsigned int index) const { return Tip(m_imp->tip(index)); }

zel::String Module::toString(unsigned int indent, bool verbose) const {
  return m_imp->toString(indent, verbose);
}

boost::shared_ptr<zel::IModuleImp const> Module::getImp() const { return m_imp; }

} // namespace ostrel5
