#include "ostrel/TestResult.h"

namespace ostrel5 {

OSTREL5_DEFINE_CONSTANT_CLASS(TestResult, zel::TestResultImp::table())

int TestResult::value() const noexcept { return imp().value(); }

int TestResult::priority() const noexcept { return imp().priority(); }

zel::String TestResult::localizedName() const { return imp().localizedName(); }

TestResult TestResult::overallResult(zel::Array<unsigned int> const &counters) {
  return zel::TestResultImp::overallResult(counters);
}

namespace {
template <class Sequence> TestResult overallOf(Sequence const &results) {
  zel::Array<zel::TestResultImp> imps(results.size());
  for (TestResult const &result : results)
    imps.append(result.imp());
  return zel::TestResultImp::overallResult(imps);
}
} // namespace

TestResult TestResult::overallResult(zel::Array<TestResult> const &results) {
  return overallOf(results);
}

TestResult TestResult::overallResult(std::vector<TestResult> const &results) {
  return overallOf(results);
}

} // namespace ostrel5
