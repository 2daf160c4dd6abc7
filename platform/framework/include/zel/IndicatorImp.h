#pragma once
// zel::IndicatorImp: a monitor that a module can run in the background
// (temperature, battery wear, disk health), as the mirror holds it.
//
// An indicator is free when it is bound to no device: it watches the machine
// as a whole, so a client may start it without asking the user for a device
// (launchBackgroundSystemInformation starts exactly the free ones). An
// indicator tied to one device (deviceGuid not empty) is started for it.
//
// A plain value. Thread-compatible.

#include "zel/String.h"

namespace zel {

class IndicatorImp {
public:
  IndicatorImp() = default;
  IndicatorImp(String const &guid, String const &moduleGuid, String const &key,
               String const &localizedName, String const &deviceGuid = String())
      : m_guid(guid), m_moduleGuid(moduleGuid), m_key(key), m_name(localizedName),
        m_deviceGuid(deviceGuid) {}
  IndicatorImp(IndicatorImp const &) = default;
  IndicatorImp(IndicatorImp &&) = default;
  IndicatorImp &operator=(IndicatorImp const &) = default;
  IndicatorImp &operator=(IndicatorImp &&) = default;
  virtual ~IndicatorImp() = default;

  String guid() const { return m_guid; }
  String const &moduleGuid() const noexcept { return m_moduleGuid; }
  String const &key() const noexcept { return m_key; }
  String const &localizedName() const noexcept { return m_name; }
  String const &localizedDescription() const noexcept { return m_description; }
  String const &deviceGuid() const noexcept { return m_deviceGuid; }
  /// Seconds between two readings (0: the module decides).
  unsigned int interval() const noexcept { return m_interval; }
  /// True when bound to no device (see the header).
  bool isFreeIndicator() const noexcept { return m_deviceGuid.isEmpty(); }

  IndicatorImp &setGuid(String const &v) {
    m_guid = v;
    return *this;
  }
  IndicatorImp &setModuleGuid(String const &v) {
    m_moduleGuid = v;
    return *this;
  }
  IndicatorImp &setKey(String const &v) {
    m_key = v;
    return *this;
  }
  IndicatorImp &setLocalizedName(String const &v) {
    m_name = v;
    return *this;
  }
  IndicatorImp &setLocalizedDescription(String const &v) {
    m_description = v;
    return *this;
  }
  IndicatorImp &setDeviceGuid(String const &v) {
    m_deviceGuid = v;
    return *this;
  }
  IndicatorImp &setInterval(unsigned int v) {
    m_interval = v;
    return *this;
  }

  /// "<indent>Indicator <name> [<guid>]" (+ module, key, device when verbose).
  String toString(unsigned int indent = 0, bool verbose = false) const;

  friend bool operator==(IndicatorImp const &a, IndicatorImp const &b) noexcept {
    return a.m_guid == b.m_guid && a.m_moduleGuid == b.m_moduleGuid && a.m_key == b.m_key &&
           a.m_name == b.m_name && a.m_description == b.m_description &&
           a.m_deviceGuid == b.m_deviceGuid && a.m_interval == b.m_interval;
  }
  friend bool operator!=(IndicatorImp const &a, IndicatorImp const &b) noexcept {
    return !(a == b);
  }

private:
  String m_guid;
  String m_moduleGuid;
  String m_key;
  String m_name;
  String m_description;
  String m_deviceGuid;
  unsigned int m_interval = 0;
};

} // namespace zel
