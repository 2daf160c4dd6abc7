#pragma once
// ostrel5::TestResult: the result of a test run, a multi-pass run or a script.
// A bare constant of 44 rows (the object is its 32-bit row number); rows:
// ZEL_TESTRESULT_ROWS in zel/TestResultImp.h, each with its string, value()
// and priority(); common operations: ostrel/ConstantClass.h.
//
// Row strings are irregular on purpose: WARN reads "WARNING", "NODIALTONE",
// "NOTAPPLICABLE" and "TESTINGHALTED" have no blanks, the three parts results
// have underscores. Look-ups by string search these strings, never the
// accessor names, so "WARN" finds nothing.
//
// overallResult: the row with a non-zero count and the lowest priority
// number; equal priorities go to the earliest row; nothing counted gives
// TESTNOTSTARTED (the full rule is in zel/TestResultImp.h).

#include <vector>

#include "ostrel/ConstantClass.h"
#include "zel/Array.h"
#include "zel/TestResultImp.h"

namespace ostrel5 {

class TestResult {
public:
  typedef zel::rows::TestResult::TestResult_ENUM TestResult_ENUM;
  OSTREL5_CONSTANT_CLASS(TestResult, zel::rows::TestResult)
  ZEL_TESTRESULT_ROWS(OSTREL5_CONSTANT_ACCESSOR)

  /// The same row as the implementation constant.
  TestResult(zel::TestResultImp const &imp) noexcept : m_enum(imp.enumValue()) {}
  zel::TestResultImp imp() const noexcept { return zel::TestResultImp(m_enum); }

  /// The result code reported to clients; 0 for the sentinel.
  int value() const noexcept;
  /// The rank among results, a lower number outranking a higher one; 0 for
  /// the sentinel.
  int priority() const noexcept;
  /// The display name in the current language (zel::TestResultImp::localizedName).
  zel::String localizedName() const;

  /// One result for an array of counters, one per row (index = row number).
  static TestResult overallResult(zel::Array<unsigned int> const &counters);
  /// One result for a set of results, taken in the caller's order.
  static TestResult overallResult(zel::Array<TestResult> const &results);
  static TestResult overallResult(std::vector<TestResult> const &results);

private:
  TestResult_ENUM m_enum;
};

} // namespace ostrel5
