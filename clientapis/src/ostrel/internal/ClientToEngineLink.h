#pragma once
// ostrel5::ClientToEngineLink: the one road between the client and the
// diagnostics engine. Two concrete links exist: ClientToEngineDirectLink for
// an engine in this process and ClientToEngineIPCLink for an engine in a
// process of its own; nothing else in the client knows which one it has.
//
// The link sends zel::Message objects to the engine, and its pull thread
// ("PullThread") takes each message the engine sends and dispatches it to
// ClientMessageHandler::instance(). The thread is started by
// openConnectionInternal and stopped and joined by closeConnection; the
// destructor only destroys the thread object (which joins a thread that is
// still running).
//
// One link object exists at a time (internal::linkInstance); it is deleted
// at the end of each connection and made anew on next use.
//
// Threads: send may be called from any thread, the pull thread included;
// receive only from the pull thread. closeConnection must not run on the
// pull thread, as it joins it.

#include "zel/ManagedThread.h"
#include "zel/Message.h"
#include "zel/String.h"

namespace ostrel5 {

class DeviceCapability;

class ClientToEngineLink {
public:
  ClientToEngineLink();
  virtual ~ClientToEngineLink();

  ClientToEngineLink(ClientToEngineLink const &) = delete;
  ClientToEngineLink &operator=(ClientToEngineLink const &) = delete;

  /// Hands the message to the engine; the link becomes one of its owners.
  virtual void send(zel::MessageHandle message) = 0;
  /// The next message of the engine, waiting up to `timeoutMs`; the null
  /// handle when nothing came in time.
  virtual zel::MessageHandle receive(unsigned int timeoutMs) = 0;
  /// Connects: starts the pull thread and the engine (or logs in to one).
  /// `enumerate` asks for an enumeration of `capability` at start.
  virtual void openConnectionInternal(bool enumerate, DeviceCapability const &capability,
                                      bool startFlag, zel::String const &homePath, bool isFleeting,
                                      bool tryOnce) = 0;
  /// Disconnects and joins the pull thread; `shutdownEngine` asks the engine
  /// to end (an in-process engine always ends).
  virtual void closeConnection(bool shutdownEngine) = 0;
  virtual bool isConnected() = 0;
  /// The same answer as isConnected(); callers test this one before sending.
  virtual bool isEngineRunning() = 0;

protected:
  /// The body of the pull thread; see ClientToEngineLink.cpp.
  static int pullMessageRunner(zel::ManagedThread &thread);

  zel::ManagedThread pullThread;
};

} // namespace ostrel5
