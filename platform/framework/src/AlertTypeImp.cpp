#include "zel/AlertTypeImp.h"

namespace zel {

ConstantTable<ConstantRow> const &AlertTypeImp::table() noexcept {
  static ConstantRow const rows[] = {ZEL_ALERTTYPE_ROWS(ZEL_CONSTANT_ROW)};
  static ConstantTable<ConstantRow> const table(rows);
  return table;
}

} // namespace zel
