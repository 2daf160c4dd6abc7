#pragma once
// The subcommands of the host program. Each fills the mirror through a
// Session, prints to `out`, and reports problems by throwing Failure; main
// turns that into the message and the exit status.

#include <ostream>

#include "Session.h"

namespace ostrel5 {
namespace host {

struct OutputOptions {
  bool json = false;
  bool withProperties = false; ///< devices: list each device's properties
};

/// `ostrel devices`: the device tree.
void runDevices(Session &session, OutputOptions const &output, std::ostream &out);

/// `ostrel tests`: modules, then tests and benchmarks by device.
void runTests(Session &session, OutputOptions const &output, std::ostream &out);

} // namespace host
} // namespace ostrel5
