#pragma once
// Known-answer checks and throughput kernels of the processor module, and
// a team of worker threads pinned one per logical CPU.
//
// A known-answer check computes something whose right result is known
// independently of the computation: a closed form (the sum of the first n
// squares), an identity a second, differently built computation must agree
// with (a jump-ahead against stepping, a vector lane against the same sum
// done in scalar code), or a constant every correct processor produces
// (IEEE 754 fixes the result of +, -, *, / and sqrt to the bit). Inputs pass
// through an optimisation barrier so that the compiler cannot compute any
// of it ahead of time: the processor does the work every time.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace morvain {
namespace cpucheck {

enum class Check { INTEGER, FLOATING_POINT, SIMD };

/// "integer", "floating-point", "SIMD".
char const *checkName(Check check);

/// One round of a check on the calling thread. `round` varies the inputs
/// of the closed-form parts. Empty when every answer was right, otherwise
/// the first wrong one ("sum of squares: expected ..., got ...").
std::string runCheck(Check check, unsigned round);

/// The vector instruction sets the SIMD check exercises on this processor,
/// e.g. "SSE2, AVX2, AVX-512F".
std::string simdLevels();

/// Throughput kernels: run `iterations` and return the operations done
/// (integer: 64-bit multiplies and adds; floating point: double-precision
/// multiplies and adds). `sink` keeps the result alive.
std::uint64_t integerKernel(std::uint64_t iterations, std::uint64_t &sink);
std::uint64_t floatKernel(std::uint64_t iterations, double &sink);

/// Reads a CPU list as the kernel writes it ("0-3,8-11", "5"). False on
/// malformed text.
bool parseCpuList(std::string const &text, std::vector<int> &out);
/// The CPUs this process may run on.
std::vector<int> allowedCpus();

/// Threads pinned one per CPU, each running `body(index, cpu, stop)` once.
/// A thread that cannot be pinned to its CPU does not run the body (it is
/// listed by unpinned()). Members may be called from any thread.
class CpuTeam {
public:
  using Body = std::function<void(std::size_t index, int cpu, std::atomic<bool> const &stop)>;

  CpuTeam(std::vector<int> const &cpus, Body body);
  /// Stops and joins.
  ~CpuTeam();
  CpuTeam(CpuTeam const &) = delete;
  CpuTeam &operator=(CpuTeam const &) = delete;

  bool waitFor(unsigned ms);
  void requestStop() { m_stop.store(true); }
  std::vector<int> unpinned() const;

private:
  void run(std::size_t index, int cpu);

  Body m_body;
  std::atomic<bool> m_stop{false};
  std::vector<std::thread> m_threads;
  mutable std::mutex m_lock;
  std::condition_variable m_cv;
  std::size_t m_finished = 0;
  std::vector<int> m_unpinned;
};

} // namespace cpucheck
} // namespace morvain
