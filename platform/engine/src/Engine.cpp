// The in-process engine: one EngineCore at a time on the queue pair of
// zel::ProcessLinkConfigurator.

#include "morvain/Engine.h"

#include <memory>
#include <mutex>
#include <vector>

#include "EngineCore.h"
#include "zel/CapabilityImp.h"
#include "zel/Logger.h"
#include "zel/ProcessLinkConfigurator.h"
#include "zel/Resource.h"
#include "zel/ZELLocale.h"

namespace {

std::mutex &engineLock() {
  static std::mutex lock;
  return lock;
}

std::unique_ptr<morvain::EngineCore> &engine() {
  static std::unique_ptr<morvain::EngineCore> core;
  return core;
}

// Cores whose runs did not end at shutdown. Their threads still use them,
// so they are kept (never deleted) rather than destroyed under a thread.
std::vector<std::unique_ptr<morvain::EngineCore>> &abandoned() {
  static auto *cores = new std::vector<std::unique_ptr<morvain::EngineCore>>();
  return *cores;
}

} // namespace

bool startEngine(zel::String const &baseDirectory, zel::String const &languageAndVariant,
                 zel::String const &customer, zel::String const &enumerateCapability,
                 bool startFlag, bool waitForStart) {
  (void)startFlag;
  (void)waitForStart; // start() always returns with the threads running
  std::lock_guard<std::mutex> guard(engineLock());
  if (engine())
    return true;
  auto &link = zel::ProcessLinkConfigurator::instance();
  // What an earlier connection left behind must not reach this one.
  link.resetQueues();

  zel::String machine;
  zel::Resource::getString(nullptr, "Engine.Machine", machine, zel::ZELLocale());
  std::unique_ptr<morvain::MachineProvider> provider =
      morvain::createProvider(machine, baseDirectory);
  zel::LogFactory::getLogger("Morvain.Engine")
      .log(2, zel::String("in-process engine for customer \"") + customer + "\" in \"" +
                  baseDirectory + "\" serves " + provider->name());

  morvain::EngineCore::Options options;
  options.separateProcess = false;
  options.languageAndVariant = languageAndVariant;
  engine().reset(new morvain::EngineCore(
      std::move(provider),
      [&link](unsigned int timeoutMs) { return link.receiveMessageEngineFromClient(timeoutMs); },
      [&link](zel::MessageHandle message) { link.sendMessageEngineToClient(std::move(message)); },
      options));
  engine()->start();
  if (!enumerateCapability.isEmpty()) {
    zel::CapabilityImp const capability(enumerateCapability);
    if (!(capability == zel::CapabilityImp::INVALID()))
      engine()->enumerateAtStart(capability);
  }
  return true;
}

bool engineIsDone(bool wait) {
  std::lock_guard<std::mutex> guard(engineLock());
  if (!engine())
    return true;
  if (!wait) {
    // Only tells whether the shutdown message was handled.
    return engine()->shutdownRequested();
  }
  // Give the shutdown message a moment to arrive through the queue (it was
  // sent just before); if it does not, the engine is ended all the same.
  engine()->waitForShutdownRequest(2000);
  bool const done = engine()->shutdown(10000);
  if (done)
    engine().reset();
  else
    abandoned().push_back(std::move(engine()));
  return done;
}

extern "C" {
bool morvainStartEngine(zel::String const &baseDirectory, zel::String const &languageAndVariant,
                        zel::String const &customer, zel::String const &enumerateCapability,
                        bool startFlag, bool waitForStart) {
  return startEngine(baseDirectory, languageAndVariant, customer, enumerateCapability, startFlag,
                     waitForStart);
}

bool morvainEngineIsDone(bool wait) { return engineIsDone(wait); }
}
