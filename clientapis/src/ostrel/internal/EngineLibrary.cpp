#include "ostrel/internal/EngineLibrary.h"

#include <dlfcn.h>

#include <memory>
#include <mutex>

#include "morvain/Engine.h"
#include "zel/DynamicLibrary.h"
#include "zel/Logger.h"

namespace ostrel5 {
namespace internal {

namespace {

char const ENGINE_LIBRARY[] = "libMorvain.so.5";

// The two types must agree with the engine's own declarations, so that a
// change of the engine's signature fails to compile here.
static_assert(std::is_same<StartEngineFunction, MorvainStartEngineFn>::value,
              "startEngine signature differs from the engine's");
static_assert(std::is_same<EngineIsDoneFunction, MorvainEngineIsDoneFn>::value,
              "engineIsDone signature differs from the engine's");

zel::Logger &logger() {
  static zel::Logger &log = zel::LogFactory::getLogger("libOstrel.DirectLink");
  return log;
}

struct EntryPoints {
  StartEngineFunction start = nullptr;
  EngineIsDoneFunction isDone = nullptr;
};

std::mutex entryMutex;
EntryPoints replaced;                         // set by tests
EntryPoints loaded;                           // from the engine library
std::unique_ptr<zel::DynamicLibrary> library; // kept for the process

// The directory of the library that holds this code, with a trailing "/";
// "" when the loader cannot tell.
zel::String ownDirectory() {
  Dl_info info;
  if (dladdr(reinterpret_cast<void *>(&ownDirectory), &info) == 0 || !info.dli_fname)
    return zel::String();
  std::string path(info.dli_fname);
  std::string::size_type slash = path.rfind('/');
  if (slash == std::string::npos)
    return zel::String();
  return zel::String(path.substr(0, slash + 1));
}

// Loads the engine library and its entry points; called under entryMutex.
bool loadEngineLibrary() {
  if (loaded.start && loaded.isDone)
    return true;
  zel::String const directory = ownDirectory();
  zel::String const candidates[] = {directory.isEmpty() ? zel::String()
                                                        : directory + ENGINE_LIBRARY,
                                    zel::String(ENGINE_LIBRARY)};
  for (zel::String const &path : candidates) {
    if (path.isEmpty())
      continue;
    auto candidate = std::make_unique<zel::DynamicLibrary>(path);
    if (!candidate->load()) {
      logger().log(4, "cannot load the engine library " + path + ": " + candidate->errorText());
      continue;
    }
    auto start = reinterpret_cast<StartEngineFunction>(candidate->getSymbol("morvainStartEngine"));
    auto isDone =
        reinterpret_cast<EngineIsDoneFunction>(candidate->getSymbol("morvainEngineIsDone"));
    if (!start || !isDone) {
      logger().log(4, "the engine library " + path +
                          " lacks its entry points: " + candidate->errorText());
      continue;
    }
    logger().log(2, "loaded the engine library " + path);
    library = std::move(candidate);
    loaded.start = start;
    loaded.isDone = isDone;
    return true;
  }
  return false;
}

EntryPoints entryPoints() {
  std::lock_guard<std::mutex> lock(entryMutex);
  if (replaced.start)
    return replaced;
  if (loadEngineLibrary())
    return loaded;
  return EntryPoints();
}

} // namespace

bool startEngine(zel::String const &baseDirectory, zel::String const &languageAndVariant,
                 zel::String const &customer, zel::String const &enumerateCapability,
                 bool startFlag, bool waitForStart) {
  EntryPoints entry = entryPoints();
  if (!entry.start) {
    logger().log(4, "startEngine(): the engine library is not available; the engine does not run");
    return false;
  }
  return entry.start(baseDirectory, languageAndVariant, customer, enumerateCapability, startFlag,
                     waitForStart);
}

bool engineIsDone(bool wait) {
  EntryPoints entry = entryPoints();
  if (!entry.isDone) {
    logger().log(4, "engineIsDone(): the engine library is not available");
    return false;
  }
  return entry.isDone(wait);
}

void replaceEngineEntryPoints(StartEngineFunction start, EngineIsDoneFunction isDone) {
  std::lock_guard<std::mutex> lock(entryMutex);
  if (!start || !isDone) {
    replaced = EntryPoints();
    return;
  }
  replaced.start = start;
  replaced.isDone = isDone;
}

} // namespace internal
} // namespace ostrel5
