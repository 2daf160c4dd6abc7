#pragma once
// Encoding of messages and of the values their fields hold.
//
// An encoded message is one cereal portable binary archive:
//
//   type number    uint16 (zel::MsgTypeId; for an UnknownMessage the number
//                  it was decoded from)
//   client id      uint32
//   client name    zel::String (64-bit length, bytes)
//   priority       int16
//   fields         the class's fields in the order of MessageFields.h;
//                  for an UnknownMessage its raw bytes, to the end
//
// Field values:
//   bool           one byte, 0 or 1 (anything else is malformed: a bool is
//                  never loaded from an unchecked byte)
//   unsigned int   uint32;  double: IEEE 754, 8 bytes
//   String, Array<String>     as in Encoding.h
//   CapabilityImp, TestStateImp, TestResultImp   as ObjectEncoding.h writes
//                  them (row set words; a row number checked against its table)
//   ZELLocale      language number (int32), customer, variant, the four
//                  attributes
//   MessageBox2Request   message, title, four uint32
//   MessageBox2Result    uint32 value, input
//   payload        presence byte (0/1), then the object's own encoding
//
// Vocabulary types and payloads use the framework's one encoding of them
// (ObjectEncoding.h, StateEncoding.h, TestRunEncoding.h); what only messages
// carry (flags, locale, message-box values) is encoded here, in
// zel::msgcodec, so that nothing collides with those headers.

#include <cstdint>
#include <memory>

#include "Encoding.h"
#include "MessageFields.h"
#include "ObjectEncoding.h"

namespace zel {
namespace msgcodec {

template <class A> void saveBool(A &ar, bool value) {
  std::uint8_t byte = value ? 1 : 0;
  ar(byte);
}

template <class A> bool loadBool(A &ar) {
  std::uint8_t byte = 0;
  ar(byte);
  if (byte > 1)
    throw BadInput(String::format("encoded flag holds %u, not 0 or 1", unsigned(byte)));
  return byte == 1;
}

template <class A> void saveLocale(A &ar, ZELLocale const &locale) {
  ar(static_cast<std::int32_t>(locale.getLanguage().getNumber()));
  ar(locale.getCustomer(), locale.getVariant());
  for (std::size_t i = 0; i < ZELLocale::ATTRIBUTE_COUNT; ++i)
    ar(locale.getAttribute(i));
}

template <class A> void loadLocale(A &ar, ZELLocale &locale) {
  std::int32_t language = 0;
  String customer, variant, attributes[ZELLocale::ATTRIBUTE_COUNT];
  ar(language, customer, variant);
  for (String &attribute : attributes)
    ar(attribute);
  static_assert(ZELLocale::ATTRIBUTE_COUNT == 4, "the locale encoding carries four attributes");
  locale = ZELLocale(Language::fromNumber(language), customer, variant, attributes[0],
                     attributes[1], attributes[2], attributes[3]);
}

template <class A> void saveRequest(A &ar, MessageBox2Request const &request) {
  ar(request.getMessage(), request.getTitle());
  for (unsigned i = 0; i < MessageBox2Request::VALUE_COUNT; ++i)
    ar(static_cast<std::uint32_t>(request.value(i)));
}

template <class A> void loadRequest(A &ar, MessageBox2Request &request) {
  String message, title;
  ar(message, title);
  MessageBox2Request fresh(message, title);
  for (unsigned i = 0; i < MessageBox2Request::VALUE_COUNT; ++i) {
    std::uint32_t value = 0;
    ar(value);
    fresh.setValue(i, value);
  }
  request = fresh;
}

template <class A> void saveResult(A &ar, MessageBox2Result const &result) {
  ar(static_cast<std::uint32_t>(result.value()), result.getInput());
}

template <class A> void loadResult(A &ar, MessageBox2Result &result) {
  std::uint32_t value = 0;
  String input;
  ar(value, input);
  result = MessageBox2Result(value, input);
}

/// An owned payload that may be absent: a presence flag, then the object in
/// its own encoding (free save/load of the framework, found by lookup).
template <class A, class T> void savePayload(A &ar, std::unique_ptr<T> const &payload) {
  saveBool(ar, static_cast<bool>(payload));
  if (payload)
    ar(*payload);
}

template <class A, class T> void loadPayload(A &ar, std::unique_ptr<T> &payload) {
  if (!loadBool(ar)) {
    payload.reset();
    return;
  }
  encoding::DepthGuard depth;
  std::unique_ptr<T> fresh(new T());
  ar(*fresh);
  payload = std::move(fresh);
}

/// Writes one field (a visitor of MessageCatalogue::fields).
template <class A> struct FieldSaver {
  A &ar;
  void operator()(char const *, bool &v) { saveBool(ar, v); }
  void operator()(char const *, unsigned int &v) { ar(static_cast<std::uint32_t>(v)); }
  void operator()(char const *, double &v) { ar(v); }
  void operator()(char const *, String &v) { ar(v); }
  void operator()(char const *, Array<String> &v) { ar(v); }
  void operator()(char const *, CapabilityImp &v) { ar(v); }
  void operator()(char const *, TestStateImp &v) { encoding::saveConstant(ar, v); }
  void operator()(char const *, TestResultImp &v) { encoding::saveConstant(ar, v); }
  void operator()(char const *, ZELLocale &v) { saveLocale(ar, v); }
  void operator()(char const *, MessageBox2Request &v) { saveRequest(ar, v); }
  void operator()(char const *, MessageBox2Result &v) { saveResult(ar, v); }
  template <class T> void operator()(char const *, std::unique_ptr<T> &v) { savePayload(ar, v); }
};

/// Reads one field (a visitor of MessageCatalogue::fields).
template <class A> struct FieldLoader {
  A &ar;
  void operator()(char const *, bool &v) { v = loadBool(ar); }
  void operator()(char const *, unsigned int &v) {
    std::uint32_t value = 0;
    ar(value);
    v = value;
  }
  void operator()(char const *, double &v) { ar(v); }
  void operator()(char const *, String &v) { ar(v); }
  void operator()(char const *, Array<String> &v) { ar(v); }
  void operator()(char const *, CapabilityImp &v) { ar(v); }
  void operator()(char const *, TestStateImp &v) {
    v = encoding::loadConstant<A, TestStateImp>(ar);
  }
  void operator()(char const *, TestResultImp &v) {
    v = encoding::loadConstant<A, TestResultImp>(ar);
  }
  void operator()(char const *, ZELLocale &v) { loadLocale(ar, v); }
  void operator()(char const *, MessageBox2Request &v) { loadRequest(ar, v); }
  void operator()(char const *, MessageBox2Result &v) { loadResult(ar, v); }
  template <class T> void operator()(char const *, std::unique_ptr<T> &v) { loadPayload(ar, v); }
};

/// Writes a whole message: type number, base fields, the class's fields.
void saveMessage(OutputArchive &ar, Message const &message);
/// Reads a whole message written by saveMessage. It must be the last thing
/// in the archive: an unknown class takes every remaining byte as its raw
/// fields. Malformed input raises zel::BadInput.
MessageHandle loadMessage(InputArchive &ar);

/// The decoding target of encoding::decode: one whole message.
struct Envelope {
  MessageHandle message;
};

template <class A> void save(A &ar, Envelope const &envelope) {
  saveMessage(ar, *envelope.message);
}
template <class A> void load(A &ar, Envelope &envelope) { envelope.message = loadMessage(ar); }

} // namespace msgcodec
} // namespace zel
