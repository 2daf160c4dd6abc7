#include "ostrel/DeviceObserver.h"

namespace ostrel5 {

DeviceObserver::~DeviceObserver() = default;

void DeviceObserver::handleDeviceAboutToBeRemoved(Device const &) {}
void DeviceObserver::handleDeviceRemoved(Device const &) {}
void DeviceObserver::handleNewProperty(Device const &, DeviceProperty const &) {}
void DeviceObserver::handlePropertyAboutToBeRemoved(Device const &, DeviceProperty const &) {}
void DeviceObserver::handlePropertyAboutToBeChanged(Device const &, DeviceProperty const &,
                                                    DeviceProperty const &) {}
void DeviceObserver::handlePropertyChanged(Device const &, DeviceProperty const &) {}
void DeviceObserver::handleDevicePropertyChanged(Device const &, zel::String const &) {}

} // namespace ostrel5
