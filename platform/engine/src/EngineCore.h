#pragma once
// morvain::EngineCore: what the engine does with every client message,
// independent of the machine (a MachineProvider) and of the transport (two
// functions: receive the next client message, send one to the client).
//
// Threads of its own:
//   dispatch     reads client messages and handles each at once; it never
//                waits on the machine, so stops and answers to prompts are
//                seen while enumerations and tests run;
//   enumeration  one job at a time, in the order the requests came;
//   live         timeline changes, indicator readings, refresh requests;
//   one per run  the test's body, through a RunContext.
// Everything a run reports is sent from the run's own thread, so the client
// sees a run's reports in order and its EXITED report last.
//
// Shutdown (a ShutdownClientToEngine message, or shutdown() from outside):
// enumerations are told to give up, every active run is stopped with
// USERABORTED and ends with its EXITED report, indicators stop, the threads
// are joined. The core cannot be started again; make a new one.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "morvain/MachineProvider.h"
#include "zel/Message.h"
#include "zel/MessageHandler.h"
#include "zel/Messages.h"
#include "zel/TestRunManager.h"

namespace morvain {

class EngineCore : private zel::MessageHandler {
public:
  using Receive = std::function<zel::MessageHandle(unsigned int timeoutMs)>;
  using Send = std::function<void(zel::MessageHandle)>;

  struct Options {
    /// True for the engine executable: a simulated crash may end the process
    /// and the enumerated mirror is not written into this process's
    /// zel::StateManager::instance().
    bool separateProcess = false;
    /// The language of localized names, "en_US".
    zel::String languageAndVariant;
  };

  EngineCore(std::unique_ptr<MachineProvider> provider, Receive receive, Send send,
             Options const &options);
  /// Shuts down (see the header) when still running.
  ~EngineCore() override;
  EngineCore(EngineCore const &) = delete;
  EngineCore &operator=(EngineCore const &) = delete;

  /// Starts the threads. Returns once the dispatch thread reads messages.
  void start();
  /// Queues a device enumeration as if the client had asked for it.
  void enumerateAtStart(zel::CapabilityImp const &capability);
  /// Ends the engine as a shutdown message does and joins every thread,
  /// waiting at most `timeoutMs` for runs to end. True when everything
  /// ended in time.
  bool shutdown(unsigned int timeoutMs);
  /// True once a shutdown message was handled (or shutdown() called).
  bool shutdownRequested() const noexcept { return m_shutdown.load(); }
  /// Waits until a shutdown was requested; false on time-out.
  bool waitForShutdownRequest(unsigned int timeoutMs);

  /// Runs that have not ended yet (for tests and logs).
  std::size_t activeRunCount() const;

private:
  struct Run;
  class Context;
  struct IndicatorEntry;

  // ---- message handling (dispatch thread)
  HandlerReturn handleMessage(zel::SetInternetAccessAllowed const &) override;
  HandlerReturn handleMessage(zel::EnumerateDevicesClientToEngine const &) override;
  HandlerReturn handleMessage(zel::EnumerateTestsClientToEngine const &) override;
  HandlerReturn handleMessage(zel::EnumerateTestRunsClientToEngine const &) override;
  HandlerReturn handleMessage(zel::RunTestClientToEngine const &) override;
  HandlerReturn handleMessage(zel::StopTestsClientToEngine const &) override;
  HandlerReturn handleMessage(zel::ShutdownClientToEngine const &) override;
  HandlerReturn handleMessage(zel::SetLocaleMessage const &) override;
  HandlerReturn handleMessage(zel::RunIndicatorClientToEngine const &) override;
  HandlerReturn handleMessage(zel::PauseIndicatorClientToEngineToProvider const &) override;
  HandlerReturn handleMessage(zel::ResumeIndicatorClientToEngineToProvider const &) override;
  HandlerReturn handleMessage(zel::StopIndicatorClientToEngine const &) override;
  HandlerReturn handleMessage(zel::SetUpdateIntervalIndicatorClientToEngine const &) override;
  HandlerReturn handleMessage(zel::ForceUpdateIndicatorClientToEngine const &) override;
  HandlerReturn handleMessage(zel::RequestUpdateClientToEngineToIndicator const &) override;
  HandlerReturn handleMessage(zel::MessageBox2AckMessage const &) override;
  HandlerReturn handleMessage(zel::MessageBox2ResultMessage const &) override;
  HandlerReturn handleMessage(zel::UnknownMessage const &) override;

  void requestShutdown();
  std::shared_ptr<zel::StateManager const> mirror() const;
  void dispatchLoop();
  void enumerationLoop();
  void liveLoop();
  void post(std::function<void()> job);
  void send(zel::Message *message);
  void sendRun(zel::TestRunImp const &run, bool progress);

  // ---- enumeration (enumeration thread)
  void enumerateDevices(zel::CapabilityImp const &capability, bool force);
  void enumerateTests();
  void publishMirror(bool devicesChanged);

  // ---- runs
  void startRun(zel::TestRunImp const &requested);
  void runBody(std::shared_ptr<Run> const &run);
  void finishRun(std::shared_ptr<Run> const &run);
  void stopRun(zel::String const &guid, zel::TestResultImp const &result);
  void reapFinishedThreads(bool all);

  // ---- live (live thread)
  void liveTick(std::int64_t nowMs);
  void sendUpdate(LiveUpdate const &update);

  std::unique_ptr<MachineProvider> m_provider;
  Receive m_receive;
  Send m_send;
  Options m_options;

  std::atomic<bool> m_shutdown{false};
  std::atomic<bool> m_started{false};
  std::atomic<bool> m_joined{false};
  std::atomic<bool> m_internetAllowed{false};
  std::atomic<unsigned int> m_nextPromptId{1};
  mutable std::mutex m_lifeLock; // m_shutdown transitions and their waiters
  std::condition_variable m_lifeChanged;

  std::thread m_dispatchThread;
  std::thread m_enumerationThread;
  std::thread m_liveThread;

  // Enumeration jobs, in order.
  std::mutex m_jobLock;
  std::condition_variable m_jobReady;
  std::deque<std::function<void()>> m_jobs;

  // The engine's mirror: the last enumeration's devices and (once asked
  // for) modules and tests. Only the enumeration thread writes it.
  // The pointer changes under m_mirrorLock; a published mirror is never
  // changed again, so readers keep their copy of the pointer.
  mutable std::mutex m_mirrorLock;
  std::shared_ptr<zel::StateManager const> m_mirror;
  bool m_testsEnumerated = false;
  std::atomic<bool> m_devicesEnumerated{false};
  std::atomic<std::int64_t> m_liveEpochMs{0};

  // Runs: the active ones by guid, and every run's engine copy (active and
  // ended) for EnumerateTestRuns.
  mutable std::mutex m_runLock;
  std::condition_variable m_runEnded;
  std::map<zel::String, std::shared_ptr<Run>> m_active;
  std::vector<std::thread> m_finishedThreads;
  zel::TestRunManager m_runs;

  // Live work: indicators and refresh requests.
  std::mutex m_liveLock;
  std::condition_variable m_liveWake;
  std::map<zel::String, std::shared_ptr<IndicatorEntry>> m_indicators;
  std::deque<std::pair<zel::String, zel::String>> m_refreshRequests;
};

} // namespace morvain
