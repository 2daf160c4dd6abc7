#include "zel/TestImp.h"

namespace zel {

TestImp::TestImp(String const &moduleGuid, String const &key, unsigned int type, String const &name,
                 String const &text)
    : m_guid(guid(moduleGuid, key)), m_moduleGuid(moduleGuid), m_key(key), m_type(type),
      m_name(name), m_description(text) {}

TestImp::TestImp(TestImp const &o)
    : m_guid(o.m_guid), m_moduleGuid(o.m_moduleGuid), m_key(o.m_key), m_type(o.m_type),
      m_name(o.m_name), m_description(o.m_description), m_customerErrorCode(o.m_customerErrorCode),
      m_helpConcept(o.m_helpConcept), m_interactive(o.m_interactive), m_ownGUI(o.m_ownGUI),
      m_destructive(o.m_destructive), m_parallel(o.m_parallel), m_enabled(o.m_enabled),
      m_capabilities(o.m_capabilities), m_disabledOS(o.m_disabledOS),
      m_parameters(o.m_parameters.size()), m_parameterIndex(o.m_parameterIndex),
      m_tips(o.m_tips.deepCopy()) {
  for (auto const &p : o.m_parameters)
    m_parameters.append(boost::shared_ptr<ParameterImp>(new ParameterImp(*p)));
}

TestImp &TestImp::operator=(TestImp const &other) {
  if (this != &other) {
    TestImp copy(other);
    *this = std::move(copy);
  }
  return *this;
}

String TestImp::guid(String const &moduleGuid, String const &key) {
  return moduleGuid + "::" + key;
}

boost::shared_ptr<ParameterImp> TestImp::parameter(String const &key) const {
  auto it = m_parameterIndex.find(key.toLower());
  return it == m_parameterIndex.end() ? boost::shared_ptr<ParameterImp>()
                                      : m_parameters[it->second];
}

TestImp &TestImp::addParameter(ParameterImp const &parameter) {
  boost::shared_ptr<ParameterImp> p(new ParameterImp(parameter));
  String lower = parameter.key().toLower();
  auto it = m_parameterIndex.find(lower);
  if (it != m_parameterIndex.end()) {
    m_parameters[it->second] = p;
  } else {
    m_parameterIndex.emplace(lower, m_parameters.size());
    m_parameters.append(p);
  }
  return *this;
}

void TestImp::rebuildParameterIndex() {
  m_parameterIndex.clear();
  for (std::size_t i = 0; i < m_parameters.size(); ++i)
    m_parameterIndex.emplace(m_parameters[i]->key().toLower(), i);
}

TestImp &TestImp::setModuleGuid(String const &v) {
  m_moduleGuid = v;
  m_guid = guid(m_moduleGuid, m_key);
  return *this;
}

TestImp &TestImp::setKeyInModule(String const &v) {
  m_key = v;
  m_guid = guid(m_moduleGuid, m_key);
  return *this;
}

String TestImp::toString(unsigned int indent, bool verbose) const {
  String pad(indent * 2, ' ');
  String out = pad + (m_type == TEST ? "Test " : "Benchmark ") + m_name + " [" + m_guid + "]\n";
  if (!verbose)
    return out;
  String f = pad + "  ";
  if (!m_description.isEmpty())
    out += f + "description: " + m_description + "\n";
  out += f + "capabilities: " + m_capabilities.toString(0, false) + "\n";
  String flags;
  if (m_interactive)
    flags += " interactive";
  if (m_ownGUI)
    flags += " own-gui";
  if (m_destructive)
    flags += " destructive";
  if (m_parallel)
    flags += " parallel";
  if (!m_enabled)
    flags += " disabled";
  if (!flags.isEmpty())
    out += f + "flags:" + flags + "\n";
  if (!m_disabledOS.isEmpty())
    out += f + "disabled on: " + m_disabledOS.toString() + "\n";
  if (!m_customerErrorCode.isEmpty())
    out += f + "error code: " + m_customerErrorCode + "\n";
  if (!m_helpConcept.isEmpty())
    out += f + "help: " + m_helpConcept + "\n";
  for (auto const &p : m_parameters)
    out += p->toString(indent + 1, false);
  for (auto const &t : m_tips)
    out += t->toString(indent + 1, false);
  return out;
}

bool operator==(TestImp const &a, TestImp const &b) {
  if (!(a.m_guid == b.m_guid && a.m_moduleGuid == b.m_moduleGuid && a.m_key == b.m_key &&
        a.m_type == b.m_type && a.m_name == b.m_name && a.m_description == b.m_description &&
        a.m_customerErrorCode == b.m_customerErrorCode && a.m_helpConcept == b.m_helpConcept &&
        a.m_interactive == b.m_interactive && a.m_ownGUI == b.m_ownGUI &&
        a.m_destructive == b.m_destructive && a.m_parallel == b.m_parallel &&
        a.m_enabled == b.m_enabled && a.m_capabilities == b.m_capabilities &&
        a.m_disabledOS == b.m_disabledOS && a.m_parameters.size() == b.m_parameters.size() &&
        a.m_tips.sameContent(b.m_tips)))
    return false;
  for (std::size_t i = 0; i < a.m_parameters.size(); ++i)
    if (*a.m_parameters[i] != *b.m_parameters[i])
      return false;
  return true;
}

} // namespace zel
