#include "SimulatedMachine.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "zel/Logger.h"
#include "zel/ParameterImp.h"
#include "zel/TestRunImp.h"

namespace morvain {

using zel::String;

namespace {

zel::Logger &logger() { return zel::LogFactory::getLogger("Morvain.Machine"); }

String baseName(String const &path) {
  std::size_t slash = path.str().find_last_of('/');
  return slash == std::string::npos ? path : path.substring(slash + 1);
}

/// A device with the same identity and state, and no properties: what a
/// partial state carries for a device some of whose properties changed.
boost::shared_ptr<zel::IDeviceImp> identityOf(zel::IDeviceImp const &d) {
  boost::shared_ptr<zel::IDeviceImp> c(
      new zel::IDeviceImp(d.guid(), d.name(), d.deviceType(), d.parentGuid()));
  c->setCapabilities(d.capabilities())
      .setDescription(d.description())
      .setOsLocator(d.osLocator())
      .setHwLocator(d.hwLocator());
  c->setDeviceState(d.deviceState());
  return c;
}

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// --- the script interpreter ---------------------------------------------------------

class ScriptRun {
public:
  ScriptRun(RunContext &context, ModuleModel const &module, TestModel const &test,
            zel::IDeviceImp const &device)
      : m_context(context), m_module(module), m_test(test), m_device(device) {
    unsigned int pass = context.run().currentPass();
    // A run that carries no pass number is a single pass: the first.
    m_pass = pass == 0 ? 1 : pass;
  }

  TestOutcome run() {
    ScriptModel const &script = m_test.script;
    Flow flow = steps(script.steps);
    if (flow == Flow::STOPPED)
      return TestOutcome{zel::TestResultImp::USERABORTED, String()};
    if (flow == Flow::END)
      return m_end;
    if (std::find(script.failPasses.begin(), script.failPasses.end(), m_pass) !=
        script.failPasses.end())
      return TestOutcome{script.failResult, script.failErrorCode};
    return TestOutcome{script.result, script.errorCode};
  }

private:
  enum class Flow { NEXT, END, STOPPED };

  Flow steps(Steps const &list) {
    for (Step const &s : list) {
      if (m_context.stopRequested())
        return Flow::STOPPED;
      Flow flow = step(s);
      if (flow != Flow::NEXT)
        return flow;
    }
    return Flow::NEXT;
  }

  Flow end(zel::TestResultImp result, String const &errorCode) {
    m_end = TestOutcome{result, errorCode};
    return Flow::END;
  }

  Flow step(Step const &s) {
    switch (s.kind) {
    case Step::Kind::PROGRESS:
      if (s.hasPercent)
        m_percent = s.percent;
      m_context.progress(m_percent, expand(s.text));
      return Flow::NEXT;
    case Step::Kind::WORK:
      return work(s);
    case Step::Kind::IGNORE_STOP:
      m_context.sleepFor(s.ms, false);
      return Flow::NEXT;
    case Step::Kind::HANG:
      if (!s.text.isEmpty())
        m_context.progress(m_percent, expand(s.text));
      while (m_context.sleepFor(1000)) {
      }
      return Flow::STOPPED;
    case Step::Kind::EVENT:
      m_context.event(makeEvent(*s.event));
      return Flow::NEXT;
    case Step::Kind::MEASUREMENT:
      m_context.measurement(expand(s.name), s.value, s.unit);
      return Flow::NEXT;
    case Step::Kind::PROMPT:
      return prompt(*s.prompt);
    case Step::Kind::END:
      return end(s.result, s.errorCode);
    case Step::Kind::IF:
      return steps(holds(s) ? s.body : s.otherwise);
    case Step::Kind::REPEAT:
      for (unsigned int i = 0; i < s.count; ++i) {
        Flow flow = steps(s.body);
        if (flow != Flow::NEXT)
          return flow;
      }
      return Flow::NEXT;
    case Step::Kind::CRASH:
      return crash();
    case Step::Kind::THROW:
      throw zel::IllegalState(expand(s.text));
    }
    return Flow::NEXT;
  }

  Flow work(Step const &s) {
    unsigned int from = m_percent;
    unsigned int to = s.hasPercent ? s.percent : m_percent;
    for (unsigned int i = 1; i <= s.count; ++i) {
      unsigned long long done = static_cast<unsigned long long>(s.ms) * i / s.count;
      unsigned long long before = static_cast<unsigned long long>(s.ms) * (i - 1) / s.count;
      unsigned int slice = static_cast<unsigned int>(done - before);
      if (slice > 0 ? !m_context.sleepFor(slice) : m_context.stopRequested())
        return Flow::STOPPED;
      long long span = static_cast<long long>(to) - static_cast<long long>(from);
      m_percent = static_cast<unsigned int>(static_cast<long long>(from) + span * i / s.count);
      m_context.progress(m_percent, i == 1 ? expand(s.text) : String());
    }
    return Flow::NEXT;
  }

  Flow prompt(PromptModel const &p) {
    zel::MessageBox2Request request = p.request;
    request.setMessage(expand(request.getMessage()));
    request.setTitle(expand(request.getTitle()));
    zel::MessageBox2Result answer;
    switch (m_context.prompt(request, p.timeoutMs, answer)) {
    case RunContext::PromptOutcome::ANSWERED:
      for (PromptBranch const &b : p.answers) {
        if (b.matchValue && b.value != answer.value())
          continue;
        if (b.matchInput && b.input != answer.getInput())
          continue;
        return steps(b.steps);
      }
      return Flow::NEXT;
    case RunContext::PromptOutcome::REFUSED:
      // Nobody can answer: the test cannot be carried out.
      return p.refused ? steps(p.refused->steps) : end(zel::TestResultImp::CANNOTRUN, String());
    case RunContext::PromptOutcome::TIMED_OUT:
      return p.timedOut ? steps(p.timedOut->steps) : end(zel::TestResultImp::TIMEDOUT, String());
    case RunContext::PromptOutcome::STOPPED:
      break;
    }
    return Flow::STOPPED;
  }

  Flow crash() {
    if (m_context.separateProcess()) {
      logger().log(5, "test " + m_test.test->guid() + " crashes the engine on purpose");
      zel::LogFactory::flush();
      std::abort();
    }
    zel::TestRunEventImp e(m_module.module->guid(), "CrashRequested");
    e.setType(zel::EventTypeImp::ERR);
    e.setMessage("A crash of the engine was requested, but the engine runs in the client's "
                 "process; the crash was not carried out.");
    e.setDevice(m_device.guid());
    m_context.event(e);
    return end(zel::TestResultImp::INTERNALERROR, String());
  }

  bool holds(Step const &s) const {
    if (!s.passes.empty() && std::find(s.passes.begin(), s.passes.end(), m_pass) == s.passes.end())
      return false;
    if (!s.deviceGuids.empty() && std::find(s.deviceGuids.begin(), s.deviceGuids.end(),
                                            m_device.guid()) == s.deviceGuids.end())
      return false;
    if (s.hasParameterValue) {
      boost::shared_ptr<zel::ParameterImp> p = m_context.run().parameter(s.parameter);
      if (!p || p->value().toString() != s.parameterValue)
        return false;
    }
    return true;
  }

  zel::TestRunEventImp makeEvent(EventModel const &m) const {
    // A new event (new GUID) every time the step runs.
    zel::TestRunEventImp e(m_module.module->guid(), m.key);
    e.setType(m.type);
    e.setMessage(expand(m.message));
    e.setEventCode(m.code);
    e.setEventCodeString(m.codeString);
    e.setCustomerEventCode(m.customerCode);
    e.setDevice(m_device.guid());
    for (auto const &tip : m.tips)
      e.addTip(*tip);
    return e;
  }

  /// {pass}, {device} and {test} in texts the run shows.
  String expand(String const &text) const {
    if (!text.contains("{"))
      return text;
    return text.replaceAll("{pass}", String::fromUInt(m_pass))
        .replaceAll("{device}", m_device.name())
        .replaceAll("{test}", m_test.test->localizedName());
  }

  RunContext &m_context;
  ModuleModel const &m_module;
  TestModel const &m_test;
  zel::IDeviceImp const &m_device;
  unsigned int m_pass = 1;
  unsigned int m_percent = 0;
  TestOutcome m_end;
};

} // namespace

// --- the provider ---------------------------------------------------------------------

SimulatedMachine::SimulatedMachine(String const &name,
                                   std::shared_ptr<MachineDescription const> model)
    : m_name(name), m_model(std::move(model)) {
  MachineDescription const &m = *m_model;
  for (DeviceModel const &d : m.devices) {
    m_current.addDevice(boost::shared_ptr<zel::IDeviceImp>(new zel::IDeviceImp(*d.device)));
    m_deviceSource[d.device->guid()] = d.source;
    if (d.heldBusy)
      m_busy.insert(d.device->guid());
  }
  for (auto const &a : m.alerts)
    m_current.addAlert(*a);
  for (ModuleModel const &mod : m.modules) {
    for (TestModel const &t : mod.tests)
      m_tests[t.test->guid()] = TestRef{&mod, &t};
    for (IndicatorModel const &i : mod.indicators) {
      m_indicators[i.indicator.guid()] = &i;
      m_current.addIndicator(i.indicator);
    }
  }
  // Timeline devices are known by source from the start, so that a device
  // added later is counted (or left out) with its source.
  for (TimelineEntry const &e : m.timeline)
    for (TimelineAction const &a : e.actions)
      for (DeviceModel const &d : a.devices)
        m_deviceSource[d.device->guid()] = d.source;
  m_deviceSourceRuns.assign(m.deviceSources.size(), 0);
  m_testSourceRuns.assign(m.testSources.size(), 0);
  ZEL_LOG(logger(), 2,
          "read " + m.origin + " (" + m.name + "): " + String::fromUInt(m.devices.size()) +
              " devices, " + String::fromUInt(m_tests.size()) + " tests, " +
              String::fromUInt(m.alerts.size()) + " alerts, " +
              String::fromUInt(m.timeline.size()) + " timeline entries");
}

SimulatedMachine::SimulatedMachine(String const &name, String const &problem)
    : m_name(name), m_problem(problem) {
  logger().log(4, m_name + ": " + problem);
}

SimulatedMachine::~SimulatedMachine() = default;

std::vector<SourceReport> SimulatedMachine::failedReport() const {
  SourceReport r;
  r.sourceName = m_name;
  r.failed = true;
  r.reason = m_problem;
  return {r};
}

std::vector<SourceReport> SimulatedMachine::runSources(std::vector<SourceModel> const &sources,
                                                       std::vector<unsigned int> &runs,
                                                       std::function<bool()> const &cancelled,
                                                       std::vector<bool> &failed) {
  auto isCancelled = [&cancelled] { return cancelled && cancelled(); };
  std::vector<SourceReport> reports;
  failed.assign(sources.size(), false);
  bool stopped = false;
  for (std::size_t i = 0; i < sources.size(); ++i) {
    SourceModel const &s = sources[i];
    auto start = std::chrono::steady_clock::now();
    SourceReport r;
    r.sourceName = s.name;
    stopped = stopped || isCancelled();
    // A slow source waits in short slices so that a shutdown ends it soon.
    auto until = start + std::chrono::milliseconds(s.delayMs);
    while (!stopped && std::chrono::steady_clock::now() < until) {
      auto left = until - std::chrono::steady_clock::now();
      std::this_thread::sleep_for(
          std::min<std::chrono::steady_clock::duration>(left, std::chrono::milliseconds(10)));
      stopped = isCancelled();
    }
    unsigned int run;
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      run = ++runs[i];
    }
    if (stopped) {
      r.failed = true;
      r.reason = "the enumeration was cancelled";
    } else if (!s.failReason.isEmpty() && (s.failTimes == 0 || run <= s.failTimes)) {
      r.failed = true;
      r.reason = s.failReason;
    } else {
      r.reason = s.warning;
    }
    failed[i] = r.failed;
    r.elapsedSeconds = secondsSince(start);
    reports.push_back(r);
  }
  return reports;
}

std::vector<SourceReport>
SimulatedMachine::enumerateDevices(zel::CapabilityImp const &capability, bool force,
                                   zel::StateManager &state,
                                   std::function<bool()> const &cancelled) {
  // The whole machine goes out whatever is asked; nothing is cached that a
  // forced enumeration would read again.
  (void)capability;
  (void)force;
  if (!m_model)
    return failedReport();
  std::vector<bool> failed;
  std::vector<SourceReport> reports =
      runSources(m_model->deviceSources, m_deviceSourceRuns, cancelled, failed);
  auto start = std::chrono::steady_clock::now();
  std::vector<String> leftOut;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    state = m_current;
    for (auto const &d : m_current.getDevices()) {
      auto it = m_deviceSource.find(d->guid());
      std::size_t source = it == m_deviceSource.end() ? 0 : it->second;
      if (failed[source])
        leftOut.push_back(d->guid());
      else
        ++reports[source].count;
    }
  }
  for (String const &guid : leftOut)
    state.removeDevice(guid, nullptr, false);
  // The copy is the last source's work.
  if (!reports.empty())
    reports.back().elapsedSeconds += secondsSince(start);
  return reports;
}

void SimulatedMachine::associateDevice(zel::StateManager &state,
                                       zel::IDeviceImp const &device) const {
  for (ModuleModel const &mod : m_model->modules) {
    String moduleGuid = mod.module->guid();
    for (TestModel const &t : mod.tests) {
      bool serves;
      if (t.explicitDevices) {
        serves = std::find(t.deviceGuids.begin(), t.deviceGuids.end(), device.guid()) !=
                 t.deviceGuids.end();
      } else {
        zel::CapabilityImp const &wanted = t.test->deviceCapabilitiesSupported();
        serves = !wanted.isEmpty() && device.capabilities().isCapable(wanted);
      }
      if (serves) {
        state.associateTestDevice(t.test->guid(), device.guid());
        state.associateModuleDevice(moduleGuid, device.guid());
      }
    }
  }
}

std::vector<SourceReport> SimulatedMachine::enumerateTests(zel::StateManager &state,
                                                           std::function<bool()> const &cancelled) {
  if (!m_model)
    return failedReport();
  std::vector<bool> failed;
  std::vector<SourceReport> reports =
      runSources(m_model->testSources, m_testSourceRuns, cancelled, failed);
  auto start = std::chrono::steady_clock::now();
  zel::Array<zel::StateManager::DevicePtr> devices = state.getDevices();
  for (ModuleModel const &mod : m_model->modules) {
    if (failed[mod.source])
      continue;
    String moduleGuid = mod.module->guid();
    state.addModule(zel::StateManager::ModulePtr(mod.module->clone()));
    for (TestModel const &t : mod.tests) {
      zel::StateManager::TestPtr test(new zel::TestImp(*t.test));
      state.addTest(test);
      state.associateModuleTest(moduleGuid, test->guid());
      ++reports[mod.source].count;
      if (t.explicitDevices) {
        for (String const &guid : t.deviceGuids)
          if (state.deviceByGuid(guid)) {
            state.associateTestDevice(test->guid(), guid);
            state.associateModuleDevice(moduleGuid, guid);
          }
      } else if (!t.test->deviceCapabilitiesSupported().isEmpty()) {
        zel::CapabilityImp const &wanted = t.test->deviceCapabilitiesSupported();
        for (auto const &d : devices)
          if (d->capabilities().isCapable(wanted)) {
            state.associateTestDevice(test->guid(), d->guid());
            state.associateModuleDevice(moduleGuid, d->guid());
          }
      }
    }
  }
  if (!reports.empty())
    reports.back().elapsedSeconds += secondsSince(start);
  return reports;
}

bool SimulatedMachine::deviceHeldBusy(String const &deviceGuid) const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_busy.count(deviceGuid) != 0;
}

TestOutcome SimulatedMachine::runTest(RunContext &context) {
  boost::shared_ptr<zel::TestImp> test = context.run().test();
  boost::shared_ptr<zel::IDeviceImp> device = context.run().device();
  auto it = test ? m_tests.find(test->guid()) : m_tests.end();
  if (it == m_tests.end())
    return TestOutcome{zel::TestResultImp::NOTEST, String()};
  if (!device)
    return TestOutcome{zel::TestResultImp::NODEVICE, String()};
  boost::shared_ptr<zel::IDeviceImp> current;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    current = m_current.deviceByGuid(device->guid());
  }
  // A device the timeline has taken away is not there to test.
  if (!current)
    return TestOutcome{zel::TestResultImp::NODEVICE, String()};
  ScriptRun run(context, *it->second.module, *it->second.test, *current);
  return run.run();
}

void SimulatedMachine::applyEntry(TimelineEntry const &entry, LiveUpdate &out) {
  using Kind = TimelineAction::Kind;
  // Additions and changes first, removals after, as the client applies them.
  for (TimelineAction const &a : entry.actions) {
    switch (a.kind) {
    case Kind::ADD_DEVICES:
      for (DeviceModel const &d : a.devices) {
        out.state.addDevice(boost::shared_ptr<zel::IDeviceImp>(new zel::IDeviceImp(*d.device)));
        m_current.addDevice(boost::shared_ptr<zel::IDeviceImp>(new zel::IDeviceImp(*d.device)));
        m_deviceSource[d.device->guid()] = d.source;
        if (d.heldBusy)
          m_busy.insert(d.device->guid());
        associateDevice(out.state, *d.device);
      }
      break;
    case Kind::SET_PROPERTIES: {
      auto device = m_current.deviceByGuid(a.deviceGuid);
      if (!device)
        break;
      auto partial = out.state.deviceByGuid(a.deviceGuid);
      if (!partial) {
        partial = identityOf(*device);
        out.state.addDevice(partial);
      }
      for (auto const &p : a.properties) {
        partial->setProperty(p);
        m_current.setProperty(a.deviceGuid, p);
      }
      break;
    }
    case Kind::SET_STATE: {
      auto device = m_current.deviceByGuid(a.deviceGuid);
      if (!device)
        break;
      device->setDeviceState(a.state);
      auto partial = out.state.deviceByGuid(a.deviceGuid);
      if (partial)
        partial->setDeviceState(a.state);
      else
        out.state.addDevice(identityOf(*device));
      break;
    }
    case Kind::SET_BUSY:
      if (a.busy)
        m_busy.insert(a.deviceGuid);
      else
        m_busy.erase(a.deviceGuid);
      break;
    case Kind::ADD_ALERT:
      out.state.addAlert(*a.alert);
      m_current.addAlert(*a.alert);
      break;
    default:
      break;
    }
  }
  for (TimelineAction const &a : entry.actions) {
    switch (a.kind) {
    case Kind::REMOVE_PROPERTY:
      out.deviceGuidsForPropertiesToRemove.append(a.deviceGuid);
      out.propertyKeysToRemove.append(a.key);
      m_current.removeProperty(a.deviceGuid, a.key);
      break;
    case Kind::REMOVE_DEVICE:
      out.deviceGuidsToRemove.append(a.deviceGuid);
      m_current.removeDevice(a.deviceGuid, nullptr, true);
      break;
    case Kind::REMOVE_ALERT:
      out.alertGuidsToRemove.append(a.key);
      m_current.removeAlert(a.key);
      break;
    default:
      break;
    }
  }
}

void SimulatedMachine::pollLiveUpdates(std::uint64_t sinceStartMs, std::vector<LiveUpdate> &out) {
  if (!m_model)
    return;
  std::lock_guard<std::mutex> lock(m_mutex);
  while (m_nextEntry < m_model->timeline.size() &&
         m_model->timeline[m_nextEntry].atMs <= sinceStartMs) {
    LiveUpdate update;
    applyEntry(m_model->timeline[m_nextEntry++], update);
    if (!update.isEmpty())
      out.push_back(std::move(update));
  }
}

bool SimulatedMachine::readIndicator(zel::IndicatorImp const &indicator, LiveUpdate &out) {
  auto it = m_indicators.find(indicator.guid());
  if (it == m_indicators.end() || it->second->readings.empty())
    return false;
  std::vector<IndicatorReading> const &readings = it->second->readings;
  std::lock_guard<std::mutex> lock(m_mutex);
  std::size_t &cursor = m_readingCursor[indicator.guid()];
  IndicatorReading const &reading = readings[cursor];
  cursor = (cursor + 1) % readings.size();
  auto device = m_current.deviceByGuid(reading.deviceGuid);
  if (!device)
    return false;
  auto partial = identityOf(*device);
  for (auto const &p : reading.properties) {
    partial->setProperty(p);
    m_current.setProperty(reading.deviceGuid, p);
  }
  out.state.addDevice(partial);
  return true;
}

bool SimulatedMachine::refresh(String const &deviceGuid, String const &propertyKey,
                               LiveUpdate &out) {
  std::lock_guard<std::mutex> lock(m_mutex);
  auto device = m_current.deviceByGuid(deviceGuid);
  if (!device)
    return false;
  if (propertyKey.isEmpty()) {
    out.state.addDevice(boost::shared_ptr<zel::IDeviceImp>(new zel::IDeviceImp(*device)));
    return true;
  }
  auto property = device->property(propertyKey);
  if (!property)
    return false;
  auto partial = identityOf(*device);
  partial->setProperty(property);
  out.state.addDevice(partial);
  return true;
}

void SimulatedMachine::setLanguage(String const &languageAndVariant) {
  // Descriptions carry one language; the names stay as written.
  std::lock_guard<std::mutex> lock(m_mutex);
  m_language = languageAndVariant;
}

// --- the factory functions ------------------------------------------------------------

namespace {

template <class Read>
std::unique_ptr<MachineProvider> makeMachine(String const &name, Read const &read) {
  try {
    return std::unique_ptr<MachineProvider>(new SimulatedMachine(name, read()));
  } catch (std::exception const &e) {
    return std::unique_ptr<MachineProvider>(new SimulatedMachine(name, String(e.what())));
  } catch (...) {
    return std::unique_ptr<MachineProvider>(
        new SimulatedMachine(name, String("the description could not be read")));
  }
}

} // namespace

std::unique_ptr<MachineProvider> createSimulatedMachine(String const &path) {
  return makeMachine("simulated machine " + baseName(path),
                     [&path] { return readMachineDescription(path); });
}

std::unique_ptr<MachineProvider> createSimulatedMachineFromText(String const &xml,
                                                                String const &name) {
  return makeMachine("simulated machine " + name,
                     [&xml, &name] { return readMachineDescriptionText(xml, name); });
}

} // namespace morvain
