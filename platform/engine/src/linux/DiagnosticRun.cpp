#include "linux/DiagnosticRun.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>

#include "zel/ParameterImp.h"
#include "zel/TestRunEventImp.h"

namespace morvain {
namespace diag {

DiagnosticRun::DiagnosticRun(RunContext &context, zel::String const &root)
    : m_context(context), m_root(root.str()), m_start(std::chrono::steady_clock::now()) {
  while (m_root.size() > 1 && m_root.back() == '/')
    m_root.pop_back();
  if (m_root == "/")
    m_root.clear();
  if (auto test = context.run().test())
    m_module = test->moduleGuid();
  m_device = context.run().device();
  std::uint64_t const maxTime = context.run().maxTime();
  // Limits beyond a year are "none": they would overflow the clock.
  if (maxTime != zel::TestRunImp::NO_MAX_TIME && maxTime < 366ull * 24 * 3600) {
    m_hasDeadline = true;
    m_deadline = m_start + std::chrono::seconds(maxTime);
  }
}

std::string DiagnosticRun::path(std::string const &p) const { return m_root + p; }

namespace {
boost::shared_ptr<zel::ParameterImp> findParameter(RunContext &context, char const *key) {
  return context.run().parameter(key);
}
} // namespace

std::uint64_t DiagnosticRun::uintParameter(char const *key, std::uint64_t fallback) const {
  auto p = findParameter(m_context, key);
  if (!p || !p->value().hasData())
    return fallback;
  try {
    long long const v = p->value().value();
    return v < 0 ? fallback : static_cast<std::uint64_t>(v);
  } catch (...) {
    bool ok = false;
    std::uint64_t const v = zel::String::strToUInt64(p->value().toString(), 10, &ok);
    return ok ? v : fallback;
  }
}

double DiagnosticRun::doubleParameter(char const *key, double fallback) const {
  auto p = findParameter(m_context, key);
  if (!p || !p->value().hasData())
    return fallback;
  try {
    return p->value().valueDouble();
  } catch (...) {
    bool ok = false;
    double const v = zel::String::strToReal64(p->value().toString(), &ok);
    return ok ? v : fallback;
  }
}

std::string DiagnosticRun::stringParameter(char const *key, std::string const &fallback) const {
  auto p = findParameter(m_context, key);
  if (!p || !p->value().hasData())
    return fallback;
  return p->value().toString().str();
}

bool DiagnosticRun::timeUp() const {
  return m_context.stopRequested() ||
         (m_hasDeadline && std::chrono::steady_clock::now() >= m_deadline);
}

double DiagnosticRun::elapsedSeconds() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
}

double DiagnosticRun::secondsLeft() const {
  if (!m_hasDeadline)
    return std::numeric_limits<double>::max();
  return std::max(
      0.0, std::chrono::duration<double>(m_deadline - std::chrono::steady_clock::now()).count());
}

bool DiagnosticRun::pause(unsigned ms) {
  double const left = secondsLeft();
  if (left * 1000.0 < ms) {
    m_context.sleepFor(static_cast<unsigned>(left * 1000.0));
    return false;
  }
  return m_context.sleepFor(ms) && !timeUp();
}

void DiagnosticRun::progress(double fraction, std::string const &text) {
  fraction = std::min(1.0, std::max(0.0, fraction));
  m_context.progress(static_cast<unsigned>(fraction * 100.0), text);
}

void DiagnosticRun::send(char const *key, zel::EventTypeImp type, char const *code,
                         std::string const &message) {
  zel::TestRunEventImp event(m_module, key);
  event.setType(type).setMessage(message);
  if (code && *code)
    event.setEventCodeString(code);
  if (m_device)
    event.setDevice(m_device->guid());
  m_context.event(event);
}

void DiagnosticRun::error(char const *key, char const *code, std::string const &message) {
  if (m_errors++ == 0)
    m_firstCode = code;
  send(key, zel::EventTypeImp::ERR, code, message);
}

void DiagnosticRun::warning(char const *key, std::string const &message) {
  send(key, zel::EventTypeImp::WARNING, nullptr, message);
}

void DiagnosticRun::info(char const *key, std::string const &message) {
  send(key, zel::EventTypeImp::INFORMATIVE, nullptr, message);
}

void DiagnosticRun::measurement(std::string const &name, double value, char const *unit) {
  m_context.measurement(name, value, unit);
}

TestOutcome DiagnosticRun::outcome(zel::TestResultImp result) const {
  return TestOutcome{result, m_firstCode};
}

TestOutcome DiagnosticRun::interrupted() const {
  if (m_errors > 0)
    return outcome(zel::TestResultImp::FAIL);
  return outcome(m_context.stopRequested() ? zel::TestResultImp::USERABORTED
                                           : zel::TestResultImp::MAXTIMEEXCEEDED);
}

bool readLine(std::string const &path, std::string &out) {
  std::ifstream in(path);
  if (!in)
    return false;
  if (!std::getline(in, out)) {
    // An empty file reads as an empty line; a read error does not.
    if (in.bad())
      return false;
    out.clear();
  }
  while (!out.empty() && (out.back() == '\r' || out.back() == ' ' || out.back() == '\t'))
    out.pop_back();
  return true;
}

bool readNumber(std::string const &path, long long &out, int base) {
  std::string line;
  if (!readLine(path, line) || line.empty())
    return false;
  char *end = nullptr;
  errno = 0;
  long long const v = std::strtoll(line.c_str(), &end, base);
  if (end == line.c_str() || errno != 0)
    return false;
  while (*end == ' ' || *end == '\t')
    ++end;
  if (*end != '\0')
    return false;
  out = v;
  return true;
}

std::string fixed(double value, int digits) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.*f", digits, value);
  return buf;
}

std::string hex64(std::uint64_t value) {
  char buf[24];
  std::snprintf(buf, sizeof buf, "0x%016" PRIx64, value);
  return buf;
}

} // namespace diag
} // namespace morvain
