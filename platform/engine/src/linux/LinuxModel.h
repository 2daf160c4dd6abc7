#pragma once
// What the enumeration of this computer and its diagnostic modules agree on:
// the device type (a capability name) of each kind of device, how its
// locators are written, and the property keys the tests read. Enumeration
// (LinuxDevices) writes devices this way; the modules (LinuxDiagnostics)
// find their devices by type and reach the hardware through the locators.
//
// Locators:
//   osLocator  the device node ("/dev/nvme0n1", "/dev/sr0"), the interface
//              name ("eth0") or, where there is neither, the sysfs path
//              relative to the root folder ("/sys/class/hwmon/hwmon2/temp1",
//              "/sys/class/power_supply/BAT0")
//   hwLocator  the bus address: a PCI function as `lspci -D` prints it
//              ("0000:00:1f.2"), a USB device as "usb:<bus>-<port path>"
//              ("usb:1-1.4"), a processor as "cpu:<package>", a core as
//              "cpu:<package>:<core>"; empty where there is none
// All paths are read under the provider's root folder ("/" normally, a
// fixture tree in tests): a tool joins root + path.

namespace morvain {
namespace linuxmodel {

// Device types (capability row names). The capability set of a device holds
// its type and what else it is (bus, features).
constexpr char const *SYSTEM = "System";            // the root: the computer
constexpr char const *SYSTEM_BOARD = "SystemBoard"; // DMI board
constexpr char const *FIRMWARE = "BIOS";            // DMI firmware
constexpr char const *PROCESSOR = "CPU";            // one per package
constexpr char const *PROCESSOR_CORE = "CPUCore";   // one per core, under its package
constexpr char const *MEMORY = "Memory";            // total memory, one
constexpr char const *MEMORY_MODULE = "MemoryChip"; // one per DIMM when firmware tables tell
constexpr char const *DISK = "HardDrive";           // also SSD / NVME in the capability set
constexpr char const *PARTITION = "DrivePartition"; // under its disk
constexpr char const *OPTICAL = "Optical";          // plus CDROM/DVD/... when known
constexpr char const *NETWORK = "NetworkCard";      // plus Ethernet or Wireless
constexpr char const *TEMPERATURE_SENSOR = "TempSensor";
constexpr char const *FAN = "Fan";
constexpr char const *VOLTAGE_SENSOR = "VoltSensor";
constexpr char const *THERMAL_ZONE = "ThermalZone";
constexpr char const *BATTERY = "Battery";
constexpr char const *POWER_SUPPLY = "PowerSupply"; // mains adapter
// PCI and USB devices take the type their class maps to (VideoCard,
// USBController, MassStorageController, SoundCard, PCIBridge, HID,
// Keyboard, Camera, ...; "Other" when nothing fits) with "PCI" or "USB" in
// the capability set.

// Property keys the modules read (besides the device's own fields).
constexpr char const *KEY_SIZE_BYTES = "Size";                      // UINT64, disks and partitions
constexpr char const *KEY_LOGICAL_BLOCK = "LogicalBlockSize";       // UINT32, disks
constexpr char const *KEY_ROTATIONAL = "Rotational";                // BOOLEAN, disks
constexpr char const *KEY_LOGICAL_PROCESSORS = "LogicalProcessors"; // UINT32, per package
constexpr char const *KEY_CPU_LIST = "CPUList"; // STRING "0-3,8-11": the package's logical CPUs
constexpr char const *KEY_TOTAL_BYTES = "TotalBytes"; // UINT64, memory
constexpr char const *KEY_MAC = "MACAddress";         // STRING, network
constexpr char const *KEY_LINK = "LinkState";         // STRING "up"/"down", network
constexpr char const *KEY_SPEED_MBPS = "Speed";  // UINT32 Mbit/s, network (absent when unknown)
constexpr char const *KEY_DRIVER = "Driver";     // STRING
constexpr char const *KEY_READING = "Reading";   // DOUBLE: degrees Celsius, RPM or volts
constexpr char const *KEY_MIN = "Minimum";       // DOUBLE, sensor limit when the chip has one
constexpr char const *KEY_MAX = "Maximum";       // DOUBLE
constexpr char const *KEY_CRITICAL = "Critical"; // DOUBLE
constexpr char const *KEY_CAPACITY_PERCENT = "Capacity";      // UINT32, battery charge %
constexpr char const *KEY_DESIGN_CAPACITY = "DesignCapacity"; // UINT64 µWh or µAh, battery
constexpr char const *KEY_FULL_CAPACITY = "FullCapacity";     // UINT64 same unit, battery
constexpr char const *KEY_HEALTH_PERCENT = "Health";          // UINT32, full / design in %
constexpr char const *KEY_STATUS = "Status";                  // STRING, battery/AC status
constexpr char const *KEY_ONLINE = "Online";                  // BOOLEAN, mains adapter
// Further keys the enumeration writes (STRING unless said otherwise).
constexpr char const *KEY_MANUFACTURER = "Manufacturer"; // maker, where known
constexpr char const *KEY_MODEL = "Model";               // model / product name
constexpr char const *KEY_SERIAL = "Serial";             // serial number, where readable
constexpr char const *KEY_TRANSPORT = "Transport"; // disks: nvme, sata, usb, virtio, mmc or scsi
constexpr char const *KEY_REMOVABLE = "Removable"; // BOOLEAN, disks and optical drives
constexpr char const *KEY_MEDIA_PRESENT = "MediaPresent"; // BOOLEAN, optical drives
constexpr char const *KEY_UNIT = "Unit";                  // sensors: "°C", "RPM" or "V"

} // namespace linuxmodel
} // namespace morvain
