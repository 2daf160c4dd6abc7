#include "ostrel/internal/PendingServices.h"

#include "zel/IAlertImp.h"
#include "zel/Logger.h"
#include "zel/Messages.h"
#include "zel/StateManager.h"

namespace ostrel5 {
namespace internal {

namespace {

zel::Logger &logger() {
  static zel::Logger &log = zel::LogFactory::getLogger("OSTREL-Global");
  return log;
}

} // namespace

// Diagnostic log. The process-wide diagnostic log keeps the record of an
// application run (start, stop, system information, enumeration outcomes,
// alerts) for its appenders. Until it exists there is nobody to tell.

void diagLogHandleAppStart() {}
void diagLogHandleAppStop() {}
void diagLogSystemInfo(zel::StateManager const &) {}
void diagLogHandleDeviceEnumerationCompleted(zel::String const &, unsigned int, double) {}
void diagLogHandleDeviceEnumerationFailed(zel::String const &, zel::String const &, double) {}
void diagLogHandleTestEnumerationCompleted(zel::String const &, unsigned int, double) {}
void diagLogHandleTestEnumerationFailed(zel::String const &, zel::String const &, double) {}
void diagLogHandleAlerts(zel::Array<boost::shared_ptr<zel::IAlertImp>> const &) {}
void diagLogHandleAlert(boost::shared_ptr<zel::IAlertImp> const &) {}

// Script runner. The runner holds at most one Script; without the Script
// object it holds none, so no script is ever active, and there is nothing
// to abort or to drop.

void resetScriptRunner() {}
bool scriptIsActive() { return false; }
void abortActiveScript() {}
void dropScript() {}

// Message box relay. Without message box observers no application can show
// a box: the caller then refuses the request to the engine, which is what
// happens with an application that registered no observer.

bool relayMessageBoxRequest(zel::MessageBox2RequestMessage const &) { return false; }
void relayMessageBoxCancel(zel::MessageBox2CancelMessage const &) {}

// Enumerator library. It supplies the alert that tells the user that the
// device enumeration failed; without it no alert is added, and the caller
// still reports the alerts that the mirror holds.

boost::shared_ptr<zel::IAlertImp> enumerationFailureAlert() {
  logger().log(3, "enumerationFailureAlert(): no enumerator library in this build, no alert added");
  return boost::shared_ptr<zel::IAlertImp>();
}

// Inter-process client. Finding an engine in another process means a login
// through the inter-process client; without it no such engine can be found.

bool separateEngineAnswersLogin() { return false; }

// Language selection. The process keeps the global locale it has until
// language selection is built.

void selectLanguage() {}

} // namespace internal
} // namespace ostrel5
