#pragma once
// morvain::diag::DiagnosticRun: what every diagnostic module of this
// computer needs around one run: its parameters, its time limit, progress,
// events and measurements, and the result it ends with.
//
// Time. A run ends early when the engine asks (stopRequested) or when its
// maximum time has passed; both count as "time up" here, so a module that
// checks timeUp() between steps keeps to the limit even where the engine's
// own clock would act a little later. Tests whose length is a parameter
// (stress, benchmarks) shorten it to fit the maximum time and end with
// their real result; tests whose length is their work end with
// interrupted().
//
// Events are sent at once. Error events carry a code; the first code sent
// becomes the outcome's error code.

#include <chrono>
#include <cstdint>
#include <string>

#include "morvain/MachineProvider.h"
#include "zel/IDeviceImp.h"
#include "zel/TestImp.h"

namespace morvain {
namespace diag {

class DiagnosticRun {
public:
  DiagnosticRun(RunContext &context, zel::String const &root);

  RunContext &context() { return m_context; }
  zel::IDeviceImp const *device() const { return m_device.get(); }
  zel::String const &moduleGuid() const { return m_module; }
  /// `path` (absolute, "/sys/...") under the root folder.
  std::string path(std::string const &path) const;
  std::string const &root() const { return m_root; }

  /// The run's parameter `key` as a number / text; `fallback` when the run
  /// has no such parameter or it holds no value of a fitting type.
  std::uint64_t uintParameter(char const *key, std::uint64_t fallback) const;
  double doubleParameter(char const *key, double fallback) const;
  std::string stringParameter(char const *key, std::string const &fallback) const;

  /// Stop requested or maximum time passed.
  bool timeUp() const;
  double elapsedSeconds() const;
  /// Seconds until the maximum time; a very large number without one.
  double secondsLeft() const;
  /// Waits `ms`, ending early at a stop or at the maximum time; false then.
  bool pause(unsigned ms);

  /// `fraction` 0..1 of the work done and what is being done.
  void progress(double fraction, std::string const &text = std::string());

  void error(char const *key, char const *code, std::string const &message);
  void warning(char const *key, std::string const &message);
  void info(char const *key, std::string const &message);
  void measurement(std::string const &name, double value, char const *unit);
  unsigned errorCount() const { return m_errors; }

  /// The outcome `result`, with the first error code sent.
  TestOutcome outcome(zel::TestResultImp result) const;
  /// The outcome of a run cut short: FAIL when errors were found before
  /// (they stand), else USERABORTED for a stop and MAXTIMEEXCEEDED for the
  /// time limit.
  TestOutcome interrupted() const;

private:
  void send(char const *key, zel::EventTypeImp type, char const *code, std::string const &message);

  RunContext &m_context;
  std::string m_root;
  zel::String m_module;
  boost::shared_ptr<zel::IDeviceImp> m_device;
  std::chrono::steady_clock::time_point m_start;
  std::chrono::steady_clock::time_point m_deadline;
  bool m_hasDeadline = false;
  unsigned m_errors = 0;
  zel::String m_firstCode;
};

/// Reads a small text file (first line, without the line end); false when
/// it cannot be read.
bool readLine(std::string const &path, std::string &out);
/// Reads a file holding one integer; false when it cannot be read or parsed.
bool readNumber(std::string const &path, long long &out, int base = 10);
/// "12.3 GB/s"-style rounding for messages: `digits` after the point.
std::string fixed(double value, int digits);
/// "0x0000000012345678".
std::string hex64(std::uint64_t value);

} // namespace diag
} // namespace morvain
