#include "zel/PromptingImp.h"

#include "zel/GlobalParameters.h"

namespace zel {

ConstantTable<PromptingRow> const &PromptingImp::table() noexcept {
  static PromptingRow const rows[] = {ZEL_PROMPTING_ROWS(ZEL_CONSTANT_ROW)};
  static ConstantTable<PromptingRow> const table(rows);
  return table;
}

String PromptingImp::attributeString() const {
  PromptingRow const *row = table().row(m_enum);
  return String(row ? row->attribute : "");
}

PromptingImp PromptingImp::fromAttributeString(String const &text) {
  String const word = text.trim();
  char const *w = word.c_str();
  ConstantTable<PromptingRow> const &rows = table();
  for (unsigned int i = 0; i < rows.count; ++i)
    if (constantTextEqualNoCase(rows.rows[i].attribute, w) ||
        constantTextEqualNoCase(rows.rows[i].text, w))
      return PromptingImp(static_cast<Prompting_ENUM>(i));
  for (char const *no : {"false", "no", "off", "0"})
    if (constantTextEqualNoCase(no, w))
      return PromptingImp(DISABLED);
  // "true", "yes", "on", "1" and everything unknown.
  return PromptingImp(ENABLED);
}

String PromptingImp::localizedName() const {
  return localizedConstantText("Prompting", name(), table().text(m_enum));
}

// Declared with the settings in the foundation; defined here, where the rows
// live. Unknown text gives ENABLED, as fromAttributeString does.
PromptingImp GlobalParameters::promptUser(ZELLocale const &locale) {
  return PromptingImp::fromAttributeString(promptUserText(locale));
}

} // namespace zel
