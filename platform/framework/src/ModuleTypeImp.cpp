#include "zel/ModuleTypeImp.h"

namespace zel {

ConstantTable<ConstantRow> const &ModuleTypeImp::table() noexcept {
  static ConstantRow const rows[] = {ZEL_MODULETYPE_ROWS(ZEL_CONSTANT_ROW)};
  static ConstantTable<ConstantRow> const table(rows);
  return table;
}

} // namespace zel
