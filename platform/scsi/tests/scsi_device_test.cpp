// ScsiDevice::ejectMedia on paths that are no drive: each is a false result
// with the cause kept, never an exception or a crash. No test here touches a
// real drive, so the suite is safe on a machine with a disc in its tray.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include <unistd.h>

#include "zelrlibscsi/ScsiDevice.h"

using zelrlibscsi::ScsiDevice;

namespace {

struct Refusal {
  std::string path;
  int error;
};

std::string regularFile() {
  char name[] = "/tmp/dravik_test_XXXXXX";
  int fd = ::mkstemp(name);
  if (fd >= 0)
    ::close(fd);
  return name;
}

TEST(ScsiDevice, PathsThatAreNoDriveAreRefused) {
  std::string file = regularFile();
  Refusal const cases[] = {
      {"/dev/null", ENOTTY},            // a character device without the sg driver
      {"/nonexistent/dev/sr9", ENOENT}, // a missing node
      {"", ENOENT},                     // no path at all
      {file, ENOTTY},                   // a regular file
      {"/tmp", ENOTTY},                 // a directory
  };
  for (Refusal const &c : cases) {
    ScsiDevice drive{zel::String(c.path)};
    EXPECT_EQ(c.path, drive.path().str());
    bool ejected = true;
    EXPECT_NO_THROW(ejected = drive.ejectMedia()) << c.path;
    EXPECT_FALSE(ejected) << c.path;
    EXPECT_EQ(c.error, drive.lastError()) << c.path;
  }
  std::remove(file.c_str());
}

TEST(ScsiDevice, RepeatedAttemptsStayHarmlessAndLeakNoDescriptor) {
  ScsiDevice drive(zel::String("/dev/null"));
  int before = ::dup(0);
  ASSERT_GE(before, 0);
  ::close(before);
  for (int i = 0; i < 64; ++i)
    EXPECT_FALSE(drive.ejectMedia());
  int after = ::dup(0);
  ASSERT_GE(after, 0);
  ::close(after);
  EXPECT_EQ(before, after); // the lowest free descriptor did not move
}

} // namespace
