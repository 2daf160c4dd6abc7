#pragma once
// Runs the registered benchmarks and, after the usual report, prints for
// each (subject, baseline) pair the ratio baseline time / subject time: 1.0
// means as fast as the baseline, 0.5 half as fast. Both sides run in the same
// process and the same run, so the ratio is comparable across machines.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace ostrel_bench {

struct RatioGoal {
  std::string subject;
  std::string baseline;
  double goal; ///< minimum ratio wanted (0 when only informative)
};

class RatioReporter : public benchmark::ConsoleReporter {
public:
  void ReportRuns(std::vector<Run> const &runs) override {
    for (auto const &r : runs)
      if (r.run_type == Run::RT_Iteration && r.iterations > 0)
        m_times[r.benchmark_name()] = r.GetAdjustedRealTime();
    ConsoleReporter::ReportRuns(runs);
  }
  void printRatios(std::vector<RatioGoal> const &goals) {
    if (goals.empty())
      return;
    std::printf("\n%-44s %-36s %8s %8s\n", "subject", "baseline", "ratio", "goal");
    for (auto const &g : goals) {
      auto s = m_times.find(g.subject), b = m_times.find(g.baseline);
      if (s == m_times.end() || b == m_times.end() || s->second <= 0)
        continue;
      double ratio = b->second / s->second;
      std::printf("%-44s %-36s %8.3f %8s%s\n", g.subject.c_str(), g.baseline.c_str(), ratio,
                  g.goal > 0 ? (">=" + std::to_string(g.goal).substr(0, 4)).c_str() : "-",
                  g.goal > 0 && ratio < g.goal ? "  BELOW GOAL" : "");
    }
  }

private:
  std::map<std::string, double> m_times;
};

inline int runWithRatios(int argc, char **argv, std::vector<RatioGoal> const &goals) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv))
    return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.printRatios(goals);
  benchmark::Shutdown();
  return 0;
}

} // namespace ostrel_bench
