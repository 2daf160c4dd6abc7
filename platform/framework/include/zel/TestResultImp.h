#pragma once
// zel::TestResultImp: the result of a test run, a pass, a multi-pass run or a
// script. Row numbers are those of ostrel5::TestResult.
//
// Each row carries two integers besides its string: value(), the result code
// reported to clients (not contiguous), and priority(), the rank among
// results, a lower number outranking a higher one. The sentinel has value 0,
// priority 0 and the empty string.
//
// The overall result of a set of results (overallResult):
//   The result is the row with a non-zero count and the lowest priority
//   number. Rows that share that priority (UNKNOWN_PARTS_FOUND,
//   AMBIGUOUS_PARTS_FOUND and MISSINGREQUIREDDEVICES share 40) are decided
//   by table order: the earliest row wins. When nothing is counted (an empty
//   array, or every counter 0) the result is TESTNOTSTARTED: nothing ran.
//   A counters array shorter than the table counts the missing rows as 0;
//   entries past the last row (the sentinel's place and beyond) are ignored,
//   and so are sentinel results in an array of results.
// So FAIL outranks everything, PASS with COMPLETED gives PASS, and
// TESTNOTSTARTED with PASS gives TESTNOTSTARTED.

#include "zel/Array.h"
#include "zel/ConstantTable.h"

// Rows in order: X(NAME, "string", value, priority).
#define ZEL_TESTRESULT_ROWS(X)                                                                     \
  X(FAIL, "FAIL", 23, -4096)                                                                       \
  X(UNKNOWNERROR, "UNKNOWN ERROR", 19, -3)                                                         \
  X(INTERNALERROR, "INTERNAL ERROR", 22, 3)                                                        \
  X(DEVICEBUSY, "DEVICE BUSY", 25, 5)                                                              \
  X(INSUFFICIENTPRIVILEGE, "INSUFFICIENT PRIVILEGE", 26, 6)                                        \
  X(CANNOTRUN, "CANNOT RUN", 28, 8)                                                                \
  X(BADPARAMS, "BAD PARAMS", 29, 9)                                                                \
  X(DUPLICATEGUID, "DUPLICATE GUID", 36, 10)                                                       \
  X(NODEVICE, "NO DEVICE", 31, 11)                                                                 \
  X(NOTEST, "NO TEST", 32, 12)                                                                     \
  X(NOMODULE, "NO MODULE", 33, 13)                                                                 \
  X(EXECFAILED, "EXEC FAILED", 34, 14)                                                             \
  X(MODULEFAILEDTOSTART, "MODULE FAILED TO START", 35, 15)                                         \
  X(EXITEDABNORMALLY, "EXITED ABNORMALLY", 38, 16)                                                 \
  X(MAXTIMEEXCEEDED, "MAX TIME EXCEEDED", 37, 17)                                                  \
  X(USERABORTED, "USER ABORTED", 24, 18)                                                           \
  X(NOMEDIA, "NO MEDIA", 30, 19)                                                                   \
  X(INCORRECTMEDIA, "INCORRECT MEDIA", 39, 20)                                                     \
  X(NOCABLE, "NO CABLE", 40, 21)                                                                   \
  X(NOCONNECTION, "NO CONNECTION", 41, 22)                                                         \
  X(NOINDICATOR, "NO INDICATOR", 42, 23)                                                           \
  X(DEVICENOTTESTABLE, "DEVICE NOT TESTABLE", 43, 24)                                              \
  X(DEVICEDISABLED, "DEVICE DISABLED", 44, 25)                                                     \
  X(MISCONFIGURED, "MISCONFIGURED", 45, 26)                                                        \
  X(DEVICETESTINGBLOCKED, "DEVICE TESTING BLOCKED", 46, 27)                                        \
  X(NODIALTONE, "NODIALTONE", 47, 28)                                                              \
  X(NOTAPPLICABLE, "NOTAPPLICABLE", 48, 29)                                                        \
  X(NOSIGNAL, "NO SIGNAL", 49, 30)                                                                 \
  X(LOWSIGNALSTRENGTH, "LOW SIGNAL STRENGTH", 50, 31)                                              \
  X(WARN, "WARNING", 51, 32)                                                                       \
  X(INDETERMINATE, "INDETERMINATE", 52, 33)                                                        \
  X(SKIPPED, "SKIPPED", 53, 34)                                                                    \
  X(TESTINGHALTED, "TESTINGHALTED", 56, 37)                                                        \
  X(DEVICEABORTED, "DEVICE ABORTED", 57, 38)                                                       \
  X(TIMEDOUT, "TIMED OUT", 58, 39)                                                                 \
  X(UNKNOWN_PARTS_FOUND, "UNKNOWN_PARTS_FOUND", 60, 40)                                            \
  X(AMBIGUOUS_PARTS_FOUND, "AMBIGUOUS_PARTS_FOUND", 61, 40)                                        \
  X(MISSINGREQUIREDDEVICES, "MISSING REQUIRED DEVICES", 62, 40)                                    \
  X(PARTS_MATCH_COMPLETED, "PARTS_MATCH_COMPLETED", 59, 41)                                        \
  X(TESTINGINPROGRESS, "TESTING IN PROGRESS", 21, 4094)                                            \
  X(TESTNOTSTARTED, "TEST NOT STARTED", 20, 4095)                                                  \
  X(PASS, "PASS", 0, 4096)                                                                         \
  X(COMPLETED, "COMPLETED", 55, 4097)                                                              \
  X(NOTSUPPORTED, "NOT SUPPORTED", 27, 4098)

namespace zel {

/// A TestResult row: accessor name, string, result code, priority.
struct TestResultRow {
  char const *name;
  char const *text;
  int value;
  int priority;
};

namespace rows {
struct TestResult {
  enum TestResult_ENUM : unsigned int { ZEL_TESTRESULT_ROWS(ZEL_CONSTANT_ENUMERATOR) };
};
} // namespace rows

/// One TestResult row; see zel/ConstantTable.h for the common operations.
class TestResultImp
    : public rows::TestResult,
      public ConstantImp<TestResultImp, rows::TestResult::TestResult_ENUM, TestResultRow> {
public:
  using ConstantImp::ConstantImp;
  /// TESTNOTSTARTED: what a result is before anything has run.
  TestResultImp() noexcept : ConstantImp(TESTNOTSTARTED) {}

  static ConstantTable<TestResultRow> const &table() noexcept;

  /// The result code of the row; 0 for the sentinel.
  int value() const noexcept;
  /// The rank of the row (lower outranks higher); 0 for the sentinel.
  int priority() const noexcept;
  /// The display name in the language of the global locale, from the
  /// resource file "constants" under the key "TestResult.<NAME>" (English
  /// fills gaps of a translation); the row's string when no file has the
  /// key; "" for the sentinel.
  String localizedName() const;

  /// One result for a set of results, by the rule in the header comment.
  static TestResultImp overallResult(Array<TestResultImp> const &results);
  /// One result for an array of counters, one counter per row (index =
  /// row number), by the rule in the header comment.
  static TestResultImp overallResult(Array<unsigned int> const &counters);
};

} // namespace zel
