#pragma once
// Byte streams of the foundation: zel::FileMode, the output-stream base
// zel::OStream with its file (zel::OFStream) and in-memory
// (zel::StringOStream) forms, and the line reader zel::IFStream.
//
// Text is written as the bytes of zel::String (UTF-8); numbers in decimal.
// Opening a file never throws: failure is a false result, and the reason is
// in errno (zel::System::getSystemError). Files are opened close-on-exec, so
// a process started meanwhile does not inherit them.
//
// Thread-compatibility: a stream object is used by one thread at a time.
// Several OFStream objects may append to one file from different threads:
// OFStream writes whole lines in one system call (see OFStream), so their
// lines do not mix.

#include <cstddef>
#include <string>

#include "zel/String.h"

namespace zel {

/// How a file is opened. The numeric values are fixed: 1 starts the file
/// (create or truncate, write), 2 reads it, 3 adds to it (create, append).
class FileMode {
public:
  static constexpr int WRITE_VALUE = 1;
  static constexpr int READ_VALUE = 2;
  static constexpr int APPEND_VALUE = 3;

  /// Any int is accepted; one that is none of the values above makes every
  /// open fail.
  constexpr FileMode(int value) noexcept : m_value(value) {}

  static constexpr FileMode WRITE() noexcept { return FileMode(WRITE_VALUE); }
  static constexpr FileMode READ() noexcept { return FileMode(READ_VALUE); }
  static constexpr FileMode APPEND() noexcept { return FileMode(APPEND_VALUE); }

  constexpr int value() const noexcept { return m_value; }
  constexpr bool isValid() const noexcept {
    return m_value == WRITE_VALUE || m_value == READ_VALUE || m_value == APPEND_VALUE;
  }
  friend constexpr bool operator==(FileMode a, FileMode b) noexcept {
    return a.m_value == b.m_value;
  }
  friend constexpr bool operator!=(FileMode a, FileMode b) noexcept { return !(a == b); }

private:
  int m_value;
};

/// Abstract output stream. Owned by whoever created it unless a holder takes
/// it over; deleting through the base is allowed.
class OStream {
public:
  OStream() = default;
  virtual ~OStream();
  OStream(OStream const &) = delete;
  OStream &operator=(OStream const &) = delete;

  /// Writes `size` bytes. False when the stream cannot take them (closed,
  /// device error); the stream then stays failed until reopened.
  virtual bool write(char const *data, std::size_t size) = 0;
  bool write(String const &text) { return write(text.data(), text.length()); }
  /// Hands buffered bytes on to their destination.
  virtual bool flush() { return true; }

  OStream &operator<<(String const &text);
  /// A null pointer writes nothing.
  OStream &operator<<(char const *text);
  OStream &operator<<(char c);
  OStream &operator<<(int value);
  OStream &operator<<(unsigned int value);
  OStream &operator<<(long value);
  OStream &operator<<(unsigned long value);
  OStream &operator<<(long long value);
  OStream &operator<<(unsigned long long value);
  /// The shortest text that reads back to the same double.
  OStream &operator<<(double value);
};

/// Output to a file.
///
/// Buffering is by line: bytes wait in memory until a newline arrives, then
/// everything up to the last newline goes to the file in one write, so whole
/// lines appear at once; a partial line waits for flush(), close() or the
/// destructor (or for 64 KiB to gather).
class OFStream : public OStream {
public:
  OFStream();
  ~OFStream() override;

  /// Opens `path` for WRITE (start the file) or APPEND (add to it); a file
  /// that is open already is closed first. READ and unknown modes, a missing
  /// directory or a denied permission give false. New files get mode 0666
  /// less the umask.
  bool openFile(String const &path, FileMode const &mode);
  /// Flushes and closes; false when bytes could not be written. Harmless when
  /// nothing is open.
  bool close();
  bool isOpen() const noexcept { return m_fd >= 0; }
  /// True after a failed write, until the next openFile.
  bool hasFailed() const noexcept { return m_failed; }

  bool write(char const *data, std::size_t size) override;
  using OStream::write;
  bool flush() override;

private:
  bool writeOut(std::size_t bytes);

  int m_fd = -1;
  bool m_failed = false;
  std::string m_pending;
};

/// Output collected in memory; for appenders that build text and for tests.
class StringOStream : public OStream {
public:
  StringOStream() = default;
  ~StringOStream() override;

  bool write(char const *data, std::size_t size) override;
  using OStream::write;

  String const &str() const noexcept { return m_text; }
  void clear() { m_text = String(); }

private:
  String m_text;
};

/// Reading a file line by line or whole.
class IFStream {
public:
  IFStream();
  ~IFStream();
  IFStream(IFStream const &) = delete;
  IFStream &operator=(IFStream const &) = delete;

  /// Opens `path` for reading; false when it cannot be (only READ is a valid
  /// mode here). An open file is closed first.
  bool openFile(String const &path, FileMode const &mode = FileMode::READ());
  void close();
  bool isOpen() const noexcept { return m_fd >= 0; }

  /// The next line without its "\n" (and without a "\r" before it). A last
  /// line without a newline still counts. False at the end of the file or on
  /// a read error, with `line` emptied.
  bool readLine(String &line);
  /// Everything from the current position to the end. False on a read error
  /// or when nothing is open (the text read so far is kept in `text`).
  bool readAll(String &text);

private:
  bool fill();

  int m_fd = -1;
  bool m_eof = false;
  std::string m_buffer;
  std::size_t m_pos = 0;
};

} // namespace zel
