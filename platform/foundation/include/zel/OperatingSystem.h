#pragma once
// zel::OperatingSystem and zel::OperatingSystemSet.
//
// An OperatingSystem describes the system a process runs on: its family
// ("linux", the lower-cased kernel name of uname), its distribution ("debian",
// ID of /etc/os-release), the distribution's version ("12", VERSION_ID), the
// kernel release ("6.1.0-18-amd64") and the machine architecture ("x86_64").
// getCurrentOperatingSystem reads them once per process; the value is
// immutable afterwards and safe to share between threads.
//
// An OperatingSystemSet is built from the text of an "os" attribute of a
// category file. Grammar (blanks around items are ignored, names are
// case-blind):
//
//   set   := item { "," item }
//   item  := [ "!" ] name
//   name  := "all" | "*" | word      word: letters, digits, '_', '-', '.'
//
// A word matches an operating system whose family or distribution is that
// word: "linux" matches every Linux, "ubuntu" only Ubuntu. "all" and "*"
// match everything. An item with "!" excludes what it matches. The set
// contains a system when some plain item matches it (or there is no plain
// item but some "!" item) and no "!" item matches it: "all,!windows",
// "!windows" and "linux" all contain Linux. Empty items ("linux,,") are
// skipped; an item that is not a name (has other characters) is kept in
// toString but never matches. The empty text gives the empty set, which
// contains nothing.

#include "zel/Array.h"
#include "zel/String.h"

namespace zel {

class OperatingSystem {
public:
  /// Every field empty.
  OperatingSystem() = default;
  OperatingSystem(String const &family, String const &distribution, String const &version,
                  String const &kernelRelease, String const &architecture);

  /// Read once per process, on first call (thread-safe).
  static OperatingSystem const &getCurrentOperatingSystem();
  /// Builds a description from an os-release text and uname fields; what
  /// getCurrentOperatingSystem does with the real ones. Quoted values
  /// ("ID=\"rhel\"") and comments are understood; ID and the family are
  /// lower-cased.
  static OperatingSystem fromOsRelease(String const &osReleaseText, String const &kernelName,
                                       String const &kernelRelease, String const &architecture);

  String const &getName() const noexcept { return m_family; }
  String const &getDistribution() const noexcept { return m_distribution; }
  String const &getVersion() const noexcept { return m_version; }
  String const &getKernelRelease() const noexcept { return m_kernel; }
  String const &getArchitecture() const noexcept { return m_arch; }
  /// PRETTY_NAME of os-release, or "" when unknown.
  String const &getPrettyName() const noexcept { return m_pretty; }

  /// "linux debian 12 (kernel 6.1.0-18-amd64, x86_64)"; empty parts left out.
  String toString() const;

  /// All five fields equal (the pretty name is not compared).
  friend bool operator==(OperatingSystem const &a, OperatingSystem const &b);
  friend bool operator!=(OperatingSystem const &a, OperatingSystem const &b) { return !(a == b); }
  /// Field by field in the order family, distribution, version, kernel, architecture.
  friend bool operator<(OperatingSystem const &a, OperatingSystem const &b);

private:
  String m_family;
  String m_distribution;
  String m_version;
  String m_kernel;
  String m_arch;
  String m_pretty;
};

class OperatingSystemSet {
public:
  /// The empty set.
  OperatingSystemSet() = default;
  /// Parses the text; see the grammar at the top of this file.
  explicit OperatingSystemSet(String const &text);

  bool contains(OperatingSystem const &os) const;
  bool isEmpty() const noexcept { return m_include.isEmpty() && m_exclude.isEmpty(); }
  /// The items, lower-cased, "*" written "all", duplicates dropped, plain
  /// items first then "!" items, joined by ","; parses back to an equal set.
  String toString() const;

  friend bool operator==(OperatingSystemSet const &a, OperatingSystemSet const &b) {
    return a.toString() == b.toString();
  }
  friend bool operator!=(OperatingSystemSet const &a, OperatingSystemSet const &b) {
    return !(a == b);
  }

private:
  static bool matches(String const &name, OperatingSystem const &os);
  Array<String> m_include;
  Array<String> m_exclude;
};

} // namespace zel
