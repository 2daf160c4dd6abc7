#include "ostrel/DeviceCapability.h"

#include <new>

#include "zel/AssertionFailure.h"

namespace ostrel5 {

// Constructors allocate with nothrow: a failed allocation leaves m_imp null,
// and the assertions of the operations below are what then stop the caller.

DeviceCapability::DeviceCapability(DeviceCapability_ENUM row)
    : m_imp(new (std::nothrow) zel::CapabilityImp(row)) {}

DeviceCapability::DeviceCapability(zel::CapabilityImp const &imp)
    : m_imp(new (std::nothrow) zel::CapabilityImp(imp)) {}

DeviceCapability::DeviceCapability(DeviceCapability const &other)
    : SharedAll::ApiWrapper(other),
      m_imp(other.m_imp ? new (std::nothrow) zel::CapabilityImp(*other.m_imp) : nullptr) {}

DeviceCapability::DeviceCapability(zel::String const &text)
    : m_imp(new (std::nothrow) zel::CapabilityImp(text)) {}

DeviceCapability::DeviceCapability(zel::String const &text, zel::String const &, int,
                                   zel::String const &)
    : m_imp(new (std::nothrow) zel::CapabilityImp(text)) {}

DeviceCapability::~DeviceCapability() { delete m_imp; }

DeviceCapability &DeviceCapability::operator=(DeviceCapability const &rhs) {
  ZEL_ASSERT(m_imp);
  ZEL_ASSERT(rhs.m_imp);
  *m_imp = *rhs.m_imp;
  return *this;
}

DeviceCapability DeviceCapability::operator|(DeviceCapability const &rhs) const {
  ZEL_ASSERT(m_imp);
  ZEL_ASSERT(rhs.m_imp);
  return DeviceCapability(*m_imp | *rhs.m_imp);
}

bool DeviceCapability::operator==(DeviceCapability const &rhs) const {
  ZEL_ASSERT(m_imp);
  ZEL_ASSERT(rhs.m_imp);
  return *m_imp == *rhs.m_imp;
}

bool DeviceCapability::operator!=(DeviceCapability const &rhs) const {
  ZEL_ASSERT(m_imp);
  ZEL_ASSERT(rhs.m_imp);
  return *m_imp != *rhs.m_imp;
}

bool DeviceCapability::isCapable(DeviceCapability const &rhs) const {
  ZEL_ASSERT(m_imp);
  ZEL_ASSERT(rhs.m_imp);
  return m_imp->isCapable(*rhs.m_imp);
}

bool DeviceCapability::intersect(DeviceCapability const &rhs) const {
  return m_imp->intersect(*rhs.m_imp);
}

zel::String DeviceCapability::iconName() const {
  ZEL_ASSERT(m_imp);
  return m_imp->iconName();
}

zel::String const &DeviceCapability::UnknownIcon() {
  static zel::String const *const icon = new zel::String(zel::CapabilityImp::unknownIconName());
  return *icon;
}

void DeviceCapability::setIconResourceBasePath(zel::String const &folder) {
  zel::CapabilityImp::setIconResourceBasePath(folder);
}

int DeviceCapability::priorityLevel() const {
  ZEL_ASSERT(m_imp);
  return m_imp->priorityLevel();
}

zel::String DeviceCapability::localizedDescription() const {
  ZEL_ASSERT(m_imp);
  return m_imp->description();
}

zel::String DeviceCapability::toString() const {
  ZEL_ASSERT(m_imp);
  return m_imp->toString(0, false);
}

zel::String DeviceCapability::stringValue() const { return toString(); }

DeviceCapability::DeviceCapability_ENUM DeviceCapability::enumValue() const {
  ZEL_ASSERT(m_imp);
  if (m_imp->primitiveCapabilityCount() != 1)
    return DeviceCapability_ENUM::SENTINEL_ROW;
  return static_cast<DeviceCapability_ENUM>(m_imp->primitiveRow(0));
}

unsigned int DeviceCapability::primitiveCapabilityCount() const {
  ZEL_ASSERT(m_imp);
  return m_imp->primitiveCapabilityCount();
}

DeviceCapability DeviceCapability::getPrimitiveCapability(unsigned int n) const {
  ZEL_ASSERT(m_imp);
  return DeviceCapability(m_imp->getPrimitiveCapability(n));
}

unsigned int DeviceCapability::allPrimitiveCapabilitiesCount() {
  return zel::CapabilityImp::allPrimitiveCapabilitiesCount();
}

DeviceCapability DeviceCapability::getFromAllPrimitiveCapabilities(unsigned int n) {
  return DeviceCapability(zel::CapabilityImp::getFromAllPrimitiveCapabilities(n));
}

DeviceCapability DeviceCapability::getHighestPriorityCapabilities() const {
  ZEL_ASSERT(m_imp);
  return DeviceCapability(m_imp->capsWithHighestPriority());
}

zel::CapabilityImp *DeviceCapability::getImp() const {
  ZEL_ASSERT(m_imp);
  return m_imp;
}

unsigned int DeviceCapability::constantCount() { return zel::CapabilityImp::ROW_COUNT; }

DeviceCapability DeviceCapability::getConstantByIndex(unsigned int index) {
  return DeviceCapability(static_cast<DeviceCapability_ENUM>(
      index < zel::CapabilityImp::ROW_COUNT ? index : zel::CapabilityImp::SENTINEL));
}

DeviceCapability DeviceCapability::getConstantByString(char const *text, bool caseSensitive) {
  return DeviceCapability(
      static_cast<DeviceCapability_ENUM>(zel::CapabilityImp::rowByString(text, caseSensitive)));
}

DeviceCapability DeviceCapability::getConstantByString(zel::String const &text,
                                                       bool caseSensitive) {
  return getConstantByString(text.getLowerByteString(), caseSensitive);
}

#define OSTREL5_CAP_DEFINE_ROW(name, level)                                                        \
  DeviceCapability DeviceCapability::name() {                                                      \
    return DeviceCapability(DeviceCapability_ENUM::name);                                          \
  }
#define OSTREL5_CAP_DEFINE_NAMED(name, text, level) OSTREL5_CAP_DEFINE_ROW(name, level)
ZEL_CAPABILITY_ROWS(OSTREL5_CAP_DEFINE_ROW, OSTREL5_CAP_DEFINE_NAMED)
#undef OSTREL5_CAP_DEFINE_ROW
#undef OSTREL5_CAP_DEFINE_NAMED

} // namespace ostrel5
