#include "linux/ThisComputer.h"

#include "linux/LinuxDevices.h"
#include "linux/LinuxDiagnostics.h"
#include "zel/ModuleImp.h"
#include "zel/VersionImp.h"

namespace morvain {

ThisComputer::ThisComputer(zel::String const &root)
    : m_root(root), m_devices(new LinuxDevices(root)), m_diagnostics(new LinuxDiagnostics(root)) {}

ThisComputer::~ThisComputer() = default;

zel::String ThisComputer::name() const {
  return m_root == "/" || m_root.isEmpty() ? zel::String("this computer")
                                           : zel::String("computer at ") + m_root;
}

std::vector<SourceReport> ThisComputer::enumerateDevices(zel::CapabilityImp const &, bool,
                                                         zel::StateManager &state,
                                                         std::function<bool()> const &cancelled) {
  // The hardware is read every time: reading /sys is cheap, and a cached
  // answer could hide a device that came or went.
  return m_devices->enumerate(state, cancelled);
}

std::vector<SourceReport> ThisComputer::enumerateTests(zel::StateManager &state,
                                                       std::function<bool()> const &) {
  std::vector<SourceReport> reports = m_diagnostics->enumerateTests(state);
  // The indicators that enumeration puts in the mirror (sensors, batteries)
  // name this module; it has no tests, only readings.
  if (!state.moduleByGuid(LinuxDevices::INDICATOR_MODULE)) {
    auto *module = new zel::ModuleImp(LinuxDevices::INDICATOR_MODULE);
    module->setLocalizedName("System information")
        .setLocalizedDescription("Live readings of sensors and batteries")
        .setCompany("Ostrel")
        .setVersion(zel::VersionImp("5.0.0.0"))
        .setType(zel::ModuleTypeImp::INDICATOR);
    state.addModule(module);
  }
  return reports;
}

TestOutcome ThisComputer::runTest(RunContext &context) { return m_diagnostics->runTest(context); }

void ThisComputer::pollLiveUpdates(std::uint64_t, std::vector<LiveUpdate> &out) {
  m_devices->pollChanges(out);
}

bool ThisComputer::readIndicator(zel::IndicatorImp const &indicator, LiveUpdate &out) {
  return m_devices->readIndicator(indicator, out);
}

bool ThisComputer::refresh(zel::String const &deviceGuid, zel::String const &propertyKey,
                           LiveUpdate &out) {
  return m_devices->refresh(deviceGuid, propertyKey, out);
}

} // namespace morvain
