#pragma once
// ostrel5::AlertValueKey: the keys under which an alert's values are stored: 46 rows.
// A bare constant (the object is its 32-bit row number); common operations:
// ostrel/ConstantClass.h. It has no implementation class: the rows below are
// the only ones.

#include "ostrel/ConstantClass.h"

// Rows in order: X(NAME, "string").
#define OSTREL5_ALERTVALUEKEY_ROWS(X)                                                              \
  X(APPLICATION_NAME, "ApplicationName")                                                           \
  X(APPLICATION_VERSION, "ApplicationVersion")                                                     \
  X(MODULE_NAME, "ModuleName")                                                                     \
  X(MODULE_VERSION, "ModuleVersion")                                                               \
  X(EXCEPTION_CODE, "ExceptionCode")                                                               \
  X(FAULT_OFFSET, "FaultOffset")                                                                   \
  X(START_TIME, "StartTime")                                                                       \
  X(TERMINATION_TIME, "TerminationTime")                                                           \
  X(APPLICATION_PATH, "ApplicationPath")                                                           \
  X(MODULE_PATH, "ModulePath")                                                                     \
  X(REPORT_ID, "ReportID")                                                                         \
  X(DEVICE_ID, "DeviceID")                                                                         \
  X(DRIVER_PROBLEM_CODE, "DriverProblemCode")                                                      \
  X(DRIVER_PROVIDER, "DriverProvider")                                                             \
  X(DRIVER_VERSION, "DriverVersion")                                                               \
  X(DUMP_PATH, "DumpPath")                                                                         \
  X(CAUSE, "Cause")                                                                                \
  X(CODE, "Code")                                                                                  \
  X(FULL_CODE, "FullCode")                                                                         \
  X(PARAMETERS, "Parameters")                                                                      \
  X(DRIVER, "Driver")                                                                              \
  X(DEVICE, "Device")                                                                              \
  X(BSOD_TIMESTAMP, "BSODTimestamp")                                                               \
  X(PROBABLE_CAUSE_DRIVER, "ProbableCauseDriver")                                                  \
  X(PROBABLE_CAUSE_DRIVER_TIMESTAMP, "ProbableCauseDriverTimestamp")                               \
  X(PROBABLE_CAUSE_DRIVER_CHECKSUM, "ProbableCauseDriverChecksum")                                 \
  X(CURRENT_DRIVER, "CurrentDriver")                                                               \
  X(CURRENT_DRIVER_TIMESTAMP, "CurrentDriverTimestamp")                                            \
  X(CURRENT_DRIVER_CHECKSUM, "CurrentDriverChecksum")                                              \
  X(CURRENT_DRIVER_VERSION, "CurrentDriverVersion")                                                \
  X(CURRENT_DRIVER_COMPANY_NAME, "CurrentDriverCompanyName")                                       \
  X(PROBABLE_CAUSE_DEVICE, "ProbableCauseDevice")                                                  \
  X(OS_BOOT_TIME_TOTAL, "OSBootTimeTotal")                                                         \
  X(OS_BOOT_TIME_TO_DESKTOP, "OSBootTimeToDesktop")                                                \
  X(OS_BOOT_TIME_DESKTOP_TO_IDLE, "OSBootTimeDesktopToIdle")                                       \
  X(OS_BOOT_NUM_APPS, "OSBootNumApps")                                                             \
  X(OS_SHUTDOWN_TIME, "OSShutdownTime")                                                            \
  X(OS_SHUTDOWN_NOTIFICATIONS_TIME, "OSShutdownNotificationsTime")                                 \
  X(OS_SERVICES_TIME, "OSServicesTime")                                                            \
  X(OS_DRIVERS_TIME, "OSDriversTime")                                                              \
  X(OS_DEVICES_TIME, "OSDevicesTime")                                                              \
  X(OS_KERNEL_TIME, "OSKernelTime")                                                                \
  X(OS_SUSPEND_TIME, "OSSuspendTime")                                                              \
  X(OS_RESUME_TIME, "OSResumeTime")                                                                \
  X(OS_HIBERNATE_READ_TIME, "OSHibernateReadTime")                                                 \
  X(OS_HIBERNATE_WRITE_TIME, "OSHibernateWriteTime")

namespace ostrel5 {

namespace rows {
struct AlertValueKey {
  enum AlertValueKey_ENUM : unsigned int { OSTREL5_ALERTVALUEKEY_ROWS(ZEL_CONSTANT_ENUMERATOR) };
};
} // namespace rows

class AlertValueKey {
public:
  typedef rows::AlertValueKey::AlertValueKey_ENUM AlertValueKey_ENUM;
  OSTREL5_CONSTANT_CLASS(AlertValueKey, rows::AlertValueKey)
  OSTREL5_ALERTVALUEKEY_ROWS(OSTREL5_CONSTANT_ACCESSOR)

private:
  AlertValueKey_ENUM m_enum;
};

} // namespace ostrel5
