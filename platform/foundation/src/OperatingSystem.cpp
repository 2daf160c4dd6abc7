#include "zel/OperatingSystem.h"

#include <sys/utsname.h>

#include <tuple>

#include "zel/FileSystem.h"

namespace zel {

namespace {

// One os-release value: KEY=value, KEY="value with \"escapes\"" or KEY='value'.
String unquote(String const &raw) {
  String v = raw.trim();
  if (v.length() >= 2 && (v[0] == '"' || v[0] == '\'') && v[v.length() - 1] == v[0]) {
    char q = v[0];
    String out;
    for (std::size_t i = 1; i + 1 < v.length(); ++i) {
      if (q == '"' && v[i] == '\\' && i + 2 < v.length())
        ++i;
      out += v[i];
    }
    return out;
  }
  return v;
}

bool isNameChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.';
}

bool isName(String const &s) {
  if (s.isEmpty())
    return false;
  for (std::size_t i = 0; i < s.length(); ++i)
    if (!isNameChar(s[i]))
      return false;
  return true;
}

String join(Array<String> const &parts, char const *prefix, String out) {
  for (String const &p : parts) {
    if (!out.isEmpty())
      out += ",";
    out += prefix + p;
  }
  return out;
}

} // namespace

OperatingSystem::OperatingSystem(String const &family, String const &distribution,
                                 String const &version, String const &kernelRelease,
                                 String const &architecture)
    : m_family(family), m_distribution(distribution), m_version(version), m_kernel(kernelRelease),
      m_arch(architecture) {}

OperatingSystem OperatingSystem::fromOsRelease(String const &osReleaseText,
                                               String const &kernelName,
                                               String const &kernelRelease,
                                               String const &architecture) {
  OperatingSystem os(kernelName.trim().toLower(), String(), String(), kernelRelease.trim(),
                     architecture.trim());
  for (String const &rawLine : osReleaseText.tokenize("\n")) {
    String line = rawLine.trim();
    if (line.isEmpty() || line[0] == '#')
      continue;
    std::size_t eq = line.find('=');
    if (eq == String::npos)
      continue;
    String key = line.substring(0, eq).trim();
    String value = unquote(line.substring(eq + 1));
    if (key == "ID")
      os.m_distribution = value.toLower();
    else if (key == "VERSION_ID")
      os.m_version = value;
    else if (key == "PRETTY_NAME")
      os.m_pretty = value;
  }
  return os;
}

OperatingSystem const &OperatingSystem::getCurrentOperatingSystem() {
  static OperatingSystem const current = [] {
    struct utsname u {};
    String sysname("linux"), release, machine;
    if (::uname(&u) == 0) {
      sysname = u.sysname;
      release = u.release;
      machine = u.machine;
    }
    String text;
    if (!FileSystem::loadFile("/etc/os-release", text))
      FileSystem::loadFile("/usr/lib/os-release", text);
    return fromOsRelease(text, sysname, release, machine);
  }();
  return current;
}

String OperatingSystem::toString() const {
  String out = m_family;
  for (String const *part : {&m_distribution, &m_version}) {
    if (part->isEmpty())
      continue;
    if (!out.isEmpty())
      out += " ";
    out += *part;
  }
  String details = m_kernel.isEmpty() ? String() : "kernel " + m_kernel;
  if (!m_arch.isEmpty())
    details += (details.isEmpty() ? "" : ", ") + m_arch;
  if (!details.isEmpty())
    out += (out.isEmpty() ? "(" : " (") + details + ")";
  return out;
}

bool operator==(OperatingSystem const &a, OperatingSystem const &b) {
  return std::tie(a.m_family, a.m_distribution, a.m_version, a.m_kernel, a.m_arch) ==
         std::tie(b.m_family, b.m_distribution, b.m_version, b.m_kernel, b.m_arch);
}

bool operator<(OperatingSystem const &a, OperatingSystem const &b) {
  return std::tie(a.m_family, a.m_distribution, a.m_version, a.m_kernel, a.m_arch) <
         std::tie(b.m_family, b.m_distribution, b.m_version, b.m_kernel, b.m_arch);
}

OperatingSystemSet::OperatingSystemSet(String const &text) {
  for (String const &raw : text.tokenize(",")) {
    String item = raw.trim().toLower();
    bool exclude = false;
    if (!item.isEmpty() && item[0] == '!') {
      exclude = true;
      item = item.substring(1).trim();
    }
    if (item.isEmpty())
      continue;
    if (item == "*")
      item = "all";
    Array<String> &target = exclude ? m_exclude : m_include;
    if (!target.contains(item))
      target.append(item);
  }
}

bool OperatingSystemSet::matches(String const &name, OperatingSystem const &os) {
  if (name == "all")
    return true;
  if (!isName(name))
    return false;
  return (!os.getName().isEmpty() && name == os.getName().toLower()) ||
         (!os.getDistribution().isEmpty() && name == os.getDistribution().toLower());
}

bool OperatingSystemSet::contains(OperatingSystem const &os) const {
  if (isEmpty())
    return false;
  bool included = m_include.isEmpty();
  for (String const &name : m_include)
    if (matches(name, os)) {
      included = true;
      break;
    }
  if (!included)
    return false;
  for (String const &name : m_exclude)
    if (matches(name, os))
      return false;
  return true;
}

String OperatingSystemSet::toString() const {
  return join(m_exclude, "!", join(m_include, "", String()));
}

} // namespace zel
