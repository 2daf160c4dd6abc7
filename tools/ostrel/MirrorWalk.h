#pragma once
// Reading the client's mirror in the orders the host program prints: the
// device tree, and tests and benchmarks grouped by device. Every subcommand
// that lists devices or tests starts here, so text and JSON output agree.

#include <string>
#include <vector>

#include "ostrel/Device.h"
#include "ostrel/Module.h"
#include "ostrel/Test.h"
#include "zel/String.h"

namespace ostrel5 {
namespace host {

inline std::string text(zel::String const &s) { return s.str(); }

struct DeviceEntry {
  Device device;
  unsigned int depth; ///< 0 for the root device
};

/// Every device of the mirror, once: depth first from the root device, children
/// in the mirror's order; then, at depth 0, any device that the walk from the
/// root did not reach (so a mirror with a broken parent link still shows all
/// it holds). Empty when nothing has been enumerated.
std::vector<DeviceEntry> deviceTree();

struct DeviceTests {
  Device device; ///< an empty handle for the group of tests that name no device
  std::vector<Test> tests;
  std::vector<Test> benchmarks;
};

/// The tests and benchmarks of each device that has any, in the order of
/// `devices`; then one group, with an empty device handle, of those that no
/// listed device offers (left out when there are none).
std::vector<DeviceTests> testsByDevice(std::vector<DeviceEntry> const &devices);

/// Every test, or with `benchmarks` every benchmark, of the mirror, in its order.
std::vector<Test> allTests(bool benchmarks);

/// Every module of the mirror, in its order.
std::vector<Module> allModules();

} // namespace host
} // namespace ostrel5
