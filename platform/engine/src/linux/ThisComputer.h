#pragma once
// morvain::ThisComputer: the provider for the computer the engine runs on.
// Devices, live changes and indicator readings come from LinuxDevices (/sys
// and /proc under a root folder); modules, tests and benchmarks from
// LinuxDiagnostics, which reaches the hardware through the devices'
// locators.

#include <memory>
#include <mutex>

#include "morvain/MachineProvider.h"

namespace morvain {

class LinuxDevices;
class LinuxDiagnostics;

class ThisComputer : public MachineProvider {
public:
  /// `root` is "/" for this computer, a fixture tree in tests.
  explicit ThisComputer(zel::String const &root = "/");
  ~ThisComputer() override;

  zel::String name() const override;
  std::vector<SourceReport> enumerateDevices(zel::CapabilityImp const &capability, bool force,
                                             zel::StateManager &state,
                                             std::function<bool()> const &cancelled) override;
  std::vector<SourceReport> enumerateTests(zel::StateManager &state,
                                           std::function<bool()> const &cancelled) override;
  TestOutcome runTest(RunContext &context) override;
  void pollLiveUpdates(std::uint64_t sinceStartMs, std::vector<LiveUpdate> &out) override;
  bool readIndicator(zel::IndicatorImp const &indicator, LiveUpdate &out) override;
  bool refresh(zel::String const &deviceGuid, zel::String const &propertyKey,
               LiveUpdate &out) override;

private:
  zel::String m_root;
  std::unique_ptr<LinuxDevices> m_devices;
  std::unique_ptr<LinuxDiagnostics> m_diagnostics;
};

} // namespace morvain
