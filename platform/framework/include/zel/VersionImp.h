#pragma once
// zel::VersionImp: the version of a module or of the engine.
//
// Four fields, in this order: major, minor, buildid (free text) and revision.
//
// Text form (toString writes it, the text constructor and parse read it):
//     <major>.<minor>.<buildid>.<revision>        e.g. "5.0.1234.7"
// The buildid is everything between the second "." and the last ".", so it
// may itself hold dots ("5.0.2024.06.1" has buildid "2024.06"); an empty
// buildid gives two dots in a row ("5.0..1"). Reading also accepts the
// shorter forms "5", "5.0" and "5.0.<buildid>" (missing numbers are 0, a
// missing buildid is empty) and blanks around the whole text. Every version
// that toString writes reads back equal to itself.
//
// A plain value: copies are independent; thread-compatible.

#include "zel/String.h"

namespace zel {

class VersionImp {
public:
  /// 0.0..0, which is also what an unreadable text gives.
  VersionImp() = default;
  VersionImp(unsigned int major, unsigned int minor, String const &buildid, unsigned int revision)
      : m_major(major), m_minor(minor), m_buildid(buildid), m_revision(revision) {}
  /// Reads the text form; a text that does not read gives the default version.
  explicit VersionImp(String const &text);

  /// Reads the text form into `out`; false (and `out` untouched) when the
  /// text is not a version.
  static bool parse(String const &text, VersionImp &out);

  unsigned int major() const noexcept { return m_major; }
  unsigned int minor() const noexcept { return m_minor; }
  String const &buildid() const noexcept { return m_buildid; }
  unsigned int revision() const noexcept { return m_revision; }

  VersionImp &setMajor(unsigned int v) {
    m_major = v;
    return *this;
  }
  VersionImp &setMinor(unsigned int v) {
    m_minor = v;
    return *this;
  }
  VersionImp &setBuildid(String const &v) {
    m_buildid = v;
    return *this;
  }
  VersionImp &setRevision(unsigned int v) {
    m_revision = v;
    return *this;
  }

  /// The text form (see above).
  String toString() const;

  friend bool operator==(VersionImp const &a, VersionImp const &b) noexcept {
    return a.m_major == b.m_major && a.m_minor == b.m_minor && a.m_revision == b.m_revision &&
           a.m_buildid == b.m_buildid;
  }
  friend bool operator!=(VersionImp const &a, VersionImp const &b) noexcept { return !(a == b); }

private:
  unsigned int m_major = 0;
  unsigned int m_minor = 0;
  String m_buildid;
  unsigned int m_revision = 0;
};

} // namespace zel
