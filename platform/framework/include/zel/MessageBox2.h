#pragma once
// The two values a message box travels with between a test and the user
// interface.
//
// zel::MessageBox2Request is what a running test asks: a message, a title and
// four 32-bit values whose meaning is agreed between the engine's module and
// the user interface (buttons, icon, default answer and the like); the
// framework and the client copy them unchanged. zel::MessageBox2Result is the
// answer: a 32-bit value and the text the user typed.
//
// Plain values: copyable, comparable, thread-compatible.

#include <array>
#include <cstdint>

#include "zel/String.h"

namespace zel {

class MessageBox2Request {
public:
  static constexpr unsigned VALUE_COUNT = 4;

  MessageBox2Request() : m_values{} {}
  MessageBox2Request(String const &message, String const &title, std::uint32_t value0 = 0,
                     std::uint32_t value1 = 0, std::uint32_t value2 = 0, std::uint32_t value3 = 0)
      : m_message(message), m_title(title), m_values{value0, value1, value2, value3} {}

  String const &getMessage() const noexcept { return m_message; }
  String const &getTitle() const noexcept { return m_title; }
  /// Value 0..3; 0 for an index past them.
  std::uint32_t value(unsigned index) const noexcept {
    return index < VALUE_COUNT ? m_values[index] : 0;
  }

  void setMessage(String const &message) { m_message = message; }
  void setTitle(String const &title) { m_title = title; }
  /// Ignored for an index past the four values.
  void setValue(unsigned index, std::uint32_t value) noexcept {
    if (index < VALUE_COUNT)
      m_values[index] = value;
  }

  friend bool operator==(MessageBox2Request const &a, MessageBox2Request const &b) {
    return a.m_message == b.m_message && a.m_title == b.m_title && a.m_values == b.m_values;
  }
  friend bool operator!=(MessageBox2Request const &a, MessageBox2Request const &b) {
    return !(a == b);
  }

private:
  String m_message;
  String m_title;
  std::array<std::uint32_t, VALUE_COUNT> m_values;
};

class MessageBox2Result {
public:
  /// The value of a result nobody has set (the unset 32-bit limit).
  static constexpr std::uint32_t VALUE_NOT_SET = 0xFFFFFFFFu;

  /// Value not set, input empty.
  MessageBox2Result() = default;
  explicit MessageBox2Result(std::uint32_t value, String const &input = String())
      : m_value(value), m_input(input) {}

  std::uint32_t value() const noexcept { return m_value; }
  String const &getInput() const noexcept { return m_input; }
  void setValue(std::uint32_t value) noexcept { m_value = value; }
  void setInput(String const &input) { m_input = input; }

  friend bool operator==(MessageBox2Result const &a, MessageBox2Result const &b) {
    return a.m_value == b.m_value && a.m_input == b.m_input;
  }
  friend bool operator!=(MessageBox2Result const &a, MessageBox2Result const &b) {
    return !(a == b);
  }

private:
  std::uint32_t m_value = VALUE_NOT_SET;
  String m_input;
};

} // namespace zel
