// Value conversions of a 1000-element UINT32ARRAY: its string form (what
// Value::toString gives, and toZELStringArray cuts), and the round trip of
// that form read back as the declared type (the road a test parameter takes
// when it is set from a Value). The baseline does the same round trip with
// std::to_string and std::strtoul on a std::string and a std::vector, with
// no checks: the floor of the job.
//
// Goal: the round trip no slower than the baseline, although ours checks
// every element strictly and builds shared handles on both ends (integers are
// written with to_chars and read in place with from_chars, no text per
// element).

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "ostrel/Value.h"
#include "zel/ValueImp.h"

namespace {

constexpr int kElements = 1000;

std::vector<unsigned int> numbers() {
  std::vector<unsigned int> out(kElements);
  unsigned int x = 2463534242u; // xorshift: full-width numbers, fixed sequence
  for (unsigned int &n : out) {
    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    n = x;
  }
  return out;
}

void BM_ValueUint32ArrayToString(benchmark::State &state) {
  std::vector<unsigned int> in = numbers();
  ostrel5::Value value(in.data(), kElements);
  for (auto _ : state) {
    zel::String text = value.toString();
    benchmark::DoNotOptimize(text.data());
  }
  state.SetItemsProcessed(state.iterations() * kElements);
}
BENCHMARK(BM_ValueUint32ArrayToString);

void BM_ValueUint32ArrayRoundTrip(benchmark::State &state) {
  std::vector<unsigned int> in = numbers();
  ostrel5::Value value(in.data(), kElements);
  for (auto _ : state) {
    ostrel5::Value back(zel::ValueImp(value.toString(), zel::DataTypeImp::UINT32ARRAY));
    benchmark::DoNotOptimize(back.uint32AtIndex(kElements - 1));
  }
  ostrel5::Value check(zel::ValueImp(value.toString(), zel::DataTypeImp::UINT32ARRAY));
  if (!(check == value))
    state.SkipWithError("the round trip lost data");
  state.SetItemsProcessed(state.iterations() * kElements);
}
BENCHMARK(BM_ValueUint32ArrayRoundTrip);

void BM_ValueUint32ArrayToZELStringArray(benchmark::State &state) {
  std::vector<unsigned int> in = numbers();
  ostrel5::Value value(in.data(), kElements);
  for (auto _ : state) {
    zel::Array<zel::String> parts = value.toZELStringArray();
    benchmark::DoNotOptimize(parts.data());
  }
  state.SetItemsProcessed(state.iterations() * kElements);
}
BENCHMARK(BM_ValueUint32ArrayToZELStringArray);

void BM_ValueBaselineStdRoundTrip(benchmark::State &state) {
  std::vector<unsigned int> in = numbers();
  for (auto _ : state) {
    std::string text;
    for (std::size_t i = 0; i < in.size(); ++i) {
      if (i)
        text += ',';
      text += std::to_string(in[i]);
    }
    std::vector<unsigned int> back;
    back.reserve(in.size());
    char const *p = text.c_str();
    while (*p) {
      char *end = nullptr;
      back.push_back(static_cast<unsigned int>(std::strtoul(p, &end, 10)));
      p = *end ? end + 1 : end;
    }
    benchmark::DoNotOptimize(back.data());
  }
  state.SetItemsProcessed(state.iterations() * kElements);
}
BENCHMARK(BM_ValueBaselineStdRoundTrip);

} // namespace
