// Framework benchmarks: the mirror (bench/framework_bench.cpp) and message
// encoding (bench/framework_bench_messages.cpp). Absolute goals are printed
// by the benchmarks themselves as counters.
#include "BenchRatios.h"

int main(int argc, char **argv) { return ostrel_bench::runWithRatios(argc, argv, {}); }
