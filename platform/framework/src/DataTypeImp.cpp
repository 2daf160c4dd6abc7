#include "zel/DataTypeImp.h"

namespace zel {

ConstantTable<ConstantRow> const &DataTypeImp::table() noexcept {
  static ConstantRow const rows[] = {ZEL_DATATYPE_ROWS(ZEL_CONSTANT_ROW)};
  static ConstantTable<ConstantRow> const table(rows);
  return table;
}

} // namespace zel
