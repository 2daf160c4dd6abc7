#pragma once
// zel::Stopwatch: measures a duration on the monotonic clock, so changes of
// the wall clock do not distort it.
//
// It starts when constructed. start() starts it again from zero; stop()
// freezes the elapsed time until the next start(). Thread-compatible: one
// thread at a time (reading from several threads while none writes is fine).

#include <cstdint>

namespace zel {

class Stopwatch {
public:
  Stopwatch();

  /// Starts again from zero.
  void start();
  /// Freezes the elapsed time; a second stop() keeps the first one's value.
  void stop();
  bool isRunning() const noexcept { return m_running; }

  double elapsedSeconds() const;
  std::int64_t elapsedMilliseconds() const;
  std::int64_t elapsedMicroseconds() const;

private:
  std::int64_t m_startNanos = 0;
  std::int64_t m_stopNanos = 0;
  bool m_running = false;
};

} // namespace zel
