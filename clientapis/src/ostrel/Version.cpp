#include "ostrel/Version.h"

#include "zel/GlobalParameters.h"
#include "zel/VersionImp.h"
#include "zel/ZELLocale.h"

namespace ostrel5 {

Version::Version() : m_imp(new zel::VersionImp()) {}

Version::Version(zel::VersionImp const &imp) : m_imp(new zel::VersionImp(imp)) {}

Version::Version(unsigned int major, unsigned int minor, zel::String const &buildid,
                 unsigned int revision)
    : m_imp(new zel::VersionImp(major, minor, buildid, revision)) {}

Version::Version(zel::String const &text) : m_imp(new zel::VersionImp(text)) {}

Version::Version(Version const &other) : m_imp(new zel::VersionImp(*other.m_imp)) {}

Version &Version::operator=(Version const &other) {
  // The copy is made before the old object goes, so that assigning a
  // Version to itself keeps its value.
  zel::VersionImp *copy = new zel::VersionImp(*other.m_imp);
  delete m_imp;
  m_imp = copy;
  return *this;
}

Version::~Version() { delete m_imp; }

unsigned int Version::major() const { return m_imp->major(); }
unsigned int Version::minor() const { return m_imp->minor(); }
zel::String Version::buildid() const { return m_imp->buildid(); }
unsigned int Version::revision() const { return m_imp->revision(); }
zel::String Version::toString() const { return m_imp->toString(); }

bool Version::operator==(Version const &other) const { return *m_imp == *other.m_imp; }
bool Version::operator!=(Version const &other) const { return !(*this == other); }

zel::VersionImp const &Version::getZELVersion() const { return *m_imp; }

Version Version::engineVersion() {
  return Version(zel::GlobalParameters::engineVersion(zel::ZELLocale::getGlobalLocale()));
}

} // namespace ostrel5
