#include "ostrel/TestParameter.h"

#include "ostrel/Value.h"
#include "zel/ParameterImp.h"
#include "zel/ValueImp.h"

namespace ostrel5 {

TestParameter::TestParameter() noexcept = default;
TestParameter::TestParameter(boost::shared_ptr<zel::ParameterImp> const &imp) noexcept
    : SharedHandle(imp) {}
TestParameter::TestParameter(TestParameter const &other) noexcept = default;
TestParameter &TestParameter::operator=(TestParameter const &other) noexcept = default;
TestParameter::~TestParameter() = default;

zel::String const &TestParameter::key() const { return m_imp->key(); }
zel::String const &TestParameter::localizedName() const { return m_imp->localizedName(); }
zel::String const &TestParameter::localizedDescription() const {
  return m_imp->localizedDescription();
}
unsigned int TestParameter::priority() const { return m_imp->priority(); }
DataType TestParameter::type() const { return DataType(m_imp->type()); }
Value TestParameter::value() const { return Value(m_imp->value()); }
ParameterSource TestParameter::valueSource() const { return ParameterSource(m_imp->valueSource()); }

bool TestParameter::setValue(Value const &value, bool) const {
  // Through the text, so that the parameter's declared type decides the
  // conversion: Value(5) on a STRING parameter stores "5", and "5" on a
  // UINT32 parameter stores the number.
  zel::ValueImp converted(value.toString(), m_imp->type());
  m_imp->setValue(converted, zel::ParameterSourceImp::CLIENT);
  return true;
}

zel::String TestParameter::toString(unsigned int indent, bool verbose) const {
  return m_imp->toString(indent, verbose);
}

boost::shared_ptr<zel::ParameterImp> TestParameter::getImp() const { return m_imp; }

} // namespace ostrel5
