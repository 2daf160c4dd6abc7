#pragma once
// The in-process engine library (Morvain), loaded on first use.
//
// The client library is not linked against the engine: a program that runs
// the engine in another process never maps it. At the first start,
// "libMorvain.so.5" is loaded from the directory that holds this library,
// else through the loader's default search path, and the C entry points
// "morvainStartEngine" and "morvainEngineIsDone" are looked up. A library
// that cannot be loaded is tried again at the next start; once loaded it
// stays for the life of the process.
//
// Thread-safe: loading and the replacement below are serialised.

#include "zel/String.h"

namespace ostrel5 {
namespace internal {

typedef bool (*StartEngineFunction)(zel::String const &baseDirectory,
                                    zel::String const &languageAndVariant,
                                    zel::String const &customer,
                                    zel::String const &enumerateCapability, bool startFlag,
                                    bool waitForStart);
typedef bool (*EngineIsDoneFunction)(bool wait);

/// Starts the engine inside this process; true when it runs. False, with
/// the reason logged on "libOstrel.DirectLink" at priority 4, when the
/// engine library cannot be loaded.
bool startEngine(zel::String const &baseDirectory, zel::String const &languageAndVariant,
                 zel::String const &customer, zel::String const &enumerateCapability,
                 bool startFlag, bool waitForStart);
/// Tells the engine that the client has sent its shutdown. False when the
/// engine library cannot be loaded.
bool engineIsDone(bool wait);

/// For tests: replaces the two entry points (both must be given), so that a
/// test engine answers instead of the engine library. Two nulls go back to
/// the engine library.
void replaceEngineEntryPoints(StartEngineFunction start, EngineIsDoneFunction isDone);

} // namespace internal
} // namespace ostrel5
