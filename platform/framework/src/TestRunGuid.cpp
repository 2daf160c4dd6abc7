#include "TestRunGuid.h"

#include <cstdint>
#include <random>

namespace zel {
namespace testrun {

namespace {

std::mt19937_64 &generator() {
  // One engine per thread: no lock on the hot path, and no two threads share
  // a sequence because each is seeded independently from random_device.
  thread_local std::mt19937_64 engine = [] {
    std::random_device rd;
    std::seed_seq seq{rd(), rd(), rd(), rd(), rd(), rd(), rd(), rd()};
    return std::mt19937_64(seq);
  }();
  return engine;
}

} // namespace

String newGuid() {
  std::uint64_t hi = generator()();
  std::uint64_t lo = generator()();
  hi = (hi & ~0x000000000000F000ull) | 0x0000000000004000ull; // version 4
  lo = (lo & ~0xC000000000000000ull) | 0x8000000000000000ull; // RFC 4122 variant
  return String::format("%08x-%04x-%04x-%04x-%012llx", static_cast<unsigned>(hi >> 32),
                        static_cast<unsigned>((hi >> 16) & 0xFFFF),
                        static_cast<unsigned>(hi & 0xFFFF), static_cast<unsigned>(lo >> 48),
                        static_cast<unsigned long long>(lo & 0xFFFFFFFFFFFFull));
}

} // namespace testrun
} // namespace zel
