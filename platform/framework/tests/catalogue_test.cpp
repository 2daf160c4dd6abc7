// Tests of the two catalogue sets of the framework: zel::CapabilityImp and
// zel::PropertyCategoryImp. The tables are checked once against an
// independent transcription of the published catalogue; the set algebra and
// the text form are checked against a naive model (std::set) on random sets.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "zel/CapabilityImp.h"
#include "zel/FileSystem.h"
#include "zel/Logger.h"
#include "zel/Paths.h"
#include "zel/Properties.h"
#include "zel/PropertyCategoryImp.h"
#include "zel/Resource.h"
#include "zel/ZELLocale.h"

using zel::CapabilityImp;
using zel::PropertyCategoryImp;
using Row = CapabilityImp::Row;

namespace {

constexpr unsigned kCaps = CapabilityImp::ROW_COUNT;
constexpr unsigned kCats = PropertyCategoryImp::ROW_COUNT;

// The capability catalogue as published: accessor and level, row 0 first.
// Kept apart from CatalogueRows.h on purpose, so a slip in either shows up.
char const *const kPublishedCapabilities =
    "NIL 0, ALL 0, INVALID 0, TCPIP 0, SMART 0, System 0, PCI 10, IDE 10, USB 10, "
    "USBConfiguration 20, USBInterface 20, USBEndPoint 20, USBMassStorage 21, USB_UFI 21, SCSI "
    "20, IEEE1394 10, Channel 20, USBComposite 20, USB2 10, UHCI 0, OHCI 0, EHCI 0, AGP 20, AGP1X "
    "20, AGP2X 20, AGP4X 20, AGP8X 20, Port 30, NVRAM 30, MMCSDFlash 30, NANDFlash 30, NORFlash "
    "30, UBIFlash 30, DataFlash 30, RAMFlash 30, ROMFlash 30, MTD 30, NVME 29, NVMEController 30, "
    "MMCHostController 30, MMC 30, SD 30, SDIO 30, BlueTooth 30, ComputeDevice 30, "
    "BiometricDevice 30, SmartCardReader 30, FingerprintReader 35, BluetoothPort 30, "
    "BluetoothDevice 30, NearFieldCommunicationDevice 30, SerialPort 30, ParallelPort 30, "
    "InfraredPort 30, Other 0, PCIBridge 20, PCIHostBridge 30, PCIISABridge 30, PCIPCIBridge 30, "
    "PCICardBusBridge 30, PCIPCMCIABridge 30, PCIEISABridge 30, PCIX 20, PCIExpress 20, SystemBus "
    "30, MemoryBus 30, IsaBus 30, PciBus 30, UsbBus 30, IdeBus 30, ScsiBus 30, I2CBus 30, PS2Bus "
    "30, SMBus 30, ComBus 30, LptBus 30, IEEE1394Bus 30, AgpBus 30, PcmciaBus 30, AVI 30, CPU 30, "
    "CPUCore 30, CPUThread 30, CPUCache 30, Memory 30, SystemBoard 30, CMOS 30, SMBIOS 30, "
    "SMBIOS_Struct 30, SAS 20, ATA 20, SATA 20, RAID 20, RemovableStorage 20, HardDrive 30, SSD "
    "29, SystemDrive 0, DrivePartition 30, FloppyDrive 30, TapeDrive 30, MT_TapeDrive 15, LSDRIVE "
    "30, ZipDrive 30, MMX 0, SSE 0, SSE2 0, SSE3 0, SSSE3 0, PSE36 0, AMD3DNOW 0, AMD3DNOWEXT 0, "
    "AMDSSEMMX -1, AMDTEST -1, HT 0, MultiCore 0, VendorRAIDController 30, VendorRAIDUnit 15, "
    "VendorRAIDPort 15, VendorRAIDDrive 15, RAIDSet 45, USBController 30, IEEE1394Controller 30, "
    "PcmciaController 30, SMBusController 30, MemoryController 30, EncryptionController 30, "
    "MassStorageController 30, CommunicationsController 30, Printer 30, DefaultPrinter 30, "
    "OfflinePrinter 20, Scanner 30, Digitizer 30, Camera 30, CameraFlash 30, Camera3DDepth 40, "
    "Modem 40, FaxModem 30, ISDNAdapter 30, DSLAdapter 30, CableModem 30, NetworkCard 30, "
    "MobileBroadbandInterface 31, Wireless 0, Ethernet 20, ATM 30, TokenRing 30, HID 30, Keyboard "
    "30, WiKeyboard 30, WiMouse 30, Mouse 30, SynapticsMouse 30, SynapticsTouchPad 30, "
    "SynapticsTrackpoint 30, Joystick 30, MIDI 30, SoundCard 40, HDAudioController 30, Speaker "
    "30, Microphone 30, Monitor 30, VideoCard 30, VideoScreen 30, GPU 29, DockingStation 30, "
    "PCCard 30, PCMCIASlot 30, GPS 30, RTC 20, HUB 20, InternalHub 30, MultiHeadCardReader 30, "
    "CardReader 30, MemoryChip 40, Software 30, OperatingSystem 30, Service 40, RunningProcesses "
    "40, RunningProcess 40, RunningApplications 40, RunningApplication 40, InstalledApplication "
    "40, VideoPort 30, WindowsUpdate 40, WindowsUpdateHistory 40, AvailableWindowsUpdate 40, "
    "WindowsPassword 40, WindowsBackup 40, WindowsDefrag 40, BIOS 30, Firmware 30, UnitTester 30, "
    "Slot 30, OnBoardDevice 30, GenericWindows 20, Fan 30, Sensor 20, LidSensor 30, ThermalZone "
    "30, TempSensor 30, IPMI 20, IPMIManagementController 30, FRU 30, AmbientLightSensor 30, "
    "Accelerometer 30, Magnetometer 30, Gyrometer 30, VoltSensor 30, Chassis 30, PowerSupply 30, "
    "Battery 30, Optical 40, CDROM 50, CDDA 50, CDR 60, CDRW 70, CDRWHIGHSPEED 71, DVD 80, "
    "DVDMINUSR 85, DVDMINUSRW 90, DVDRAM 85, DVDPLUSR 85, DVDPLUSRDL 90, DVDMINUSRDL 90, "
    "DVDPLUSRW 90, DVDPLUSRWDL 95, DVDMINUSRWDL 95, BDROM 115, BDR 120, BDRE 125, HDDVDROM 115, "
    "HDDVDR 120, HDDVDRAM 125, ServeRaid 100, RemoteSupervisorAdapter 110, VideoCapture 10, "
    "VideoCaptureBaseFilter 0, TVTuner 0, AnalogTVTuner 0, AnalogFMRadioTuner 0, DigitalTVTuner "
    "0, TouchScreen 30, AmbientLight 30, WirelessNetworkCardTest -1, "
    "WirelessNetworkCardAdvancedTest -1, NetworkCardCableTest -1, NetworkCardTest -1, "
    "NetworkCardAdvancedTest -1, NetworkCardExternalLoopbackTest -1, ArcadyanNetworkTest -1, "
    "RealTekNetworkTest -1, SystemboardAdvancedTest -1, MouseTest -1, KeyboardTest -1, ADSLTest "
    "-1, ATITest -1, VideoMemoryTest -1, FixedPipelineTest -1, DirectX10Compatible -1, "
    "WiMouseTest -1, IEEE1394ConfigRomTest -1, Hardware 0, SCSISPC 15, SCSISBC 15, SCSISSC 15, "
    "SCSIMMC 15, SCSIRBC 15, SCSISCC 15, SCSISES 15, OEMInfo 100, Security 0, EEPROM 0, "
    "StandbyHibernate -1, ReadyBoost 10, USBPorts 10, PhysicsCard 40, Firewall 40, VirusScanner "
    "40, ScreenSaver 40, RescueAndRecovery 40, ClientSecuritySolution 40, PasswordManager 40, "
    "SystemUpdate 40, SpywareScanner 40, WebBrowser 40, UserAccounts 40, UserAccount 40, "
    "NetworkShares 40, NetworkShare 40, SystemRestorePoints 40, SystemRestorePoint 40, "
    "VendorSpecific0 0, VendorSpecific1 0, VendorSpecific2 0, VendorSpecific3 0, VendorSpecific4 "
    "0, Emulated 1. ";

struct PublishedRow {
  std::string accessor;
  int level;
};

std::vector<PublishedRow> publishedCapabilities() {
  std::vector<PublishedRow> rows;
  std::stringstream in(kPublishedCapabilities);
  std::string item;
  while (std::getline(in, item, ',')) {
    std::stringstream fields(item);
    PublishedRow row;
    fields >> row.accessor >> row.level;
    rows.push_back(row);
  }
  return rows;
}

std::string flipCase(std::string s) {
  for (char &c : s)
    c = std::isupper(static_cast<unsigned char>(c)) ? char(std::tolower(c)) : char(std::toupper(c));
  return s;
}

std::string lower(std::string s) {
  for (char &c : s)
    c = char(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

bool endsWith(std::string const &s, std::string const &tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

// ---------------------------------------------------------------------------
// The capability table

TEST(CapabilityCatalogue, RowsMatchThePublishedCatalogue) {
  std::vector<PublishedRow> published = publishedCapabilities();
  ASSERT_EQ(published.size(), kCaps);
  for (unsigned r = 0; r < kCaps; ++r) {
    SCOPED_TRACE(r);
    EXPECT_EQ(CapabilityImp::rowAccessorName(r), published[r].accessor);
    EXPECT_EQ(CapabilityImp::rowLevel(r), published[r].level);
    std::string accessor = published[r].accessor;
    std::string expected = accessor == "ALL"           ? "All"
                           : accessor == "AMD3DNOW"    ? "3DNOW"
                           : accessor == "AMD3DNOWEXT" ? "3DNOWEXT"
                                                       : accessor;
    EXPECT_EQ(CapabilityImp::rowString(r), expected);
  }
  EXPECT_EQ(CapabilityImp::rowString(1), std::string("All"));
  EXPECT_EQ(CapabilityImp::rowString(109), std::string("3DNOW"));
  EXPECT_EQ(CapabilityImp::rowString(110), std::string("3DNOWEXT"));
  EXPECT_EQ(static_cast<unsigned>(Row::Emulated), 297u);
}

TEST(CapabilityCatalogue, MinusOneLevelsFollowTheRule) {
  std::set<std::string> named = {"AMDSSEMMX", "AMDTEST", "DirectX10Compatible", "StandbyHibernate"};
  for (unsigned r = 0; r < kCaps; ++r) {
    std::string accessor = CapabilityImp::rowAccessorName(r);
    bool minusOne = endsWith(accessor, "Test") || named.count(accessor) != 0;
    EXPECT_EQ(CapabilityImp::rowLevel(r) == -1, minusOne) << accessor;
  }
}

TEST(CapabilityCatalogue, StringsAreDistinctWithoutRegardToCase) {
  std::set<std::string> seen;
  for (unsigned r = 0; r < kCaps; ++r)
    EXPECT_TRUE(seen.insert(lower(CapabilityImp::rowString(r))).second)
        << CapabilityImp::rowString(r);
}

TEST(CapabilityCatalogue, LookUpByStringBothWaysAndBothModes) {
  for (unsigned r = 0; r < kCaps; ++r) {
    std::string s = CapabilityImp::rowString(r);
    SCOPED_TRACE(s);
    EXPECT_EQ(CapabilityImp::rowByString(s.c_str(), true), r);
    EXPECT_EQ(CapabilityImp::rowByString(s.c_str(), false), r);
    std::string flipped = flipCase(s);
    EXPECT_EQ(CapabilityImp::rowByString(flipped.c_str(), false), r);
    if (flipped != s) {
      EXPECT_EQ(CapabilityImp::rowByString(flipped.c_str(), true), CapabilityImp::SENTINEL);
    }
    // A prefix or an extension of a row's string is not that row.
    std::string longer = s + "X";
    EXPECT_NE(CapabilityImp::rowByString(longer.c_str(), false), r);
    EXPECT_NE(CapabilityImp::rowByString(s.substr(0, s.size() - 1).c_str(), false), r);
  }
}

TEST(CapabilityCatalogue, IrregularRowsAndSentinel) {
  EXPECT_EQ(CapabilityImp::rowByString("3DNOW", true), 109u);
  EXPECT_EQ(CapabilityImp::rowByString("3DNOWEXT", true), 110u);
  for (bool cs : {true, false}) {
    EXPECT_EQ(CapabilityImp::rowByString("AMD3DNOW", cs), CapabilityImp::SENTINEL);
    EXPECT_EQ(CapabilityImp::rowByString("AMD3DNOWEXT", cs), CapabilityImp::SENTINEL);
    EXPECT_EQ(CapabilityImp::rowByString("", cs), CapabilityImp::SENTINEL);
    EXPECT_EQ(CapabilityImp::rowByString(nullptr, cs), CapabilityImp::SENTINEL);
    EXPECT_EQ(CapabilityImp::rowByString("NoSuchCapability", cs), CapabilityImp::SENTINEL);
  }
  EXPECT_EQ(CapabilityImp::rowByString("ALL", false), 1u);
  EXPECT_EQ(CapabilityImp::rowByString("ALL", true), CapabilityImp::SENTINEL);

  CapabilityImp sentinel(CapabilityImp::SENTINEL);
  EXPECT_EQ(CapabilityImp(298u), sentinel);
  EXPECT_EQ(CapabilityImp(100000u), sentinel);
  EXPECT_EQ(CapabilityImp::getFromAllPrimitiveCapabilities(298), sentinel);
  EXPECT_EQ(sentinel.toString(), "");
  EXPECT_EQ(sentinel.primitiveCapabilityCount(), 1u);
  EXPECT_EQ(CapabilityImp::rowString(298), std::string(""));
  EXPECT_EQ(CapabilityImp::rowLevel(298), 0);
  EXPECT_NE(sentinel, CapabilityImp::INVALID());
  EXPECT_NE(sentinel, CapabilityImp());
}

// ---------------------------------------------------------------------------
// Set algebra against a naive model

using Model = std::set<unsigned>;

CapabilityImp build(Model const &m) {
  CapabilityImp c;
  for (unsigned r : m)
    c |= CapabilityImp(r);
  return c;
}

Model members(CapabilityImp const &c) {
  Model m;
  for (unsigned i = 0; i < c.primitiveCapabilityCount(); ++i)
    m.insert(c.primitiveRow(i));
  return m;
}

bool modelIsCapable(Model const &have, Model const &required) {
  unsigned all = static_cast<unsigned>(Row::ALL);
  unsigned invalid = static_cast<unsigned>(Row::INVALID);
  if (required.count(invalid) || required.count(CapabilityImp::SENTINEL))
    return false;
  if (have.count(all))
    return true;
  for (unsigned r : required)
    if (r != all && !have.count(r))
      return false;
  return true;
}

// Sets drawn mostly from a few rows so that overlaps, subsets and equal sets
// are common, with the special rows (NIL, ALL, INVALID, sentinel) and the
// word edges (63, 64, 127, 128, 255, 256, 297) in the mix.
rc::Gen<Model> genModel(bool withSentinel) {
  std::vector<unsigned> pool = {0, 1, 2, 3, 63, 64, 100, 127, 128, 232, 233, 255, 256, 297};
  if (withSentinel)
    pool.push_back(CapabilityImp::SENTINEL);
  auto row = rc::gen::oneOf(rc::gen::elementOf(pool), rc::gen::inRange(0u, kCaps));
  return rc::gen::container<Model>(row);
}

RC_GTEST_PROP(CapabilitySet, AlgebraMatchesTheModel, ()) {
  Model a = *genModel(true);
  Model b = *genModel(true);
  CapabilityImp ca = build(a), cb = build(b);

  RC_ASSERT(members(ca) == a);
  Model u = a;
  u.insert(b.begin(), b.end());
  RC_ASSERT(members(ca | cb) == u);
  Model i;
  std::set_intersection(a.begin(), a.end(), b.begin(), b.end(), std::inserter(i, i.end()));
  RC_ASSERT(members(ca & cb) == i);
  RC_ASSERT(ca.intersect(cb) == !i.empty());
  RC_ASSERT((ca == cb) == (a == b));
  RC_ASSERT((ca != cb) == (a != b));
  RC_ASSERT(ca.isCapable(cb) == modelIsCapable(a, b));
  RC_ASSERT(cb.isCapable(ca) == modelIsCapable(b, a));
  RC_ASSERT(ca.isEmpty() == a.empty());
  for (unsigned r : {0u, 1u, 2u, 64u, 297u, 298u})
    RC_ASSERT(ca.contains(r) == (a.count(r) != 0));
}

RC_GTEST_PROP(CapabilitySet, MembersInRowOrder, ()) {
  Model a = *genModel(true);
  CapabilityImp c = build(a);
  RC_ASSERT(c.primitiveCapabilityCount() == a.size());
  unsigned n = 0;
  for (unsigned r : a) {
    RC_ASSERT(c.getPrimitiveCapability(n) == CapabilityImp(r));
    ++n;
  }
  RC_ASSERT(c.getPrimitiveCapability(n) == CapabilityImp(CapabilityImp::SENTINEL));
}

RC_GTEST_PROP(CapabilitySet, HighestPriorityMatchesTheModel, ()) {
  Model a = *genModel(true);
  CapabilityImp c = build(a);
  int best = -1;
  bool first = true;
  for (unsigned r : a) {
    if (first || CapabilityImp::rowLevel(r) > best)
      best = CapabilityImp::rowLevel(r);
    first = false;
  }
  Model top;
  for (unsigned r : a)
    if (CapabilityImp::rowLevel(r) == best)
      top.insert(r);
  RC_ASSERT(c.priorityLevel() == best);
  RC_ASSERT(members(c.capsWithHighestPriority()) == top);
}

TEST(CapabilitySet, CapabilityRules) {
  CapabilityImp optical(Row::Optical), cdrom(Row::CDROM), dvd(Row::DVD);
  CapabilityImp drive = optical | cdrom | dvd;
  EXPECT_TRUE(drive.isCapable(optical));
  EXPECT_TRUE(drive.isCapable(optical | dvd));
  EXPECT_FALSE(optical.isCapable(drive));
  EXPECT_TRUE(drive.isCapable(CapabilityImp()));           // empty asks for nothing
  EXPECT_TRUE(CapabilityImp().isCapable(CapabilityImp())); // even of the empty set
  EXPECT_TRUE(drive.isCapable(CapabilityImp::ALL()));      // ALL asks for nothing
  EXPECT_TRUE(drive.isCapable(CapabilityImp::ALL() | optical));
  EXPECT_TRUE(CapabilityImp::ALL().isCapable(drive)); // ALL meets everything
  // INVALID and the sentinel are never met, not even by themselves.
  for (CapabilityImp never : {CapabilityImp::INVALID(), CapabilityImp(CapabilityImp::SENTINEL)}) {
    EXPECT_FALSE(drive.isCapable(never));
    EXPECT_FALSE(never.isCapable(never));
    EXPECT_FALSE(CapabilityImp::ALL().isCapable(never));
    EXPECT_FALSE(CapabilityImp::ALL().isCapable(never | optical));
  }
  EXPECT_TRUE(drive.intersect(dvd | CapabilityImp(Row::PCI)));
  EXPECT_FALSE(drive.intersect(CapabilityImp(Row::PCI)));
  EXPECT_FALSE(CapabilityImp().intersect(drive));
}

TEST(CapabilitySet, LevelsOfAFamily) {
  CapabilityImp drive = CapabilityImp(Row::Optical) | CapabilityImp(Row::CDROM) |
                        CapabilityImp(Row::CDR) | CapabilityImp(Row::DVD) | CapabilityImp(Row::BDR);
  EXPECT_EQ(drive.priorityLevel(), 120);
  EXPECT_EQ(drive.capsWithHighestPriority(), CapabilityImp(Row::BDR));
  // Rows of equal level all come back.
  CapabilityImp tie =
      CapabilityImp(Row::DVDMINUSRW) | CapabilityImp(Row::DVDPLUSRW) | CapabilityImp(Row::DVDRAM);
  EXPECT_EQ(tie.capsWithHighestPriority(),
            CapabilityImp(Row::DVDMINUSRW) | CapabilityImp(Row::DVDPLUSRW));
  EXPECT_EQ(CapabilityImp().priorityLevel(), -1);
  EXPECT_TRUE(CapabilityImp().capsWithHighestPriority().isEmpty());
  EXPECT_EQ(CapabilityImp(Row::MouseTest).priorityLevel(), -1);
}

// ---------------------------------------------------------------------------
// Text form

rc::Gen<Model> genRows() { return genModel(false); }

RC_GTEST_PROP(CapabilityText, RoundTripOfEverySet, ()) {
  Model a = *genRows();
  CapabilityImp c = build(a);
  zel::String text = c.toString();
  RC_ASSERT(text.find(' ') == zel::String::npos);
  RC_ASSERT(CapabilityImp(text) == c);
  RC_ASSERT(CapabilityImp(text.c_str()) == c);
  RC_ASSERT(c.toString(0, false) == text);
}

// Text written by hand: any case, either separator, blanks around names,
// repeats and empty names, in any order, reads as the set of the names.
RC_GTEST_PROP(CapabilityText, HandWrittenTextReadsAsItsNames, ()) {
  std::vector<unsigned> rows =
      *rc::gen::container<std::vector<unsigned>>(rc::gen::inRange(0u, kCaps));
  std::string text;
  Model expected;
  for (unsigned r : rows) {
    std::string name = CapabilityImp::rowString(r);
    if (*rc::gen::arbitrary<bool>())
      name = flipCase(name);
    std::string pad = *rc::gen::elementOf(std::vector<std::string>{"", " ", "\t", " \r\n"});
    std::string sep = *rc::gen::elementOf(std::vector<std::string>{"|", ",", "||", ",|", " , "});
    text += pad + name + pad + sep;
    expected.insert(r);
  }
  RC_ASSERT(CapabilityImp(zel::String(text)) == build(expected));
}

TEST(CapabilityText, OddTexts) {
  struct Case {
    char const *text;
    CapabilityImp expected;
  };
  CapabilityImp pci(Row::PCI), usb(Row::USB), empty;
  CapabilityImp invalid = CapabilityImp::INVALID();
  Case cases[] = {
      {"", empty},
      {"   ", empty},
      {"|", empty},
      {",,|, ,", empty},
      {" pci | usb ", pci | usb},
      {"PCI||USB", pci | usb},
      {"|PCI|", pci},
      {"PCI|pci|Pci", pci},
      {"\tSSD\n", CapabilityImp(Row::SSD)},
      {"all", CapabilityImp::ALL()},
      {"ALL", CapabilityImp::ALL()},
      {"3dnow", CapabilityImp(Row::AMD3DNOW)},
      {"invalid", invalid},
      {"AMD3DNOW", invalid},
      {"*", invalid},
      {"Bogus", invalid},
      {"PCI|Bogus|USB", invalid},
      {"Hard Drive", invalid},
      {"PCI USB", invalid},
      {"PCI;USB", invalid},
  };
  for (Case const &c : cases)
    EXPECT_EQ(CapabilityImp(c.text), c.expected) << '"' << c.text << '"';
  EXPECT_EQ(CapabilityImp(static_cast<char const *>(nullptr)), empty);
  EXPECT_EQ(CapabilityImp(zel::String("PCI\0USB", 7)), invalid); // an embedded NUL is no separator

  zel::String unknown;
  EXPECT_EQ(CapabilityImp::fromString(" PCI , Floppy ", 14, &unknown), invalid);
  EXPECT_EQ(unknown, "Floppy");
  CapabilityImp::fromString("PCI", 3, &unknown);
  EXPECT_EQ(unknown, "");
}

TEST(CapabilityText, UnknownNameIsLogged) {
  auto capture = std::make_shared<zel::CaptureAppender>();
  zel::LogFactory::addAppender(capture);
  zel::LogFactory::setThreshold("zel.CapabilityImp", 1);
  CapabilityImp c("PCI|Bogus");
  zel::LogFactory::removeAppender(capture);
  zel::LogFactory::setThreshold("zel.CapabilityImp", 4);
  EXPECT_EQ(c, CapabilityImp::INVALID());
  std::vector<zel::LogRecord> records = capture->records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].category, "zel.CapabilityImp");
  EXPECT_EQ(records[0].priority, 3);
  EXPECT_EQ(records[0].text,
            "Unknown capability name \"Bogus\" in \"PCI|Bogus\": the set is INVALID");
}

// Whatever the bytes, reading never fails hard, and what it gives is either
// INVALID or a set that reads back from its own text.
RC_GTEST_PROP(CapabilityText, AnyBytesAreSafe, (std::string text)) {
  CapabilityImp c{zel::String(text)};
  RC_ASSERT(CapabilityImp(c.toString()) == c);
}

RC_GTEST_PROP(CapabilityText, NamesWithNoiseAreSafe, ()) {
  std::vector<std::string> parts = *rc::gen::container<std::vector<std::string>>(rc::gen::oneOf(
      rc::gen::map(rc::gen::inRange(0u, kCaps),
                   [](unsigned r) { return std::string(CapabilityImp::rowString(r)); }),
      rc::gen::elementOf(std::vector<std::string>{"|", ",", " ", "\t", "*", "", "x", "|,|"})));
  std::string text;
  for (auto const &p : parts)
    text += p;
  CapabilityImp c{zel::String(text)};
  RC_ASSERT(CapabilityImp(c.toString()) == c);
}

TEST(CapabilityText, IndentAndVerbose) {
  CapabilityImp c = CapabilityImp(Row::PCI) | CapabilityImp(Row::USB);
  EXPECT_EQ(c.toString(), "PCI|USB");
  EXPECT_EQ(c.toString(2, false), "    PCI|USB");
  EXPECT_EQ(c.toString(0, true), "PCI|USB [level 10]");
}

// ---------------------------------------------------------------------------
// Icons and descriptions

class CapabilityIcons : public ::testing::Test {
protected:
  void SetUp() override { m_dir = zel::FileSystem::makeTempDirectory("capicons"); }
  void TearDown() override {
    CapabilityImp::setIconResourceBasePath("");
    zel::FileSystem::removeDirectory(m_dir, true);
  }
  void touch(char const *name) {
    ASSERT_TRUE(zel::FileSystem::saveFile(zel::FileSystem::joinPath(m_dir, name), "icon"));
  }
  zel::String m_dir;
};

TEST_F(CapabilityIcons, MostSpecificMemberWithAnIcon) {
  CapabilityImp drive =
      CapabilityImp(Row::Optical) | CapabilityImp(Row::CDROM) | CapabilityImp(Row::DVD);
  // No folder: the most specific member, unchecked.
  EXPECT_EQ(drive.iconName(), "DVD");
  EXPECT_EQ(CapabilityImp().iconName(), "Unknown");

  CapabilityImp::setIconResourceBasePath(m_dir);
  EXPECT_EQ(CapabilityImp::iconResourceBasePath(), m_dir);
  EXPECT_EQ(drive.iconName(), "Unknown"); // folder without icons
  touch("Optical.svg");
  EXPECT_EQ(drive.iconName(), "Optical");
  touch("CDROM.ico");
  EXPECT_EQ(drive.iconName(), "CDROM");
  touch("DVD.png");
  EXPECT_EQ(drive.iconName(), "DVD");
  touch("BDR.txt"); // not an icon extension
  EXPECT_EQ((drive | CapabilityImp(Row::BDR)).iconName(), "DVD");
  EXPECT_EQ(CapabilityImp(CapabilityImp::SENTINEL).iconName(), "Unknown");
}

TEST(CapabilityDescription, EnglishIsCompleteAndTranslationsUseRowKeys) {
  zel::String dir = zel::FileSystem::joinPath(zel::Paths::dataDirectory(), "lang");
  zel::Properties english;
  zel::String error;
  ASSERT_TRUE(english.loadFromFile(zel::FileSystem::joinPath(dir, "capabilities_en.xml"), &error))
      << error;
  for (unsigned r = 0; r < kCaps; ++r) {
    zel::String text;
    EXPECT_TRUE(english.get(CapabilityImp::rowString(r), text) && !text.isEmpty())
        << "no English text for " << CapabilityImp::rowString(r);
    EXPECT_EQ(CapabilityImp(r).description(zel::ZELLocale()), text);
  }
  EXPECT_EQ(CapabilityImp(Row::NVME).description(zel::ZELLocale()), "NVMe storage device");
  // Every key of every language file names a row.
  for (char const *file : {"capabilities_en.xml", "capabilities_de.xml"}) {
    zel::Properties p;
    ASSERT_TRUE(p.loadFromFile(zel::FileSystem::joinPath(dir, file), &error)) << error;
    EXPECT_GT(p.size(), 50u);
    for (zel::String const &key : p.keys())
      EXPECT_NE(CapabilityImp::rowByString(key.c_str(), true), CapabilityImp::SENTINEL) << key;
  }
}

TEST(CapabilityDescription, GermanWithEnglishFallbackAndSets) {
  zel::ZELLocale german = zel::ZELLocale::fromString("de");
  EXPECT_EQ(CapabilityImp(Row::CPU).description(german), "Prozessor");
  EXPECT_EQ(CapabilityImp(Row::SCSISPC).description(german),
            CapabilityImp(Row::SCSISPC).description(zel::ZELLocale()));
  EXPECT_EQ((CapabilityImp(Row::CPU) | CapabilityImp(Row::Memory)).description(german),
            "Prozessor, Arbeitsspeicher");
  EXPECT_EQ(CapabilityImp().description(german), "");
}

TEST(CapabilityDescription, RowStringWhenNoTextExists) {
  zel::String dir = zel::FileSystem::makeTempDirectory("caplang");
  ASSERT_TRUE(zel::FileSystem::saveFile(
      zel::FileSystem::joinPath(dir, "capabilities_en.xml"),
      "<properties><property key=\"PCI\" value=\"Peripheral bus device\"/></properties>"));
  zel::String previous = zel::Resource::getDefaultDatabaseDirectory();
  zel::Resource::changeDefaultDatabaseDirectory(dir);
  EXPECT_EQ(CapabilityImp(Row::PCI).description(zel::ZELLocale()), "Peripheral bus device");
  EXPECT_EQ(CapabilityImp(Row::USB).description(zel::ZELLocale()), "USB");
  EXPECT_EQ(CapabilityImp(Row::AMD3DNOW).description(zel::ZELLocale()), "3DNOW");
  zel::Resource::changeDefaultDatabaseDirectory(previous);
  zel::FileSystem::removeDirectory(dir, true);
}

// ---------------------------------------------------------------------------
// Property categories

TEST(PropertyCategoryCatalogue, Rows) {
  std::stringstream in(
      "ALL INVALID SysInfo FRU Key CompositeKey ParentKey RequiredForEnumeration "
      "RequiredForTests Internal ChildBusId ArchitectureVersion Summary Profile ID "
      "Tier1 Tier2 Tier3 Group Volatile Inventory LinkInFromDevice SecurityInfo "
      "PerformanceMeasurement ErrorDevId Model Serial Firmware Manufacturer");
  std::vector<std::string> published;
  for (std::string name; in >> name;)
    published.push_back(name);
  ASSERT_EQ(published.size(), kCats);
  for (unsigned r = 0; r < kCats; ++r) {
    std::string accessor = published[r];
    std::string text = r == 0 ? "All" : r == 1 ? "Invalid" : accessor;
    EXPECT_EQ(PropertyCategoryImp::rowAccessorName(r), accessor);
    EXPECT_EQ(PropertyCategoryImp::rowString(r), text);
    EXPECT_EQ(PropertyCategoryImp::rowByString(text.c_str(), true), r);
    EXPECT_EQ(PropertyCategoryImp::rowByString(flipCase(text).c_str(), false), r);
    EXPECT_EQ(PropertyCategoryImp::rowByString(flipCase(text).c_str(), true),
              PropertyCategoryImp::SENTINEL);
  }
  EXPECT_EQ(PropertyCategoryImp::rowByString("INVALID", true), PropertyCategoryImp::SENTINEL);
  EXPECT_EQ(PropertyCategoryImp::rowByString("INVALID", false), 1u);
  EXPECT_EQ(PropertyCategoryImp::rowString(29), std::string(""));
  EXPECT_EQ(PropertyCategoryImp(29u), PropertyCategoryImp(5000u));
}

PropertyCategoryImp buildCats(Model const &m) {
  PropertyCategoryImp c;
  for (unsigned r : m)
    c |= PropertyCategoryImp(r);
  return c;
}

RC_GTEST_PROP(PropertyCategorySet, AlgebraAndTextMatchTheModel, ()) {
  auto gen = rc::gen::container<Model>(rc::gen::inRange(0u, kCats + 1));
  Model a = *gen, b = *gen;
  PropertyCategoryImp ca = buildCats(a), cb = buildCats(b);
  Model u = a;
  u.insert(b.begin(), b.end());
  RC_ASSERT((ca | cb) == buildCats(u));
  RC_ASSERT(ca.count() == a.size());
  RC_ASSERT((ca == cb) == (a == b));
  bool shared = std::any_of(a.begin(), a.end(), [&](unsigned r) { return b.count(r) != 0; });
  RC_ASSERT(ca.intersect(cb) == shared);
  // Same rule as capabilities, with this catalogue's ALL and INVALID (rows 0 and 1).
  bool expected = false;
  if (!b.count(1) && !b.count(kCats)) {
    expected = a.count(0) != 0 ||
               std::all_of(b.begin(), b.end(), [&](unsigned r) { return r == 0 || a.count(r); });
  }
  RC_ASSERT(ca.isCapable(cb) == expected);
  if (!a.count(kCats)) { // the sentinel has no text
    RC_ASSERT(PropertyCategoryImp::createFromString(ca.toString()) == ca);
  }
}

TEST(PropertyCategoryText, OddTexts) {
  using R = PropertyCategoryImp::Row;
  PropertyCategoryImp key(R::Key), group(R::Group);
  EXPECT_EQ(PropertyCategoryImp::createFromString(" key , GROUP "), key | group);
  EXPECT_EQ((key | group).toString(), "Key|Group");
  EXPECT_EQ(PropertyCategoryImp::createFromString(""), PropertyCategoryImp());
  EXPECT_EQ(PropertyCategoryImp::createFromString(static_cast<char const *>(nullptr)),
            PropertyCategoryImp());
  EXPECT_EQ(PropertyCategoryImp::createFromString("Key|Nope"), PropertyCategoryImp::INVALID());
  EXPECT_EQ(PropertyCategoryImp::createFromString("invalid"), PropertyCategoryImp::INVALID());
  EXPECT_EQ(PropertyCategoryImp::createFromString("||,"), PropertyCategoryImp());
  EXPECT_TRUE((key | group).isCapable(group));
  EXPECT_FALSE(group.isCapable(key | group));
  EXPECT_TRUE(group.isCapable(PropertyCategoryImp::ALL()));
  EXPECT_FALSE(group.isCapable(PropertyCategoryImp::INVALID()));
}

} // namespace
