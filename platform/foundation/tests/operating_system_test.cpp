#include <gtest/gtest.h>

#include <sys/utsname.h>

#include "zel/OperatingSystem.h"

using zel::OperatingSystem;
using zel::OperatingSystemSet;
using zel::String;

namespace {

OperatingSystem const ubuntu("linux", "ubuntu", "22.04", "5.15.0", "x86_64");
OperatingSystem const debian("linux", "debian", "12", "6.1.0", "aarch64");
OperatingSystem const windows("windows", "", "10", "", "x86_64");

} // namespace

TEST(OperatingSystem, FromOsReleaseText) {
  String text = "# comment\n"
                "NAME=\"Red Hat Enterprise Linux\"\n"
                "ID=\"RHEL\"\n"
                "VERSION_ID='9.3'\n"
                "PRETTY_NAME=\"Red Hat \\\"Enterprise\\\" Linux 9.3\"\n"
                "garbage line\n"
                "=novalue\n";
  OperatingSystem os = OperatingSystem::fromOsRelease(text, "Linux", "5.14.0", "x86_64");
  EXPECT_EQ(os.getName(), "linux");
  EXPECT_EQ(os.getDistribution(), "rhel");
  EXPECT_EQ(os.getVersion(), "9.3");
  EXPECT_EQ(os.getPrettyName(), "Red Hat \"Enterprise\" Linux 9.3");
  EXPECT_EQ(os.toString(), "linux rhel 9.3 (kernel 5.14.0, x86_64)");
  EXPECT_EQ(OperatingSystem::fromOsRelease("", "Linux", "", "").toString(), "linux");
}

TEST(OperatingSystem, CurrentIsReadOnceAndIsLinux) {
  OperatingSystem const &a = OperatingSystem::getCurrentOperatingSystem();
  OperatingSystem const &b = OperatingSystem::getCurrentOperatingSystem();
  EXPECT_EQ(&a, &b);
  struct utsname u {};
  ASSERT_EQ(::uname(&u), 0);
  EXPECT_EQ(a.getName(), "linux");
  EXPECT_EQ(a.getArchitecture(), u.machine);
  EXPECT_EQ(a.getKernelRelease(), u.release);
  EXPECT_TRUE(OperatingSystemSet("linux").contains(a));
}

TEST(OperatingSystemSet, Grammar) {
  struct Row {
    char const *text;
    bool ubuntu, debian, windows;
    char const *canonical;
  } rows[] = {
      {"linux", true, true, false, "linux"},
      {" Linux , WINDOWS ", true, true, true, "linux,windows"},
      {"ubuntu", true, false, false, "ubuntu"},
      {"all", true, true, true, "all"},
      {"*", true, true, true, "all"},
      {"all,!windows", true, true, false, "all,!windows"},
      {"!windows", true, true, false, "!windows"},
      {"linux,!debian", true, false, false, "linux,!debian"},
      {"!debian,linux", true, false, false, "linux,!debian"},
      {"linux,,linux,", true, true, false, "linux"},
      {"", false, false, false, ""},
      {" , ", false, false, false, ""},
      {"!", false, false, false, ""},
      {"lin ux", false, false, false, "lin ux"}, // not a name: kept, never matches
      {"macos", false, false, false, "macos"},
  };
  for (Row const &r : rows) {
    OperatingSystemSet set{String(r.text)};
    EXPECT_EQ(set.contains(ubuntu), r.ubuntu) << r.text;
    EXPECT_EQ(set.contains(debian), r.debian) << r.text;
    EXPECT_EQ(set.contains(windows), r.windows) << r.text;
    EXPECT_EQ(set.toString(), r.canonical) << r.text;
    // The canonical text parses back to the same set.
    EXPECT_EQ(OperatingSystemSet(set.toString()), set) << r.text;
  }
  EXPECT_TRUE(OperatingSystemSet("").isEmpty());
  EXPECT_FALSE(OperatingSystemSet("!windows").isEmpty());
  EXPECT_TRUE(OperatingSystemSet().isEmpty());
  // An unknown system is in "all" and in nothing named.
  EXPECT_TRUE(OperatingSystemSet("all").contains(OperatingSystem()));
  EXPECT_FALSE(OperatingSystemSet("linux").contains(OperatingSystem()));
}
