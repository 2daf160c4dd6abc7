#pragma once
// The process-wide state of the client core that several source files share:
// the link singleton, the logging base directory, the global hook list and
// the once-only set-up steps.
//
// Every item lives as long as the process, except the link object, which is
// deleted at the end of each connection (destroyLink) and made anew by the
// next linkInstance(), so that it sees the current choice of
// setSeparateProcess.
//
// All functions are thread-safe.

#include <boost/shared_ptr.hpp>

#include "zel/Message.h"
#include "zel/String.h"

#include "zel/Array.h"

namespace zel {
class TestRunImp;
class TestRunManager;
class TestStateImp;
} // namespace zel

namespace ostrel5 {

class ClientToEngineLink;

namespace internal {

/// The link, made on first use under the link mutex: a
/// ClientToEngineIPCLink when the engine runs in a process of its own, a
/// ClientToEngineDirectLink otherwise. The first test takes no lock. The
/// pointer returned keeps the object alive while the caller uses it.
boost::shared_ptr<ClientToEngineLink> linkInstance();
/// The current link, or null; never makes one.
boost::shared_ptr<ClientToEngineLink> currentLink();
/// Forgets the link; the object is deleted when its last user lets go.
void destroyLink();

/// Wraps `message` (made with new) with a count of 1 and gives it to the
/// link's send. The caller keeps no reference.
void sendMessage(zel::Message *message);

/// Directory for log files, also given to the engine as its base
/// directory: "." until enableLogging changes it.
zel::String loggingBaseDirectory();
void setLoggingBaseDirectory(zel::String const &directory);

/// Makes the ClientMessageHandler, touches zel::StateManager::instance() and
/// clears the script runner, once per process.
void ensureClientObjects();

/// The process-wide zel::TestRunManager of the global hook list, made on
/// first use. (The hook list's script and test run observer arrays arrive
/// with those observer classes.)
zel::TestRunManager &processTestRunManager();

/// The runs of the process-wide manager whose state equals `state`, in the
/// manager's order: what testRuns() lists once the TestRun handle exists.
zel::Array<boost::shared_ptr<zel::TestRunImp>> testRunsInState(zel::TestStateImp const &state);

/// Sends one StopTestsClientToEngine for the runs of these GUIDs, in order,
/// with the TestResult sentinel as its result (also for an empty list); no
/// test of the connection. What stopTestRuns() sends once the TestRun
/// handle exists.
void sendStopTestRuns(zel::Array<zel::String> const &testRunGuids);

/// The once-only language selection that the first look-up, enumeration or
/// cache load of the process performs.
void setLanguageIfNeeded();

} // namespace internal
} // namespace ostrel5
