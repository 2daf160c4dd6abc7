#include "Progress.h"

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>

namespace ostrel5 {
namespace host {

namespace {

using Clock = std::chrono::steady_clock;

std::string seconds(Clock::duration elapsed) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.1f s", std::chrono::duration<double>(elapsed).count());
  return buffer;
}

// Redraws the spinner line from a thread of its own until stopped; the
// destructor stops it and wipes the line, also when the work threw.
class Spinner {
public:
  Spinner(std::ostream &out, std::string label)
      : m_out(out), m_label(std::move(label)), m_start(Clock::now()), m_thread([this] { loop(); }) {
  }

  ~Spinner() {
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      m_stop = true;
    }
    m_wake.notify_one();
    m_thread.join();
    m_out << "\r\033[K" << std::flush;
  }

private:
  void loop() {
    static char const frames[] = {'|', '/', '-', '\\'};
    unsigned int frame = 0;
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_stop) {
      m_out << "\r\033[K" << frames[frame++ % 4] << ' ' << m_label << "... "
            << seconds(Clock::now() - m_start) << std::flush;
      m_wake.wait_for(lock, std::chrono::milliseconds(100), [this] { return m_stop; });
    }
  }

  std::ostream &m_out;
  std::string m_label;
  Clock::time_point m_start;
  std::mutex m_mutex;
  std::condition_variable m_wake;
  bool m_stop = false;
  std::thread m_thread;
};

} // namespace

Progress::Style Progress::styleFor(int fd) { return ::isatty(fd) ? Style::SPINNER : Style::LINES; }

bool Progress::run(std::string const &label, std::function<bool()> const &work) {
  switch (m_style) {
  case Style::QUIET:
    return work();
  case Style::SPINNER: {
    Spinner spinner(m_out, label);
    return work();
  }
  case Style::LINES:
    break;
  }
  m_out << "ostrel: " << label << "..." << std::endl;
  Clock::time_point const start = Clock::now();
  bool const ok = work();
  m_out << "ostrel: " << label << (ok ? ": done in " : ": failed after ")
        << seconds(Clock::now() - start) << std::endl;
  return ok;
}

} // namespace host
} // namespace ostrel5
