#pragma once
// zel::PromptingImp: whether the tests of a script may prompt the user.
// Row numbers are those of ostrel5::Prompting; string equals name.
//
// Attribute words. A script document carries the value in its root attribute
// "promptingEnabled"; attributeString() gives the word written there and
// fromAttributeString() reads it back:
//
//   NOT_SET                  "notset"
//   DISABLED                 "disabled"
//   ENABLED                  "enabled"
//   ENABLED_FIRST_PASS_ONLY  "enabledfirstpassonly"
//
// Reading trims the text and ignores ASCII case. Besides the words above it
// accepts the row strings ("ENABLED_FIRST_PASS_ONLY", "NOT_SET") and the
// boolean words that an author of an attribute named "...Enabled" is likely
// to write: "true", "yes", "on", "1" read as ENABLED and "false", "no",
// "off", "0" as DISABLED. Any other text, the empty text included, reads as
// ENABLED: the writer leaves the attribute out exactly when the value is
// ENABLED, so ENABLED is what an absent or unreadable attribute stands for.
// Every row round-trips: fromAttributeString(attributeString(p)) == p. The
// sentinel's word is "" (which reads back as ENABLED).
//
// The same words are those of the setting "Ostrel.PromptUser" read by
// GlobalParameters::promptUser.

#include "zel/ConstantTable.h"

// Rows in order: X(NAME, "string", "attribute word").
#define ZEL_PROMPTING_ROWS(X)                                                                      \
  X(NOT_SET, "NOT_SET", "notset")                                                                  \
  X(DISABLED, "DISABLED", "disabled")                                                              \
  X(ENABLED, "ENABLED", "enabled")                                                                 \
  X(ENABLED_FIRST_PASS_ONLY, "ENABLED_FIRST_PASS_ONLY", "enabledfirstpassonly")

namespace zel {

/// A Prompting row: accessor name, string, attribute word.
struct PromptingRow {
  char const *name;
  char const *text;
  char const *attribute;
};

namespace rows {
struct Prompting {
  enum Prompting_ENUM : unsigned int { ZEL_PROMPTING_ROWS(ZEL_CONSTANT_ENUMERATOR) };
};
} // namespace rows

/// One Prompting row; see zel/ConstantTable.h for the common operations.
class PromptingImp
    : public rows::Prompting,
      public ConstantImp<PromptingImp, rows::Prompting::Prompting_ENUM, PromptingRow> {
public:
  using ConstantImp::ConstantImp;
  /// NOT_SET.
  PromptingImp() noexcept : ConstantImp(NOT_SET) {}

  static ConstantTable<PromptingRow> const &table() noexcept;

  /// The attribute word (see above); "" for the sentinel.
  String attributeString() const;
  /// The row an attribute text stands for (see above); never the sentinel.
  static PromptingImp fromAttributeString(String const &text);
  /// The display name in the language of the global locale, from the
  /// resource file "constants" under the key "Prompting.<NAME>"; the row's
  /// string when no file has the key; "" for the sentinel.
  String localizedName() const;
};

} // namespace zel
