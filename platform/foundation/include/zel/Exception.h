#pragma once
// The exception family of the foundation.
//
// zel::Exception is the base of every public exception the system raises for
// bad input or illegal state. zel::StructuredException is deliberately *not*
// derived from it: it stands for a failed internal condition (code 7 after an
// assertion), and callers catch it in a rung of its own after zel::Exception.
// Both derive from std::exception so that generic handlers still see a text.
//
// All classes are copyable and thread-compatible (no shared state).

#include <exception>
#include <string>

#include "zel/String.h"

namespace zel {

class Exception : public std::exception {
public:
  Exception();
  explicit Exception(String const &message);
  ~Exception() override;

  /// The message text exactly as given.
  String const &getMessage() const noexcept { return m_message; }
  /// The class name, ": " and the message ("zel::IllegalState: Script not set").
  virtual String toString() const;
  /// The class name, as written in the source ("zel::Exception").
  virtual char const *className() const noexcept;
  char const *what() const noexcept override { return m_message.c_str(); }

private:
  String m_message;
};

#define ZEL_DECLARE_EXCEPTION(Name, Base)                                                          \
  class Name : public Base {                                                                       \
  public:                                                                                          \
    Name() = default;                                                                              \
    explicit Name(::zel::String const &message) : Base(message) {}                                 \
    char const *className() const noexcept override;                                               \
  }

/// Raised when an operation is called in a state that forbids it.
ZEL_DECLARE_EXCEPTION(IllegalState, Exception);
/// Raised only by connecting to an engine.
ZEL_DECLARE_EXCEPTION(LoginFailed, Exception);
/// Raised with the path (or a complete sentence) naming a file that is not there.
ZEL_DECLARE_EXCEPTION(NoSuchFile, Exception);
/// Raised by value accessors when the held type cannot give the asked one.
ZEL_DECLARE_EXCEPTION(TypeMismatch, Exception);
/// Raised for malformed input of any kind (XML, encoded bytes, settings).
ZEL_DECLARE_EXCEPTION(BadInput, Exception);

/// A failed internal condition. Carries a numeric code (7 for assertions) and
/// a text; not part of the zel::Exception hierarchy on purpose.
class StructuredException : public std::exception {
public:
  StructuredException(unsigned int code, String const &text);
  ~StructuredException() override;

  unsigned int getCode() const noexcept { return m_code; }
  String const &getText() const noexcept { return m_text; }
  String toString() const;
  char const *what() const noexcept override { return m_text.c_str(); }

  /// The code raised by a failed assertion.
  static constexpr unsigned int ASSERTION_CODE = 7;

private:
  unsigned int m_code;
  String m_text;
};

} // namespace zel
