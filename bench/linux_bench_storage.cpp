// The storage module's sequential read benchmark against dd on the same
// file, both reading with O_DIRECT so that neither is served from the page
// cache:
//   ours: LinuxDiagnostics, test SequentialReadSpeed, the file as its device
//         (SizeMB 256, BlockKB 1024), the MB/s it measures;
//   dd:   "dd if=FILE of=/dev/null bs=1M iflag=direct", the bytes and
//         seconds it prints itself (its process start is not counted, as
//         ours does not count opening the file).
// Each side runs five times, alternating, and the best run of each counts:
// the machine may be shared, and the best run is the one least disturbed.
// The file lives in $OSTREL_BENCH_DIR, else /var/tmp (a disk, where /tmp may
// be memory). Counter ratio = ours / dd. Goal: ratio >= 0.9.

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "linux/LinuxDiagnostics.h"
#include "linux/LinuxModel.h"
#include "zel/ParameterImp.h"
#include "zel/TestImp.h"
#include "zel/TestRunImp.h"

namespace {

using namespace zel;
using morvain::LinuxDiagnostics;

constexpr std::size_t kFileBytes = 256u << 20;

// Just enough of a run context for a benchmark: keeps the measurements.
class BenchContext : public morvain::RunContext {
public:
  BenchContext(TestImp const &test, IDeviceImp const &device) : m_run(test, device) {}
  TestRunImp const &run() const override { return m_run; }
  TestRunImp &setup() { return m_run; }
  void progress(unsigned int, String const &) override {}
  void event(TestRunEventImp const &e) override { events += e.message().str() + "\n"; }
  void measurement(String const &, double v, String const &) override { value = v; }
  bool stopRequested() const override { return false; }
  bool sleepFor(unsigned int ms, bool) override {
    usleep(ms * 1000);
    return true;
  }
  PromptOutcome prompt(MessageBox2Request const &, unsigned int, MessageBox2Result &) override {
    return PromptOutcome::REFUSED;
  }
  bool separateProcess() const override { return false; }

  double value = 0;
  std::string events;

private:
  TestRunImp m_run;
};

class TestFile {
public:
  TestFile() {
    char const *dir = std::getenv("OSTREL_BENCH_DIR");
    std::string path = std::string(dir ? dir : "/var/tmp") + "/ostrel-read-bench-XXXXXX";
    std::vector<char> name(path.begin(), path.end());
    name.push_back('\0');
    int const fd = mkstemp(name.data());
    if (fd < 0)
      return;
    std::vector<unsigned char> block(1 << 20);
    std::uint64_t x = 0x2545f4914f6cdd1dull;
    bool ok = true;
    for (std::size_t at = 0; at < kFileBytes && ok; at += block.size()) {
      for (auto &b : block) {
        x ^= x << 13, x ^= x >> 7, x ^= x << 17;
        b = static_cast<unsigned char>(x);
      }
      ok = pwrite(fd, block.data(), block.size(), static_cast<off_t>(at)) ==
           static_cast<ssize_t>(block.size());
    }
    fsync(fd);
    close(fd);
    if (ok)
      m_path = name.data();
    else
      unlink(name.data());
  }
  ~TestFile() {
    if (!m_path.empty())
      unlink(m_path.c_str());
  }
  std::string const &path() const { return m_path; }

private:
  std::string m_path;
};

double oursMBps(std::string const &file, std::string &why) {
  StateManager state;
  StateManager::DevicePtr disk(new IDeviceImp("disk:bench", "bench file",
                                              CapabilityImp(morvain::linuxmodel::DISK), "system"));
  disk->setOsLocator(file);
  state.addDevice(disk);
  LinuxDiagnostics diagnostics("/");
  diagnostics.enumerateTests(state);
  auto test =
      state.testByGuid(TestImp::guid(LinuxDiagnostics::STORAGE_MODULE, "SequentialReadSpeed"));
  if (!test) {
    why = "no SequentialReadSpeed test";
    return 0;
  }
  BenchContext context(*test, *disk);
  context.setup().parameter("SizeMB")->setValue(ValueImp(unsigned(kFileBytes >> 20)));
  context.setup().parameter("BlockKB")->setValue(ValueImp(1024u));
  auto const outcome = diagnostics.runTest(context);
  if (outcome.result != TestResultImp::PASS)
    why = "SequentialReadSpeed: " + outcome.result.toString().str() + "\n" + context.events;
  return context.value;
}

// dd's own figures from its last line on standard error:
// "268435456 bytes (268 MB, 256 MiB) copied, 0.243 s, 1.1 GB/s".
double ddMBps(std::string const &file, std::string &why) {
  int pipeFds[2];
  if (pipe(pipeFds) != 0)
    return 0;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, pipeFds[1], 2);
  posix_spawn_file_actions_addclose(&actions, pipeFds[0]);
  std::string const input = "if=" + file;
  char const *argv[] = {"dd", input.c_str(), "of=/dev/null", "bs=1M", "iflag=direct", nullptr};
  char const *envp[] = {"LC_ALL=C", "PATH=/usr/bin:/bin", nullptr};
  pid_t pid = 0;
  int const rc = posix_spawnp(&pid, "dd", &actions, nullptr, const_cast<char **>(argv),
                              const_cast<char **>(envp));
  posix_spawn_file_actions_destroy(&actions);
  close(pipeFds[1]);
  std::string text;
  char buf[512];
  ssize_t n;
  while ((n = read(pipeFds[0], buf, sizeof buf)) > 0)
    text.append(buf, static_cast<std::size_t>(n));
  close(pipeFds[0]);
  if (rc != 0) {
    why = "dd could not be started";
    return 0;
  }
  int status = 0;
  waitpid(pid, &status, 0);
  auto const copied = text.find(" copied, ");
  auto const line = text.rfind('\n', copied == std::string::npos ? 0 : copied);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || copied == std::string::npos) {
    why = "dd failed: " + text;
    return 0;
  }
  double const bytes =
      std::strtod(text.c_str() + (line == std::string::npos ? 0 : line + 1), nullptr);
  double const secs = std::strtod(text.c_str() + copied + 9, nullptr);
  return secs > 0 ? bytes / secs / 1e6 : 0;
}

void BM_SequentialRead_vs_dd(benchmark::State &state) {
  TestFile file;
  if (file.path().empty()) {
    state.SkipWithError("could not write the test file");
    return;
  }
  for (auto _ : state) {
    double best = 0, bestDd = 0;
    std::string why;
    for (int round = 0; round < 5 && why.empty(); ++round) {
      best = std::max(best, oursMBps(file.path(), why));
      bestDd = std::max(bestDd, ddMBps(file.path(), why));
    }
    if (!why.empty() || best <= 0 || bestDd <= 0) {
      state.SkipWithError(why.empty() ? "no figure" : why.c_str());
      return;
    }
    state.SetIterationTime(double(kFileBytes) / (best * 1e6));
    state.counters["ours_MBps"] = best;
    state.counters["dd_MBps"] = bestDd;
    state.counters["ratio"] = best / bestDd;
    state.counters["goal_ratio"] = 0.9;
  }
}
BENCHMARK(BM_SequentialRead_vs_dd)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace
