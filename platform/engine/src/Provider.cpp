// Choosing the machine an engine serves.

#include "morvain/MachineProvider.h"

#include "linux/ThisComputer.h"

#include "zel/FileSystem.h"
#include "zel/Resource.h"
#include "zel/ZELLocale.h"

namespace morvain {

std::unique_ptr<MachineProvider> createProvider(zel::String const &machine,
                                                zel::String const &baseDirectory) {
  if (machine.isEmpty()) {
    // "Engine.SysRoot" points the reader at another /sys and /proc tree (a
    // fixture, a copy taken from another machine); "/" is this computer.
    zel::String root("/");
    zel::Resource::getString(nullptr, "Engine.SysRoot", root, zel::ZELLocale());
    return std::unique_ptr<MachineProvider>(
        new ThisComputer(root.isEmpty() ? zel::String("/") : root));
  }
  zel::String path = machine;
  if (!machine.startsWith("/") && !zel::FileSystem::exists(machine) && !baseDirectory.isEmpty()) {
    zel::String const inBase = baseDirectory + "/" + machine;
    if (zel::FileSystem::exists(inBase))
      path = inBase;
  }
  return createSimulatedMachine(path);
}

} // namespace morvain
