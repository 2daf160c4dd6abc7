#pragma once
// ostrel5::TestParameter: a handle on one parameter of a test: key, display
// texts, priority, declared type, current value and where the value came
// from.
//
// It holds one boost::shared_ptr to a zel::ParameterImp, shared with the test
// that owns the parameter: setValue() on any handle changes the one object.
// Accessors do not check the pointer; a call on an empty handle is the
// caller's error (test isValid() first).
//
// Threads: the parameter object is not locked; whoever changes a shared
// parameter owns that race.

#include <boost/shared_ptr.hpp>

#include "ostrel/DataType.h"
#include "ostrel/HandleList.h"
#include "ostrel/ParameterSource.h"
#include "zel/String.h"

namespace zel {
class ParameterImp;
}

namespace ostrel5 {

class Value;

class TestParameter : public SharedHandle<zel::ParameterImp> {
public:
  /// The empty handle.
  TestParameter() noexcept;
  explicit TestParameter(boost::shared_ptr<zel::ParameterImp> const &imp) noexcept;
  TestParameter(TestParameter const &other) noexcept;
  TestParameter &operator=(TestParameter const &other) noexcept;
  ~TestParameter() override;

  zel::String const &key() const;
  zel::String const &localizedName() const;
  zel::String const &localizedDescription() const;
  /// Display order, lower first.
  unsigned int priority() const;
  /// The declared type; setValue converts to it.
  DataType type() const;
  /// A new Value on a copy of the current value.
  Value value() const;
  ParameterSource valueSource() const;

  /// Sets the value from `value`'s string form, read as the parameter's own
  /// declared type whatever the type of `value`, with the source CLIENT. The
  /// flag is not read, and the result is always true: a text that does not
  /// fit the declared type raises the framework's zel::TypeMismatch and
  /// leaves the parameter unchanged.
  bool setValue(Value const &value, bool unused) const;

  zel::String toString(unsigned int indent, bool verbose) const;

  boost::shared_ptr<zel::ParameterImp> getImp() const;
};

} // namespace ostrel5
