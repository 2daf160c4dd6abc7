#pragma once
// zel::TipTypeImp: the kind of a tip. Row numbers are those of ostrel5::TipType.
// String equals name.

#include "zel/ConstantTable.h"

// Rows in order: X(NAME, "string").
#define ZEL_TIPTYPE_ROWS(X)                                                                        \
  X(UNINITIALIZED, "UNINITIALIZED")                                                                \
  X(TEXT_TIP, "TEXT_TIP")                                                                          \
  X(URL_TIP, "URL_TIP")                                                                            \
  X(SCRIPT_TIP, "SCRIPT_TIP")                                                                      \
  X(APP_LAUNCHER_TIP, "APP_LAUNCHER_TIP")                                                          \
  X(ZELR_HELP_TIP, "ZELR_HELP_TIP")                                                                \
  X(HELP_AND_SUPPORT_TIP, "HELP_AND_SUPPORT_TIP")                                                  \
  X(HTML_TIP, "HTML_TIP")                                                                          \
  X(INVENTORY_TIP, "INVENTORY_TIP")                                                                \
  X(INVENTORY_XML_TIP, "INVENTORY_XML_TIP")                                                        \
  X(APP_LAUNCHER_AND_REFRESH_SYSINFO_TIP, "APP_LAUNCHER_AND_REFRESH_SYSINFO_TIP")                  \
  X(DEV_PROP_PAGE_LAUNCHER_TIP, "DEV_PROP_PAGE_LAUNCHER_TIP")                                      \
  X(RMA_TIP, "RMA_TIP")

namespace zel {

namespace rows {
struct TipType {
  enum TipType_ENUM : unsigned int { ZEL_TIPTYPE_ROWS(ZEL_CONSTANT_ENUMERATOR) };
};
} // namespace rows

/// One TipType row; see zel/ConstantTable.h for the common operations.
class TipTypeImp : public rows::TipType,
                   public ConstantImp<TipTypeImp, rows::TipType::TipType_ENUM> {
public:
  using ConstantImp::ConstantImp;
  static ConstantTable<ConstantRow> const &table() noexcept;
};

} // namespace zel
