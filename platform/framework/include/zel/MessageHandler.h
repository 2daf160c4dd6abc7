#pragma once
// zel::MessageHandler: the receiving end of messages.
//
// A message calls dispatchToHandler(handler), which calls the overload of
// handleMessage for the message's own class. Every overload is virtual and by
// default does nothing and returns 0 (not handled); a handler overrides the
// ones it reacts to and returns 1 from them. The overloads are declared from
// ZEL_MESSAGE_TYPES, so their order (the destructor first, then
// SetInternetAccessAllowed ... Message) is the order of the type numbers.
//
// A message of a class the receiver does not know is decoded as a
// zel::UnknownMessage (zel/Messages.h, zel/MessageCodec.h) and so reaches
// handleMessage(UnknownMessage const &).
//
// The base holds no state: thread-safety is that of the derived handler.

#include "zel/MsgTypeId.h"

namespace zel {

#define ZEL_MSG_FORWARD_DECLARE(name, number) class name;
ZEL_MESSAGE_TYPES(ZEL_MSG_FORWARD_DECLARE)
#undef ZEL_MSG_FORWARD_DECLARE

class MessageHandler {
public:
  /// 1: the message was handled; 0: it was not (the default of every overload).
  using HandlerReturn = int;

  virtual ~MessageHandler();

#define ZEL_MSG_HANDLER_OVERLOAD(name, number) virtual HandlerReturn handleMessage(name const &);
  ZEL_MESSAGE_TYPES(ZEL_MSG_HANDLER_OVERLOAD)
#undef ZEL_MSG_HANDLER_OVERLOAD
};

} // namespace zel
