#include "zel/DeviceStateImp.h"

namespace zel {

ConstantTable<ConstantRow> const &DeviceStateImp::table() noexcept {
  static ConstantRow const rows[] = {ZEL_DEVICESTATE_ROWS(ZEL_CONSTANT_ROW)};
  static ConstantTable<ConstantRow> const table(rows);
  return table;
}

} // namespace zel
