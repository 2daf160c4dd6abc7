#include "zel/TestResultImp.h"

namespace zel {

ConstantTable<TestResultRow> const &TestResultImp::table() noexcept {
  static TestResultRow const rows[] = {ZEL_TESTRESULT_ROWS(ZEL_CONSTANT_ROW)};
  static ConstantTable<TestResultRow> const table(rows);
  return table;
}

int TestResultImp::value() const noexcept {
  TestResultRow const *row = table().row(m_enum);
  return row ? row->value : 0;
}

int TestResultImp::priority() const noexcept {
  TestResultRow const *row = table().row(m_enum);
  return row ? row->priority : 0;
}

String TestResultImp::localizedName() const {
  return localizedConstantText("TestResult", name(), table().text(m_enum));
}

TestResultImp TestResultImp::overallResult(Array<TestResultImp> const &results) {
  Array<unsigned int> counters;
  for (unsigned int i = 0; i < constantCount(); ++i)
    counters.append(0);
  for (TestResultImp const &result : results)
    if (result.isValid())
      ++counters[result.enumValue()];
  return overallResult(counters);
}

TestResultImp TestResultImp::overallResult(Array<unsigned int> const &counters) {
  ConstantTable<TestResultRow> const &rows = table();
  std::size_t const limit = counters.size() < rows.count ? counters.size() : rows.count;
  unsigned int best = rows.count;
  for (std::size_t i = 0; i < limit; ++i) {
    if (counters[i] == 0)
      continue;
    // Strictly lower only: among equal priorities the earliest row stays.
    if (best == rows.count || rows.rows[i].priority < rows.rows[best].priority)
      best = static_cast<unsigned int>(i);
  }
  if (best == rows.count)
    return TestResultImp(TESTNOTSTARTED);
  return TestResultImp(static_cast<TestResult_ENUM>(best));
}

} // namespace zel
