#include "ostrel/internal/ClientToEngineIPCLink.h"

#include "zel/Exception.h"
#include "zel/Logger.h"
#include "zel/MsgTypeId.h"

namespace ostrel5 {

namespace {

zel::Logger &logger() {
  static zel::Logger &log = zel::LogFactory::getLogger("libOstrel.IPCLink");
  return log;
}

} // namespace

ClientToEngineIPCLink::ClientToEngineIPCLink() = default;

ClientToEngineIPCLink::~ClientToEngineIPCLink() = default;

void ClientToEngineIPCLink::send(zel::MessageHandle message) {
  if (!message.isValid()) {
    logger().log(4, "NULL message");
    return;
  }
  logger().log(1, "send() sending: " + zel::toString(message->getType()));
  logger().log(3, "send(): not connected to a separate engine, message dropped: " +
                      zel::toString(message->getType()));
}

zel::MessageHandle ClientToEngineIPCLink::receive(unsigned int timeoutMs) {
  return m_incoming.pop(timeoutMs);
}

void ClientToEngineIPCLink::openConnectionInternal(bool, DeviceCapability const &, bool,
                                                   zel::String const &, bool, bool tryOnce) {
  if (isEngineRunning()) {
    logger().log(3, "openConnectionInternal() called when connection is already open");
    return;
  }
  logger().log(4, "openConnectionInternal(): this build has no inter-process client; "
                  "an engine in another process cannot be reached");
  if (tryOnce)
    throw zel::LoginFailed("ostrel::openConnection() -- Failed to connect to existing engine");
  throw zel::LoginFailed("ostrel::openConnection() -- Failed to connect to engine");
}

void ClientToEngineIPCLink::closeConnection(bool) {
  pullThread.cancel();
  pullThread.join();
}

bool ClientToEngineIPCLink::isConnected() { return false; }

bool ClientToEngineIPCLink::isEngineRunning() { return false; }

} // namespace ostrel5
