#include "zel/ModuleImp.h"

namespace zel {

ModuleImp::ModuleImp(ModuleImp const &o)
    : IModuleImp(), m_guid(o.m_guid), m_name(o.m_name), m_description(o.m_description),
      m_helpConcept(o.m_helpConcept), m_version(o.m_version), m_buildDate(o.m_buildDate),
      m_company(o.m_company), m_path(o.m_path), m_type(o.m_type), m_capabilities(o.m_capabilities),
      m_state(o.m_state), m_clientID(o.m_clientID), m_enumReceived(o.m_enumReceived),
      m_enumCallback(o.m_enumCallback), m_index(o.m_index), m_tips(o.m_tips.deepCopy()),
      m_libraries(o.m_libraries), m_localizedLibraries(o.m_localizedLibraries),
      m_requirements(o.m_requirements), m_completionRequirements(o.m_completionRequirements) {
  for (auto const &p : o.m_parameters)
    m_parameters.append(boost::shared_ptr<ParameterImp>(new ParameterImp(*p)));
  rebuildParameterTable();
}

ModuleImp &ModuleImp::operator=(ModuleImp const &other) {
  if (this == &other)
    return *this;
  ModuleImp copy(other);
  m_guid = copy.m_guid;
  m_name = copy.m_name;
  m_description = copy.m_description;
  m_helpConcept = copy.m_helpConcept;
  m_version = copy.m_version;
  m_buildDate = copy.m_buildDate;
  m_company = copy.m_company;
  m_path = copy.m_path;
  m_type = copy.m_type;
  m_capabilities = copy.m_capabilities;
  m_state = copy.m_state;
  m_clientID = copy.m_clientID;
  m_enumReceived = copy.m_enumReceived;
  m_enumCallback = copy.m_enumCallback;
  m_index = copy.m_index;
  m_parameters = copy.m_parameters; // the copy's own objects
  m_tips = copy.m_tips;
  m_libraries = copy.m_libraries;
  m_localizedLibraries = copy.m_localizedLibraries;
  m_requirements = copy.m_requirements;
  m_completionRequirements = copy.m_completionRequirements;
  m_cursor = 0;
  rebuildParameterTable();
  return *this;
}

void ModuleImp::rebuildParameterTable() {
  m_parameterTable.clear();
  for (auto const &p : m_parameters)
    m_parameterTable.put(p->key(), p.get());
}

bool ModuleImp::operator==(IModuleImp const &other) const {
  ModuleImp const *o = dynamic_cast<ModuleImp const *>(&other);
  if (!o)
    return false;
  if (this == o)
    return true;
  if (!(m_guid == o->m_guid && m_name == o->m_name && m_description == o->m_description &&
        m_helpConcept == o->m_helpConcept && m_version == o->m_version &&
        m_buildDate == o->m_buildDate && m_company == o->m_company && m_path == o->m_path &&
        m_type == o->m_type && m_capabilities == o->m_capabilities && m_state == o->m_state &&
        m_clientID == o->m_clientID && m_enumReceived == o->m_enumReceived &&
        m_enumCallback == o->m_enumCallback && m_index == o->m_index &&
        m_tips.sameContent(o->m_tips) && m_libraries == o->m_libraries &&
        m_localizedLibraries == o->m_localizedLibraries && m_requirements == o->m_requirements &&
        m_completionRequirements == o->m_completionRequirements &&
        m_parameters.size() == o->m_parameters.size()))
    return false;
  for (std::size_t i = 0; i < m_parameters.size(); ++i)
    if (*m_parameters[i] != *o->m_parameters[i])
      return false;
  return true;
}

// Module hosting belongs to the engine; a mirror object has nothing to give.
bool ModuleImp::getSystemInfo(ZELLocale const &, unsigned int, Buffer<unsigned char> const &,
                              Buffer<unsigned char> &, ...) const {
  return false;
}
bool ModuleImp::getSystemInfo(ZELLocale const &, unsigned int, Buffer<unsigned char> &, bool,
                              String const &) const {
  return false;
}
IModuleImp::ProcessHandle ModuleImp::launchForTestEnumeration(ZELLocale const &) {
  return ProcessHandle();
}
IModuleImp::ProcessHandle ModuleImp::launchForTestRun(ZELLocale const &, String const &) {
  return ProcessHandle();
}
IModuleImp::ProcessHandle ModuleImp::launchForIndicatorRun(ZELLocale const &, String const &) {
  return ProcessHandle();
}
bool ModuleImp::getLocalizedString(ZELLocale const &, String const &, String &,
                                   Replacements const &) const {
  return false;
}
bool ModuleImp::getLocalizedString(ZELLocale const &, String const &, String &) const {
  return false;
}
bool ModuleImp::getLocalizedSetting(ZELLocale const &, String const &, String &,
                                    Replacements const &) const {
  return false;
}
bool ModuleImp::getLocalizedSetting(ZELLocale const &, String const &, String &) const {
  return false;
}

#define ZEL_MODULE_SETTER(Name, Type, member)                                                      \
  ModuleImp &ModuleImp::Name(Type v) {                                                             \
    member = v;                                                                                    \
    return *this;                                                                                  \
  }
ZEL_MODULE_SETTER(setGuid, String const &, m_guid)
ZEL_MODULE_SETTER(setLocalizedName, String const &, m_name)
ZEL_MODULE_SETTER(setLocalizedDescription, String const &, m_description)
ZEL_MODULE_SETTER(setVersion, VersionImp const &, m_version)
ZEL_MODULE_SETTER(setBuildDate, String const &, m_buildDate)
ZEL_MODULE_SETTER(setCompany, String const &, m_company)
ZEL_MODULE_SETTER(setPath, String const &, m_path)
ZEL_MODULE_SETTER(setType, ModuleTypeImp const &, m_type)
ZEL_MODULE_SETTER(setSupportedCapabilities, CapabilityImp const &, m_capabilities)
ZEL_MODULE_SETTER(setState, ModuleState const &, m_state)
ZEL_MODULE_SETTER(setClientID, unsigned int, m_clientID)
ZEL_MODULE_SETTER(setEnumReceived, bool, m_enumReceived)
ZEL_MODULE_SETTER(setEnumTestsCallbackRegistered, bool, m_enumCallback)
ZEL_MODULE_SETTER(setIndex, int, m_index)
#undef ZEL_MODULE_SETTER

ModuleImp &ModuleImp::addParameter(ParameterImp const &parameter) {
  boost::shared_ptr<ParameterImp> p(new ParameterImp(parameter));
  for (auto &existing : m_parameters)
    if (existing->key() == parameter.key()) {
      existing = p;
      rebuildParameterTable();
      return *this;
    }
  m_parameters.append(p);
  m_parameterTable.put(p->key(), p.get());
  return *this;
}

namespace {
void appendOnce(Array<String> &list, String const &value) {
  if (!list.contains(value))
    list.append(value);
}
} // namespace

ModuleImp &ModuleImp::registerLibrary(String const &path) {
  appendOnce(m_libraries, path);
  return *this;
}
ModuleImp &ModuleImp::registerLocalizedLibrary(String const &path) {
  appendOnce(m_localizedLibraries, path);
  return *this;
}
ModuleImp &ModuleImp::addModuleEnumerationRequirement(String const &moduleGuid,
                                                      bool forCompletion) {
  appendOnce(forCompletion ? m_completionRequirements : m_requirements, moduleGuid);
  return *this;
}

ModuleImp &ModuleImp::resolve(IModuleImp const &other) {
  if (&other == this)
    return *this;
  auto fill = [](String &mine, String const &theirs) {
    if (mine.isEmpty())
      mine = theirs;
  };
  fill(m_guid, other.guid());
  fill(m_name, other.localizedName());
  fill(m_description, other.localizedDescription());
  fill(m_helpConcept, other.helpConcept());
  fill(m_buildDate, other.buildDate());
  fill(m_company, other.company());
  fill(m_path, other.path());
  if (m_version == VersionImp())
    m_version = other.version();
  if (m_capabilities.isEmpty())
    m_capabilities = other.supportedCapabilities(nullptr);
  if (ModuleImp const *o = dynamic_cast<ModuleImp const *>(&other)) {
    for (auto const &p : o->m_parameters)
      if (!m_parameterTable.contains(p->key()))
        addParameter(*p);
    for (auto const &t : o->m_tips) {
      bool have = false;
      for (auto const &mine : m_tips)
        have = have || (mine->key() == t->key() && *mine == *t);
      if (!have)
        m_tips.addTip(*t);
    }
    for (String const &s : o->m_libraries)
      appendOnce(m_libraries, s);
    for (String const &s : o->m_localizedLibraries)
      appendOnce(m_localizedLibraries, s);
    for (String const &s : o->m_requirements)
      appendOnce(m_requirements, s);
    for (String const &s : o->m_completionRequirements)
      appendOnce(m_completionRequirements, s);
  }
  return *this;
}

CapabilityImp ModuleImp::supportedCapabilities(StateManager *) const { return m_capabilities; }

ParameterImp *ModuleImp::firstParameter() const {
  m_cursor = 0;
  return nextParameter();
}

ParameterImp *ModuleImp::nextParameter() const {
  if (m_cursor >= m_parameters.size())
    return nullptr;
  return m_parameters[m_cursor++].get();
}

ParameterImp *ModuleImp::parameter(String const &key) const {
  ParameterImp *const *p = m_parameterTable.find(key);
  return p ? *p : nullptr;
}

unsigned int ModuleImp::getTips(String const &key, Array<TipImp *> &out) const {
  unsigned int n = 0;
  for (auto const &t : m_tips)
    if (key.isEmpty() || t->key() == key) {
      out.append(t.get());
      ++n;
    }
  return n;
}

String ModuleImp::toString(unsigned int indent, bool verbose) const {
  String pad(indent * 2, ' ');
  String out = pad + "Module " + m_name + " [" + m_guid + "] " + m_version.toString() + "\n";
  if (!verbose)
    return out;
  String f = pad + "  ";
  out += f + "type: " + m_type.toString() + ", state: " + m_state.toString() + "\n";
  if (!m_company.isEmpty())
    out += f + "company: " + m_company + "\n";
  if (!m_description.isEmpty())
    out += f + "description: " + m_description + "\n";
  if (!m_buildDate.isEmpty())
    out += f + "built: " + m_buildDate + "\n";
  if (!m_path.isEmpty())
    out += f + "path: " + m_path + "\n";
  out += f + "capabilities: " + m_capabilities.toString(0, false) + "\n";
  for (auto const &p : m_parameters)
    out += p->toString(indent + 1, false);
  for (auto const &t : m_tips)
    out += t->toString(indent + 1, false);
  return out;
}

} // namespace zel
