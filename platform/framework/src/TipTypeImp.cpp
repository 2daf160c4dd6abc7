#include "zel/TipTypeImp.h"

namespace zel {

ConstantTable<ConstantRow> const &TipTypeImp::table() noexcept {
  static ConstantRow const rows[] = {ZEL_TIPTYPE_ROWS(ZEL_CONSTANT_ROW)};
  static ConstantTable<ConstantRow> const table(rows);
  return table;
}

} // namespace zel
