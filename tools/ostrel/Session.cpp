#include "Session.h"

#include <filesystem>
#include <mutex>
#include <system_error>
#include <vector>

#include "ExitStatus.h"
#include "ostrel/DeviceCapability.h"
#include "ostrel/EnumerationObserver.h"
#include "ostrel/ostrelMain.h"
#include "zel/Exception.h"
#include "zel/Resource.h"
#include "zel/String.h"

namespace ostrel5 {
namespace host {

namespace fs = std::filesystem;

namespace {

// Where a separate engine's executable would be looked for: beside this
// program. The in-process engine ignores it.
zel::String programDirectory() {
  std::error_code error;
  fs::path const self = fs::read_symlink("/proc/self/exe", error);
  return error ? zel::String(".") : zel::String(self.parent_path().string());
}

std::string absolute(std::string const &path) {
  std::error_code error;
  fs::path const full = fs::absolute(path, error);
  return error ? path : full.lexically_normal().string();
}

// The engine shut down under a wait, or the answer did not come in time:
// the library tells the two apart only by the state of the link.
std::string whyEnumerationFailed(char const *what) {
  return std::string(what) + (isConnectionActive() ? " enumeration failed or timed out"
                                                   : " enumeration failed: the engine shut down");
}

struct Tally {
  unsigned int completed = 0;
  std::vector<std::string> failures; ///< "<source>: <reason>"
};

// All sources failed: a failure. Some failed: warnings.
void judge(Tally const &tally, char const *what, std::ostream &warnings) {
  if (tally.failures.empty())
    return;
  if (tally.completed == 0) {
    std::string reasons;
    for (std::string const &f : tally.failures)
      reasons += (reasons.empty() ? "" : "; ") + f;
    throw Failure(ExitStatus::ENGINE_TROUBLE,
                  std::string(what) + " enumeration failed: " + reasons);
  }
  for (std::string const &f : tally.failures)
    warnings << "ostrel: warning: " << what << " source " << f << std::endl;
}

} // namespace

// Collects the sources' reports, which arrive on the connection's pull thread
// before the answer that ends the wait.
class Session::SourceWatch : public EnumerationObserver {
public:
  void handleDeviceEnumerationCompleted(zel::String const &, unsigned int, double) override {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_devices.completed;
  }
  void handleDeviceEnumerationFailed(zel::String const &source, zel::String const &reason,
                                     double) override {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_devices.failures.push_back(source.str() + ": " + reason.str());
  }
  void handleTestEnumerationCompleted(zel::String const &, unsigned int, double) override {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_tests.completed;
  }
  void handleTestEnumerationFailed(zel::String const &source, zel::String const &reason,
                                   double) override {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_tests.failures.push_back(source.str() + ": " + reason.str());
  }

  Tally devices() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_devices;
  }
  Tally tests() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_tests;
  }

private:
  std::mutex m_mutex;
  Tally m_devices;
  Tally m_tests;
};

Session::Session(SessionOptions options, Progress &progress, std::ostream &warnings)
    : m_options(std::move(options)), m_progress(progress), m_warnings(warnings) {}

Session::~Session() {
  if (m_opened) {
    try {
      closeConnection(true);
    } catch (...) {
      // Ending anyway: the output is complete and the exit status decided.
    }
  }
  // After the close, which joined the thread that calls the observer.
  if (m_sources)
    unregisterEnumerationObserver(m_sources.get());
}

void Session::open(Need need) {
  applyBaseDirectory();
  if (!m_options.loadCache.empty()) {
    loadFromCache();
    return;
  }
  enumerate(m_options.saveCache.empty() ? need : Need::DEVICES_AND_TESTS);
  if (!m_options.saveCache.empty() && !cacheEnumerationData(zel::String(m_options.saveCache)))
    throw Failure(ExitStatus::BAD_INPUT, "cannot write the cache file " + m_options.saveCache);
}

void Session::applyBaseDirectory() {
  if (m_options.baseDir.empty())
    return;
  std::error_code error;
  fs::create_directories(m_options.baseDir, error);
  if (!fs::is_directory(m_options.baseDir))
    throw Failure(ExitStatus::BAD_INPUT, "cannot use " + m_options.baseDir + " as base directory" +
                                             (error ? ": " + error.message() : std::string()));
  std::string const dir = absolute(m_options.baseDir);
  zel::Resource::setBaseDirectory(zel::String(dir));
  enableLogging(false, zel::String(dir));
}

void Session::loadFromCache() {
  m_opened = true;
  if (!openConnectionAndLoadCache(zel::String(m_options.loadCache), false, programDirectory(),
                                  true))
    throw Failure(ExitStatus::BAD_INPUT,
                  m_options.loadCache + " is not a cache file of this version, or is damaged");
}

void Session::enumerate(Need need) {
  if (!m_options.machine.empty())
    zel::Resource::setString("Engine.Machine", zel::String(absolute(m_options.machine)));

  m_sources.reset(new SourceWatch());
  registerEnumerationObserver(m_sources.get());
  m_opened = true;
  try {
    openConnection(programDirectory(), true);
  } catch (zel::Exception const &e) {
    throw Failure(ExitStatus::ENGINE_TROUBLE,
                  "cannot connect to the diagnostics engine: " + e.toString().str());
  }
  if (!isConnectionActive())
    throw Failure(ExitStatus::ENGINE_TROUBLE,
                  "the diagnostics engine did not start (the log says why)");

  if (!m_progress.run("Enumerating devices",
                      [] { return enumerateDevices(DeviceCapability::ALL(), false, true, false); }))
    throw Failure(ExitStatus::ENGINE_TROUBLE, whyEnumerationFailed("device"));
  judge(m_sources->devices(), "device", m_warnings);

  if (need == Need::DEVICES)
    return;
  if (!m_progress.run("Enumerating tests",
                      [] { return enumerateTests(zel::Resource::getDefaultDatabaseDirectory()); }))
    throw Failure(ExitStatus::ENGINE_TROUBLE, whyEnumerationFailed("test"));
  judge(m_sources->tests(), "test", m_warnings);
}

} // namespace host
} // namespace ostrel5
