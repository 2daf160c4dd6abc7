// The per-class table of the catalogue (make, encode, decode, describe) and
// the functions built on it: encodeMessage, decodeMessage, Message::toString.

#include <array>
#include <cstdio>
#include <exception>
#include <ostream>
#include <streambuf>

#include "zel/AssertionFailure.h"
#include "zel/IndicatorRunImp.h"
#include "zel/MessageCodec.h"
#include "zel/StateManager.h"
#include "zel/TestRunImp.h"
#include "zel/TestRunManager.h"

#include "MessageEncoding.h"
#include "MessageFields.h"
#include "StateEncoding.h"
#include "TestRunEncoding.h"

namespace zel {

namespace {

// ---------------------------------------------------------------- describing

void appendQuoted(String &out, String const &text) {
  std::string &s = out.str();
  s += '"';
  for (char c : text.str()) {
    switch (c) {
    case '"':
      s += "\\\"";
      break;
    case '\\':
      s += "\\\\";
      break;
    case '\n':
      s += "\\n";
      break;
    case '\r':
      s += "\\r";
      break;
    case '\t':
      s += "\\t";
      break;
    default:
      if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) {
        char hex[8];
        std::snprintf(hex, sizeof hex, "\\x%02x",
                      static_cast<unsigned>(static_cast<unsigned char>(c)));
        s += hex;
      } else {
        s += c;
      }
    }
  }
  s += '"';
}

/// Appends " name=value" for each field (a visitor of MessageCatalogue::fields).
struct FieldDescriber {
  String &out;
  bool verbose;

  void name(char const *field) {
    out += ' ';
    out += field;
    out += '=';
  }
  void operator()(char const *f, bool &v) {
    name(f);
    out += v ? "true" : "false";
  }
  void operator()(char const *f, unsigned int &v) {
    name(f);
    out += String::fromUInt(v);
  }
  void operator()(char const *f, double &v) {
    name(f);
    out += String::format("%g", v);
  }
  void operator()(char const *f, String &v) {
    name(f);
    appendQuoted(out, v);
  }
  void operator()(char const *f, Array<String> &v) {
    name(f);
    out += '[';
    for (std::size_t i = 0; i < v.size(); ++i) {
      if (i)
        out += ", ";
      appendQuoted(out, v[i]);
    }
    out += ']';
  }
  void operator()(char const *f, CapabilityImp &v) {
    name(f);
    appendQuoted(out, v.toString());
  }
  void operator()(char const *f, TestStateImp &v) {
    name(f);
    out += v.isValid() ? v.toString() : String("<none>");
  }
  void operator()(char const *f, TestResultImp &v) {
    name(f);
    out += v.isValid() ? v.toString() : String("<none>");
  }
  void operator()(char const *f, ZELLocale &v) {
    name(f);
    appendQuoted(out, v.toString());
  }
  void operator()(char const *f, MessageBox2Request &v) {
    name(f);
    out += "{title=";
    appendQuoted(out, v.getTitle());
    out += " message=";
    appendQuoted(out, v.getMessage());
    out += String::format(" values=%u,%u,%u,%u}", v.value(0), v.value(1), v.value(2), v.value(3));
  }
  void operator()(char const *f, MessageBox2Result &v) {
    name(f);
    out += String::format("{value=%u input=", v.value());
    appendQuoted(out, v.getInput());
    out += '}';
  }
  template <class T> void operator()(char const *f, std::unique_ptr<T> &v) {
    name(f);
    if (!v)
      out += "<none>";
    else
      payload(*v);
  }

  // Payloads: a summary, or with `verbose` their own text form (quoted, so
  // that its lines stay on this one).
  void payload(StateManager const &s) {
    if (verbose)
      appendQuoted(out, s.toString());
    else
      out += String::format("{devices=%u}", s.deviceCount());
  }
  void payload(TestRunImp const &r) {
    if (verbose) {
      appendQuoted(out, r.toString(0, true));
      return;
    }
    out += "{guid=";
    appendQuoted(out, r.guid());
    out += " state=" + r.state().toString() + " result=";
    appendQuoted(out, r.result().toString());
    out += String::format(" percent=%u events=%u}", r.percentComplete(), r.eventCount());
  }
  void payload(TestRunManager const &m) {
    out += String::format("{runs=%u", m.testRunCount());
    if (verbose)
      for (auto const &run : m.getTestRuns()) {
        out += ' ';
        appendQuoted(out, run->guid());
      }
    out += '}';
  }
  void payload(IndicatorRunImp const &r) {
    if (verbose) {
      appendQuoted(out, r.toString(0, true));
      return;
    }
    out += "{guid=";
    appendQuoted(out, r.guid());
    out += r.isPaused() ? " paused}" : "}";
  }
};

// ---------------------------------------------------------------- the table

struct Entry {
  Message *(*make)();
  void (*save)(OutputArchive &, Message const &);
  void (*load)(InputArchive &, Message &);
  void (*describe)(Message const &, String &, bool);
};

// The visitors never change what they visit when saving or describing;
// fields() takes a plain reference because loading goes through it too.
template <class M> M &asClass(Message const &m) {
  return const_cast<M &>(static_cast<M const &>(m));
}

template <class M> void saveFields(OutputArchive &ar, Message const &m) {
  msgcodec::FieldSaver<OutputArchive> v{ar};
  MessageCatalogue::fields(v, asClass<M>(m));
}

template <class M> void loadFields(InputArchive &ar, Message &m) {
  msgcodec::FieldLoader<InputArchive> v{ar};
  MessageCatalogue::fields(v, static_cast<M &>(m));
}

template <class M> void describeFields(Message const &m, String &out, bool verbose) {
  FieldDescriber v{out, verbose};
  MessageCatalogue::fields(v, asClass<M>(m));
}

constexpr std::array<Entry, MSG_TYPE_LIMIT> makeTable() {
  std::array<Entry, MSG_TYPE_LIMIT> t{};
#define ZEL_MSG_TABLE_ENTRY(name, number)                                                          \
  t[number] = Entry{&MessageCatalogue::make<name>, &saveFields<name>, &loadFields<name>,           \
                    &describeFields<name>};
  ZEL_MESSAGE_TYPES(ZEL_MSG_TABLE_ENTRY)
#undef ZEL_MSG_TABLE_ENTRY
  return t;
}

constexpr std::array<Entry, MSG_TYPE_LIMIT> kTable = makeTable();

Entry const *entryOf(unsigned int type) {
  return type < kTable.size() && kTable[type].make ? &kTable[type] : nullptr;
}

} // namespace

// ---------------------------------------------------------------- catalogue

Message *MessageCatalogue::create(unsigned int type) {
  Entry const *e = entryOf(type);
  return e ? e->make() : nullptr;
}

void MessageCatalogue::validate(Message const &m) {
  if (m.getType() == MsgTypeId::UpdatesProviderToEngineToUI) {
    // The receiver reads element i of the device list for property i.
    auto const &u = static_cast<UpdatesProviderToEngineToUI const &>(m);
    if (u.deviceGuidsForPropertiesToRemove().size() < u.propertyGuidsToRemove().size())
      throw BadInput("encoded live update names more properties to remove than their devices");
  }
}

String Message::toString(bool verbose) const {
  MsgTypeId type = getType();
  String out = zel::toString(type);
  out += String::format(" client=%u name=", m_clientId);
  appendQuoted(out, m_clientName);
  out += String::format(" priority=%d", static_cast<int>(m_priority));
  if (type == MsgTypeId::UnknownMessage) {
    auto const &u = static_cast<UnknownMessage const &>(*this);
    out += String::format(" unknownTypeId=%u rawBytes=%zu", u.unknownTypeId(), u.rawBytes().size());
  } else if (Entry const *e = entryOf(static_cast<unsigned>(type))) {
    e->describe(*this, out, verbose);
  }
  return out;
}

// ---------------------------------------------------------------- encoding

namespace msgcodec {

void saveMessage(OutputArchive &ar, Message const &message) {
  MsgTypeId type = message.getType();
  Message &m = const_cast<Message &>(message);
  UnknownMessage *unknown =
      type == MsgTypeId::UnknownMessage ? static_cast<UnknownMessage *>(&m) : nullptr;
  unsigned int wireType =
      unknown ? MessageCatalogue::unknownTypeId(*unknown) : static_cast<unsigned>(type);
  ar(static_cast<std::uint16_t>(wireType));
  ar(static_cast<std::uint32_t>(message.clientID()), message.clientName(),
     static_cast<std::int16_t>(message.priority()));
  if (unknown) {
    String const &raw = MessageCatalogue::rawBytes(*unknown);
    if (!raw.isEmpty())
      ar(cereal::binary_data(raw.data(), raw.size()));
    return;
  }
  Entry const *e = entryOf(wireType);
  ZEL_ASSERT(e && "every message class has a catalogue entry");
  e->save(ar, message);
}

MessageHandle loadMessage(InputArchive &ar) {
  std::uint16_t type = 0;
  ar(type);
  Entry const *e = entryOf(type);
  bool unknown = !e || type == static_cast<std::uint16_t>(MsgTypeId::UnknownMessage);
  std::unique_ptr<Message> m(
      unknown ? MessageCatalogue::create(static_cast<unsigned>(MsgTypeId::UnknownMessage))
              : e->make());

  std::uint32_t clientId = 0;
  std::int16_t priority = 0;
  ar(clientId, MessageCatalogue::clientName(*m), priority);
  MessageCatalogue::clientId(*m) = clientId;
  MessageCatalogue::priority(*m) = priority;

  if (unknown) {
    auto &u = static_cast<UnknownMessage &>(*m);
    MessageCatalogue::unknownTypeId(u) = type;
    encoding::DecodeContext *context = encoding::DecodeContext::current();
    ZEL_ASSERT(context && context->buf && "messages are decoded through encoding::decode");
    std::size_t rest = context->buf->remaining();
    std::string raw(rest, '\0');
    if (rest)
      ar(cereal::binary_data(&raw[0], rest));
    MessageCatalogue::rawBytes(u) = String(std::move(raw));
  } else {
    e->load(ar, *m);
    MessageCatalogue::validate(*m);
  }
  return MessageHandle(m.release());
}

} // namespace msgcodec

void encodeMessage(Message const &message, String &out) {
  encoding::AppendBuf buf(out.str());
  std::ostream stream(&buf);
  OutputArchive ar(stream);
  msgcodec::saveMessage(ar, message);
}

String encodeMessage(Message const &message) {
  String out;
  encodeMessage(message, out);
  return out;
}

MessageHandle decodeMessage(char const *data, std::size_t size) {
  msgcodec::Envelope envelope;
  try {
    encoding::decode(data, size, envelope);
  } catch (BadInput const &) {
    throw;
  } catch (std::exception const &e) {
    // Whatever a payload's own checks raise is still a malformed message.
    throw BadInput(String("malformed encoded message: ") + e.what());
  }
  return envelope.message;
}

MessageHandle decodeMessage(String const &bytes) {
  return decodeMessage(bytes.data(), bytes.size());
}

} // namespace zel
