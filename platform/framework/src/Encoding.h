#pragma once
// The framework's one binary encoding (cereal, portable binary archives),
// used for messages, the mirror, test runs and the cache file.
//
// Private to the framework: cereal never appears in a public header. Types
// give their encoding as free functions in namespace zel,
//     template <class A> void save(A &, T const &)  and  load(A &, T &),
// or one `serialize`, declared next to the private accessors they need
// (a type may befriend `zel::EncodingAccess`).
//
// Decoding treats the input as hostile: every count is checked against the
// bytes that remain before anything is allocated (checkCount), nesting is
// bounded (DepthGuard), and every failure surfaces as zel::BadInput.
// Encoded types use zel::String, zel::Array and the helpers below, never
// cereal's own std::string/std::vector loaders, which allocate first.

#include <cereal/archives/portable_binary.hpp>
#include <cereal/cereal.hpp>

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <cstring>
#include <istream>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>

#include "zel/Array.h"
#include "zel/Buffer.h"
#include "zel/Exception.h"
#include "zel/String.h"

// A flag is one byte that must be 0 or 1: cereal's own loader would copy any
// byte into the bool, and reading such a bool later is undefined behaviour.
namespace cereal {
inline void CEREAL_LOAD_FUNCTION_NAME(PortableBinaryInputArchive &ar, bool &value) {
  std::uint8_t byte = 0;
  ar(byte);
  if (byte > 1)
    throw zel::BadInput("encoded flag is neither 0 nor 1");
  value = byte != 0;
}
} // namespace cereal

namespace zel {

using OutputArchive = cereal::PortableBinaryOutputArchive;
using InputArchive = cereal::PortableBinaryInputArchive;

/// Befriended by types whose encoding reads private members.
struct EncodingAccess;

namespace encoding {

/// A read-only stream over a memory block, which knows how much is left.
class MemoryBuf : public std::streambuf {
public:
  MemoryBuf(char const *data, std::size_t size) {
    char *p = const_cast<char *>(data);
    setg(p, p, p + size);
  }
  std::size_t remaining() const { return static_cast<std::size_t>(egptr() - gptr()); }
};

/// The decode in progress on this thread (null when none).
struct DecodeContext {
  MemoryBuf *buf = nullptr;
  int depth = 0;
  static DecodeContext *&current() {
    static thread_local DecodeContext *c = nullptr;
    return c;
  }
};

constexpr int kMaxDepth = 64;

/// Fails when `count` elements of at least `minBytesEach` bytes cannot be
/// in the rest of the input.
inline void checkCount(std::uint64_t count, std::size_t minBytesEach = 1) {
  DecodeContext *c = DecodeContext::current();
  if (!c || !c->buf)
    return;
  std::size_t each = minBytesEach ? minBytesEach : 1;
  if (count > c->buf->remaining() / each)
    throw BadInput(String::format("encoded count %llu exceeds the remaining input",
                                  static_cast<unsigned long long>(count)));
}

/// Bounds the nesting of recursive values while decoding.
class DepthGuard {
public:
  DepthGuard() : m_c(DecodeContext::current()) {
    if (m_c && ++m_c->depth > kMaxDepth) {
      --m_c->depth;
      throw BadInput("encoded value nests too deeply");
    }
  }
  ~DepthGuard() {
    if (m_c)
      --m_c->depth;
  }
  DepthGuard(DepthGuard const &) = delete;
  DepthGuard &operator=(DepthGuard const &) = delete;

private:
  DecodeContext *m_c;
};

/// Reads a row number and checks it against the row count (the sentinel,
/// equal to the count, is allowed).
template <class A> std::uint32_t loadRow(A &ar, std::uint32_t rowCount) {
  std::uint32_t row = 0;
  ar(row);
  if (row > rowCount)
    throw BadInput(String::format("encoded row %u is past the table of %u rows", row, rowCount));
  return row;
}

} // namespace encoding

// ---- foundation types

template <class A> void save(A &ar, String const &s) {
  ar(cereal::make_size_tag(static_cast<cereal::size_type>(s.size())));
  ar(cereal::binary_data(s.data(), s.size()));
}

template <class A> void load(A &ar, String &s) {
  cereal::size_type n = 0;
  ar(cereal::make_size_tag(n));
  encoding::checkCount(n, 1);
  std::string t(static_cast<std::size_t>(n), '\0');
  if (n)
    ar(cereal::binary_data(&t[0], static_cast<std::size_t>(n)));
  s = String(std::move(t));
}

template <class A, class T> void save(A &ar, Array<T> const &a) {
  ar(cereal::make_size_tag(static_cast<cereal::size_type>(a.size())));
  for (T const &v : a)
    ar(v);
}

template <class A, class T> void load(A &ar, Array<T> &a) {
  cereal::size_type n = 0;
  ar(cereal::make_size_tag(n));
  encoding::checkCount(n, 1);
  Array<T> out(static_cast<std::size_t>(n));
  for (cereal::size_type i = 0; i < n; ++i) {
    T v{};
    ar(v);
    out.append(std::move(v));
  }
  a = std::move(out);
}

template <class A, class T> void save(A &ar, Buffer<T> const &b) {
  ar(cereal::make_size_tag(static_cast<cereal::size_type>(b.size())));
  if (b.size())
    ar(cereal::binary_data(b.data(), b.size() * sizeof(T)));
}

template <class A, class T> void load(A &ar, Buffer<T> &b) {
  cereal::size_type n = 0;
  ar(cereal::make_size_tag(n));
  encoding::checkCount(n, sizeof(T));
  Buffer<T> out(static_cast<std::size_t>(n));
  if (n)
    ar(cereal::binary_data(out.data(), static_cast<std::size_t>(n) * sizeof(T)));
  b = std::move(out);
}

namespace encoding {

/// An optional shared object: a presence flag, then the object.
template <class A, class T> void saveShared(A &ar, boost::shared_ptr<T> const &p) {
  bool present = static_cast<bool>(p);
  ar(present);
  if (present)
    ar(*p);
}

template <class A, class T> void loadShared(A &ar, boost::shared_ptr<T> &p) {
  bool present = false;
  ar(present);
  if (!present) {
    p.reset();
    return;
  }
  DepthGuard depth;
  boost::shared_ptr<T> fresh(new T());
  ar(*fresh);
  p = fresh;
}

/// Encodes one value into bytes.
template <class T> String encode(T const &value) {
  std::ostringstream out(std::ios::binary);
  {
    OutputArchive ar(out);
    ar(value);
  }
  return String(out.str());
}

/// Decodes bytes made by encode. Malformed input, trailing bytes included,
/// raises zel::BadInput; nothing else escapes.
template <class T> void decode(char const *data, std::size_t size, T &out) {
  MemoryBuf buf(data, size);
  std::istream in(&buf);
  DecodeContext ctx;
  ctx.buf = &buf;
  DecodeContext *previous = DecodeContext::current();
  DecodeContext::current() = &ctx;
  struct Restore {
    DecodeContext *p;
    ~Restore() { DecodeContext::current() = p; }
  } restore{previous};
  try {
    InputArchive ar(in);
    ar(out);
  } catch (BadInput const &) {
    throw;
  } catch (cereal::Exception const &e) {
    throw BadInput(String("malformed encoded data: ") + e.what());
  } catch (std::bad_alloc const &) {
    throw BadInput("malformed encoded data: allocation refused");
  } catch (std::length_error const &e) {
    throw BadInput(String("malformed encoded data: ") + e.what());
  }
  if (buf.remaining() != 0)
    throw BadInput(String::format("malformed encoded data: %zu trailing bytes", buf.remaining()));
}

template <class T> void decode(String const &bytes, T &out) {
  decode(bytes.data(), bytes.size(), out);
}

} // namespace encoding
} // namespace zel
