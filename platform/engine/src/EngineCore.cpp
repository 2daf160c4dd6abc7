#include "EngineCore.h"

#include <boost/make_shared.hpp>

#include <chrono>
#include <random>

#include "zel/Exception.h"
#include "zel/IndicatorRunImp.h"
#include "zel/Logger.h"
#include "zel/System.h"
#include "zel/TestImp.h"
#include "zel/TestRunEventImp.h"

namespace morvain {

using zel::String;
using zel::TestResultImp;
using zel::TestStateImp;

namespace {

zel::Logger &logger() { return zel::LogFactory::getLogger("Morvain.Engine"); }

std::int64_t nowMs() { return zel::System::getMonotonicMillis(); }

// Minimum and maximum times arrive in seconds; 0 and the 32-bit "not set"
// value (what a script without a limit passes on) both mean no limit.
std::uint64_t limitMs(std::uint64_t seconds) {
  if (seconds == 0 || seconds >= 0xFFFFFFFFull)
    return 0;
  return seconds * 1000;
}

// Waits are cut into slices of at most a second: the deadline may be "never"
// (a far-future value that a conversion to nanoseconds would overflow), and
// the loop checks its conditions again after every slice anyway.
std::int64_t waitSlice(std::int64_t remainingMs) {
  return std::min<std::int64_t>(1000, std::max<std::int64_t>(1, remainingMs));
}

String randomGuid() {
  thread_local std::mt19937_64 generator{std::random_device{}()};
  std::uint64_t a = generator(), b = generator();
  return String::format("%08x-%04x-4%03x-%04x-%012llx", unsigned(a >> 32),
                        unsigned(a >> 16) & 0xffff, unsigned(a) & 0xfff,
                        unsigned(0x8000 | ((b >> 48) & 0x3fff)),
                        static_cast<unsigned long long>(b & 0xffffffffffffull));
}

String describe(std::exception_ptr error) {
  try {
    std::rethrow_exception(error);
  } catch (zel::Exception const &e) {
    return e.toString();
  } catch (zel::StructuredException const &e) {
    return e.toString();
  } catch (std::exception const &e) {
    return String(e.what());
  } catch (...) {
    return String("unknown exception");
  }
}

// A provider call that threw: its one source failed with the exception's text.
SourceReport providerFailure(String const &name, std::int64_t beginMs, std::exception_ptr error) {
  SourceReport failed;
  failed.sourceName = name;
  failed.elapsedSeconds = double(nowMs() - beginMs) / 1000.0;
  failed.failed = true;
  failed.reason = describe(error);
  return failed;
}

// The in-process engine shares the client's mirror: after an enumeration
// it holds what the machine has now. Objects that stay are updated in
// place (handles on them stay live); what the machine no longer has goes.
void replaceMirror(zel::StateManager &target, zel::StateManager const &fresh, bool devices,
                   bool tests) {
  target.mergeWithTracking(fresh, nullptr);
  if (devices) {
    for (auto const &device : target.getDevices())
      if (!fresh.deviceByGuid(device->guid()))
        target.removeDevice(device->guid(), nullptr, true);
    for (auto const &alert : target.getAlerts())
      if (!fresh.alertByGuid(alert->guid()))
        target.removeAlert(alert->guid());
  }
  if (tests) {
    for (auto const &test : target.getTests())
      if (!fresh.testByGuid(test->guid()))
        target.removeTest(test->guid());
    for (auto const &module : target.getModules())
      if (!fresh.moduleByGuid(module->guid()))
        target.removeModule(module->guid());
  }
}

} // namespace

// One run as the engine holds it. `run` is the engine's copy; everything
// else is guarded by `lock`.
struct EngineCore::Run {
  boost::shared_ptr<zel::TestRunImp> run;
  String guid;
  String deviceGuid;
  bool parallel = false;
  bool interactive = false;
  std::int64_t startMs = 0;
  std::uint64_t minTimeMs = 0;
  std::uint64_t maxTimeMs = 0;

  std::mutex lock;
  std::condition_variable changed;
  bool stop = false;
  bool aborted = false; // stopped by a stop message or shutdown (not by time)
  TestResultImp stopResult = TestResultImp::USERABORTED;

  enum class Prompt { NONE, WAITING, ANSWERED, REFUSED };
  unsigned int promptId = 0;
  Prompt prompt = Prompt::NONE;
  zel::MessageBox2Result answer;

  std::thread thread;

  // Call with `lock` held.
  bool stopDue(std::int64_t now) {
    if (!stop && maxTimeMs != 0 && std::uint64_t(now - startMs) >= maxTimeMs) {
      stop = true;
      stopResult = TestResultImp::MAXTIMEEXCEEDED;
    }
    return stop;
  }
  // The moment the maximum time runs out, or far in the future.
  std::int64_t maxDeadline() const {
    return maxTimeMs != 0 ? startMs + std::int64_t(maxTimeMs) : INT64_MAX / 2;
  }
};

struct EngineCore::IndicatorEntry {
  zel::IndicatorRunImp run;
  std::int64_t intervalMs = 1000;
  std::int64_t nextDueMs = 0;
  std::int64_t pausedUntilMs = 0; // 0: until resumed
};

class EngineCore::Context : public RunContext {
public:
  Context(EngineCore &core, std::shared_ptr<Run> const &run) : m_core(core), m_run(run) {}

  zel::TestRunImp const &run() const override { return *m_run->run; }

  void progress(unsigned int percent, String const &text) override {
    m_run->run->setPercentComplete(percent);
    if (!text.isEmpty())
      m_run->run->setProgressInformation(text);
    stampElapsed();
    m_core.sendRun(*m_run->run, true);
  }

  void event(zel::TestRunEventImp const &event) override {
    auto *copy = new zel::TestRunEventImp(event);
    if (copy->device().isEmpty() && m_run->run->device())
      copy->setDevice(m_run->run->device()->guid());
    bool const error = copy->type() == zel::EventTypeImp::ERR;
    if (!m_run->run->addEvent(copy))
      return;
    if (error)
      m_run->run->setErrorCount(m_run->run->errorCount() + 1);
    stampElapsed();
    m_core.sendRun(*m_run->run, false);
  }

  void measurement(String const &name, double value, String const &unit) override {
    String module = m_run->run->test() ? m_run->run->test()->moduleGuid() : String("Morvain");
    zel::TestRunEventImp e(module, "measurement");
    e.setType(zel::EventTypeImp::INFORMATIVE);
    e.setMessage(String::format("%s: %.6g %s", name.c_str(), value, unit.c_str()));
    event(e);
  }

  bool stopRequested() const override {
    std::lock_guard<std::mutex> guard(m_run->lock);
    return m_run->stopDue(nowMs());
  }

  bool sleepFor(unsigned int ms, bool interruptible) override {
    std::int64_t const until = nowMs() + ms;
    std::unique_lock<std::mutex> guard(m_run->lock);
    for (;;) {
      std::int64_t const now = nowMs();
      if (interruptible && m_run->stopDue(now))
        return false;
      if (now >= until)
        return !(interruptible && m_run->stop);
      std::int64_t wake = until;
      if (interruptible)
        wake = std::min(wake, m_run->maxDeadline());
      m_run->changed.wait_for(guard, std::chrono::milliseconds(waitSlice(wake - now)));
    }
  }

  PromptOutcome prompt(zel::MessageBox2Request const &request, unsigned int timeoutMs,
                       zel::MessageBox2Result &answer) override {
    if (!m_run->run->promptingEnabled() || !m_run->run->msgBoxSupported())
      return PromptOutcome::REFUSED;
    unsigned int const id = m_core.m_nextPromptId.fetch_add(1);
    {
      std::lock_guard<std::mutex> guard(m_run->lock);
      m_run->promptId = id;
      m_run->prompt = Run::Prompt::WAITING;
    }
    m_core.send(new zel::MessageBox2RequestMessage(request, m_run->guid, id));

    std::int64_t const until = timeoutMs ? nowMs() + timeoutMs : INT64_MAX / 2;
    PromptOutcome outcome;
    {
      std::unique_lock<std::mutex> guard(m_run->lock);
      for (;;) {
        std::int64_t const now = nowMs();
        if (m_run->prompt == Run::Prompt::ANSWERED) {
          answer = m_run->answer;
          outcome = PromptOutcome::ANSWERED;
          break;
        }
        if (m_run->prompt == Run::Prompt::REFUSED) {
          outcome = PromptOutcome::REFUSED;
          break;
        }
        if (m_run->stopDue(now)) {
          outcome = PromptOutcome::STOPPED;
          break;
        }
        if (now >= until) {
          outcome = PromptOutcome::TIMED_OUT;
          break;
        }
        std::int64_t const wake = std::min(until, m_run->maxDeadline());
        m_run->changed.wait_for(guard, std::chrono::milliseconds(waitSlice(wake - now)));
      }
      m_run->prompt = Run::Prompt::NONE;
    }
    // The client may be showing the box: tell it that no answer is wanted.
    if (outcome == PromptOutcome::STOPPED || outcome == PromptOutcome::TIMED_OUT)
      m_core.send(new zel::MessageBox2CancelMessage(m_run->guid, id));
    return outcome;
  }

  bool separateProcess() const override { return m_core.m_options.separateProcess; }

private:
  void stampElapsed() {
    m_run->run->setElapsedTime(std::uint64_t(nowMs() - m_run->startMs) / 1000);
  }

  EngineCore &m_core;
  std::shared_ptr<Run> m_run;
};

// ------------------------------------------------------------------ lifecycle

EngineCore::EngineCore(std::unique_ptr<MachineProvider> provider, Receive receive, Send send,
                       Options const &options)
    : m_provider(std::move(provider)), m_receive(std::move(receive)), m_send(std::move(send)),
      m_options(options), m_mirror(std::make_shared<zel::StateManager>()) {
  if (!m_options.languageAndVariant.isEmpty())
    m_provider->setLanguage(m_options.languageAndVariant);
}

EngineCore::~EngineCore() { shutdown(10000); }

void EngineCore::start() {
  if (m_started.exchange(true))
    return;
  logger().log(2, String("engine starting on ") + m_provider->name());
  m_enumerationThread = std::thread([this] { enumerationLoop(); });
  m_liveThread = std::thread([this] { liveLoop(); });
  m_dispatchThread = std::thread([this] { dispatchLoop(); });
}

void EngineCore::enumerateAtStart(zel::CapabilityImp const &capability) {
  post([this, capability] { enumerateDevices(capability, false); });
}

bool EngineCore::waitForShutdownRequest(unsigned int timeoutMs) {
  std::unique_lock<std::mutex> guard(m_lifeLock);
  return m_lifeChanged.wait_for(guard, std::chrono::milliseconds(timeoutMs),
                                [this] { return m_shutdown.load(); });
}

bool EngineCore::shutdown(unsigned int timeoutMs) {
  requestShutdown();
  if (m_joined.load() || !m_started.load())
    return true;

  bool inTime;
  {
    std::unique_lock<std::mutex> guard(m_runLock);
    inTime = m_runEnded.wait_for(guard, std::chrono::milliseconds(timeoutMs),
                                 [this] { return m_active.empty(); });
  }
  if (!inTime) {
    // A test that does not notice its stop keeps this object alive: its
    // thread still uses it. The caller must not destroy the core then.
    logger().log(4, String::format("%u runs did not end within %u ms of the shutdown",
                                   unsigned(activeRunCount()), timeoutMs));
    return false;
  }
  if (m_joined.exchange(true))
    return true;
  if (m_dispatchThread.joinable() && m_dispatchThread.get_id() != std::this_thread::get_id())
    m_dispatchThread.join();
  if (m_enumerationThread.joinable())
    m_enumerationThread.join();
  if (m_liveThread.joinable())
    m_liveThread.join();
  reapFinishedThreads(true);
  logger().log(2, "engine stopped");
  return true;
}

void EngineCore::requestShutdown() {
  {
    std::lock_guard<std::mutex> guard(m_lifeLock);
    if (m_shutdown.exchange(true))
      return;
  }
  logger().log(2, "engine shutting down");
  {
    std::lock_guard<std::mutex> guard(m_runLock);
    for (auto &entry : m_active) {
      std::lock_guard<std::mutex> runGuard(entry.second->lock);
      if (!entry.second->stop) {
        entry.second->stop = true;
        entry.second->aborted = true;
        entry.second->stopResult = TestResultImp::USERABORTED;
      }
      entry.second->changed.notify_all();
    }
  }
  m_lifeChanged.notify_all();
  { std::lock_guard<std::mutex> guard(m_jobLock); }
  m_jobReady.notify_all();
  { std::lock_guard<std::mutex> guard(m_liveLock); }
  m_liveWake.notify_all();
}

std::shared_ptr<zel::StateManager const> EngineCore::mirror() const {
  std::lock_guard<std::mutex> guard(m_mirrorLock);
  return m_mirror;
}

std::size_t EngineCore::activeRunCount() const {
  std::lock_guard<std::mutex> guard(m_runLock);
  return m_active.size();
}

void EngineCore::post(std::function<void()> job) {
  {
    std::lock_guard<std::mutex> guard(m_jobLock);
    m_jobs.push_back(std::move(job));
  }
  m_jobReady.notify_one();
}

void EngineCore::send(zel::Message *message) { m_send(zel::MessageHandle(message)); }

void EngineCore::sendRun(zel::TestRunImp const &run, bool progress) {
  auto *message = new zel::TestProgressEngineToClient(run);
  // Only intermediate progress may be dropped under load; state changes,
  // events and the final report always arrive.
  message->setPriority(progress ? zel::Message::PROGRESS_PRIORITY : 0);
  send(message);
}

void EngineCore::dispatchLoop() {
  while (!m_shutdown.load()) {
    zel::MessageHandle message = m_receive(100);
    if (!message.isValid())
      continue;
    try {
      message->dispatchToHandler(*this);
    } catch (...) {
      logger().log(4, String("engine: handling a message failed: ") +
                          describe(std::current_exception()));
    }
  }
}

void EngineCore::enumerationLoop() {
  for (;;) {
    std::function<void()> job;
    {
      std::unique_lock<std::mutex> guard(m_jobLock);
      m_jobReady.wait(guard, [this] { return m_shutdown.load() || !m_jobs.empty(); });
      if (m_shutdown.load())
        return;
      job = std::move(m_jobs.front());
      m_jobs.pop_front();
    }
    try {
      job();
    } catch (...) {
      logger().log(4, String("engine: enumeration failed: ") + describe(std::current_exception()));
    }
  }
}

// ------------------------------------------------------------------ enumeration

void EngineCore::enumerateDevices(zel::CapabilityImp const &capability, bool force) {
  auto *inProgress = new zel::EnumerationInProgressEngineToClient();
  send(inProgress);
  auto cancelled = [this] { return m_shutdown.load(); };
  std::int64_t const begin = nowMs();
  std::unique_ptr<zel::StateManager> fresh(new zel::StateManager());
  std::vector<SourceReport> reports;
  try {
    reports = m_provider->enumerateDevices(capability, force, *fresh, cancelled);
  } catch (...) {
    fresh.reset(new zel::StateManager());
    reports.assign(1, providerFailure(m_provider->name(), begin, std::current_exception()));
  }
  for (auto const &report : reports) {
    if (report.failed) {
      logger().log(3, String("device enumeration source ") + report.sourceName +
                          " failed: " + report.reason);
      send(new zel::DeviceEnumerationFailed(report.sourceName, report.elapsedSeconds,
                                            report.reason));
    } else {
      if (!report.reason.isEmpty())
        logger().log(3, String("device enumeration source ") + report.sourceName +
                            " could not read: " + report.reason);
      send(new zel::DeviceEnumerationCompleted(report.sourceName, report.elapsedSeconds,
                                               report.count));
    }
  }
  if (m_shutdown.load())
    return;
  // Every answer carries the whole mirror: once tests are known they stay in
  // it, associated with the devices as they are now.
  if (m_testsEnumerated) {
    try {
      m_provider->enumerateTests(*fresh, cancelled);
    } catch (...) {
      logger().log(4, String("test enumeration after device enumeration failed: ") +
                          describe(std::current_exception()));
    }
  }
  {
    std::lock_guard<std::mutex> guard(m_mirrorLock);
    m_mirror = std::move(fresh);
  }
  m_devicesEnumerated.store(true);
  std::int64_t expected = 0;
  m_liveEpochMs.compare_exchange_strong(expected, nowMs());
  publishMirror(true);
}

void EngineCore::enumerateTests() {
  auto cancelled = [this] { return m_shutdown.load(); };
  // Tests are associated with devices: a client that asks for tests first
  // gets the devices enumerated on the way (without reports of their own).
  if (!m_devicesEnumerated.load()) {
    std::unique_ptr<zel::StateManager> devices(new zel::StateManager());
    try {
      m_provider->enumerateDevices(zel::CapabilityImp::ALL(), false, *devices, cancelled);
    } catch (...) {
      devices.reset(new zel::StateManager());
    }
    {
      std::lock_guard<std::mutex> guard(m_mirrorLock);
      m_mirror = std::move(devices);
    }
    m_devicesEnumerated.store(true);
    std::int64_t expected = 0;
    m_liveEpochMs.compare_exchange_strong(expected, nowMs());
  }
  std::unique_ptr<zel::StateManager> fresh(new zel::StateManager(*mirror()));
  for (auto const &test : fresh->getTests())
    fresh->removeTest(test->guid());
  for (auto const &module : fresh->getModules())
    fresh->removeModule(module->guid());

  std::int64_t const begin = nowMs();
  std::vector<SourceReport> reports;
  try {
    reports = m_provider->enumerateTests(*fresh, cancelled);
  } catch (...) {
    reports.assign(1, providerFailure(m_provider->name(), begin, std::current_exception()));
  }
  for (auto const &report : reports) {
    if (report.failed) {
      logger().log(3, String("test enumeration source ") + report.sourceName +
                          " failed: " + report.reason);
      send(new zel::TestEnumerationFailed(report.sourceName, report.elapsedSeconds, report.reason));
    } else {
      send(new zel::TestEnumerationCompleted(report.sourceName, report.elapsedSeconds,
                                             report.count));
    }
  }
  if (m_shutdown.load())
    return;
  {
    std::lock_guard<std::mutex> guard(m_mirrorLock);
    m_mirror = std::move(fresh);
  }
  m_testsEnumerated = true;
  publishMirror(false);
}

void EngineCore::publishMirror(bool devicesChanged) {
  auto const current = mirror();
  if (!m_options.separateProcess)
    replaceMirror(zel::StateManager::instance(), *current, devicesChanged, true);
  send(new zel::EnumerationReturnedFromEngine(*current));
}

// ------------------------------------------------------------------ messages

zel::MessageHandler::HandlerReturn
EngineCore::handleMessage(zel::SetInternetAccessAllowed const &message) {
  m_internetAllowed.store(message.allowed());
  return 1;
}

zel::MessageHandler::HandlerReturn
EngineCore::handleMessage(zel::EnumerateDevicesClientToEngine const &message) {
  m_internetAllowed.store(message.internetAccessAllowed());
  zel::CapabilityImp const capability = message.capability();
  bool const force = message.forceReEnum();
  post([this, capability, force] { enumerateDevices(capability, force); });
  return 1;
}

zel::MessageHandler::HandlerReturn
EngineCore::handleMessage(zel::EnumerateTestsClientToEngine const &) {
  post([this] { enumerateTests(); });
  return 1;
}

zel::MessageHandler::HandlerReturn
EngineCore::handleMessage(zel::EnumerateTestRunsClientToEngine const &message) {
  TestStateImp const wanted = message.testState();
  auto *manager = new zel::TestRunManager();
  for (auto const &run : m_runs.getTestRuns())
    if (wanted == TestStateImp::ALL || run->state() == wanted)
      manager->addTestRun(boost::make_shared<zel::TestRunImp>(*run));
  send(new zel::TestRunsReturnedEngineToClient(manager));
  return 1;
}

zel::MessageHandler::HandlerReturn
EngineCore::handleMessage(zel::RunTestClientToEngine const &message) {
  if (!message.hasTestRun()) {
    logger().log(4, "RunTestClientToEngine without a test run ignored");
    return 1;
  }
  startRun(message.getTestRun());
  return 1;
}

zel::MessageHandler::HandlerReturn
EngineCore::handleMessage(zel::StopTestsClientToEngine const &message) {
  TestResultImp result = message.result();
  if (!result.isValid())
    result = TestResultImp::USERABORTED;
  for (auto const &guid : message.testRunGuids())
    stopRun(guid, result);
  return 1;
}

zel::MessageHandler::HandlerReturn EngineCore::handleMessage(zel::ShutdownClientToEngine const &) {
  // Stops the runs and ends the loops; whoever owns the core joins them.
  requestShutdown();
  return 1;
}

zel::MessageHandler::HandlerReturn EngineCore::handleMessage(zel::SetLocaleMessage const &message) {
  zel::ZELLocale const &locale = message.locale();
  String language = locale.getLanguage().toString();
  if (!locale.getVariant().isEmpty())
    language += String("_") + locale.getVariant();
  m_provider->setLanguage(language);
  return 1;
}

zel::MessageHandler::HandlerReturn
EngineCore::handleMessage(zel::RunIndicatorClientToEngine const &message) {
  if (!message.hasIndicatorRun())
    return 1;
  auto entry = std::make_shared<IndicatorEntry>();
  entry->run = message.getIndicatorRun();
  if (entry->run.guid().isEmpty())
    entry->run.setGuid(randomGuid());
  entry->run.setPaused(false);
  entry->run.setStartTime(zel::System::getCurrentTimeStamp());
  unsigned int interval = entry->run.indicator().interval();
  if (auto known = mirror()->indicatorByGuid(entry->run.indicatorGuid()))
    if (interval == 0)
      interval = known->interval();
  entry->intervalMs = interval ? std::int64_t(interval) * 1000 : 1000;
  entry->nextDueMs = nowMs();

  // The client learns of running indicators from its mirror.
  LiveUpdate announce;
  announce.state.addIndicatorRun(entry->run);
  {
    std::lock_guard<std::mutex> guard(m_liveLock);
    m_indicators[entry->run.guid()] = entry;
  }
  sendUpdate(announce);
  m_liveWake.notify_all();
  return 1;
}

zel::MessageHandler::HandlerReturn
EngineCore::handleMessage(zel::PauseIndicatorClientToEngineToProvider const &message) {
  if (!message.hasIndicatorRun())
    return 1;
  LiveUpdate changed;
  {
    std::lock_guard<std::mutex> guard(m_liveLock);
    auto it = m_indicators.find(message.getIndicatorRun().guid());
    if (it == m_indicators.end())
      return 1;
    it->second->run.setPaused(true, message.idleTime());
    it->second->pausedUntilMs =
        message.idleTime() ? nowMs() + std::int64_t(message.idleTime()) * 1000 : 0;
    changed.state.addIndicatorRun(it->second->run);
  }
  sendUpdate(changed);
  return 1;
}

zel::MessageHandler::HandlerReturn
EngineCore::handleMessage(zel::ResumeIndicatorClientToEngineToProvider const &message) {
  if (!message.hasIndicatorRun())
    return 1;
  LiveUpdate changed;
  {
    std::lock_guard<std::mutex> guard(m_liveLock);
    auto it = m_indicators.find(message.getIndicatorRun().guid());
    if (it == m_indicators.end() || !it->second->run.isPaused())
      return 1;
    it->second->run.setPaused(false);
    it->second->pausedUntilMs = 0;
    it->second->nextDueMs = nowMs();
    changed.state.addIndicatorRun(it->second->run);
  }
  sendUpdate(changed);
  m_liveWake.notify_all();
  return 1;
}

zel::MessageHandler::HandlerReturn
EngineCore::handleMessage(zel::StopIndicatorClientToEngine const &message) {
  std::lock_guard<std::mutex> guard(m_liveLock);
  m_indicators.erase(message.indicatorRunGuid());
  return 1;
}

zel::MessageHandler::HandlerReturn
EngineCore::handleMessage(zel::SetUpdateIntervalIndicatorClientToEngine const &message) {
  std::lock_guard<std::mutex> guard(m_liveLock);
  auto it = m_indicators.find(message.indicatorRunGuid());
  if (it != m_indicators.end()) {
    it->second->intervalMs =
        message.intervalSeconds() ? std::int64_t(message.intervalSeconds()) * 1000 : 1000;
    it->second->nextDueMs = std::min(it->second->nextDueMs, nowMs() + it->second->intervalMs);
  }
  return 1;
}

zel::MessageHandler::HandlerReturn
EngineCore::handleMessage(zel::ForceUpdateIndicatorClientToEngine const &message) {
  {
    std::lock_guard<std::mutex> guard(m_liveLock);
    auto it = m_indicators.find(message.indicatorRunGuid());
    if (it != m_indicators.end())
      it->second->nextDueMs = nowMs();
  }
  m_liveWake.notify_all();
  return 1;
}

zel::MessageHandler::HandlerReturn
EngineCore::handleMessage(zel::RequestUpdateClientToEngineToIndicator const &message) {
  {
    std::lock_guard<std::mutex> guard(m_liveLock);
    m_refreshRequests.emplace_back(message.deviceGuid(), message.propertyKey());
  }
  m_liveWake.notify_all();
  return 1;
}

zel::MessageHandler::HandlerReturn
EngineCore::handleMessage(zel::MessageBox2AckMessage const &message) {
  if (message.handled())
    return 1;
  std::lock_guard<std::mutex> guard(m_runLock);
  auto it = m_active.find(message.testRunGuid());
  if (it == m_active.end())
    return 1;
  std::lock_guard<std::mutex> runGuard(it->second->lock);
  if (it->second->promptId == message.getUniqueId() && it->second->prompt == Run::Prompt::WAITING) {
    it->second->prompt = Run::Prompt::REFUSED;
    it->second->changed.notify_all();
  }
  return 1;
}

zel::MessageHandler::HandlerReturn
EngineCore::handleMessage(zel::MessageBox2ResultMessage const &message) {
  std::lock_guard<std::mutex> guard(m_runLock);
  auto it = m_active.find(message.testRunGuid());
  if (it == m_active.end())
    return 1;
  std::lock_guard<std::mutex> runGuard(it->second->lock);
  if (it->second->promptId == message.getUniqueId() && it->second->prompt == Run::Prompt::WAITING) {
    it->second->answer = message.result();
    it->second->prompt = Run::Prompt::ANSWERED;
    it->second->changed.notify_all();
  }
  return 1;
}

zel::MessageHandler::HandlerReturn EngineCore::handleMessage(zel::UnknownMessage const &message) {
  logger().log(3, String("engine ignores a message of unknown type ") +
                      String::format("%u", message.unknownTypeId()));
  return 1;
}

// ------------------------------------------------------------------ runs

void EngineCore::startRun(zel::TestRunImp const &requested) {
  auto copy = boost::make_shared<zel::TestRunImp>(requested);
  String const guid = copy->guid();

  // A run that cannot start ends at once with a single EXITED report.
  auto endAtOnce = [&](TestResultImp const &result, String const &why) {
    if (!why.isEmpty())
      logger().log(3, String("run ") + guid + ": " + why);
    copy->setFinalResult(result);
    copy->setState(TestStateImp::EXITED);
    m_runs.addTestRun(copy);
    sendRun(*copy, false);
  };

  std::lock_guard<std::mutex> guard(m_runLock);
  reapFinishedThreads(false);
  if (m_shutdown.load())
    return endAtOnce(TestResultImp::USERABORTED, "the engine is shutting down");
  if (m_active.count(guid))
    return endAtOnce(TestResultImp::DUPLICATEGUID, "a run of this guid is still active");
  if (copy->hasForcedResult())
    return endAtOnce(copy->forcedResult(), String());
  auto const test = copy->test();
  auto const device = copy->device();
  if (!test)
    return endAtOnce(TestResultImp::NOTEST, "the run names no test");
  if (!device)
    return endAtOnce(TestResultImp::NODEVICE, "the run names no device");

  String const deviceGuid = device->guid();
  bool busy = m_provider->deviceHeldBusy(deviceGuid);
  for (auto const &entry : m_active) {
    if (busy)
      break;
    Run const &other = *entry.second;
    if (other.deviceGuid == deviceGuid && !(other.parallel && test->supportsParallelTesting()))
      busy = true;
  }
  if (busy)
    return endAtOnce(TestResultImp::DEVICETESTINGBLOCKED, String());

  auto run = std::make_shared<Run>();
  run->run = copy;
  run->guid = guid;
  run->deviceGuid = deviceGuid;
  run->parallel = test->supportsParallelTesting();
  run->interactive = test->isInteractive();
  run->minTimeMs = limitMs(copy->minTime());
  run->maxTimeMs = limitMs(copy->maxTime());
  run->startMs = nowMs();
  m_active[guid] = run;
  m_runs.addTestRun(copy);
  // Started under m_runLock: finishRun takes it too, so the thread object is
  // in place before the run can hand it over for joining.
  run->thread = std::thread([this, run] { runBody(run); });
}

void EngineCore::runBody(std::shared_ptr<Run> const &run) {
  zel::TestRunImp &imp = *run->run;
  imp.setBeginningTime(zel::System::getCurrentTimeMillis());
  imp.setClientPID(zel::System::getProcessId());
  imp.setState(TestStateImp::INITIALIZING);
  imp.setFinalResult(TestResultImp::TESTNOTSTARTED);
  sendRun(imp, false);
  imp.setState(TestStateImp::RUNNING);
  imp.setFinalResult(TestResultImp::TESTINGINPROGRESS);
  imp.setPercentComplete(0);
  sendRun(imp, false);

  Context context(*this, run);
  TestOutcome outcome{TestResultImp::PASS, String()};
  try {
    // A minimum time keeps a non-interactive test testing: the body runs
    // again while it passes and the time is not over.
    for (;;) {
      outcome = m_provider->runTest(context);
      if (run->interactive || run->minTimeMs == 0 || outcome.result != TestResultImp::PASS ||
          context.stopRequested() || std::uint64_t(nowMs() - run->startMs) >= run->minTimeMs)
        break;
    }
  } catch (...) {
    String const why = describe(std::current_exception());
    logger().log(4, String("run ") + run->guid + " failed: " + why);
    zel::TestRunEventImp event(imp.test() ? imp.test()->moduleGuid() : String("Morvain"),
                               "exception");
    event.setType(zel::EventTypeImp::ERR);
    event.setMessage(String("The test stopped with an error: ") + why);
    context.event(event);
    outcome = TestOutcome{TestResultImp::INTERNALERROR, String()};
  }

  bool aborted = false;
  {
    std::lock_guard<std::mutex> guard(run->lock);
    if (run->stopDue(nowMs())) {
      outcome.result = run->stopResult;
      aborted = run->aborted;
    }
  }
  if (aborted) {
    imp.setState(TestStateImp::ABORTING);
    sendRun(imp, false);
  }
  if (outcome.result == TestResultImp::PASS || outcome.result == TestResultImp::COMPLETED)
    imp.setPercentComplete(100);
  imp.setFinalResult(outcome.result);
  if (!outcome.errorCode.isEmpty())
    imp.setErrorCode(outcome.errorCode);
  imp.setElapsedTime(std::uint64_t(nowMs() - run->startMs) / 1000);
  imp.setEstimatedTimeLeft(0);
  imp.setState(TestStateImp::EXITED);
  finishRun(run);
}

void EngineCore::finishRun(std::shared_ptr<Run> const &run) {
  std::lock_guard<std::mutex> guard(m_runLock);
  // Sent under the lock so that a stop for this guid either reaches the run
  // before its final report or finds it gone and answers for it after.
  sendRun(*run->run, false);
  m_active.erase(run->guid);
  m_finishedThreads.push_back(std::move(run->thread));
  m_runEnded.notify_all();
}

void EngineCore::stopRun(String const &guid, TestResultImp const &result) {
  std::lock_guard<std::mutex> guard(m_runLock);
  auto it = m_active.find(guid);
  if (it != m_active.end()) {
    std::lock_guard<std::mutex> runGuard(it->second->lock);
    if (!it->second->stop) {
      it->second->stop = true;
      it->second->aborted = true;
      it->second->stopResult = result;
    }
    it->second->changed.notify_all();
    return;
  }
  // Unknown or already ended: the client waits for an EXITED report all the
  // same. A run the engine knows keeps its own final result; an unknown one
  // is answered with the stop's result.
  if (auto known = m_runs.testRunByGuid(guid)) {
    sendRun(*known, false);
    return;
  }
  zel::TestRunImp answer;
  answer.setGuid(guid);
  answer.setFinalResult(result);
  answer.setState(TestStateImp::EXITED);
  sendRun(answer, false);
}

void EngineCore::reapFinishedThreads(bool all) {
  std::vector<std::thread> threads;
  if (all) {
    std::lock_guard<std::mutex> guard(m_runLock);
    threads.swap(m_finishedThreads);
  } else {
    threads.swap(m_finishedThreads); // caller holds m_runLock
  }
  for (auto &thread : threads)
    if (thread.joinable())
      thread.join();
}

// ------------------------------------------------------------------ live

void EngineCore::liveLoop() {
  while (!m_shutdown.load()) {
    {
      std::unique_lock<std::mutex> guard(m_liveLock);
      m_liveWake.wait_for(guard, std::chrono::milliseconds(50),
                          [this] { return m_shutdown.load() || !m_refreshRequests.empty(); });
    }
    if (m_shutdown.load())
      return;
    try {
      liveTick(nowMs());
    } catch (...) {
      logger().log(4, String("engine: live update failed: ") + describe(std::current_exception()));
    }
  }
}

void EngineCore::liveTick(std::int64_t now) {
  std::deque<std::pair<String, String>> requests;
  std::vector<std::shared_ptr<IndicatorEntry>> due;
  {
    std::lock_guard<std::mutex> guard(m_liveLock);
    requests.swap(m_refreshRequests);
    for (auto &entry : m_indicators) {
      IndicatorEntry &indicator = *entry.second;
      if (indicator.run.isPaused()) {
        if (indicator.pausedUntilMs == 0 || now < indicator.pausedUntilMs)
          continue;
        indicator.run.setPaused(false);
        indicator.pausedUntilMs = 0;
      }
      if (now >= indicator.nextDueMs) {
        indicator.nextDueMs = now + indicator.intervalMs;
        due.push_back(entry.second);
      }
    }
  }
  for (auto const &request : requests) {
    LiveUpdate update;
    if (m_provider->refresh(request.first, request.second, update))
      sendUpdate(update);
    else
      logger().log(3, String("refresh of unknown device ") + request.first + " ignored");
  }
  if (m_devicesEnumerated.load()) {
    std::vector<LiveUpdate> updates;
    m_provider->pollLiveUpdates(std::uint64_t(now - m_liveEpochMs.load()), updates);
    for (auto const &update : updates)
      sendUpdate(update);
  }
  for (auto const &entry : due) {
    LiveUpdate update;
    if (m_provider->readIndicator(entry->run.indicator(), update))
      sendUpdate(update);
  }
}

void EngineCore::sendUpdate(LiveUpdate const &update) {
  send(new zel::UpdatesProviderToEngineToUI(
      update.state, update.deviceGuidsToRemove, update.deviceGuidsForPropertiesToRemove,
      update.propertyKeysToRemove, update.alertGuidsToRemove));
}

} // namespace morvain
