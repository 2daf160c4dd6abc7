#pragma once
// morvain::SimulatedMachine: the machine provider of a machine-description
// file (docs/machine-description.md).
//
// The description is read once, when the provider is made. The provider then
// keeps its own view of the machine (a zel::StateManager with the devices,
// alerts and indicators as they are now): enumerations copy that view,
// timeline entries and indicator readings change it, refresh answers from
// it. It never touches zel::StateManager::instance(); what goes into the
// client's mirror is the engine core's decision.
//
// A description that cannot be read gives a provider all the same: its
// enumerations fail with the reader's message and it has no tests.
//
// Thread-safety: as MachineProvider.h asks. The view, the timeline cursor,
// the busy set and the indicator cursors are guarded by one mutex; runTest
// reads only the immutable model (and the view, briefly, under the mutex),
// so runs proceed in parallel.

#include <memory>
#include <mutex>
#include <unordered_map>
#include <unordered_set>

#include "MachineDescription.h"
#include "morvain/MachineProvider.h"

namespace morvain {

class SimulatedMachine : public MachineProvider {
public:
  /// A machine from a model read before. `name` is what name() says.
  SimulatedMachine(zel::String const &name, std::shared_ptr<MachineDescription const> model);
  /// A machine whose description could not be read: every enumeration
  /// fails with `problem`.
  SimulatedMachine(zel::String const &name, zel::String const &problem);
  ~SimulatedMachine() override;

  /// The reader's message when the description could not be read, else "".
  zel::String const &readProblem() const noexcept { return m_problem; }
  /// The model (null when the description could not be read).
  std::shared_ptr<MachineDescription const> const &model() const noexcept { return m_model; }

  zel::String name() const override { return m_name; }
  std::vector<SourceReport> enumerateDevices(zel::CapabilityImp const &capability, bool force,
                                             zel::StateManager &state,
                                             std::function<bool()> const &cancelled) override;
  std::vector<SourceReport> enumerateTests(zel::StateManager &state,
                                           std::function<bool()> const &cancelled) override;
  bool deviceHeldBusy(zel::String const &deviceGuid) const override;
  TestOutcome runTest(RunContext &context) override;
  void pollLiveUpdates(std::uint64_t sinceStartMs, std::vector<LiveUpdate> &out) override;
  bool readIndicator(zel::IndicatorImp const &indicator, LiveUpdate &out) override;
  bool refresh(zel::String const &deviceGuid, zel::String const &propertyKey,
               LiveUpdate &out) override;
  void setLanguage(zel::String const &languageAndVariant) override;

private:
  struct TestRef {
    ModuleModel const *module = nullptr;
    TestModel const *test = nullptr;
  };

  std::vector<SourceReport> failedReport() const;
  /// Runs the sources' delays and failures; `failed[i]` tells which failed.
  std::vector<SourceReport> runSources(std::vector<SourceModel> const &sources,
                                       std::vector<unsigned int> &runs,
                                       std::function<bool()> const &cancelled,
                                       std::vector<bool> &failed);
  /// Associates a device with the tests that serve it, in `state`.
  void associateDevice(zel::StateManager &state, zel::IDeviceImp const &device) const;
  void applyEntry(TimelineEntry const &entry, LiveUpdate &out); // under m_mutex

  zel::String m_name;
  std::shared_ptr<MachineDescription const> m_model;
  zel::String m_problem;
  std::unordered_map<zel::String, TestRef> m_tests;
  std::unordered_map<zel::String, IndicatorModel const *> m_indicators;

  mutable std::mutex m_mutex;
  zel::StateManager m_current;
  std::unordered_map<zel::String, std::size_t> m_deviceSource;
  std::unordered_set<zel::String> m_busy;
  std::size_t m_nextEntry = 0;
  std::unordered_map<zel::String, std::size_t> m_readingCursor;
  std::vector<unsigned int> m_deviceSourceRuns;
  std::vector<unsigned int> m_testSourceRuns;
  zel::String m_language;
};

} // namespace morvain
