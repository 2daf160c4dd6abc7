#pragma once
// ostrel5::Module: a handle on one diagnostic module (library or program)
// known to the engine: identity, version, the tests and benchmarks it offers
// and the devices it serves.
//
// It holds one boost::shared_ptr to the zel::IModuleImp of the client's
// mirror (zel::StateManager). Relations (tests(), benchmarks(), devices())
// are read from the process-wide mirror at the time of the call.
//
// Two Module handles are equal when their GUIDs are: handles on different
// objects of the same module (an old and a new enumeration) compare equal.
//
// Accessors do not check the pointer: a call on an empty handle (including
// ==) is the caller's error; test isValid() first.
//
// Threads: handles are plain values; the module object is not locked.

#include <boost/shared_ptr.hpp>

#include "ostrel/DeviceCapability.h"
#include "ostrel/HandleList.h"
#include "ostrel/Tip.h"
#include "ostrel/ModuleType.h"
#include "ostrel/Version.h"
#include "zel/String.h"

namespace zel {
class IModuleImp;
}

namespace ostrel5 {

class DeviceList;
class TestList;

class Module : public SharedHandle<zel::IModuleImp> {
public:
  /// The empty handle.
  Module() noexcept;
  explicit Module(boost::shared_ptr<zel::IModuleImp> const &imp) noexcept;
  Module(Module const &other) noexcept;
  Module &operator=(Module const &other) noexcept;
  ~Module() override;

  /// Equal GUIDs; both handles must be valid.
  bool operator==(Module const &other) const;
  bool operator!=(Module const &other) const;

  zel::String guid() const;
  zel::String const &localizedName() const;
  zel::String const &localizedDescription() const;
  zel::String const &helpConcept() const;
  zel::String const &buildDate() const;
  zel::String const &company() const;
  /// A new Version on a copy of the module's.
  Version version() const;
  ModuleType type() const;

  /// The module's tests (kind 0), in the mirror's order.
  TestList tests() const;
  /// The module's benchmarks (kind 1), in the mirror's order.
  TestList benchmarks() const;
  /// The devices the module serves, from the mirror.
  DeviceList devices() const;
  DeviceCapability supportedCapabilities() const;

  unsigned int tipCount() const;
  /// The tip at `index` (index < tipCount()), valid while the object lives.
  Tip tip(unsigned int index) const;

  zel::String toString(unsigned int indent, bool verbose) const;

  boost::shared_ptr<zel::IModuleImp const> getImp() const;
};

} // namespace ostrel5

// The lists that the operations above return, included after the class so
// that each header can be included first.
#include "ostrel/DeviceList.h"
#include "ostrel/ModuleList.h"
#include "ostrel/TestList.h"
