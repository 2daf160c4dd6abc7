#pragma once
// Encoding of messages into bytes and back: what crosses a process boundary
// (one message per frame) and what a relay passes on.
//
// The layout is the framework's (see the private MessageEncoding.h): the
// type number, the base fields (client id, client name, priority), then the
// class's own fields. A type number this build does not know decodes to a
// zel::UnknownMessage that keeps the number and the bytes of its fields, so
// encoding it again reproduces the input.
//
// Decoding treats its input as hostile: malformed, truncated or trailing
// bytes raise zel::BadInput, and no count in the input is believed before
// the bytes it announces are there, so a short frame never causes a large
// allocation. Both functions are thread-safe (no shared state).

#include <cstddef>

#include "zel/Message.h"
#include "zel/String.h"

namespace zel {

/// The bytes of `message`.
String encodeMessage(Message const &message);
/// Appends the bytes of `message` to `out` (saves a copy when framing).
void encodeMessage(Message const &message, String &out);

/// A new message (use count 1) from bytes made by encodeMessage. Throws
/// zel::BadInput on anything else.
MessageHandle decodeMessage(char const *data, std::size_t size);
MessageHandle decodeMessage(String const &bytes);

} // namespace zel
