#include "zel/VersionImp.h"

namespace zel {

namespace {

bool readNumber(String const &text, unsigned int &out) {
  if (text.isEmpty() || text.size() > 10)
    return false;
  for (std::size_t i = 0; i < text.size(); ++i)
    if (text[i] < '0' || text[i] > '9')
      return false;
  unsigned long long v = String::strToUInt64(text);
  if (v > 0xffffffffull)
    return false;
  out = static_cast<unsigned int>(v);
  return true;
}

} // namespace

VersionImp::VersionImp(String const &text) { parse(text, *this); }

bool VersionImp::parse(String const &text, VersionImp &out) {
  String t = text.trim();
  if (t.isEmpty())
    return false;
  std::size_t first = t.find('.');
  unsigned int major = 0, minor = 0, revision = 0;
  String build;
  if (first == String::npos)
    return readNumber(t, major) ? (out = VersionImp(major, 0, String(), 0), true) : false;
  if (!readNumber(t.substring(0, first), major))
    return false;
  std::size_t second = t.find('.', first + 1);
  if (second == String::npos) {
    if (!readNumber(t.substring(first + 1), minor))
      return false;
    out = VersionImp(major, minor, String(), 0);
    return true;
  }
  if (!readNumber(t.substring(first + 1, second - first - 1), minor))
    return false;
  String rest = t.substring(second + 1);
  std::size_t last = rest.rfind(".");
  if (last == String::npos) {
    // "major.minor.buildid": no revision.
    out = VersionImp(major, minor, rest, 0);
    return true;
  }
  if (!readNumber(rest.substring(last + 1), revision))
    return false;
  build = rest.substring(0, last);
  out = VersionImp(major, minor, build, revision);
  return true;
}

String VersionImp::toString() const {
  return String::fromUInt(m_major) + "." + String::fromUInt(m_minor) + "." + m_buildid + "." +
         String::fromUInt(m_revision);
}

} // namespace zel

#include "zel/GlobalParameters.h"

namespace zel {

// Declared with the other settings in the foundation; defined here, where the
// version type lives.
VersionImp GlobalParameters::engineVersion(ZELLocale const &locale) {
  return VersionImp(engineVersionText(locale));
}

} // namespace zel
