#pragma once
// ostrel5::ClientToEngineDirectLink: the link to an engine that runs inside
// this process (the Morvain library, loaded on first use).
//
// Messages travel as objects through the in-process queue pair of
// zel::ProcessLinkConfigurator. Every message sent carries the fixed
// identity of the one in-process client: id 255, name "none".
//
// States: created (not connected, no thread); running (connected, thread
// pulling) after a successful engine start; failed (not connected, thread
// pulling) when the engine did not start; closed (not connected, thread
// joined) after closeConnection. The engine always goes down with the link.
//
// Threads: see ClientToEngineLink. isConnected() may be read from any thread.

#include <atomic>

#include "ostrel/internal/ClientToEngineLink.h"

namespace ostrel5 {

class ClientToEngineDirectLink : public ClientToEngineLink {
public:
  ClientToEngineDirectLink();
  ~ClientToEngineDirectLink() override;

  /// A null message is an assertion failure.
  void send(zel::MessageHandle message) override;
  zel::MessageHandle receive(unsigned int timeoutMs) override;
  /// Starts the pull thread, then the engine (startEngine of the engine
  /// library, with the logging base directory and the global locale).
  /// Only `enumerate`, `capability` and `startFlag` matter here. Throws
  /// nothing: an engine that does not start leaves the link not connected.
  void openConnectionInternal(bool enumerate, DeviceCapability const &capability, bool startFlag,
                              zel::String const &homePath, bool isFleeting, bool tryOnce) override;
  /// Sends ShutdownClientToEngine, tells the engine library, and joins the
  /// pull thread. The argument is ignored: an in-process engine always ends.
  void closeConnection(bool shutdownEngine) override;
  bool isConnected() override;
  bool isEngineRunning() override;

private:
  std::atomic<bool> connected{false};
};

} // namespace ostrel5
