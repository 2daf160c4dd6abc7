// Vocabulary benchmarks: the capability catalogue. Device matching asks
// isCapable and forms unions over and over, and scripts look capabilities up
// by name, so these are the operations measured. Each has a baseline in the
// same run: the same question on a std::set<int> (what a naive set would
// cost), a strcasecmp walk over the row strings, and a bare allocation.
//
// Goals: isCapable and union of two full sets under 20 ns; a case-blind
// getConstantByString over the 298 rows under 2 us in its worst case (last
// row, or a miss); an accessor costs one small allocation.

#include <benchmark/benchmark.h>

#include <strings.h>

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "ostrel/DeviceCapability.h"
#include "zel/CapabilityImp.h"

namespace {

using ostrel5::DeviceCapability;
using zel::CapabilityImp;

CapabilityImp fullSet() {
  CapabilityImp all;
  for (unsigned r = 0; r < CapabilityImp::ROW_COUNT; ++r)
    if (r != static_cast<unsigned>(CapabilityImp::Row::ALL))
      all |= CapabilityImp(r); // ALL left out so that isCapable tests every word
  return all;
}

std::set<int> fullModel() {
  std::set<int> s;
  for (unsigned r = 0; r < CapabilityImp::ROW_COUNT; ++r)
    s.insert(static_cast<int>(r));
  return s;
}

// --- isCapable ---------------------------------------------------------------

void BM_CapabilityImpIsCapableFull(benchmark::State &state) {
  CapabilityImp have = fullSet();
  CapabilityImp required = fullSet();
  for (auto _ : state) {
    benchmark::DoNotOptimize(have);
    benchmark::DoNotOptimize(required);
    bool ok = have.isCapable(required);
    benchmark::DoNotOptimize(ok);
  }
}
BENCHMARK(BM_CapabilityImpIsCapableFull);

void BM_DeviceCapabilityIsCapableFull(benchmark::State &state) {
  DeviceCapability have(fullSet());
  DeviceCapability required(fullSet());
  for (auto _ : state) {
    bool ok = have.isCapable(required);
    benchmark::DoNotOptimize(ok);
  }
}
BENCHMARK(BM_DeviceCapabilityIsCapableFull);

void BM_BaselineStdSetIncludesFull(benchmark::State &state) {
  std::set<int> have = fullModel();
  std::set<int> required = fullModel();
  for (auto _ : state) {
    bool ok = std::includes(have.begin(), have.end(), required.begin(), required.end());
    benchmark::DoNotOptimize(ok);
  }
}
BENCHMARK(BM_BaselineStdSetIncludesFull);

// --- union -------------------------------------------------------------------

void BM_CapabilityImpUnionFull(benchmark::State &state) {
  CapabilityImp a = fullSet();
  CapabilityImp b = CapabilityImp(CapabilityImp::Row::ALL);
  for (auto _ : state) {
    benchmark::DoNotOptimize(a);
    benchmark::DoNotOptimize(b);
    CapabilityImp u = a | b;
    benchmark::DoNotOptimize(u);
  }
}
BENCHMARK(BM_CapabilityImpUnionFull);

// The public operator returns a new object, so it includes one allocation.
void BM_DeviceCapabilityUnionFull(benchmark::State &state) {
  DeviceCapability a(fullSet());
  DeviceCapability b = DeviceCapability::ALL();
  for (auto _ : state) {
    DeviceCapability u = a | b;
    benchmark::DoNotOptimize(u.getImp());
  }
}
BENCHMARK(BM_DeviceCapabilityUnionFull);

void BM_BaselineStdSetUnionFull(benchmark::State &state) {
  std::set<int> a = fullModel();
  std::set<int> b = {1};
  for (auto _ : state) {
    std::set<int> u = a;
    u.insert(b.begin(), b.end());
    benchmark::DoNotOptimize(u);
  }
}
BENCHMARK(BM_BaselineStdSetUnionFull);

// --- getConstantByString -----------------------------------------------------

// Arg 0: the first row, 1: the last row, 2: a miss (every row is compared).
char const *lookupText(int which) {
  switch (which) {
  case 0:
    return "nil";
  case 1:
    return "EMULATED";
  default:
    return "NoSuchCapability";
  }
}

void BM_GetConstantByStringCaseBlind(benchmark::State &state) {
  char const *text = lookupText(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    DeviceCapability c = DeviceCapability::getConstantByString(text, false);
    benchmark::DoNotOptimize(c.getImp());
  }
}
BENCHMARK(BM_GetConstantByStringCaseBlind)->Arg(0)->Arg(1)->Arg(2);

void BM_RowByStringCaseBlind(benchmark::State &state) {
  char const *text = lookupText(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(text);
    unsigned row = CapabilityImp::rowByString(text, false);
    benchmark::DoNotOptimize(row);
  }
}
BENCHMARK(BM_RowByStringCaseBlind)->Arg(0)->Arg(1)->Arg(2);

// What a plain walk with strcasecmp over the row strings costs.
void BM_BaselineStrcasecmpWalk(benchmark::State &state) {
  char const *text = lookupText(static_cast<int>(state.range(0)));
  std::vector<std::string> rows;
  for (unsigned r = 0; r < CapabilityImp::ROW_COUNT; ++r)
    rows.emplace_back(CapabilityImp::rowString(r));
  for (auto _ : state) {
    benchmark::DoNotOptimize(text);
    unsigned found = CapabilityImp::ROW_COUNT;
    for (unsigned r = 0; r < rows.size(); ++r)
      if (strcasecmp(rows[r].c_str(), text) == 0) {
        found = r;
        break;
      }
    benchmark::DoNotOptimize(found);
  }
}
BENCHMARK(BM_BaselineStrcasecmpWalk)->Arg(0)->Arg(1)->Arg(2);

// --- building an accessor ----------------------------------------------------------

void BM_AccessorOptical(benchmark::State &state) {
  for (auto _ : state) {
    DeviceCapability c = DeviceCapability::Optical();
    benchmark::DoNotOptimize(c.getImp());
  }
}
BENCHMARK(BM_AccessorOptical);

// One heap object of the same size: the floor of an accessor.
void BM_BaselineOneAllocation(benchmark::State &state) {
  for (auto _ : state) {
    auto p = std::make_unique<CapabilityImp>(7u);
    benchmark::DoNotOptimize(p.get());
  }
}
BENCHMARK(BM_BaselineOneAllocation);

void BM_TextRoundTripThreeNames(benchmark::State &state) {
  zel::String text("Optical|CDROM|DVD");
  for (auto _ : state) {
    CapabilityImp c(text);
    zel::String back = c.toString();
    benchmark::DoNotOptimize(back.data());
  }
}
BENCHMARK(BM_TextRoundTripThreeNames);

} // namespace
