#include "ostrel/EnumerationObserver.h"

namespace ostrel5 {

EnumerationObserver::~EnumerationObserver() = default;

void EnumerationObserver::handleDeviceEnumerationCompleted(zel::String const &, unsigned int,
                                                           double) {}
void EnumerationObserver::handleDeviceEnumerationFailed(zel::String const &, zel::String const &,
                                                        double) {}
void EnumerationObserver::handleTestEnumerationCompleted(zel::String const &, unsigned int,
                                                         double) {}
void EnumerationObserver::handleTestEnumerationFailed(zel::String const &, zel::String const &,
                                                      double) {}
void EnumerationObserver::handleAlert(Alert const &) {}
void EnumerationObserver::handleNewDevice(Device const &) {}
void EnumerationObserver::handleDeviceAboutToBeRemoved(Device const &) {}
void EnumerationObserver::handleDeviceRemoved(Device const &) {}
void EnumerationObserver::handleNewProperty(Device const &, DeviceProperty const &) {}
void EnumerationObserver::handlePropertyAboutToBeRemoved(Device const &, DeviceProperty const &) {}
void EnumerationObserver::handlePropertyAboutToBeChanged(Device const &, DeviceProperty const &,
                                                         DeviceProperty const &) {}
void EnumerationObserver::handlePropertyChanged(Device const &, DeviceProperty const &) {}
void EnumerationObserver::handleAlertAboutToBeRemoved(Alert const &) {}
void EnumerationObserver::handleAlertRemoved(Alert const &) {}
void EnumerationObserver::handleEnumerationComplete(bool) {}

} // namespace ostrel5
