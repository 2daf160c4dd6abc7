#include "zel/ParameterSourceImp.h"

namespace zel {

ConstantTable<ConstantRow> const &ParameterSourceImp::table() noexcept {
  static ConstantRow const rows[] = {ZEL_PARAMETERSOURCE_ROWS(ZEL_CONSTANT_ROW)};
  static ConstantTable<ConstantRow> const table(rows);
  return table;
}

} // namespace zel
