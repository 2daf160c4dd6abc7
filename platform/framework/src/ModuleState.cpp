#include "zel/ModuleState.h"

namespace zel {

ConstantTable<ConstantRow> const &ModuleState::table() noexcept {
  static ConstantRow const rows[] = {ZEL_MODULESTATE_ROWS(ZEL_CONSTANT_ROW)};
  static ConstantTable<ConstantRow> const table(rows);
  return table;
}

} // namespace zel
