#include "zel/Stopwatch.h"

#include <time.h>

namespace zel {

namespace {

std::int64_t monotonicNanos() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<std::int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

} // namespace

Stopwatch::Stopwatch() { start(); }

void Stopwatch::start() {
  m_startNanos = monotonicNanos();
  m_running = true;
}

void Stopwatch::stop() {
  if (!m_running)
    return;
  m_stopNanos = monotonicNanos();
  m_running = false;
}

std::int64_t Stopwatch::elapsedMicroseconds() const {
  std::int64_t end = m_running ? monotonicNanos() : m_stopNanos;
  return (end - m_startNanos) / 1000;
}

std::int64_t Stopwatch::elapsedMilliseconds() const { return elapsedMicroseconds() / 1000; }

double Stopwatch::elapsedSeconds() const {
  std::int64_t end = m_running ? monotonicNanos() : m_stopNanos;
  return static_cast<double>(end - m_startNanos) / 1e9;
}

} // namespace zel
