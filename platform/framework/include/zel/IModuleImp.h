#pragma once
// zel::IModuleImp: a diagnostic module (library or program) known to the
// engine. zel::ModuleImp is the one implementation.
//
// The virtual operations keep a fixed order (other binaries rely on the
// table). The setters return the object itself for chaining; the string
// getters return references to strings the object holds.
//
// The process-launching and localisation slots (getSystemInfo,
// launchFor..., getLocalized...) belong to module hosting, which the engine
// does itself: in a mirror object they answer "nothing" (false, empty).

#include "zel/Array.h"
#include "zel/Buffer.h"
#include "zel/CapabilityImp.h"
#include "zel/HashTable.h"
#include "zel/ModuleState.h"
#include "zel/ModuleTypeImp.h"
#include "zel/Process.h"
#include "zel/Resources.h"
#include "zel/String.h"
#include "zel/VersionImp.h"

namespace zel {

class ModuleImp;
class ParameterImp;
class StateManager;
class TipImp;
class ZELLocale;

class IModuleImp {
public:
  using ProcessHandle = SharedResource<PointerStorage<Process, 0, 3>, 1>;
  using Replacements = HashTable<String, String>;

  /* 1 */ virtual ~IModuleImp() = default;
  /* 2 */ virtual bool operator==(IModuleImp const &other) const = 0;
  /* 3 */ virtual ModuleImp *clone() const = 0;
  /* 4 */ virtual bool getSystemInfo(ZELLocale const &locale, unsigned int request,
                                     Buffer<unsigned char> const &input,
                                     Buffer<unsigned char> &output, ...) const = 0;
  /* 5 */ virtual bool getSystemInfo(ZELLocale const &locale, unsigned int request,
                                     Buffer<unsigned char> &output, bool refresh,
                                     String const &deviceGuid) const = 0;
  /* 6 */ virtual ProcessHandle launchForTestEnumeration(ZELLocale const &locale) = 0;
  /* 7 */ virtual ProcessHandle launchForTestRun(ZELLocale const &locale,
                                                 String const &testRunGuid) = 0;
  /* 8 */ virtual ProcessHandle launchForIndicatorRun(ZELLocale const &locale,
                                                      String const &indicatorRunGuid) = 0;
  /* 9 */ virtual IModuleImp &setGuid(String const &v) = 0;
  /* 10 */ virtual IModuleImp &setLocalizedName(String const &v) = 0;
  /* 11 */ virtual IModuleImp &setLocalizedDescription(String const &v) = 0;
  /* 12 */ virtual IModuleImp &setVersion(VersionImp const &v) = 0;
  /* 13 */ virtual IModuleImp &setBuildDate(String const &v) = 0;
  /* 14 */ virtual IModuleImp &setCompany(String const &v) = 0;
  /* 15 */ virtual IModuleImp &setPath(String const &v) = 0;
  /* 16 */ virtual IModuleImp &setType(ModuleTypeImp const &v) = 0;
  /* 17 */ virtual IModuleImp &setSupportedCapabilities(CapabilityImp const &v) = 0;
  /* 18 */ virtual IModuleImp &setState(ModuleState const &v) = 0;
  /* 19 */ virtual IModuleImp &setClientID(unsigned int v) = 0;
  /* 20 */ virtual IModuleImp &setEnumReceived(bool v) = 0;
  /* 21 */ virtual IModuleImp &setEnumTestsCallbackRegistered(bool v) = 0;
  /* 22 */ virtual IModuleImp &addParameter(ParameterImp const &parameter) = 0;
  /* 23 */ virtual IModuleImp &registerLibrary(String const &path) = 0;
  /* 24 */ virtual IModuleImp &registerLocalizedLibrary(String const &path) = 0;
  /* 25 */ virtual IModuleImp &addModuleEnumerationRequirement(String const &moduleGuid,
                                                               bool forCompletion) = 0;
  /* 26 */ virtual IModuleImp &resolve(IModuleImp const &other) = 0;
  /* 27 */ virtual bool getLocalizedString(ZELLocale const &locale, String const &key, String &out,
                                           Replacements const &replacements) const = 0;
  /* 28 */ virtual bool getLocalizedString(ZELLocale const &locale, String const &key,
                                           String &out) const = 0;
  /* 29 */ virtual bool getLocalizedSetting(ZELLocale const &locale, String const &key, String &out,
                                            Replacements const &replacements) const = 0;
  /* 30 */ virtual bool getLocalizedSetting(ZELLocale const &locale, String const &key,
                                            String &out) const = 0;
  /* 31 */ virtual String guid() const = 0;
  /* 32 */ virtual String const &localizedName() const = 0;
  /* 33 */ virtual String const &localizedDescription() const = 0;
  /* 34 */ virtual String const &helpConcept() const = 0;
  /* 35 */ virtual VersionImp const &version() const = 0;
  /* 36 */ virtual String const &buildDate() const = 0;
  /* 37 */ virtual String const &company() const = 0;
  /* 38 */ virtual String const &path() const = 0;
  /* 39 */ virtual ModuleState state() const = 0;
  /* 40 */ virtual CapabilityImp supportedCapabilities(StateManager *state) const = 0;
  /* 41 */ virtual unsigned int clientID() const = 0;
  /* 42 */ virtual bool enumReceived() const = 0;
  /* 43 */ virtual int index() const = 0;
  /* 44 */ virtual IModuleImp &setIndex(int v) = 0;
  /* 45 */ virtual bool enumTestsCallbackRegistered() const = 0;
  /* 46 */ virtual HashTable<String, ParameterImp *> const &parameters() const = 0;
  /* 47 */ virtual ParameterImp *firstParameter() const = 0;
  /* 48 */ virtual ParameterImp *nextParameter() const = 0;
  /* 49 */ virtual ParameterImp *parameter(String const &key) const = 0;
  /* 50 */ virtual ModuleTypeImp type() const = 0;
  /* 51 */ virtual unsigned int tipCount() const = 0;
  /* 52 */ virtual TipImp const *tip(unsigned int index) const = 0;
  /* 53 */ virtual unsigned int getTips(String const &key, Array<TipImp *> &out) const = 0;
  /* 54 */ virtual String toString(unsigned int indent, bool verbose) const = 0;
  /* 55 */ virtual Array<String> const &librariesList() const = 0;
  /* 56 */ virtual Array<String> const &enumerationRequirements() const = 0;
  /* 57 */ virtual Array<String> const &enumerationCompletionRequirements() const = 0;

  bool operator!=(IModuleImp const &other) const { return !(*this == other); }
};

} // namespace zel
