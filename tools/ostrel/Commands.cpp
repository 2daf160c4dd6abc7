#include "Commands.h"

#include "JsonOutput.h"
#include "MirrorWalk.h"
#include "TextOutput.h"

namespace ostrel5 {
namespace host {

void runDevices(Session &session, OutputOptions const &output, std::ostream &out) {
  session.open(Session::Need::DEVICES);
  std::vector<DeviceEntry> const devices = deviceTree();
  if (output.json)
    out << dump(devicesDocument(devices)) << '\n';
  else
    printDeviceTree(out, devices, output.withProperties);
}

void runTests(Session &session, OutputOptions const &output, std::ostream &out) {
  session.open(Session::Need::DEVICES_AND_TESTS);
  std::vector<Module> const modules = allModules();
  if (output.json) {
    out << dump(testsDocument(modules, allTests(false), allTests(true))) << '\n';
    return;
  }
  printTests(out, modules, testsByDevice(deviceTree()));
}

} // namespace host
} // namespace ostrel5
