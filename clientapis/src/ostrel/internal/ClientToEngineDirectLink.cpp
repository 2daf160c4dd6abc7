#include "ostrel/internal/ClientToEngineDirectLink.h"

#include "ostrel/DeviceCapability.h"
#include "ostrel/internal/ClientGlobals.h"
#include "ostrel/internal/EngineLibrary.h"
#include "zel/AssertionFailure.h"
#include "zel/Messages.h"
#include "zel/ProcessLinkConfigurator.h"
#include "zel/ZELLocale.h"

namespace ostrel5 {

namespace {

// The fixed identity of the one in-process client.
unsigned int const IN_PROCESS_CLIENT_ID = 255;
char const IN_PROCESS_CLIENT_NAME[] = "none";

} // namespace

ClientToEngineDirectLink::ClientToEngineDirectLink() = default;

ClientToEngineDirectLink::~ClientToEngineDirectLink() = default;

void ClientToEngineDirectLink::send(zel::MessageHandle msg) {
  ZEL_ASSERT(msg.isValid() && "msg must not be NULL");
  msg->setClientID(IN_PROCESS_CLIENT_ID);
  msg->setClientName(IN_PROCESS_CLIENT_NAME);
  zel::ProcessLinkConfigurator::instance().sendMessageClientToEngine(msg);
}

zel::MessageHandle ClientToEngineDirectLink::receive(unsigned int timeoutMs) {
  return zel::ProcessLinkConfigurator::instance().receiveMessageClientFromEngine(timeoutMs);
}

// The pull thread starts before the engine, so that nothing the engine says
// at start waits for a reader.
void ClientToEngineDirectLink::openConnectionInternal(bool enumerate,
                                                      DeviceCapability const &capability,
                                                      bool startFlag, zel::String const &, bool,
                                                      bool) {
  pullThread.run("PullThread");
  zel::ZELLocale const locale = zel::ZELLocale::getGlobalLocale();
  zel::String const enumerateCapability = enumerate ? capability.toString() : zel::String();
  zel::String const languageAndVariant =
      locale.getLanguage().toString() + "_" + locale.getVariant();
  connected = internal::startEngine(internal::loggingBaseDirectory(), languageAndVariant,
                                    locale.getCustomer(), enumerateCapability, startFlag, true);
}

void ClientToEngineDirectLink::closeConnection(bool) {
  send(zel::MessageHandle(new zel::ShutdownClientToEngine()));
  internal::engineIsDone(true);
  connected = false;
  pullThread.cancel();
  pullThread.join();
}

bool ClientToEngineDirectLink::isConnected() { return connected; }

bool ClientToEngineDirectLink::isEngineRunning() { return connected; }

} // namespace ostrel5
