#include "ostrel/Alert.h"

#include "zel/AssertionFailure.h"
#include "zel/IAlertImp.h"

namespace ostrel5 {

Alert::Alert(boost::shared_ptr<zel::IAlertImp> const &imp) noexcept : SharedHandle(imp) {}

Alert::~Alert() = default;

zel::String Alert::guid() const {
  ZEL_ASSERT(m_imp);
  return m_imp->guid();
}

zel::String const &Alert::key() const {
  ZEL_ASSERT(m_imp);
  return m_imp->key();
}

AlertType Alert::type() const {
  ZEL_ASSERT(m_imp);
  return AlertType(m_imp->type());
}

zel::String Alert::title() const {
  ZEL_ASSERT(m_imp);
  return m_imp->title().text();
}

zel::String Alert::message() const {
  ZEL_ASSERT(m_imp);
  return m_imp->message().text();
}

Device Alert::device() const {
  ZEL_ASSERT(m_imp);
  return Device(m_imp->device());
}

unsigned int Alert::tipCount() const {
  ZEL_ASSERT(m_imp);
  return m_imp->tipCount();
}

Tip Alert::tip(unsigned int index) const {
  ZEL_ASSERT(m_imp);
  return Tip(m_imp->tip(index));
}

long long Alert::timeTriggered() const {
  ZEL_ASSERT(m_imp);
  return m_imp->timeTriggered();
}

bool Alert::timeIsReal() const {
  ZEL_ASSERT(m_imp);
  return m_imp->timeIsReal();
}

bool Alert::getValue(AlertValueKey key, zel::String &out, int index) const {
  return m_imp->getValue(key.toString(), out, index);
}

boost::shared_ptr<zel::IAlertImp const> Alert::getImp() const {
  ZEL_ASSERT(m_imp);
  return m_imp;
}

} // namespace ostrel5
