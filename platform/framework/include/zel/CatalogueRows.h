#pragma once
// The two catalogues of the object model, each written exactly once.
//
// Every row of the device-capability catalogue appears here as
//   ROW(Name, level)              the accessor is Name and the row's string is "Name"
//   NAMED(Name, "text", level)    the accessor is Name and the row's string is "text"
// and every row of the property-category catalogue as ROW(Name) or
// NAMED(Name, "text"). Row numbers are the order of appearance, from 0.
//
// Everything that needs the rows (the string and level tables of
// zel::CapabilityImp and zel::PropertyCategoryImp, the row enumerations, the
// public static accessors of ostrel5::DeviceCapability and
// ostrel5::PropertyCategory) expands these lists with macros of its own, so
// a row cannot be added, renamed or reordered in one place and not another.
//
// Capability levels rank how specific a capability is as a device type:
// within a family they rise with specificity (Optical 40, CDROM 50, CDR 60,
// DVD 80, BDR 120). -1 marks rows that never name what a device is: the test
// markers (names ending in "Test"), AMDSSEMMX, AMDTEST, DirectX10Compatible
// and StandbyHibernate.
//
// Row strings are distinct even without regard to case, which a test checks,
// so a case-blind look-up can never be ambiguous.

// clang-format off
#define ZEL_CAPABILITY_ROWS(ROW, NAMED) \
  ROW(NIL, 0) \
  NAMED(ALL, "All", 0) \
  ROW(INVALID, 0) \
  ROW(TCPIP, 0) \
  ROW(SMART, 0) \
  ROW(System, 0) \
  ROW(PCI, 10) \
  ROW(IDE, 10) \
  ROW(USB, 10) \
  ROW(USBConfiguration, 20) \
  ROW(USBInterface, 20) \
  ROW(USBEndPoint, 20) \
  ROW(USBMassStorage, 21) \
  ROW(USB_UFI, 21) \
  ROW(SCSI, 20) \
  ROW(IEEE1394, 10) \
  ROW(Channel, 20) \
  ROW(USBComposite, 20) \
  ROW(USB2, 10) \
  ROW(UHCI, 0) \
  ROW(OHCI, 0) \
  ROW(EHCI, 0) \
  ROW(AGP, 20) \
  ROW(AGP1X, 20) \
  ROW(AGP2X, 20) \
  ROW(AGP4X, 20) \
  ROW(AGP8X, 20) \
  ROW(Port, 30) \
  ROW(NVRAM, 30) \
  ROW(MMCSDFlash, 30) \
  ROW(NANDFlash, 30) \
  ROW(NORFlash, 30) \
  ROW(UBIFlash, 30) \
  ROW(DataFlash, 30) \
  ROW(RAMFlash, 30) \
  ROW(ROMFlash, 30) \
  ROW(MTD, 30) \
  ROW(NVME, 29) \
  ROW(NVMEController, 30) \
  ROW(MMCHostController, 30) \
  ROW(MMC, 30) \
  ROW(SD, 30) \
  ROW(SDIO, 30) \
  ROW(BlueTooth, 30) \
  ROW(ComputeDevice, 30) \
  ROW(BiometricDevice, 30) \
  ROW(SmartCardReader, 30) \
  ROW(FingerprintReader, 35) \
  ROW(BluetoothPort, 30) \
  ROW(BluetoothDevice, 30) \
  ROW(NearFieldCommunicationDevice, 30) \
  ROW(SerialPort, 30) \
  ROW(ParallelPort, 30) \
  ROW(InfraredPort, 30) \
  ROW(Other, 0) \
  ROW(PCIBridge, 20) \
  ROW(PCIHostBridge, 30) \
  ROW(PCIISABridge, 30) \
  ROW(PCIPCIBridge, 30) \
  ROW(PCICardBusBridge, 30) \
  ROW(PCIPCMCIABridge, 30) \
  ROW(PCIEISABridge, 30) \
  ROW(PCIX, 20) \
  ROW(PCIExpress, 20) \
  ROW(SystemBus, 30) \
  ROW(MemoryBus, 30) \
  ROW(IsaBus, 30) \
  ROW(PciBus, 30) \
  ROW(UsbBus, 30) \
  ROW(IdeBus, 30) \
  ROW(ScsiBus, 30) \
  ROW(I2CBus, 30) \
  ROW(PS2Bus, 30) \
  ROW(SMBus, 30) \
  ROW(ComBus, 30) \
  ROW(LptBus, 30) \
  ROW(IEEE1394Bus, 30) \
  ROW(AgpBus, 30) \
  ROW(PcmciaBus, 30) \
  ROW(AVI, 30) \
  ROW(CPU, 30) \
  ROW(CPUCore, 30) \
  ROW(CPUThread, 30) \
  ROW(CPUCache, 30) \
  ROW(Memory, 30) \
  ROW(SystemBoard, 30) \
  ROW(CMOS, 30) \
  ROW(SMBIOS, 30) \
  ROW(SMBIOS_Struct, 30) \
  ROW(SAS, 20) \
  ROW(ATA, 20) \
  ROW(SATA, 20) \
  ROW(RAID, 20) \
  ROW(RemovableStorage, 20) \
  ROW(HardDrive, 30) \
  ROW(SSD, 29) \
  ROW(SystemDrive, 0) \
  ROW(DrivePartition, 30) \
  ROW(FloppyDrive, 30) \
  ROW(TapeDrive, 30) \
  ROW(MT_TapeDrive, 15) \
  ROW(LSDRIVE, 30) \
  ROW(ZipDrive, 30) \
  ROW(MMX, 0) \
  ROW(SSE, 0) \
  ROW(SSE2, 0) \
  ROW(SSE3, 0) \
  ROW(SSSE3, 0) \
  ROW(PSE36, 0) \
  NAMED(AMD3DNOW, "3DNOW", 0) \
  NAMED(AMD3DNOWEXT, "3DNOWEXT", 0) \
  ROW(AMDSSEMMX, -1) \
  ROW(AMDTEST, -1) \
  ROW(HT, 0) \
  ROW(MultiCore, 0) \
  ROW(VendorRAIDController, 30) \
  ROW(VendorRAIDUnit, 15) \
  ROW(VendorRAIDPort, 15) \
  ROW(VendorRAIDDrive, 15) \
  ROW(RAIDSet, 45) \
  ROW(USBController, 30) \
  ROW(IEEE1394Controller, 30) \
  ROW(PcmciaController, 30) \
  ROW(SMBusController, 30) \
  ROW(MemoryController, 30) \
  ROW(EncryptionController, 30) \
  ROW(MassStorageController, 30) \
  ROW(CommunicationsController, 30) \
  ROW(Printer, 30) \
  ROW(DefaultPrinter, 30) \
  ROW(OfflinePrinter, 20) \
  ROW(Scanner, 30) \
  ROW(Digitizer, 30) \
  ROW(Camera, 30) \
  ROW(CameraFlash, 30) \
  ROW(Camera3DDepth, 40) \
  ROW(Modem, 40) \
  ROW(FaxModem, 30) \
  ROW(ISDNAdapter, 30) \
  ROW(DSLAdapter, 30) \
  ROW(CableModem, 30) \
  ROW(NetworkCard, 30) \
  ROW(MobileBroadbandInterface, 31) \
  ROW(Wireless, 0) \
  ROW(Ethernet, 20) \
  ROW(ATM, 30) \
  ROW(TokenRing, 30) \
  ROW(HID, 30) \
  ROW(Keyboard, 30) \
  ROW(WiKeyboard, 30) \
  ROW(WiMouse, 30) \
  ROW(Mouse, 30) \
  ROW(SynapticsMouse, 30) \
  ROW(SynapticsTouchPad, 30) \
  ROW(SynapticsTrackpoint, 30) \
  ROW(Joystick, 30) \
  ROW(MIDI, 30) \
  ROW(SoundCard, 40) \
  ROW(HDAudioController, 30) \
  ROW(Speaker, 30) \
  ROW(Microphone, 30) \
  ROW(Monitor, 30) \
  ROW(VideoCard, 30) \
  ROW(VideoScreen, 30) \
  ROW(GPU, 29) \
  ROW(DockingStation, 30) \
  ROW(PCCard, 30) \
  ROW(PCMCIASlot, 30) \
  ROW(GPS, 30) \
  ROW(RTC, 20) \
  ROW(HUB, 20) \
  ROW(InternalHub, 30) \
  ROW(MultiHeadCardReader, 30) \
  ROW(CardReader, 30) \
  ROW(MemoryChip, 40) \
  ROW(Software, 30) \
  ROW(OperatingSystem, 30) \
  ROW(Service, 40) \
  ROW(RunningProcesses, 40) \
  ROW(RunningProcess, 40) \
  ROW(RunningApplications, 40) \
  ROW(RunningApplication, 40) \
  ROW(InstalledApplication, 40) \
  ROW(VideoPort, 30) \
  ROW(WindowsUpdate, 40) \
  ROW(WindowsUpdateHistory, 40) \
  ROW(AvailableWindowsUpdate, 40) \
  ROW(WindowsPassword, 40) \
  ROW(WindowsBackup, 40) \
  ROW(WindowsDefrag, 40) \
  ROW(BIOS, 30) \
  ROW(Firmware, 30) \
  ROW(UnitTester, 30) \
  ROW(Slot, 30) \
  ROW(OnBoardDevice, 30) \
  ROW(GenericWindows, 20) \
  ROW(Fan, 30) \
  ROW(Sensor, 20) \
  ROW(LidSensor, 30) \
  ROW(ThermalZone, 30) \
  ROW(TempSensor, 30) \
  ROW(IPMI, 20) \
  ROW(IPMIManagementController, 30) \
  ROW(FRU, 30) \
  ROW(AmbientLightSensor, 30) \
  ROW(Accelerometer, 30) \
  ROW(Magnetometer, 30) \
  ROW(Gyrometer, 30) \
  ROW(VoltSensor, 30) \
  ROW(Chassis, 30) \
  ROW(PowerSupply, 30) \
  ROW(Battery, 30) \
  ROW(Optical, 40) \
  ROW(CDROM, 50) \
  ROW(CDDA, 50) \
  ROW(CDR, 60) \
  ROW(CDRW, 70) \
  ROW(CDRWHIGHSPEED, 71) \
  ROW(DVD, 80) \
  ROW(DVDMINUSR, 85) \
  ROW(DVDMINUSRW, 90) \
  ROW(DVDRAM, 85) \
  ROW(DVDPLUSR, 85) \
  ROW(DVDPLUSRDL, 90) \
  ROW(DVDMINUSRDL, 90) \
  ROW(DVDPLUSRW, 90) \
  ROW(DVDPLUSRWDL, 95) \
  ROW(DVDMINUSRWDL, 95) \
  ROW(BDROM, 115) \
  ROW(BDR, 120) \
  ROW(BDRE, 125) \
  ROW(HDDVDROM, 115) \
  ROW(HDDVDR, 120) \
  ROW(HDDVDRAM, 125) \
  ROW(ServeRaid, 100) \
  ROW(RemoteSupervisorAdapter, 110) \
  ROW(VideoCapture, 10) \
  ROW(VideoCaptureBaseFilter, 0) \
  ROW(TVTuner, 0) \
  ROW(AnalogTVTuner, 0) \
  ROW(AnalogFMRadioTuner, 0) \
  ROW(DigitalTVTuner, 0) \
  ROW(TouchScreen, 30) \
  ROW(AmbientLight, 30) \
  ROW(WirelessNetworkCardTest, -1) \
  ROW(WirelessNetworkCardAdvancedTest, -1) \
  ROW(NetworkCardCableTest, -1) \
  ROW(NetworkCardTest, -1) \
  ROW(NetworkCardAdvancedTest, -1) \
  ROW(NetworkCardExternalLoopbackTest, -1) \
  ROW(ArcadyanNetworkTest, -1) \
  ROW(RealTekNetworkTest, -1) \
  ROW(SystemboardAdvancedTest, -1) \
  ROW(MouseTest, -1) \
  ROW(KeyboardTest, -1) \
  ROW(ADSLTest, -1) \
  ROW(ATITest, -1) \
  ROW(VideoMemoryTest, -1) \
  ROW(FixedPipelineTest, -1) \
  ROW(DirectX10Compatible, -1) \
  ROW(WiMouseTest, -1) \
  ROW(IEEE1394ConfigRomTest, -1) \
  ROW(Hardware, 0) \
  ROW(SCSISPC, 15) \
  ROW(SCSISBC, 15) \
  ROW(SCSISSC, 15) \
  ROW(SCSIMMC, 15) \
  ROW(SCSIRBC, 15) \
  ROW(SCSISCC, 15) \
  ROW(SCSISES, 15) \
  ROW(OEMInfo, 100) \
  ROW(Security, 0) \
  ROW(EEPROM, 0) \
  ROW(StandbyHibernate, -1) \
  ROW(ReadyBoost, 10) \
  ROW(USBPorts, 10) \
  ROW(PhysicsCard, 40) \
  ROW(Firewall, 40) \
  ROW(VirusScanner, 40) \
  ROW(ScreenSaver, 40) \
  ROW(RescueAndRecovery, 40) \
  ROW(ClientSecuritySolution, 40) \
  ROW(PasswordManager, 40) \
  ROW(SystemUpdate, 40) \
  ROW(SpywareScanner, 40) \
  ROW(WebBrowser, 40) \
  ROW(UserAccounts, 40) \
  ROW(UserAccount, 40) \
  ROW(NetworkShares, 40) \
  ROW(NetworkShare, 40) \
  ROW(SystemRestorePoints, 40) \
  ROW(SystemRestorePoint, 40) \
  ROW(VendorSpecific0, 0) \
  ROW(VendorSpecific1, 0) \
  ROW(VendorSpecific2, 0) \
  ROW(VendorSpecific3, 0) \
  ROW(VendorSpecific4, 0) \
  ROW(Emulated, 1)

#define ZEL_PROPERTY_CATEGORY_ROWS(ROW, NAMED) \
  NAMED(ALL, "All") \
  NAMED(INVALID, "Invalid") \
  ROW(SysInfo) \
  ROW(FRU) \
  ROW(Key) \
  ROW(CompositeKey) \
  ROW(ParentKey) \
  ROW(RequiredForEnumeration) \
  ROW(RequiredForTests) \
  ROW(Internal) \
  ROW(ChildBusId) \
  ROW(ArchitectureVersion) \
  ROW(Summary) \
  ROW(Profile) \
  ROW(ID) \
  ROW(Tier1) \
  ROW(Tier2) \
  ROW(Tier3) \
  ROW(Group) \
  ROW(Volatile) \
  ROW(Inventory) \
  ROW(LinkInFromDevice) \
  ROW(SecurityInfo) \
  ROW(PerformanceMeasurement) \
  ROW(ErrorDevId) \
  ROW(Model) \
  ROW(Serial) \
  ROW(Firmware) \
  ROW(Manufacturer)
// clang-format on
