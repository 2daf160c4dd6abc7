#include "ostrel/ApplicationRunType.h"

namespace ostrel5 {

namespace {
zel::ConstantRow const g_rows[] = {OSTREL5_APPLICATIONRUNTYPE_ROWS(ZEL_CONSTANT_ROW)};
zel::ConstantTable<zel::ConstantRow> const g_table(g_rows);
} // namespace

OSTREL5_DEFINE_CONSTANT_CLASS(ApplicationRunType, g_table)

} // namespace ostrel5
