#pragma once
// zel::TestImp: one test or benchmark that a module offers.
//
// Identity: a test is known by its module's GUID and its key in that module;
// its GUID is guid(moduleGuid, key) = "<moduleGuid>::<key>", so a look-up by
// module and key and a look-up by GUID always agree.
//
// Parameters: ordered as added; keys are matched without regard to ASCII
// case ("Passes" and "passes" are one parameter), because settings arrive
// lower-cased while scripts spell keys as the module does. Adding a key that
// is present replaces that parameter in its place.
//
// Flags: interactive (needs the user; no minimum time), createsOwnGUI,
// destructive (may destroy data), supportsParallelTesting (may run beside
// other tests on the same device); enabled is the module's setting, which
// does not depend on the locale.
//
// Copying is deep (parameters and tips are copied). Thread-compatible: the
// mirror hands out shared pointers, and the one who changes a parameter of
// a shared test owns that race.

#include <boost/shared_ptr.hpp>

#include <unordered_map>

#include "zel/Array.h"
#include "zel/CapabilityImp.h"
#include "zel/OperatingSystem.h"
#include "zel/ParameterImp.h"
#include "zel/String.h"
#include "zel/TipImp.h"

namespace zel {

class ZELLocale;

class TestImp {
public:
  /// 0 a test, 1 a benchmark.
  enum TestType : unsigned int { TEST = 0, BENCHMARK = 1 };

  TestImp() = default;
  /// `type` is 0 (test) or 1 (benchmark); `text` is the description.
  TestImp(String const &moduleGuid, String const &key, unsigned int type, String const &name,
          String const &text);
  TestImp(TestImp const &other);
  TestImp &operator=(TestImp const &other);
  TestImp(TestImp &&) = default;
  TestImp &operator=(TestImp &&) = default;
  virtual ~TestImp() = default;

  /// The GUID of the test `key` of module `moduleGuid`.
  static String guid(String const &moduleGuid, String const &key);

  String guid() const { return m_guid; }
  String const &keyInModule() const noexcept { return m_key; }
  String const &moduleGuid() const noexcept { return m_moduleGuid; }
  TestType type() const noexcept { return static_cast<TestType>(m_type); }
  String const &localizedName() const noexcept { return m_name; }
  String const &localizedDescription() const noexcept { return m_description; }
  String const &customerErrorCode() const noexcept { return m_customerErrorCode; }
  String const &helpConcept() const noexcept { return m_helpConcept; }

  bool isInteractive() const noexcept { return m_interactive; }
  bool createsOwnGUI() const noexcept { return m_ownGUI; }
  bool isDestructive() const noexcept { return m_destructive; }
  bool supportsParallelTesting() const noexcept { return m_parallel; }
  bool isEnabled() const noexcept { return m_enabled; }
  bool isEnabledInIniFile(ZELLocale const &) const noexcept { return m_enabled; }

  CapabilityImp const &deviceCapabilitiesSupported() const noexcept { return m_capabilities; }
  OperatingSystemSet const &disabledOperatingSystems() const noexcept { return m_disabledOS; }
  OperatingSystemSet const &disabledOperatingSystems(ZELLocale const &) const noexcept {
    return m_disabledOS;
  }

  Array<boost::shared_ptr<ParameterImp>> const &parameters() const noexcept { return m_parameters; }
  /// The parameter whose key matches without regard to case, or empty.
  boost::shared_ptr<ParameterImp> parameter(String const &key) const;
  /// Adds a copy, or replaces the parameter of the same key in its place.
  TestImp &addParameter(ParameterImp const &parameter);

  unsigned int tipCount() const noexcept { return static_cast<unsigned int>(m_tips.size()); }
  /// The tip at `index`, or null past the end. Lives as long as this test.
  TipImp const *tip(unsigned int index) const { return m_tips.at(index); }
  TipArray const &tips() const noexcept { return m_tips; }
  TestImp &addTip(TipImp const &tip) {
    m_tips.addTip(tip);
    return *this;
  }

  /// Changes the module or key; the GUID follows.
  TestImp &setModuleGuid(String const &v);
  TestImp &setKeyInModule(String const &v);
  TestImp &setType(unsigned int v) {
    m_type = v;
    return *this;
  }
  TestImp &setLocalizedName(String const &v) {
    m_name = v;
    return *this;
  }
  TestImp &setLocalizedDescription(String const &v) {
    m_description = v;
    return *this;
  }
  TestImp &setCustomerErrorCode(String const &v) {
    m_customerErrorCode = v;
    return *this;
  }
  TestImp &setHelpConcept(String const &v) {
    m_helpConcept = v;
    return *this;
  }
  TestImp &setInteractive(bool v) {
    m_interactive = v;
    return *this;
  }
  TestImp &setCreatesOwnGUI(bool v) {
    m_ownGUI = v;
    return *this;
  }
  TestImp &setDestructive(bool v) {
    m_destructive = v;
    return *this;
  }
  TestImp &setSupportsParallelTesting(bool v) {
    m_parallel = v;
    return *this;
  }
  TestImp &setEnabled(bool v) {
    m_enabled = v;
    return *this;
  }
  TestImp &setDeviceCapabilitiesSupported(CapabilityImp const &v) {
    m_capabilities = v;
    return *this;
  }
  TestImp &setDisabledOperatingSystems(OperatingSystemSet const &v) {
    m_disabledOS = v;
    return *this;
  }

  /// "<indent>Test <name> [<guid>]" then, verbose, the fields, parameters and
  /// tips one step deeper. Ends with "\n".
  String toString(unsigned int indent = 0, bool verbose = false) const;

  /// Every field, parameter and tip equal (by value).
  friend bool operator==(TestImp const &a, TestImp const &b);
  friend bool operator!=(TestImp const &a, TestImp const &b) { return !(a == b); }

private:
  void rebuildParameterIndex();

  String m_guid;
  String m_moduleGuid;
  String m_key;
  unsigned int m_type = TEST;
  String m_name;
  String m_description;
  String m_customerErrorCode;
  String m_helpConcept;
  bool m_interactive = false;
  bool m_ownGUI = false;
  bool m_destructive = false;
  bool m_parallel = false;
  bool m_enabled = true;
  CapabilityImp m_capabilities;
  OperatingSystemSet m_disabledOS;
  Array<boost::shared_ptr<ParameterImp>> m_parameters;
  std::unordered_map<String, std::size_t> m_parameterIndex; // lower-cased key -> position
  TipArray m_tips;
};

} // namespace zel
