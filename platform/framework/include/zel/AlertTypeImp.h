#pragma once
// zel::AlertTypeImp: the kind of an alert. Row numbers are those of ostrel5::AlertType.
// String equals name.

#include "zel/ConstantTable.h"

// Rows in order: X(NAME, "string").
#define ZEL_ALERTTYPE_ROWS(X)                                                                      \
  X(ALL, "ALL")                                                                                    \
  X(HARDWARE_ISSUE, "HARDWARE_ISSUE")                                                              \
  X(DRIVER_ISSUE, "DRIVER_ISSUE")                                                                  \
  X(OS_ISSUE, "OS_ISSUE")                                                                          \
  X(OS_CRASH, "OS_CRASH")                                                                          \
  X(OS_UNEXPECTED_SHUTDOWN, "OS_UNEXPECTED_SHUTDOWN")                                              \
  X(OS_STARTUP_TIME, "OS_STARTUP_TIME")                                                            \
  X(OS_SHUTDOWN_TIME, "OS_SHUTDOWN_TIME")                                                          \
  X(OS_SLEEP_TIME, "OS_SLEEP_TIME")                                                                \
  X(OS_HIBERNATE_TIME, "OS_HIBERNATE_TIME")                                                        \
  X(SOFTWARE_ISSUE, "SOFTWARE_ISSUE")                                                              \
  X(APPLICATION_CRASH, "APPLICATION_CRASH")                                                        \
  X(APPLICATION_HANG, "APPLICATION_HANG")                                                          \
  X(MESSAGE, "MESSAGE")                                                                            \
  X(CRITICAL, "CRITICAL")

namespace zel {

namespace rows {
struct AlertType {
  enum AlertType_ENUM : unsigned int { ZEL_ALERTTYPE_ROWS(ZEL_CONSTANT_ENUMERATOR) };
};
} // namespace rows

/// One AlertType row; see zel/ConstantTable.h for the common operations.
class AlertTypeImp : public rows::AlertType,
                     public ConstantImp<AlertTypeImp, rows::AlertType::AlertType_ENUM> {
public:
  using ConstantImp::ConstantImp;
  static ConstantTable<ConstantRow> const &table() noexcept;
};

} // namespace zel
