#pragma once
// Plain-text forms of the host program's listings, for people at a terminal.
//
// Device tree: one line per device, indented two spaces per depth:
//   <name>  [<type>]  <guid>  <state>
// With properties, each property follows its device, four spaces deeper than
// the device, as "<name> (<key>): <value>", and child properties two more.
// A value of several lines (a table) continues on lines of its own, deeper.
//
// Tests: the modules first, then for each device that has tests or
// benchmarks a line "<name>  [<type>]  <guid>" followed by one line per test:
//   test|benchmark  <name>  [<key>]  <module name>  (<flags>)

#include <ostream>
#include <vector>

#include "MirrorWalk.h"
#include "ostrel/Module.h"

namespace ostrel5 {
namespace host {

void printDeviceTree(std::ostream &out, std::vector<DeviceEntry> const &devices,
                     bool withProperties);

void printTests(std::ostream &out, std::vector<Module> const &modules,
                std::vector<DeviceTests> const &groups);

} // namespace host
} // namespace ostrel5
