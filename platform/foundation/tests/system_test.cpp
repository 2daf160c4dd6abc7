// System and Process: background processes and their argument lines, process
// watching that must see exited children go, clocks, and environment helpers.

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <ctime>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "zel/Process.h"
#include "zel/Stopwatch.h"
#include "zel/System.h"

using zel::Array;
using zel::String;
using zel::System;

namespace {

bool waitFor(std::function<bool()> const &condition, unsigned int timeoutMs = 5000) {
  zel::Stopwatch clock;
  while (!condition()) {
    if (clock.elapsedMilliseconds() >= timeoutMs)
      return condition();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

std::string readFile(std::string const &path) {
  std::ifstream in(path);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

bool fileExists(std::string const &path) { return access(path.c_str(), F_OK) == 0; }

// A private temporary directory, removed with its files at the end.
struct TempDir {
  std::string path;
  TempDir() {
    char templ[] = "/tmp/pellor-sys-XXXXXX";
    path = mkdtemp(templ);
  }
  ~TempDir() { (void)!system(("rm -rf '" + path + "'").c_str()); }
};

std::vector<std::string> toVector(Array<String> const &a) {
  std::vector<std::string> v;
  for (std::size_t i = 0; i < a.size(); ++i)
    v.push_back(a[i].str());
  return v;
}

} // namespace

TEST(System, SplitArgumentsHonoursDoubleQuotes) {
  using V = std::vector<std::string>;
  EXPECT_EQ(toVector(System::splitArguments("\"/tmp/base dir\" cpu true en_US acme")),
            (V{"/tmp/base dir", "cpu", "true", "en_US", "acme"}));
  EXPECT_EQ(toVector(System::splitArguments("  a \t  b  ")), (V{"a", "b"}));
  EXPECT_EQ(toVector(System::splitArguments("\"\" x")), (V{"", "x"}));
  EXPECT_EQ(toVector(System::splitArguments("pre\"mid dle\"post")), (V{"premid dlepost"}));
  EXPECT_EQ(toVector(System::splitArguments("\"open ended")), (V{"open ended"}));
  EXPECT_TRUE(System::splitArguments("   ").isEmpty());
}

TEST(System, ExecInBackgroundPassesQuotedArgumentsAndIsReaped) {
  TempDir dir;
  std::string script = dir.path + "/argv.sh";
  std::string out = dir.path + "/argv.txt";
  {
    std::ofstream s(script);
    s << "out=$1; shift\nprintf '%s\\n' \"$@\" > \"$out.tmp\" && mv \"$out.tmp\" \"$out\"\n";
  }
  unsigned int pid = System::execInBackground(
      "/bin/sh", String(script + " " + out + " \"/tmp/base dir\" cpu true en_US acme"));
  ASSERT_NE(pid, 0u);
  ASSERT_TRUE(waitFor([&] { return fileExists(out); }));
  EXPECT_EQ(readFile(out), "/tmp/base dir\ncpu\ntrue\nen_US\nacme\n");

  // The child exits by itself; processExists must reap it, not report the zombie.
  ASSERT_TRUE(waitFor([&] { return !System::processExists(pid); }));
  errno = 0;
  EXPECT_EQ(waitpid(static_cast<pid_t>(pid), nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD) << "the exited child must have been reaped";

  // A -c script is one quoted argument with blanks in it.
  std::string marker = dir.path + "/marker";
  pid = System::execInBackground("/bin/sh", String("-c \"echo started > '" + marker + "'\""));
  ASSERT_NE(pid, 0u);
  ASSERT_TRUE(waitFor([&] { return !System::processExists(pid); }));
  EXPECT_EQ(readFile(marker), "started\n");
}

TEST(System, ExecInBackgroundOfMissingProgramFails) {
  errno = 0;
  EXPECT_EQ(System::execInBackground("/no/such/program", "a b"), 0u);
  EXPECT_EQ(System::getSystemError(), static_cast<unsigned long>(ENOENT));
  EXPECT_EQ(System::execInBackground("", ""), 0u);
}

TEST(System, ProcessExistsAndKillPID) {
  EXPECT_FALSE(System::processExists(0));
  EXPECT_TRUE(System::processExists(System::getProcessId()));
  EXPECT_FALSE(System::killPID(0)) << "pid 0 would signal our own process group";
  EXPECT_FALSE(System::killPID(static_cast<unsigned int>(INT_MAX)));
  EXPECT_FALSE(System::processExists(static_cast<unsigned int>(INT_MAX)));

  unsigned int pid = System::execInBackground("/bin/sleep", "30");
  ASSERT_NE(pid, 0u);
  EXPECT_TRUE(System::processExists(pid));
  EXPECT_TRUE(System::killPID(pid));
  EXPECT_FALSE(System::processExists(pid)) << "a killed child must be gone at once";

  // A zombie that is not our child (its parent never reaps it) counts as gone.
  // The grandchild ends only when told, after its parent became `sleep`.
  TempDir dir;
  std::string out = dir.path + "/grandchild", go = dir.path + "/go";
  unsigned int parent = System::execInBackground(
      "/bin/sh", String("-c \"/bin/sh -c 'while [ ! -e " + go +
                        " ]; do sleep 0.01; done' & echo $! > " + out + "; exec /bin/sleep 30\""));
  ASSERT_NE(parent, 0u);
  std::string comm = "/proc/" + std::to_string(parent) + "/comm";
  ASSERT_TRUE(waitFor([&] {
    return readFile(out).find('\n') != std::string::npos && readFile(comm) == "sleep\n";
  }));
  unsigned int grandchild = static_cast<unsigned int>(std::stoul(readFile(out)));
  EXPECT_TRUE(System::processExists(grandchild)) << "a live process of another parent";
  std::ofstream(go).close();
  ASSERT_TRUE(waitFor([&] { return !System::processExists(grandchild); }));
  EXPECT_TRUE(fileExists("/proc/" + std::to_string(grandchild)))
      << "the grandchild should still be an unreaped zombie";
  EXPECT_TRUE(System::killPID(parent));
}

TEST(System, ClocksAndSleep) {
  std::time_t before = std::time(nullptr);
  std::int64_t stamp = System::getCurrentTimeStamp();
  std::int64_t millis = System::getCurrentTimeMillis();
  std::time_t after = std::time(nullptr);
  EXPECT_GE(stamp, before);
  EXPECT_LE(stamp, after);
  EXPECT_GE(millis / 1000, before);
  EXPECT_LE(millis / 1000, after);

  std::int64_t m0 = System::getMonotonicMillis();
  System::mssleep(30);
  std::int64_t m1 = System::getMonotonicMillis();
  EXPECT_GE(m1 - m0, 30);
  EXPECT_LT(m1 - m0, 3000);
}

TEST(System, ErrorTextsEnvironmentAndExecutable) {
  String text = System::getSystemErrorMsg(ENOENT, false);
  EXPECT_FALSE(text.isEmpty());
  EXPECT_EQ(System::getSystemErrorMsg(ENOENT, true), text + " (" + String::fromInt(ENOENT) + ")");
  EXPECT_FALSE(System::getSystemErrorMsg(0xFFFFFFFFFFul, false).isEmpty());

  // Unset and set-to-empty are different answers.
  String value("untouched");
  unsetenv("PELLOR_TEST_UNSET");
  EXPECT_FALSE(System::getEnv("PELLOR_TEST_UNSET", value));
  EXPECT_EQ(value, "untouched");
  setenv("PELLOR_TEST_EMPTY", "", 1);
  EXPECT_TRUE(System::getEnv("PELLOR_TEST_EMPTY", value));
  EXPECT_EQ(value, "");

  String exe = System::getExecutablePath();
  EXPECT_TRUE(exe.endsWith("/foundation_system_test")) << exe;
  EXPECT_EQ(System::getExecutableDirectory() + "/foundation_system_test", exe);
}

TEST(Process, ExitCodesWaitAndKill) {
  zel::Process quick;
  EXPECT_TRUE(quick.wait(0)) << "nothing started: nothing to wait for";
  ASSERT_TRUE(quick.start("/bin/sh", Array<String>{"-c", "exit 3"}));
  EXPECT_NE(quick.pid(), 0u);
  int code = -5;
  ASSERT_TRUE(quick.wait(5000, code));
  EXPECT_EQ(code, 3);
  EXPECT_FALSE(quick.isRunning());

  zel::Process sleeper;
  ASSERT_TRUE(sleeper.start("sleep", Array<String>{"30"})); // found in PATH
  EXPECT_TRUE(sleeper.isRunning());
  EXPECT_FALSE(sleeper.start("sleep", Array<String>{"30"})) << "one child per handle";
  zel::Stopwatch clock;
  EXPECT_FALSE(sleeper.wait(30));
  EXPECT_GE(clock.elapsedMilliseconds(), 30);

  // kill() from another thread ends a long wait.
  std::thread killer([&] { EXPECT_TRUE(sleeper.kill()); });
  EXPECT_TRUE(sleeper.wait(10000));
  killer.join();
  EXPECT_EQ(sleeper.exitCode(), 128 + SIGKILL);

  zel::Process missing;
  EXPECT_FALSE(missing.start("/no/such/program", Array<String>()));
  EXPECT_FALSE(missing.isRunning());
}

TEST(Process, DestructorKillsAndReapsARunningChild) {
  pid_t pid;
  {
    zel::Process child;
    ASSERT_TRUE(child.start("/bin/sleep", Array<String>{"30"}));
    pid = static_cast<pid_t>(child.pid());
  }
  errno = 0;
  EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
  EXPECT_NE(kill(pid, 0), 0);
}
