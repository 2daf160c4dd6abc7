#include "zel/TestStateImp.h"

namespace zel {

ConstantTable<ConstantRow> const &TestStateImp::table() noexcept {
  static ConstantRow const rows[] = {ZEL_TESTSTATE_ROWS(ZEL_CONSTANT_ROW)};
  static ConstantTable<ConstantRow> const table(rows);
  return table;
}

} // namespace zel
