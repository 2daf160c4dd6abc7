#pragma once
// ostrel5::ParameterSource: where a test parameter's value came from: 3 rows, NOTSET,
// SETTINGSFILE, CLIENT, each string equal to its name.
// A wrapped constant; rows: ZEL_PARAMETERSOURCE_ROWS in zel/ParameterSourceImp.h; common
// operations: ostrel/ConstantClass.h. Converts to and from zel::ParameterSourceImp by row number.

#include "ostrel/ConstantClass.h"
#include "zel/ParameterSourceImp.h"

namespace ostrel5 {

class ParameterSource : public SharedAll::ApiWrapper {
public:
  typedef zel::rows::ParameterSource::ParameterSource_ENUM ParameterSource_ENUM;
  OSTREL5_CONSTANT_CLASS(ParameterSource, zel::rows::ParameterSource)
  OSTREL5_WRAPPED_CONSTANT(ParameterSource)
  ZEL_PARAMETERSOURCE_ROWS(OSTREL5_CONSTANT_ACCESSOR)

  ParameterSource(zel::ParameterSourceImp const &imp) noexcept : m_enum(imp.enumValue()) {}
  zel::ParameterSourceImp imp() const noexcept { return zel::ParameterSourceImp(m_enum); }

private:
  ParameterSource_ENUM m_enum;
};

} // namespace ostrel5
