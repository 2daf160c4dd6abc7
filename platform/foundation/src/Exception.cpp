#include "zel/Exception.h"

namespace zel {

Exception::Exception() = default;
Exception::Exception(String const &message) : m_message(message) {}
Exception::~Exception() = default;

String Exception::toString() const { return String(className()) + ": " + m_message; }
char const *Exception::className() const noexcept { return "zel::Exception"; }

char const *IllegalState::className() const noexcept { return "zel::IllegalState"; }
char const *LoginFailed::className() const noexcept { return "zel::LoginFailed"; }
char const *NoSuchFile::className() const noexcept { return "zel::NoSuchFile"; }
char const *TypeMismatch::className() const noexcept { return "zel::TypeMismatch"; }
char const *BadInput::className() const noexcept { return "zel::BadInput"; }

StructuredException::StructuredException(unsigned int code, String const &text)
    : m_code(code), m_text(text) {}
StructuredException::~StructuredException() = default;

String StructuredException::toString() const {
  return String::format("structured exception %u: ", m_code) + m_text;
}

} // namespace zel
