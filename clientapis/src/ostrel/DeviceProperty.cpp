#include "ostrel/DeviceProperty.h"

#include "ostrel/ClientMessageHandler.h"
#include "ostrel/Device.h"
#include "ostrel/Module.h"
#include "ostrel/PropertyCategory.h"
#include "ostrel/Value.h"
#include "zel/AssertionFailure.h"
#include "zel/IDeviceImp.h"
#include "zel/IModuleImp.h"
#include "zel/Logger.h"
#include "zel/PropertyImp.h"
#include "zel/StateManager.h"
#include "zel/ValueImp.h"

namespace ostrel5 {

DeviceProperty::DeviceProperty() noexcept = default;
DeviceProperty::DeviceProperty(boost::shared_ptr<zel::PropertyImp const> const &imp) noexcept
    : SharedHandle(imp) {}
DeviceProperty::DeviceProperty(DeviceProperty const &other) noexcept = default;
DeviceProperty &DeviceProperty::operator=(DeviceProperty const &other) noexcept = default;
DeviceProperty::~DeviceProperty() = default;

zel::String const &DeviceProperty::key() const {
  ZEL_ASSERT(!!m_imp);
  return m_imp->key();
}

DataType DeviceProperty::type() const {
  ZEL_ASSERT(!!m_imp);
  return DataType(m_imp->type());
}

zel::String const &DeviceProperty::localizedName() const {
  ZEL_ASSERT(!!m_imp);
  return m_imp->localizedName();
}

zel::String const &DeviceProperty::localizedDescription() const {
  ZEL_ASSERT(!!m_imp);
  return m_imp->localizedDescription();
}

Value DeviceProperty::value() const {
  ZEL_ASSERT(!!m_imp);
  return Value(m_imp->value());
}

PropertyCategory DeviceProperty::category() const {
  ZEL_ASSERT(!!m_imp);
  return PropertyCategory(m_imp->category());
}

Module DeviceProperty::sourceModule() const {
  ZEL_ASSERT(!!m_imp);
  return Module(zel::StateManager::instance()->moduleByGuid(m_imp->moduleGuid()));
}

zel::Array<zel::String> const &DeviceProperty::toArray() const {
  ZEL_ASSERT(!!m_imp);
  // One array for the whole process, filled from the first caller's
  // property; later callers, whatever their property, share that content.
  // Applications rely on the reference staying valid, which a per-call
  // array could not give.
  static zel::Array<zel::String> const strings = [this] {
    zel::Array<zel::String> filled;
    zel::ValueImp::toStringArray(m_imp->value(), filled, true);
    return filled;
  }();
  return strings;
}

unsigned int DeviceProperty::childPropertyCount() const {
  ZEL_ASSERT(!!m_imp);
  return static_cast<unsigned int>(m_imp->getChildrenKeys().size());
}

DevicePropertyList DeviceProperty::children(Device const &device) const {
  ZEL_ASSERT(!!m_imp);
  return DevicePropertyList(m_imp->children(*device.getImp()));
}

DeviceProperty DeviceProperty::childPropertyByKey(Device const &device,
                                                  zel::String const &key) const {
  ZEL_ASSERT(!!m_imp);
  if (!m_imp->getChildrenKeys().contains(key)) {
    zel::LogFactory::getLogger("libOstrel.DeviceProperty")
        .logf(4, "Invalid child property key: %s", key.c_str());
    return DeviceProperty();
  }
  // A child property lives on the device under its own key.
  return device.property(key);
}

bool DeviceProperty::willBeDiscoveredLater() const {
  ZEL_ASSERT(!!m_imp);
  return m_imp->willBeDiscoveredLater();
}

boost::shared_ptr<zel::PropertyImp const> DeviceProperty::getImp() const {
  ZEL_ASSERT(!!m_imp);
  return m_imp;
}

void DeviceProperty::registerObserver(Device const &device, PropertyObserver *observer) const {
  ZEL_ASSERT(!!m_imp);
  ClientMessageHandler::instance().registerPropertyObserver(device.deviceType(), m_imp->key(),
                                                            observer);
}

void DeviceProperty::unRegisterObserver(PropertyObserver *observer) const {
  ZEL_ASSERT(!!m_imp);
  ClientMessageHandler::instance().unRegisterPropertyObserver(observer);
}

} // namespace ostrel5
