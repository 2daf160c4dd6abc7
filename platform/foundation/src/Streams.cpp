#include "zel/Streams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace zel {

namespace {

// A partial line is written out once this much has gathered.
constexpr std::size_t kMaxPending = 64 * 1024;

int closeDescriptor(int fd) {
  // close() must not be retried on EINTR on Linux: the descriptor is gone.
  return ::close(fd);
}

} // namespace

// ---- OStream ---------------------------------------------------------------

OStream::~OStream() = default;

OStream &OStream::operator<<(String const &text) {
  write(text.data(), text.length());
  return *this;
}

OStream &OStream::operator<<(char const *text) {
  if (text)
    write(text, std::strlen(text));
  return *this;
}

OStream &OStream::operator<<(char c) {
  write(&c, 1);
  return *this;
}

OStream &OStream::operator<<(int value) { return *this << String::fromInt(value); }
OStream &OStream::operator<<(unsigned int value) { return *this << String::fromUInt(value); }
OStream &OStream::operator<<(long value) { return *this << String::fromInt(value); }
OStream &OStream::operator<<(unsigned long value) { return *this << String::fromUInt(value); }
OStream &OStream::operator<<(long long value) { return *this << String::fromInt(value); }
OStream &OStream::operator<<(unsigned long long value) { return *this << String::fromUInt(value); }
OStream &OStream::operator<<(double value) { return *this << String::fromReal64(value); }

// ---- OFStream --------------------------------------------------------------

OFStream::OFStream() = default;

OFStream::~OFStream() { close(); }

bool OFStream::openFile(String const &path, FileMode const &mode) {
  close();
  m_failed = false;
  int flags = O_WRONLY | O_CREAT | O_CLOEXEC;
  if (mode == FileMode::WRITE())
    flags |= O_TRUNC;
  else if (mode == FileMode::APPEND())
    flags |= O_APPEND;
  else {
    errno = EINVAL;
    return false;
  }
  if (path.isEmpty()) {
    errno = ENOENT;
    return false;
  }
  int fd;
  do {
    fd = ::open(path.c_str(), flags, 0666);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0)
    return false;
  m_fd = fd;
  return true;
}

bool OFStream::writeOut(std::size_t bytes) {
  std::size_t done = 0;
  while (done < bytes) {
    ssize_t n = ::write(m_fd, m_pending.data() + done, bytes - done);
    if (n < 0) {
      if (errno == EINTR)
        continue;
      m_failed = true;
      m_pending.clear();
      return false;
    }
    done += static_cast<std::size_t>(n);
  }
  m_pending.erase(0, bytes);
  return true;
}

bool OFStream::write(char const *data, std::size_t size) {
  if (m_fd < 0 || m_failed)
    return false;
  if (size == 0)
    return true;
  m_pending.append(data, size);
  // Write complete lines now, keep the tail of an unfinished one.
  std::size_t lastNewline = m_pending.rfind('\n');
  if (lastNewline != std::string::npos)
    return writeOut(lastNewline + 1);
  if (m_pending.size() >= kMaxPending)
    return writeOut(m_pending.size());
  return true;
}

bool OFStream::flush() {
  if (m_fd < 0 || m_failed)
    return false;
  return m_pending.empty() || writeOut(m_pending.size());
}

bool OFStream::close() {
  if (m_fd < 0)
    return true;
  bool ok = m_failed ? false : flush();
  if (closeDescriptor(m_fd) != 0 && errno != EINTR)
    ok = false;
  m_fd = -1;
  m_pending.clear();
  return ok;
}

// ---- StringOStream ---------------------------------------------------------

StringOStream::~StringOStream() = default;

bool StringOStream::write(char const *data, std::size_t size) {
  m_text.str().append(data, size);
  return true;
}

// ---- IFStream --------------------------------------------------------------

IFStream::IFStream() = default;

IFStream::~IFStream() { close(); }

bool IFStream::openFile(String const &path, FileMode const &mode) {
  close();
  if (mode != FileMode::READ()) {
    errno = EINVAL;
    return false;
  }
  int fd;
  do {
    fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0)
    return false;
  m_fd = fd;
  return true;
}

void IFStream::close() {
  if (m_fd >= 0)
    closeDescriptor(m_fd);
  m_fd = -1;
  m_eof = false;
  m_buffer.clear();
  m_pos = 0;
}

// Reads the next block into the buffer. False at the end or on an error.
bool IFStream::fill() {
  if (m_fd < 0 || m_eof)
    return false;
  if (m_pos > 0) {
    m_buffer.erase(0, m_pos);
    m_pos = 0;
  }
  char block[16 * 1024];
  for (;;) {
    ssize_t n = ::read(m_fd, block, sizeof block);
    if (n < 0 && errno == EINTR)
      continue;
    if (n <= 0) {
      m_eof = true;
      return false; // end of file, or an error: both end the reading
    }
    m_buffer.append(block, static_cast<std::size_t>(n));
    return true;
  }
}

bool IFStream::readLine(String &line) {
  line = String();
  if (m_fd < 0)
    return false;
  for (;;) {
    std::size_t nl = m_buffer.find('\n', m_pos);
    if (nl != std::string::npos) {
      std::size_t end = nl;
      if (end > m_pos && m_buffer[end - 1] == '\r')
        --end;
      line = String(m_buffer.data() + m_pos, end - m_pos);
      m_pos = nl + 1;
      return true;
    }
    if (!fill()) {
      if (m_pos >= m_buffer.size())
        return false;
      std::size_t end = m_buffer.size();
      if (m_buffer[end - 1] == '\r')
        --end;
      line = String(m_buffer.data() + m_pos, end - m_pos);
      m_pos = m_buffer.size();
      return true;
    }
  }
}

bool IFStream::readAll(String &text) {
  text = String();
  if (m_fd < 0)
    return false;
  text.str().assign(m_buffer, m_pos, std::string::npos);
  m_buffer.clear();
  m_pos = 0;
  char block[16 * 1024];
  for (;;) {
    ssize_t n = ::read(m_fd, block, sizeof block);
    if (n < 0 && errno == EINTR)
      continue;
    if (n < 0) {
      m_eof = true;
      return false;
    }
    if (n == 0) {
      m_eof = true;
      return true;
    }
    text.str().append(block, static_cast<std::size_t>(n));
  }
}

} // namespace zel
