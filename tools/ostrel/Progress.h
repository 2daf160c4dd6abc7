#pragma once
// Shows that long work is under way, on standard error.
//
// On a terminal a spinner with the elapsed time redraws one line about ten
// times a second and is wiped when the work ends, so that the result printed
// afterwards starts on a clean line. Elsewhere (a pipe, a file, a test) one
// plain line is written when the work starts and one when it ends, with the
// time taken: log files and CI output stay readable. Quiet writes nothing.
//
// Not thread-safe: one step at a time, from one thread.

#include <functional>
#include <ostream>
#include <string>

namespace ostrel5 {
namespace host {

class Progress {
public:
  enum class Style { SPINNER, LINES, QUIET };

  /// SPINNER when file descriptor `fd` is a terminal, LINES otherwise.
  static Style styleFor(int fd);

  Progress(std::ostream &out, Style style) : m_out(out), m_style(style) {}

  /// Runs `work` on the calling thread, showing `label` ("Enumerating
  /// devices") meanwhile. `work` says whether it succeeded; that is returned
  /// and shows in the closing line. An exception of `work` wipes the spinner
  /// and goes on to the caller.
  bool run(std::string const &label, std::function<bool()> const &work);

private:
  std::ostream &m_out;
  Style m_style;
};

} // namespace host
} // namespace ostrel5
