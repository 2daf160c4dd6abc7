#pragma once
// Morvain: the diagnostics engine.
//
// In this process the engine is started and ended through the two free
// functions below (the client library loads Morvain on first use and calls
// them from its direct link). The engine then reads client messages from
// zel::ProcessLinkConfigurator's client-to-engine queue on a thread of its
// own and posts every reply on the engine-to-client queue.
//
// The machine the engine serves is the resource "Engine.Machine": the path
// of a machine-description file (a simulated machine, see
// docs/machine-description.md), or empty for this computer. A relative path
// is looked for in the working directory, then in the base directory.
//
// Thread-safety: startEngine and engineIsDone may be called from any thread,
// but not concurrently with each other. After engineIsDone the engine may be
// started again in the same process; every start begins with empty queues.

#include "zel/String.h"

/// Starts the engine inside this process; true when it runs (also when it
/// was running already). `baseDirectory` is where the engine writes its logs
/// and looks for a relative machine description; `languageAndVariant` (for
/// example "en_US") selects the language of localized names; `customer` is
/// kept for the engine's logs. A non-empty `enumerateCapability` (a
/// capability's text form) enumerates the devices of that capability at
/// start. `startFlag` is unused by this engine. With `waitForStart` true the
/// call returns once the engine reads its queue.
bool startEngine(zel::String const &baseDirectory, zel::String const &languageAndVariant,
                 zel::String const &customer, zel::String const &enumerateCapability,
                 bool startFlag, bool waitForStart);

/// Told at shutdown, after ShutdownClientToEngine has been sent. With `wait`
/// true, waits (up to 10 seconds) until the engine has handled the shutdown:
/// every run has ended with its EXITED report, indicators are stopped and the
/// engine's threads are joined. A shutdown message the engine has not seen
/// yet is taken as read: the engine is ended all the same. True when the
/// engine is down (also when it was never started).
bool engineIsDone(bool wait);

/// C entry points for loading Morvain with dlopen (the client library does
/// that, so that a program links only what it uses).
extern "C" {
typedef bool (*MorvainStartEngineFn)(zel::String const &, zel::String const &, zel::String const &,
                                     zel::String const &, bool, bool);
typedef bool (*MorvainEngineIsDoneFn)(bool);
/// "morvainStartEngine": startEngine.
bool morvainStartEngine(zel::String const &baseDirectory, zel::String const &languageAndVariant,
                        zel::String const &customer, zel::String const &enumerateCapability,
                        bool startFlag, bool waitForStart);
/// "morvainEngineIsDone": engineIsDone.
bool morvainEngineIsDone(bool wait);
}
