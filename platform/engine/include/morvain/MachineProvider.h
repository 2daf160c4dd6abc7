#pragma once
// morvain::MachineProvider: the machine an engine serves. Two providers
// exist: a simulated machine read from a machine-description file, and this
// computer. The engine core (message handling, runs, stops, busy devices,
// prompts, indicators, live updates, shutdown) is the same for both; a
// provider only knows its machine: what it has, how its tests behave and
// what changes on it.
//
// Threads. The engine calls enumerateDevices and enumerateTests from its
// enumeration thread, one call at a time. runTest is called on the run's own
// thread, and several runs may be in runTest at once (on different devices,
// or on one device when both tests allow parallel testing). pollLiveUpdates,
// readIndicator and refresh are called from the engine's live thread, one at
// a time, but concurrently with runs and enumerations. A provider guards its
// own data accordingly.
//
// Exceptions. A provider reports what it cannot do through its results
// (a failed SourceReport, a NODEVICE outcome). An exception that leaves
// runTest ends the run with result INTERNALERROR and an event naming the
// exception; one that leaves an enumeration call fails that enumeration's
// source.

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "zel/Array.h"
#include "zel/CapabilityImp.h"
#include "zel/MessageBox2.h"
#include "zel/StateManager.h"
#include "zel/String.h"
#include "zel/TestResultImp.h"
#include "zel/TestRunEventImp.h"
#include "zel/TestRunImp.h"

namespace morvain {

/// The outcome of one enumeration source (a bus, a module, a description
/// file), reported to the client as Device/TestEnumerationCompleted or
/// Device/TestEnumerationFailed.
struct SourceReport {
  zel::String sourceName;
  double elapsedSeconds = 0.0;
  bool failed = false;
  /// Devices (or tests) this source contributed, when it completed.
  unsigned int count = 0;
  /// Why it failed, or, for a completed source, what could not be read
  /// (empty when everything was read).
  zel::String reason;
};

/// A change of the machine while the engine runs: a partial state (new or
/// changed devices with the properties that are new or changed, new or
/// changed alerts) and what went away. This is what the client receives as
/// UpdatesProviderToEngineToUI.
struct LiveUpdate {
  zel::StateManager state;
  zel::Array<zel::String> deviceGuidsToRemove;
  /// Parallel arrays: the device of each property key to remove.
  zel::Array<zel::String> deviceGuidsForPropertiesToRemove;
  zel::Array<zel::String> propertyKeysToRemove;
  zel::Array<zel::String> alertGuidsToRemove;

  bool isEmpty() const;
};

/// What a running test may do with the engine. Made by the engine core for
/// one run and used by the provider's runTest on that run's thread; only
/// stopRequested may be called from other threads too.
class RunContext {
public:
  virtual ~RunContext() = default;

  /// The engine's own copy of the run: test, device, parameters, pass,
  /// limits, prompting flags. Read only for the test.
  virtual zel::TestRunImp const &run() const = 0;

  /// Reports progress. `percent` above 100 counts as 100; `text` replaces
  /// the progress text (an empty text keeps the previous one). Progress
  /// reports may be dropped under load; a later report carries the latest.
  virtual void progress(unsigned int percent, zel::String const &text = zel::String()) = 0;

  /// Adds an event to the run and reports it at once (never dropped). The
  /// event keeps its guid; it is reported once however often the run is.
  virtual void event(zel::TestRunEventImp const &event) = 0;

  /// A measurement of a benchmark (or a test): kept as an event of type
  /// INFORMATIVE whose text is "<name>: <value> <unit>".
  virtual void measurement(zel::String const &name, double value, zel::String const &unit) = 0;

  /// True once the run is to end: a stop for it came in, its maximum time
  /// passed, or the engine shuts down. A test checks it between steps and
  /// returns soon after it turns true; what it returns then does not count
  /// (the run ends with the stop's result).
  virtual bool stopRequested() const = 0;

  /// Waits `ms` milliseconds; returns false at once (or as soon as it
  /// happens) when a stop is requested, true when the time passed. With
  /// `interruptible` false it waits the whole time whatever comes (a test
  /// that is slow to notice a stop).
  virtual bool sleepFor(unsigned int ms, bool interruptible = true) = 0;

  /// How a question to the user ended.
  enum class PromptOutcome {
    ANSWERED,  ///< `answer` holds the user's answer
    REFUSED,   ///< nobody will answer: prompting disabled, no message box
               ///< support, or the client declined to show it
    TIMED_OUT, ///< no answer within the time-out; the box was cancelled
    STOPPED    ///< the run was stopped while waiting; the box was cancelled
  };
  /// Asks the user through the client (MessageBox2RequestMessage) and waits
  /// for the answer. `timeoutMs` 0 waits without limit (but not past a
  /// stop). A run without prompting or message-box support is REFUSED at
  /// once without asking.
  virtual PromptOutcome prompt(zel::MessageBox2Request const &request, unsigned int timeoutMs,
                               zel::MessageBox2Result &answer) = 0;

  /// Whether the engine runs in a process of its own. A provider only
  /// brings the process down on purpose (a simulated crash) when it does.
  virtual bool separateProcess() const = 0;
};

/// What a test body returns: the run's final result unless a stop or the
/// maximum time ended it first.
struct TestOutcome {
  zel::TestResultImp result;
  zel::String errorCode;
};

class MachineProvider {
public:
  virtual ~MachineProvider() = default;

  /// For logs and enumeration reports ("simulated machine laptop.xml",
  /// "this computer").
  virtual zel::String name() const = 0;

  /// Puts the machine's devices into `state` (empty on entry): the device
  /// tree with properties, plus alerts and indicators. A provider may
  /// enumerate more than `capability` asks for; the engine sends the whole
  /// mirror anyway. `force` asks to read the hardware again instead of
  /// answering from what the provider remembers. One report per source, in
  /// the order the sources ran. `cancelled` turns true at shutdown; a long
  /// enumeration checks it and gives up (its sources then fail).
  virtual std::vector<SourceReport> enumerateDevices(zel::CapabilityImp const &capability,
                                                     bool force, zel::StateManager &state,
                                                     std::function<bool()> const &cancelled) = 0;

  /// Puts modules, tests and benchmarks into `state` (which already holds
  /// the devices) with their associations to each other and to the devices.
  virtual std::vector<SourceReport> enumerateTests(zel::StateManager &state,
                                                   std::function<bool()> const &cancelled) = 0;

  /// Whether the machine itself keeps the device busy (for example a
  /// simulated drive that another program holds). A run on it then ends
  /// DEVICETESTINGBLOCKED.
  virtual bool deviceHeldBusy(zel::String const &deviceGuid) const {
    (void)deviceGuid;
    return false;
  }

  /// Runs one test: the body of a run between RUNNING and EXITED. The test
  /// and device are context.run().test() and .device().
  virtual TestOutcome runTest(RunContext &context) = 0;

  /// Changes of the machine that happened since the previous call, oldest
  /// first. `sinceStartMs` counts from the end of the engine's first device
  /// enumeration; the engine calls this about every 50 ms from then on.
  virtual void pollLiveUpdates(std::uint64_t sinceStartMs, std::vector<LiveUpdate> &out) {
    (void)sinceStartMs;
    (void)out;
  }

  /// One reading of an indicator: fresh values of what it watches, as a
  /// partial state in `out`. False when the indicator is unknown or has
  /// nothing to report. Called at the indicator's interval while its run
  /// is not paused.
  virtual bool readIndicator(zel::IndicatorImp const &indicator, LiveUpdate &out) {
    (void)indicator;
    (void)out;
    return false;
  }

  /// A fresh reading of one device (`propertyKey` empty) or one property
  /// of it, as a partial state in `out`. False when unknown.
  virtual bool refresh(zel::String const &deviceGuid, zel::String const &propertyKey,
                       LiveUpdate &out) = 0;

  /// The client's language changed ("de_DE"); later names follow it where
  /// the provider has them.
  virtual void setLanguage(zel::String const &languageAndVariant) { (void)languageAndVariant; }
};

/// The provider for the resource "Engine.Machine": a simulated machine when
/// `machine` names a description file (relative paths are tried against the
/// working directory, then `baseDirectory`), this computer when it is
/// empty. Never throws: a description that cannot be read gives a provider
/// whose enumerations fail with the reader's message.
std::unique_ptr<MachineProvider> createProvider(zel::String const &machine,
                                                zel::String const &baseDirectory);

/// A simulated machine from a description file or text. Never throws; see
/// createProvider.
std::unique_ptr<MachineProvider> createSimulatedMachine(zel::String const &path);
std::unique_ptr<MachineProvider> createSimulatedMachineFromText(zel::String const &xml,
                                                                zel::String const &name);

} // namespace morvain
