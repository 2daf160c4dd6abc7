#pragma once
// The calls that the client core makes into services of the library that do
// not exist yet in this build: the process-wide diagnostic log
// (zel::DiagLog), the script runner, the message box relay, the
// enumeration-failure alert of the enumerator library, the probe for an
// engine in another process (inter-process client) and language selection.
//
// Each function does exactly the part that can be done today and is the one
// place to change when its service arrives; none of them invents a result.
// Where a service would answer a question, the answer given is the one that
// is true while the service is absent (no script is held, so none runs; no
// inter-process client, so no separate engine can be found; no relay, so no
// box is shown).

#include <boost/shared_ptr.hpp>

#include "zel/Array.h"
#include "zel/String.h"

namespace zel {
class IAlertImp;
class MessageBox2CancelMessage;
class MessageBox2RequestMessage;
class StateManager;
} // namespace zel

namespace ostrel5 {
namespace internal {

// --- diagnostic log: no process-wide diagnostic log yet; these record nothing.
void diagLogHandleAppStart();
void diagLogHandleAppStop();
void diagLogSystemInfo(zel::StateManager const &state);
void diagLogHandleDeviceEnumerationCompleted(zel::String const &sourceName, unsigned int count,
                                             double elapsed);
void diagLogHandleDeviceEnumerationFailed(zel::String const &sourceName, zel::String const &reason,
                                          double elapsed);
void diagLogHandleTestEnumerationCompleted(zel::String const &sourceName, unsigned int count,
                                           double elapsed);
void diagLogHandleTestEnumerationFailed(zel::String const &sourceName, zel::String const &reason,
                                        double elapsed);
void diagLogHandleAlerts(zel::Array<boost::shared_ptr<zel::IAlertImp>> const &alerts);
void diagLogHandleAlert(boost::shared_ptr<zel::IAlertImp> const &alert);

// --- script runner: no Script object yet, so the runner never holds one.
/// Clears the runner's script pointer (part of the client objects' set-up).
void resetScriptRunner();
/// Whether the runner holds a script whose state is not EXITED.
bool scriptIsActive();
/// Aborts the held script synchronously when it is active.
void abortActiveScript();
/// Drops the held script (a forced re-enumeration invalidates it).
void dropScript();

// --- message box relay.
/// Offers the request to the application's message box observers; true
/// when one of them will show it.
bool relayMessageBoxRequest(zel::MessageBox2RequestMessage const &message);
/// Tells the application's message box observers that a box is withdrawn.
void relayMessageBoxCancel(zel::MessageBox2CancelMessage const &message);

// --- enumerator library.
/// The alert that reports a failed device enumeration; empty while the
/// enumerator library is absent.
boost::shared_ptr<zel::IAlertImp> enumerationFailureAlert();

// --- inter-process client.
/// Whether an engine in another process answers a login.
bool separateEngineAnswersLogin();

// --- language selection.
/// Chooses the language of the process's display texts.
void selectLanguage();

} // namespace internal
} // namespace ostrel5
