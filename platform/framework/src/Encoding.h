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

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <istream>
#include <memory>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>
#include <type_traits>
#include <utility>

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
  /// The next `n` bytes, consumed; null (nothing consumed) when fewer are left.
  char const *take(std::size_t n) {
    if (n > remaining())
      return nullptr;
    char *p = gptr();
    setg(eback(), p + n, egptr());
    return p;
  }

protected:
  // The archive reads every field through here: one copy, no per-byte loop.
  std::streamsize xsgetn(char *out, std::streamsize n) override {
    std::size_t take = std::min(static_cast<std::size_t>(n), remaining());
    if (take) {
      std::memcpy(out, gptr(), take);
      setg(eback(), gptr() + take, egptr());
    }
    return static_cast<std::streamsize>(take);
  }
};

/// A write-only stream appending to a std::string, so that the encoded
/// bytes land in their final buffer with no copy afterwards.
class AppendBuf : public std::streambuf {
public:
  explicit AppendBuf(std::string &out) : m_out(out) {}

protected:
  int_type overflow(int_type c) override {
    if (!traits_type::eq_int_type(c, traits_type::eof()))
      m_out.push_back(traits_type::to_char_type(c));
    return traits_type::not_eof(c);
  }
  std::streamsize xsputn(char const *s, std::streamsize n) override {
    m_out.append(s, static_cast<std::size_t>(n));
    return n;
  }

private:
  std::string &m_out;
};

/// The decode in progress on this thread (null when none).
struct DecodeContext {
  MemoryBuf *buf = nullptr;
  int depth = 0;
  bool swap = false; // the input's byte order is not this machine's
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

/// Reads fields straight from the memory block of the decode in progress:
/// exactly the bytes the archive would read (the same byte order, sizes and
/// 0/1 flags), without the virtual stream call and bookkeeping the archive
/// spends on each field. Big states (a mirror's cache holds hundreds of
/// thousands of properties, some fifteen fields each) are decoded through
/// it. It accepts what the encodings pass to an archive: numbers, flags,
/// size tags, binary blocks and types with a free `load`; every read is
/// checked against the bytes left and raises zel::BadInput.
class FieldReader {
public:
  explicit FieldReader(DecodeContext &context) : m_buf(*context.buf), m_swap(context.swap) {}

  template <class... T> FieldReader &operator()(T &&...fields) {
    (field(std::forward<T>(fields)), ...);
    return *this;
  }

  std::size_t remaining() const { return m_buf.remaining(); }
  /// The next `n` bytes, consumed.
  char const *next(std::size_t n) {
    char const *p = m_buf.take(n);
    if (!p)
      tooShort(n);
    return p;
  }
  /// Copies `size` bytes of elements of `each` bytes, in our byte order.
  void copyIn(void *out, std::size_t size, std::size_t each) {
    if (size == 0)
      return; // an empty block may come with a null pointer
    std::memcpy(out, next(size), size);
    if (m_swap && each > 1)
      for (char *e = static_cast<char *>(out), *end = e + size; e + each <= end; e += each)
        std::reverse(e, e + each);
  }

private:
  [[noreturn]] void tooShort(std::size_t n) const {
    throw BadInput(
        String::format("malformed encoded data: %zu bytes wanted, %zu left", n, m_buf.remaining()));
  }

  template <class T> std::enable_if_t<std::is_arithmetic<T>::value> field(T &v) {
    std::memcpy(&v, next(sizeof v), sizeof v); // a fixed size: one load
    if (sizeof v > 1 && m_swap) {
      char *b = reinterpret_cast<char *>(&v);
      std::reverse(b, b + sizeof v);
    }
  }
  void field(bool &v) {
    std::uint8_t byte = static_cast<std::uint8_t>(*next(1));
    if (byte > 1)
      throw BadInput("encoded flag is neither 0 nor 1");
    v = byte != 0;
  }
  // A size as the archive reads it: in the tag's own type.
  template <class T> void field(cereal::SizeTag<T> tag) { field(tag.size); }
  template <class T> void field(cereal::BinaryData<T> block) {
    using Element = std::remove_pointer_t<std::remove_reference_t<T>>;
    copyIn(block.data, static_cast<std::size_t>(block.size), sizeof(Element));
  }
  template <class T> std::enable_if_t<std::is_class<T>::value> field(T &value) {
    load(*this, value);
  }

  MemoryBuf &m_buf;
  bool m_swap;
};

/// The writing side of FieldReader: appends the archive's bytes (this
/// machine's byte order, which is what the archive writes by default) to a
/// chunk that goes to the archive as one block when full and at flush().
/// Call flush() once done; a writer dropped without it loses its last chunk
/// (as it is only dropped when the encoding failed).
template <class Archive> class FieldWriter {
public:
  explicit FieldWriter(Archive &ar) : m_ar(ar), m_chunk(new char[kChunk]) {}

  template <class... T> FieldWriter &operator()(T const &...fields) {
    (field(fields), ...);
    return *this;
  }
  void append(void const *data, std::size_t size) {
    if (size == 0)
      return; // an empty block may come with a null pointer
    if (size > kChunk - m_used) {
      flush();
      if (size > kChunk) {
        m_ar(cereal::binary_data(static_cast<char const *>(data), size));
        return;
      }
    }
    std::memcpy(m_chunk.get() + m_used, data, size);
    m_used += size;
  }
  void flush() {
    if (m_used)
      m_ar(cereal::binary_data(m_chunk.get(), m_used));
    m_used = 0;
  }

private:
  static constexpr std::size_t kChunk = 64 * 1024;

  template <class T> std::enable_if_t<std::is_arithmetic<T>::value> field(T const &v) {
    if (sizeof v > kChunk - m_used)
      flush();
    std::memcpy(m_chunk.get() + m_used, &v, sizeof v); // a fixed size: one store
    m_used += sizeof v;
  }
  void field(bool const &v) { field(static_cast<std::uint8_t>(v ? 1 : 0)); }
  // A size as the archive writes it: in the tag's own type.
  template <class T> void field(cereal::SizeTag<T> const &tag) { field(tag.size); }
  template <class T> void field(cereal::BinaryData<T> const &block) {
    append(block.data, static_cast<std::size_t>(block.size));
  }
  template <class T> std::enable_if_t<std::is_class<T>::value> field(T const &value) {
    save(*this, value);
  }

  Archive &m_ar;
  std::unique_ptr<char[]> m_chunk;
  std::size_t m_used = 0;
};

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

// Texts through the field reader and writer: the same bytes, with the count
// checked against the bytes left straight away.
inline void load(encoding::FieldReader &r, String &s) {
  cereal::size_type n = 0;
  r(cereal::make_size_tag(n));
  if (n > r.remaining())
    throw BadInput(String::format("encoded count %llu exceeds the remaining input",
                                  static_cast<unsigned long long>(n)));
  s.str().assign(r.next(static_cast<std::size_t>(n)), static_cast<std::size_t>(n));
}
template <class Archive> void save(encoding::FieldWriter<Archive> &w, String const &s) {
  w(cereal::make_size_tag(static_cast<cereal::size_type>(s.size())));
  w.append(s.data(), s.size());
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

/// Appends the encoding of one value to `out`.
template <class T> void encodeAppend(T const &value, std::string &out) {
  AppendBuf buf(out);
  std::ostream stream(&buf);
  OutputArchive ar(stream);
  ar(value);
}

/// Encodes one value into bytes.
template <class T> String encode(T const &value) {
  std::string out;
  encodeAppend(value, out);
  return String(std::move(out));
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
    // The archive has just read the writer's byte order (one byte, 1 for
    // little-endian); it swaps when that differs from ours, and so must
    // FieldReader.
    ctx.swap = (static_cast<std::uint8_t>(data[0]) ^
                cereal::portable_binary_detail::is_little_endian()) != 0;
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
