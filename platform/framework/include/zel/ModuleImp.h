#pragma once
// zel::ModuleImp: the one implementation of zel::IModuleImp, as the mirror
// holds a module: descriptive fields, state, supported capabilities,
// parameters (keyed by exact key, in the order added), tips and the module's
// library and enumeration-requirement lists.
//
// operator== compares every field the encoding carries (two modules are the
// same when nothing a reader can see differs); the public Module compares
// GUIDs instead. resolve(other) fills every empty text field, a default
// version and an empty capability set from `other`, and adds the parameters,
// tips, libraries and requirements that this module lacks: it completes a
// module announced by GUID only.
//
// Copies (and clone()) are deep. Thread-compatible; firstParameter and
// nextParameter share one cursor per object.

#include <boost/shared_ptr.hpp>

#include "zel/IModuleImp.h"
#include "zel/ParameterImp.h"
#include "zel/TipImp.h"

namespace zel {

class ModuleImp : public IModuleImp {
public:
  ModuleImp() = default;
  explicit ModuleImp(String const &guid) : m_guid(guid) {}
  ModuleImp(ModuleImp const &other);
  ModuleImp &operator=(ModuleImp const &other);
  ~ModuleImp() override = default;

  bool operator==(IModuleImp const &other) const override;
  ModuleImp *clone() const override { return new ModuleImp(*this); }
  bool getSystemInfo(ZELLocale const &locale, unsigned int request,
                     Buffer<unsigned char> const &input, Buffer<unsigned char> &output,
                     ...) const override;
  bool getSystemInfo(ZELLocale const &locale, unsigned int request, Buffer<unsigned char> &output,
                     bool refresh, String const &deviceGuid) const override;
  ProcessHandle launchForTestEnumeration(ZELLocale const &locale) override;
  ProcessHandle launchForTestRun(ZELLocale const &locale, String const &testRunGuid) override;
  ProcessHandle launchForIndicatorRun(ZELLocale const &locale,
                                      String const &indicatorRunGuid) override;
  ModuleImp &setGuid(String const &v) override;
  ModuleImp &setLocalizedName(String const &v) override;
  ModuleImp &setLocalizedDescription(String const &v) override;
  ModuleImp &setVersion(VersionImp const &v) override;
  ModuleImp &setBuildDate(String const &v) override;
  ModuleImp &setCompany(String const &v) override;
  ModuleImp &setPath(String const &v) override;
  ModuleImp &setType(ModuleTypeImp const &v) override;
  ModuleImp &setSupportedCapabilities(CapabilityImp const &v) override;
  ModuleImp &setState(ModuleState const &v) override;
  ModuleImp &setClientID(unsigned int v) override;
  ModuleImp &setEnumReceived(bool v) override;
  ModuleImp &setEnumTestsCallbackRegistered(bool v) override;
  /// Adds a copy, or replaces the parameter of the same key in its place.
  ModuleImp &addParameter(ParameterImp const &parameter) override;
  ModuleImp &registerLibrary(String const &path) override;
  ModuleImp &registerLocalizedLibrary(String const &path) override;
  ModuleImp &addModuleEnumerationRequirement(String const &moduleGuid, bool forCompletion) override;
  ModuleImp &resolve(IModuleImp const &other) override;
  bool getLocalizedString(ZELLocale const &locale, String const &key, String &out,
                          Replacements const &replacements) const override;
  bool getLocalizedString(ZELLocale const &locale, String const &key, String &out) const override;
  bool getLocalizedSetting(ZELLocale const &locale, String const &key, String &out,
                           Replacements const &replacements) const override;
  bool getLocalizedSetting(ZELLocale const &locale, String const &key, String &out) const override;
  String guid() const override { return m_guid; }
  String const &localizedName() const override { return m_name; }
  String const &localizedDescription() const override { return m_description; }
  String const &helpConcept() const override { return m_helpConcept; }
  VersionImp const &version() const override { return m_version; }
  String const &buildDate() const override { return m_buildDate; }
  String const &company() const override { return m_company; }
  String const &path() const override { return m_path; }
  ModuleState state() const override { return m_state; }
  /// The set the module declared; the mirror is not consulted.
  CapabilityImp supportedCapabilities(StateManager *state) const override;
  unsigned int clientID() const override { return m_clientID; }
  bool enumReceived() const override { return m_enumReceived; }
  int index() const override { return m_index; }
  ModuleImp &setIndex(int v) override;
  bool enumTestsCallbackRegistered() const override { return m_enumCallback; }
  HashTable<String, ParameterImp *> const &parameters() const override { return m_parameterTable; }
  /// The first parameter in the order added (null when none); starts the cursor.
  ParameterImp *firstParameter() const override;
  /// The parameter after the previous first/nextParameter; null at the end.
  ParameterImp *nextParameter() const override;
  ParameterImp *parameter(String const &key) const override;
  ModuleTypeImp type() const override { return m_type; }
  unsigned int tipCount() const override { return static_cast<unsigned int>(m_tips.size()); }
  TipImp const *tip(unsigned int index) const override { return m_tips.at(index); }
  /// Appends the tips whose key is `key` (all tips for ""); returns how many.
  unsigned int getTips(String const &key, Array<TipImp *> &out) const override;
  /// "<indent>Module <name> [<guid>] <version>" then, verbose, the fields,
  /// parameters and tips one step deeper. Ends with "\n".
  String toString(unsigned int indent, bool verbose) const override;
  Array<String> const &librariesList() const override { return m_libraries; }
  Array<String> const &enumerationRequirements() const override { return m_requirements; }
  Array<String> const &enumerationCompletionRequirements() const override {
    return m_completionRequirements;
  }

  // --- beyond the interface ----------------------------------------------------
  ModuleImp &setHelpConcept(String const &v) {
    m_helpConcept = v;
    return *this;
  }
  ModuleImp &addTip(TipImp const &tip) {
    m_tips.addTip(tip);
    return *this;
  }
  TipArray const &tips() const noexcept { return m_tips; }
  /// The parameters in the order added.
  Array<boost::shared_ptr<ParameterImp>> const &parameterList() const noexcept {
    return m_parameters;
  }
  Array<String> const &localizedLibrariesList() const noexcept { return m_localizedLibraries; }

private:
  void rebuildParameterTable();

  String m_guid;
  String m_name;
  String m_description;
  String m_helpConcept;
  VersionImp m_version;
  String m_buildDate;
  String m_company;
  String m_path;
  ModuleTypeImp m_type = ModuleTypeImp::DIAG;
  CapabilityImp m_capabilities;
  ModuleState m_state = ModuleState::UNKNOWN;
  unsigned int m_clientID = 0;
  bool m_enumReceived = false;
  bool m_enumCallback = false;
  int m_index = -1;
  Array<boost::shared_ptr<ParameterImp>> m_parameters;
  HashTable<String, ParameterImp *> m_parameterTable;
  mutable std::size_t m_cursor = 0;
  TipArray m_tips;
  Array<String> m_libraries;
  Array<String> m_localizedLibraries;
  Array<String> m_requirements;
  Array<String> m_completionRequirements;
};

} // namespace zel
