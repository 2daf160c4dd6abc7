// A program that uses an installed Ostrel the way a user would: only the
// umbrella header and the installed libraries.
//
//   consumer              prints two constants of the library (no engine)
//   consumer MACHINE.xml  also connects to the in-process engine serving that
//                         simulated machine, enumerates the devices and walks
//                         the tree; prints "devices N" and fails when N is 0
//
// The engine library is not linked: libOstrel opens it from its own
// directory, so the second form also shows that the installed libraries find
// each other.

#include <ostrel/ostrel.h>
#include <zel/Resource.h>

#include <cstdio>
#include <iostream>
#include <string>

namespace {

unsigned int walk(ostrel5::Device const &device, unsigned int depth) {
  std::cout << std::string(2 * depth, ' ') << device.name().str() << '\n';
  unsigned int count = 1;
  ostrel5::DeviceList const children = device.children();
  for (unsigned int i = 0; i < children.size(); ++i)
    count += walk(children[i], depth + 1);
  return count;
}

} // namespace

int main(int argc, char **argv) {
  std::printf("interface 0x%x\n", RNIGetCompatibleVersion());
  std::cout << "result " << ostrel5::TestResult::PASS().toString().str() << '\n';
  if (argc < 2)
    return 0;

  zel::Resource::setString("Engine.Machine", argv[1]);
  ostrel5::openConnection(zel::String(), true);
  if (!ostrel5::isConnectionActive()) {
    std::cerr << "consumer: the engine did not start\n";
    return 3;
  }
  bool const enumerated =
      ostrel5::enumerateDevices(ostrel5::DeviceCapability::ALL(), false, true, false);
  unsigned int count = 0;
  if (enumerated && ostrel5::rootDevice().isValid())
    count = walk(ostrel5::rootDevice(), 0);
  ostrel5::closeConnection(true);
  if (!enumerated) {
    std::cerr << "consumer: enumeration failed\n";
    return 3;
  }
  std::cout << "devices " << count << '\n';
  return count > 0 ? 0 : 1;
}
