#include "MirrorWalk.h"

#include <set>

#include "ostrel/DeviceCapability.h"
#include "ostrel/DeviceList.h"
#include "ostrel/ModuleList.h"
#include "ostrel/TestList.h"
#include "ostrel/ostrelMain.h"

namespace ostrel5 {
namespace host {

namespace {

// Iterative, so that a deep tree cannot exhaust the stack; the guid set
// guards against a device reached twice (a cycle in a damaged mirror).
void walkFrom(Device const &top, std::set<std::string> &seen, std::vector<DeviceEntry> &out) {
  std::vector<DeviceEntry> stack{{top, 0}};
  while (!stack.empty()) {
    DeviceEntry entry = stack.back();
    stack.pop_back();
    if (!seen.insert(text(entry.device.guid())).second)
      continue;
    out.push_back(entry);
    DeviceList const children = entry.device.children();
    for (unsigned int i = children.size(); i-- > 0;)
      stack.push_back({children[i], entry.depth + 1});
  }
}

template <class List> void append(List const &list, std::vector<Test> &out) {
  for (unsigned int i = 0; i < list.size(); ++i)
    out.push_back(list[i]);
}

} // namespace

std::vector<DeviceEntry> deviceTree() {
  std::vector<DeviceEntry> out;
  std::set<std::string> seen;
  Device const root = rootDevice();
  if (root.isValid())
    walkFrom(root, seen, out);
  DeviceList const all = getDevices(DeviceCapability::ALL());
  for (unsigned int i = 0; i < all.size(); ++i)
    walkFrom(all[i], seen, out);
  return out;
}

std::vector<DeviceTests> testsByDevice(std::vector<DeviceEntry> const &devices) {
  std::vector<DeviceTests> out;
  std::set<std::string> placed;
  for (DeviceEntry const &entry : devices) {
    DeviceTests group{entry.device, {}, {}};
    append(entry.device.tests(), group.tests);
    append(entry.device.benchmarks(), group.benchmarks);
    if (group.tests.empty() && group.benchmarks.empty())
      continue;
    for (Test const &t : group.tests)
      placed.insert(text(t.guid()));
    for (Test const &t : group.benchmarks)
      placed.insert(text(t.guid()));
    out.push_back(std::move(group));
  }
  DeviceTests rest{Device(), {}, {}};
  for (Test const &t : allTests(false))
    if (!placed.count(text(t.guid())))
      rest.tests.push_back(t);
  for (Test const &t : allTests(true))
    if (!placed.count(text(t.guid())))
      rest.benchmarks.push_back(t);
  if (!rest.tests.empty() || !rest.benchmarks.empty())
    out.push_back(std::move(rest));
  return out;
}

std::vector<Test> allTests(bool benchmarks) {
  std::vector<Test> out;
  append(benchmarks ? getBenchmarks(zel::String()) : getTests(zel::String()), out);
  return out;
}

std::vector<Module> allModules() {
  std::vector<Module> out;
  ModuleList const modules = getModules();
  for (unsigned int i = 0; i < modules.size(); ++i)
    out.push_back(modules[i]);
  return out;
}

} // namespace host
} // namespace ostrel5
