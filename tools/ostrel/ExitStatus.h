#pragma once
// Exit statuses of the host program and the one exception that carries them.
//
// The statuses are part of the program's interface (scripts test them):
//   0  everything went well
//   1  a test ran and did not pass
//   2  bad input: an unknown option, a missing or unreadable file, a cache
//      file that is not one, an output file that cannot be written
//   3  engine trouble: the engine could not be started or reached, or an
//      enumeration failed or timed out
// A machine-description file that cannot be read is bad input (2); one that
// the engine reads and rejects is engine trouble (3), as only the engine
// knows the format.

#include <stdexcept>
#include <string>

namespace ostrel5 {
namespace host {

enum class ExitStatus : int { OK = 0, TEST_NOT_PASSED = 1, BAD_INPUT = 2, ENGINE_TROUBLE = 3 };

/// Ends a subcommand: main prints "ostrel: " and the message on standard
/// error and exits with the status.
class Failure : public std::runtime_error {
public:
  Failure(ExitStatus status, std::string const &message)
      : std::runtime_error(message), m_status(status) {}
  ExitStatus status() const noexcept { return m_status; }

private:
  ExitStatus m_status;
};

} // namespace host
} // namespace ostrel5
