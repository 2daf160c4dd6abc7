#pragma once
// zel::ParameterSourceImp: where a test parameter's value came from. Row numbers are those of
// ostrel5::ParameterSource.
// String equals name.

#include "zel/ConstantTable.h"

// Rows in order: X(NAME, "string").
#define ZEL_PARAMETERSOURCE_ROWS(X)                                                                \
  X(NOTSET, "NOTSET")                                                                              \
  X(SETTINGSFILE, "SETTINGSFILE")                                                                  \
  X(CLIENT, "CLIENT")

namespace zel {

namespace rows {
struct ParameterSource {
  enum ParameterSource_ENUM : unsigned int { ZEL_PARAMETERSOURCE_ROWS(ZEL_CONSTANT_ENUMERATOR) };
};
} // namespace rows

/// One ParameterSource row; see zel/ConstantTable.h for the common operations.
class ParameterSourceImp
    : public rows::ParameterSource,
      public ConstantImp<ParameterSourceImp, rows::ParameterSource::ParameterSource_ENUM> {
public:
  using ConstantImp::ConstantImp;
  static ConstantTable<ConstantRow> const &table() noexcept;
};

} // namespace zel
