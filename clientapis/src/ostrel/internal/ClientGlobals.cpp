#include "ostrel/internal/ClientGlobals.h"

#include <atomic>
#include <mutex>

#include "ostrel/ClientMessageHandler.h"
#include "ostrel/internal/ClientToEngineDirectLink.h"
#include "ostrel/internal/ClientToEngineIPCLink.h"
#include "ostrel/internal/PendingServices.h"
#include "zel/Messages.h"
#include "zel/Mutex.h"
#include "zel/ProcessLinkConfigurator.h"
#include "zel/StateManager.h"
#include "zel/TestResultImp.h"
#include "zel/TestRunImp.h"
#include "zel/TestRunManager.h"
#include "zel/TestStateImp.h"

namespace ostrel5 {
namespace internal {

namespace {

// Guards the creation of the link object (and its replacement).
zel::mutex linkMutex;
// The link. Read without linkMutex through the atomic shared_ptr functions,
// so that a reader never sees a half-made pointer and a link that is being
// forgotten stays alive for whoever still uses it. The holder is never
// destroyed: a link still open at exit is not torn down behind the engine.
boost::shared_ptr<ClientToEngineLink> &linkHolder() {
  static boost::shared_ptr<ClientToEngineLink> *holder =
      new boost::shared_ptr<ClientToEngineLink>();
  return *holder;
}

zel::mutex loggingDirectoryMutex;

zel::String &loggingDirectoryStorage() {
  static zel::String *directory = new zel::String(".");
  return *directory;
}

} // namespace

boost::shared_ptr<ClientToEngineLink> linkInstance() {
  boost::shared_ptr<ClientToEngineLink> current = boost::atomic_load(&linkHolder());
  if (current)
    return current;
  zel::MutexGuard guard(linkMutex);
  current = boost::atomic_load(&linkHolder());
  if (current)
    return current;
  if (zel::ProcessLinkConfigurator::instance().separateProcess())
    current.reset(new ClientToEngineIPCLink());
  else
    current.reset(new ClientToEngineDirectLink());
  boost::atomic_store(&linkHolder(), current);
  return current;
}

boost::shared_ptr<ClientToEngineLink> currentLink() { return boost::atomic_load(&linkHolder()); }

void destroyLink() {
  zel::MutexGuard guard(linkMutex);
  boost::atomic_store(&linkHolder(), boost::shared_ptr<ClientToEngineLink>());
}

void sendMessage(zel::Message *message) { linkInstance()->send(zel::MessageHandle(message)); }

zel::String loggingBaseDirectory() {
  zel::MutexGuard guard(loggingDirectoryMutex);
  return loggingDirectoryStorage();
}

void setLoggingBaseDirectory(zel::String const &directory) {
  zel::MutexGuard guard(loggingDirectoryMutex);
  loggingDirectoryStorage() = directory;
}

void ensureClientObjects() {
  static std::once_flag once;
  std::call_once(once, [] {
    ClientMessageHandler::instance();
    zel::StateManager::instance();
    resetScriptRunner();
  });
}

zel::TestRunManager &processTestRunManager() {
  // Lives as long as the process: test runs may still be looked up while
  // other static objects are destroyed.
  static zel::TestRunManager *manager = new zel::TestRunManager();
  return *manager;
}

zel::Array<boost::shared_ptr<zel::TestRunImp>> testRunsInState(zel::TestStateImp const &state) {
  zel::Array<boost::shared_ptr<zel::TestRunImp>> kept;
  for (boost::shared_ptr<zel::TestRunImp> const &run : processTestRunManager().getTestRuns())
    if (run && run->state() == state)
      kept.append(run);
  return kept;
}

void sendStopTestRuns(zel::Array<zel::String> const &testRunGuids) {
  auto *message = new zel::StopTestsClientToEngine(zel::TestResultImp(
      static_cast<zel::TestResultImp::TestResult_ENUM>(zel::TestResultImp::table().count)));
  for (zel::String const &guid : testRunGuids)
    message->addTestRunGuid(guid);
  sendMessage(message);
}

void setLanguageIfNeeded() {
  static std::once_flag once;
  std::call_once(once, [] { selectLanguage(); });
}

} // namespace internal
} // namespace ostrel5
