#pragma once
// ostrel5::Prompting: whether the tests of a script may prompt the user.
// A bare constant of 4 rows, NOT_SET, DISABLED, ENABLED,
// ENABLED_FIRST_PASS_ONLY, each string equal to its name (the object is its
// 32-bit row number); rows: ZEL_PROMPTING_ROWS in zel/PromptingImp.h; common
// operations: ostrel/ConstantClass.h.
//
// attributeString and fromAttributeString give the words of the script
// attribute "promptingEnabled" ("notset", "disabled", "enabled",
// "enabledfirstpassonly"); unknown text reads as ENABLED. The words and the
// reading rule are those of zel::PromptingImp.

#include "ostrel/ConstantClass.h"
#include "zel/PromptingImp.h"

namespace ostrel5 {

class Prompting {
public:
  typedef zel::rows::Prompting::Prompting_ENUM Prompting_ENUM;
  OSTREL5_CONSTANT_CLASS(Prompting, zel::rows::Prompting)
  ZEL_PROMPTING_ROWS(OSTREL5_CONSTANT_ACCESSOR)

  /// NOT_SET.
  Prompting() noexcept : m_enum(ConstantRows::NOT_SET) {}
  Prompting(zel::PromptingImp const &imp) noexcept : m_enum(imp.enumValue()) {}
  zel::PromptingImp imp() const noexcept { return zel::PromptingImp(m_enum); }

  /// The word of the script attribute for this row; "" for the sentinel.
  zel::String attributeString() const;
  /// The row an attribute text stands for; never the sentinel.
  static Prompting fromAttributeString(zel::String const &text);

private:
  Prompting_ENUM m_enum;
};

} // namespace ostrel5
