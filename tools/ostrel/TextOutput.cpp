#include "TextOutput.h"

#include <string>

#include "ostrel/DeviceCapability.h"
#include "ostrel/DeviceProperty.h"
#include "ostrel/DevicePropertyList.h"
#include "ostrel/DeviceState.h"
#include "ostrel/ModuleType.h"
#include "ostrel/Test.h"
#include "ostrel/Value.h"
#include "ostrel/Version.h"

namespace ostrel5 {
namespace host {

namespace {

std::string indent(unsigned int spaces) { return std::string(spaces, ' '); }

// A value of several lines (a rendered table) starts on the next line, each
// of its lines indented by `deeper`.
void printValue(std::ostream &out, std::string const &value, unsigned int deeper) {
  if (value.find('\n') == std::string::npos) {
    out << ": " << value << '\n';
    return;
  }
  out << ":\n";
  std::size_t start = 0;
  while (start < value.size()) {
    std::size_t end = value.find('\n', start);
    if (end == std::string::npos)
      end = value.size();
    if (end > start)
      out << indent(deeper) << value.substr(start, end - start) << '\n';
    start = end + 1;
  }
}

void printProperty(std::ostream &out, DeviceProperty const &property, Device const &device,
                   unsigned int depth) {
  std::string const name = text(property.localizedName());
  std::string const key = text(property.key());
  out << indent(depth) << (name.empty() || name == key ? key : name + " (" + key + ")");
  printValue(out, text(property.value().toString()), depth + 2);
  if (property.childPropertyCount() == 0)
    return;
  DevicePropertyList const children = property.children(device);
  for (unsigned int i = 0; i < children.size(); ++i)
    printProperty(out, children[i], device, depth + 2);
}

std::string flags(Test const &test) {
  std::string out;
  auto add = [&out](bool set, char const *name) {
    if (set)
      out += (out.empty() ? "" : ", ") + std::string(name);
  };
  add(test.isInteractive(), "interactive");
  add(test.isDestructive(), "destructive");
  add(test.createsOwnGUI(), "own GUI");
  add(test.supportsParallelTesting(), "parallel");
  add(!test.isEnabled(), "disabled");
  return out.empty() ? out : "  (" + out + ")";
}

void printTest(std::ostream &out, Test const &test, char const *kind) {
  Module const module = test.module();
  out << "  " << kind << "  " << text(test.localizedName()) << "  [" << text(test.keyInModule())
      << "]";
  if (module.isValid())
    out << "  " << text(module.localizedName());
  out << flags(test) << '\n';
}

} // namespace

void printDeviceTree(std::ostream &out, std::vector<DeviceEntry> const &devices,
                     bool withProperties) {
  if (devices.empty()) {
    out << "No devices.\n";
    return;
  }
  for (DeviceEntry const &entry : devices) {
    Device const &device = entry.device;
    out << indent(2 * entry.depth) << text(device.name()) << "  ["
        << text(device.deviceType().toString()) << "]  " << text(device.guid()) << "  "
        << text(device.deviceState().toString()) << '\n';
    if (!withProperties)
      continue;
    DevicePropertyList const properties = device.topProperties();
    for (unsigned int i = 0; i < properties.size(); ++i)
      printProperty(out, properties[i], device, 2 * entry.depth + 4);
  }
}

void printTests(std::ostream &out, std::vector<Module> const &modules,
                std::vector<DeviceTests> const &groups) {
  out << "Modules\n";
  if (modules.empty())
    out << "  (none)\n";
  for (Module const &module : modules)
    out << "  " << text(module.localizedName()) << "  " << text(module.version().toString()) << "  "
        << text(module.guid()) << '\n';

  out << "\nTests and benchmarks by device\n";
  if (groups.empty())
    out << "  (none)\n";
  for (DeviceTests const &group : groups) {
    if (group.device.isValid())
      out << text(group.device.name()) << "  [" << text(group.device.deviceType().toString())
          << "]  " << text(group.device.guid()) << '\n';
    else
      out << "(no device)\n";
    for (Test const &test : group.tests)
      printTest(out, test, "test     ");
    for (Test const &test : group.benchmarks)
      printTest(out, test, "benchmark");
  }
}

} // namespace host
} // namespace ostrel5
