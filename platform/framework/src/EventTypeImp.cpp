#include "zel/EventTypeImp.h"

namespace zel {

ConstantTable<ConstantRow> const &EventTypeImp::table() noexcept {
  static ConstantRow const rows[] = {ZEL_EVENTTYPE_ROWS(ZEL_CONSTANT_ROW)};
  static ConstantTable<ConstantRow> const table(rows);
  return table;
}

String EventTypeImp::localizedString() const {
  return localizedConstantText("EventType", name(), table().text(m_enum));
}

} // namespace zel
