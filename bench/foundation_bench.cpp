// Foundation benchmarks: container growth and the cost of a disabled log
// call. The XML parse benchmarks live in foundation_bench_xml.cpp.
#include <benchmark/benchmark.h>

#include <vector>

#include "BenchRatios.h"
#include "zel/Array.h"
#include "zel/Logger.h"

namespace {

constexpr int kAppends = 4096;

void BM_ArrayAppend(benchmark::State &state) {
  for (auto _ : state) {
    zel::Array<int> a;
    for (int i = 0; i < kAppends; ++i)
      a.append(i);
    benchmark::DoNotOptimize(a.data());
  }
  state.SetItemsProcessed(state.iterations() * kAppends);
}
BENCHMARK(BM_ArrayAppend);

void BM_VectorPushBack(benchmark::State &state) {
  for (auto _ : state) {
    std::vector<int> v;
    for (int i = 0; i < kAppends; ++i)
      v.push_back(i);
    benchmark::DoNotOptimize(v.data());
  }
  state.SetItemsProcessed(state.iterations() * kAppends);
}
BENCHMARK(BM_VectorPushBack);

void BM_ArrayAppendString(benchmark::State &state) {
  zel::String text("device-property-key");
  for (auto _ : state) {
    zel::Array<zel::String> a;
    for (int i = 0; i < 256; ++i)
      a.append(text);
    benchmark::DoNotOptimize(a.data());
  }
}
BENCHMARK(BM_ArrayAppendString);

void BM_VectorPushBackString(benchmark::State &state) {
  zel::String text("device-property-key");
  for (auto _ : state) {
    std::vector<zel::String> v;
    for (int i = 0; i < 256; ++i)
      v.push_back(text);
    benchmark::DoNotOptimize(v.data());
  }
}
BENCHMARK(BM_VectorPushBackString);

// A log call whose priority is below the threshold: the cost every
// instrumented code path pays when fine logging is off.
void BM_LogBelowThreshold(benchmark::State &state) {
  zel::Logger &log = zel::LogFactory::getLogger("Bench.Disabled");
  for (auto _ : state)
    log.log(1, "a message nobody reads");
}
BENCHMARK(BM_LogBelowThreshold);

void BM_LogfBelowThreshold(benchmark::State &state) {
  zel::Logger &log = zel::LogFactory::getLogger("Bench.Disabled");
  unsigned row = 3;
  for (auto _ : state)
    log.logf(2, "Requested cell at (row = %u, column = %u)", row, row);
}
BENCHMARK(BM_LogfBelowThreshold);

} // namespace

int main(int argc, char **argv) {
  return ostrel_bench::runWithRatios(argc, argv,
                                     {{"BM_ArrayAppend", "BM_VectorPushBack", 0.8},
                                      {"BM_ArrayAppendString", "BM_VectorPushBackString", 0.8},
                                      {"BM_XmlDocumentParse", "BM_PugixmlParse", 0.9}});
}
