#include "ostrel/PropertyObserver.h"

namespace ostrel5 {

PropertyObserver::~PropertyObserver() = default;

void PropertyObserver::handleNewProperty(Device const &, DeviceProperty const &) {}
void PropertyObserver::handlePropertyAboutToBeRemoved(Device const &, DeviceProperty const &) {}
void PropertyObserver::handlePropertyAboutToBeChanged(Device const &, DeviceProperty const &,
                                                      DeviceProperty const &) {}
void PropertyObserver::handlePropertyChanged(Device const &, DeviceProperty const &) {}

} // namespace ostrel5
