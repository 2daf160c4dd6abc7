#pragma once
// zel::Message: the base of everything client and engine say to each other.
//
// Ownership. A message is made with new, wrapped in a zel::MessageHandle
// (a SharedResource whose count changes under a lock, so copies may live on
// different threads) and handed over by value; the last holder deletes it.
// clone() gives a deep copy in a zel::MessageTransfer, whose copy moves.
//
// Base fields, encoded with every message:
//   client id    unsigned int; 255 for the one in-process client, the
//                connection identifier for a client in another process
//   client name  "none" for the in-process client
//   priority     short; 0 by default. Negative marks an intermediate progress
//                notice that a queue under load may drop (PROGRESS_PRIORITY);
//                everything else is always delivered.
//
// Virtual operations, in this order: clone, copyBaseValues, log, destructor,
// getType, dispatchToHandler. Each concrete class overrides clone, the
// destructor, getType and dispatchToHandler (ZEL_MESSAGE_CLASS below);
// copyBaseValues and log are this class's.
//
// A message is thread-compatible: reading one from several threads is safe,
// changing it while another thread reads it is not. Messages are not changed
// once they are sent, apart from the sending link stamping the base fields.

#include "zel/MessageHandler.h"
#include "zel/MsgTypeId.h"
#include "zel/Resources.h"
#include "zel/String.h"

namespace zel {

class Message;
using MessageStorage = PointerStorage<Message, 0, 3>;
/// A shared message, the count under a lock.
using MessageHandle = SharedResource<MessageStorage, 1>;
/// A message with one owner; copying moves it.
using MessageTransfer = TransferResource<MessageStorage>;

/// Makes, encodes and describes messages of every class; befriended by them
/// all so that it can build an empty message and fill its fields.
struct MessageCatalogue;

class Message {
public:
  /// The priority of a progress notice that may be dropped under load.
  static constexpr short PROGRESS_PRIORITY = -1;

  Message();

  /// A deep copy: payloads are copied, not shared.
  virtual MessageTransfer clone() const;
  /// Copies client id, client name and priority of `other`.
  virtual void copyBaseValues(Message const &other);
  /// Writes `prefix` followed by toString(verbose) at priority 2 on the
  /// logger "zel.Message".
  virtual void log(String const &prefix, bool verbose) const;
  virtual ~Message();
  virtual MsgTypeId getType() const;
  /// Calls handler.handleMessage(*this) with this object's own class.
  virtual MessageHandler::HandlerReturn dispatchToHandler(MessageHandler &handler) const;

  unsigned int clientID() const noexcept { return m_clientId; }
  void setClientID(unsigned int id) noexcept { m_clientId = id; }
  String const &clientName() const noexcept { return m_clientName; }
  void setClientName(String const &name) { m_clientName = name; }
  short priority() const noexcept { return m_priority; }
  void setPriority(short priority) noexcept { m_priority = priority; }

  /// One line: the class name, the base fields and the class's own fields,
  /// "TestEnumerationFailed client=255 name=\"none\" priority=0
  /// sourceName=\"pci\" elapsed=0.25 reason=\"timeout\"". Texts are quoted
  /// with control characters escaped, so the line stays one line. `verbose`
  /// writes payloads (mirror, test runs) in full instead of a summary.
  String toString(bool verbose = false) const;

protected:
  Message(Message const &) = default;
  Message &operator=(Message const &) = delete;

private:
  friend struct MessageCatalogue;
  unsigned int m_clientId = 0;
  String m_clientName;
  short m_priority = 0;
};

} // namespace zel

/// The overrides every concrete message class declares. Leaves the class
/// body in private access.
#define ZEL_MESSAGE_CLASS(name)                                                                    \
public:                                                                                            \
  ~name() override;                                                                                \
  ::zel::MessageTransfer clone() const override;                                                   \
  ::zel::MsgTypeId getType() const override;                                                       \
  ::zel::MessageHandler::HandlerReturn dispatchToHandler(::zel::MessageHandler &handler)           \
      const override;                                                                              \
                                                                                                   \
private:                                                                                           \
  friend struct ::zel::MessageCatalogue
