#pragma once
// ostrel5::Version: the version of a module or of the engine, as four
// fields: major, minor, buildid (free text) and revision.
//
// A small value class: each Version owns a private zel::VersionImp, copied
// deeply by the copy constructor and by assignment. The text form is the
// framework's, "<major>.<minor>.<buildid>.<revision>" ("5.0.1234.7"); every
// text that toString() writes reads back to an equal Version.
//
// Thread-compatible, like any value.

#include "zel/String.h"

namespace zel {
class VersionImp;
}

namespace ostrel5 {

class Version {
public:
  /// 0.0..0.
  Version();
  explicit Version(zel::VersionImp const &imp);
  Version(unsigned int major, unsigned int minor, zel::String const &buildid,
          unsigned int revision);
  /// Reads the text form; a text that is no version gives Version().
  explicit Version(zel::String const &text);
  Version(Version const &other);
  Version &operator=(Version const &other);
  ~Version();

  unsigned int major() const;
  unsigned int minor() const;
  zel::String buildid() const;
  unsigned int revision() const;
  zel::String toString() const;

  /// All four fields equal.
  bool operator==(Version const &other) const;
  bool operator!=(Version const &other) const;

  zel::VersionImp const &getZELVersion() const;

  /// The engine's version from the settings ("Engine.Version").
  static Version engineVersion();

private:
  zel::VersionImp *m_imp;
};

} // namespace ostrel5
