#pragma once
// ostrel5::ClientToEngineIPCLink: the link to an engine that runs in a
// process of its own, chosen when zel::ProcessLinkConfigurator says
// separateProcess().
//
// This build has no inter-process client library, so an engine in another
// process cannot be reached: openConnectionInternal logs why and throws
// zel::LoginFailed with the words a failed login gives, and the link never
// counts as connected. What does not depend on the transport is in place:
// the incoming queue that the pull thread reads, and the handling of a null
// message in send. The login, the engine start, the receive callback and the
// shutdown of the engine process arrive with the inter-process client.
//
// Threads: see ClientToEngineLink.

#include "ostrel/internal/ClientToEngineLink.h"
#include "zel/ProcessLinkConfigurator.h"

namespace ostrel5 {

class ClientToEngineIPCLink : public ClientToEngineLink {
public:
  ClientToEngineIPCLink();
  ~ClientToEngineIPCLink() override;

  /// A null message is logged ("NULL message") and dropped; without a
  /// connection any other message is logged and dropped as well.
  void send(zel::MessageHandle message) override;
  /// The next message of the incoming queue, waiting up to `timeoutMs`.
  zel::MessageHandle receive(unsigned int timeoutMs) override;
  /// Throws zel::LoginFailed: "ostrel::openConnection() -- Failed to connect
  /// to existing engine" with `tryOnce`, "ostrel::openConnection() -- Failed
  /// to connect to engine" otherwise.
  void openConnectionInternal(bool enumerate, DeviceCapability const &capability, bool startFlag,
                              zel::String const &homePath, bool isFleeting, bool tryOnce) override;
  /// Stops and joins the pull thread. No engine process is known, so
  /// `shutdownEngine` has nothing to end.
  void closeConnection(bool shutdownEngine) override;
  /// Always false in this build.
  bool isConnected() override;
  bool isEngineRunning() override;

private:
  // Messages that have arrived and wait for the pull thread.
  zel::ProcessLinkConfigurator::Queue m_incoming;
};

} // namespace ostrel5
