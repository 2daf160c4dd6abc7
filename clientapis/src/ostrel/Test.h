#pragma once
// ostrel5::Test: a handle on one test or benchmark that a module offers.
//
// It holds one boost::shared_ptr to the zel::TestImp of the client's mirror
// (zel::StateManager). Relations (devices(), module()) are read from the
// process-wide mirror at the time of the call.
//
// Accessors do not check the pointer, except getImp() ("!!m_imp"): a call on
// an empty handle is the caller's error; test isValid() first. Look-ups that
// find nothing (parameter, firstDevice) give empty handles.
//
// Threads: handles are plain values; the test object is not locked.

#include <boost/shared_ptr.hpp>

#include "ostrel/DeviceCapability.h"
#include "ostrel/HandleList.h"
#include "ostrel/Tip.h"
#include "zel/OperatingSystem.h"
#include "zel/String.h"

namespace zel {
class TestImp;
}

namespace ostrel5 {

class Device;
class DeviceList;
class Module;
class TestParameter;
class TestParameterList;

class Test : public SharedHandle<zel::TestImp> {
public:
  /// The public kinds run one above the framework's (0 test, 1 benchmark);
  /// any kind the framework may add later reads as a benchmark.
  enum TestType { TEST = 1, BENCHMARK = 2 };

  /// The empty handle.
  Test() noexcept;
  explicit Test(boost::shared_ptr<zel::TestImp> const &imp) noexcept;
  Test(Test const &other) noexcept;
  Test &operator=(Test const &other) noexcept;
  ~Test() override;

  /// "<module guid>::<key>"; stable across enumerations.
  zel::String guid() const;
  zel::String localizedName() const;
  zel::String localizedDescription() const;
  zel::String customerErrorCode() const;
  zel::String helpConcept() const;
  /// The test's key inside its module.
  zel::String const &keyInModule() const;
  TestType type() const;

  /// Needs the user while it runs.
  bool isInteractive() const;
  bool createsOwnGUI() const;
  /// May destroy data on the device.
  bool isDestructive() const;
  /// May run beside other tests on the same device.
  bool supportsParallelTesting() const;
  /// The module's setting, read with the global locale.
  bool isEnabled() const;

  DeviceCapability deviceCapabilitiesSupported() const;
  zel::OperatingSystemSet const &disabledOperatingSystems() const;

  /// The test's own parameters: handles share them with the test.
  TestParameterList parameters() const;
  /// The parameter `key` (ASCII case does not matter), or an empty handle.
  TestParameter parameter(zel::String const &key) const;

  /// The devices the engine associates with the test, from the mirror.
  DeviceList devices() const;
  /// The first of devices(), or an empty handle.
  Device firstDevice() const;
  /// The module that offers the test, from the mirror; an empty handle when
  /// the mirror does not know it.
  Module module() const;

  unsigned int tipCount() const;
  /// The tip at `index` (index < tipCount()), valid while the object lives.
  Tip tip(unsigned int index) const;

  zel::String toString(unsigned int indent, bool verbose) const;

  /// The implementation object; asserts "!!m_imp".
  boost::shared_ptr<zel::TestImp const> getImp() const;
};

} // namespace ostrel5

// The classes that the operations above return, included after the class so
// that each header can be included first.
#include "ostrel/Device.h"
#include "ostrel/Module.h"
#include "ostrel/TestList.h"
#include "ostrel/TestParameter.h"
#include "ostrel/TestParameterList.h"
