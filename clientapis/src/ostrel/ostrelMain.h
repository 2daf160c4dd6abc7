#pragma once
// The free functions of the client library: connecting to the diagnostics
// engine, asking it to enumerate, reading the client's mirror of what it
// found, signing up observers, and setting up logging.
//
// The engine is reached only through the one engine link; the client's
// picture of the machine lives only in the process-wide mirror
// (zel::StateManager). Look-ups read the mirror with or without a
// connection: after closeConnection they still answer from the last mirror,
// and after openConnectionAndLoadCache they answer from a cache file with no
// engine at all.
//
// Where the engine runs is chosen by setSeparateProcess before connecting.
// With the engine in this process, the engine library (libMorvain.so.5) is
// loaded at the first connection; when it cannot be loaded the connection
// stays closed (isConnectionActive() is false) and the reason is logged.
//
// Threads. Every function runs on the caller's thread and several may run at
// once. openConnection, openConnectionAndLoadCache, closeConnection and
// stopEngine are serialised among themselves. Observers are called on the
// connection's pull thread, except where a function says it calls them on
// the caller's thread; never call closeConnection or stopEngine from an
// observer, as they join the pull thread.
//
// Failures. Expected conditions (no connection, time-out) give false.
// zel::LoginFailed comes only from connecting to an engine in another
// process. A DeviceCapability without implementation given to a look-up is
// an assertion failure.

#include "ostrel/Alert.h"
#include "ostrel/Device.h"
#include "ostrel/DeviceCapability.h"
#include "ostrel/DeviceList.h"
#include "ostrel/DeviceProperty.h"
#include "ostrel/Module.h"
#include "ostrel/ModuleList.h"
#include "ostrel/Test.h"
#include "ostrel/TestList.h"
#include "ostrel/TestState.h"
#include "zel/String.h"

/// The version of the client programming interface: 0x20000.
extern "C" unsigned int RNIGetCompatibleVersion();

namespace ostrel5 {

class EnumerationObserver;
class PropertyObserver;

// ------------------------------------------------------------ connection

/// Connects to the engine: starts the in-process engine, or logs in to a
/// separate one. Enumerates nothing; call enumerateDevices and
/// enumerateTests next. `homePath` is where a separate engine's executable
/// lives; `isFleeting` is handed to the link and has no effect. An engine
/// in this process that does not start leaves the connection closed and
/// throws nothing. Throws zel::LoginFailed when a separate engine cannot be
/// reached.
void openConnection(zel::String const &homePath, bool isFleeting);

/// Loads the mirror from a cache file written by cacheEnumerationData, then
/// connects as openConnection does, and counts the enumeration as received:
/// enumeration observers hear handleEnumerationComplete(true) on the
/// caller's thread. False, with no connection made, when the file cannot be
/// read. `internetAccessAllowed` is only logged.
bool openConnectionAndLoadCache(zel::String const &cacheFilePath, bool internetAccessAllowed,
                                zel::String const &homePath, bool isFleeting);

/// Does nothing without an open connection. Otherwise aborts a running
/// script, closes the link (an in-process engine always shuts down; a
/// separate one only with `shutdownEngine`), clears the enumeration flags and
/// forgets the link, so that the next connection makes a new one. The mirror
/// and the observer registries stay.
void closeConnection(bool shutdownEngine);

/// Ends an engine that may not belong to this process: connects if needed
/// (a single login attempt for a separate engine), aborts a running script
/// and shuts the engine down. False when that fails; never throws.
bool stopEngine(zel::String const &homePath);

/// Whether an engine runs: this process's connected engine, or a separate
/// engine that answers a login.
bool engineRunning();

/// Whether the link is connected; makes the link when there is none.
bool isConnectionActive();

/// Chooses an engine in another process (true) or in this one (false).
/// Takes effect for the next link, that is before the first connection or
/// after closeConnection.
void setSeparateProcess(bool separate);
bool isSeparateProcess();

/// Tells the engine whether it may reach the internet. Sent without
/// testing the connection.
void setInternetAccessAllowed(bool allowed);

// ------------------------------------------------------------ enumeration

/// Asks the engine to enumerate the devices of `capability` and waits for the
/// answer, polling every 100 ms, up to the time-out of the setting
/// "Ostrel.EnumerationTimeout" (milliseconds, default 180000; under 100 it
/// fails at once). True when the answer came; read the result through the
/// look-ups. False at once, sending nothing, without a connection. On a
/// time-out or a lost engine an enumeration-failure alert is added to the
/// mirror and the alert observers are told on the caller's thread. A
/// `forceReEnum` drops the script that the script runner holds.
bool enumerateDevices(DeviceCapability const &capability, bool forceReEnum, bool detailed,
                      bool internetAccessAllowed);

/// Asks the engine to enumerate its tests from `databaseDirectory` (which
/// also becomes the default database directory of the process) and waits as
/// enumerateDevices does; no alert on failure.
bool enumerateTests(zel::String const &databaseDirectory);

/// Asks the engine for its test runs in `state` and waits up to 1800 polls
/// of 100 ms; the runs are merged into the process's test run registry.
bool getTestRuns(TestState const &state);

/// True while an enumeration that was asked for has not been answered (also
/// after a wait that failed); false when none was ever asked for.
bool isEnumerating();

/// Whether the answer to the last request (or a cache load) has come.
bool isEnumerationComplete();

/// Writes the whole mirror to one file; false when it cannot be written.
/// Needs no connection.
bool cacheEnumerationData(zel::String const &cacheFilePath);

// ------------------------------------------------------------ look-ups
// None needs a connection. A look-up that finds nothing gives an empty
// handle (isValid() false) or an empty list.

Device rootDevice();
Device deviceByGuid(zel::String const &guid);
/// The first device of the mirror that is capable of `capability`.
Device firstDevice(DeviceCapability const &capability);
/// The devices capable of `capability`, in the mirror's order.
DeviceList getDevices(DeviceCapability const &capability);
unsigned int deviceCount();
/// The property `key` of the first device capable of `capability` that has it.
DeviceProperty findDeviceProperty(DeviceCapability const &capability, zel::String const &key);

/// The first test (not benchmark); with a non-empty `key`, the first whose
/// key in its module is `key`.
Test firstTest(zel::String const &key);
/// The tests (not benchmarks), all or those with the key `key`.
TestList getTests(zel::String const &key);
Test firstBenchmark();
TestList getBenchmarks(zel::String const &key);
Test testByGuid(zel::String const &guid);
Test benchmarkByGuid(zel::String const &guid);
Test testByModuleGuidAndTestKey(zel::String const &moduleGuid, zel::String const &testKey);
Test benchmarkByModuleGuidAndBenchmarkKey(zel::String const &moduleGuid,
                                          zel::String const &benchmarkKey);

ModuleList getModules();
Module firstModule();
Module moduleByGuid(zel::String const &guid);

/// Every alert of the mirror, in its order.
AlertList alerts();

/// Whether the script runner holds a script that has not exited.
bool areTestsRunning();
/// True.
bool isProfilerEnabled();

// ------------------------------------------------------------ observers
// Observers are raw pointers that the application owns; keep each alive
// until it is unregistered. A pointer registered twice is kept once. Null
// is ignored.

void registerEnumerationObserver(EnumerationObserver *observer);
void unregisterEnumerationObserver(EnumerationObserver *observer);
/// Watches the property `key` on every device of `device`'s type. Asserts
/// "device.isValid()". `module` is only logged.
void registerPropertyObserver(Device const &device, zel::String const &module,
                              zel::String const &key, PropertyObserver *observer);
/// Removes one registration of the observer (one per call).
void unRegisterPropertyObserver(PropertyObserver *observer);

// ------------------------------------------------------------ logging and directories

/// Once per process: creates `baseDir` and its "logs" folder when needed,
/// makes it the logging base directory (also the engine's base directory),
/// and configures logging from "OstrelLoggerConfig.xml". Later calls log
/// "Logging already enabled" and change nothing. `verbose` is only logged.
void enableLogging(bool verbose, zel::String const &baseDir);
/// The logging base directory; "." until enableLogging.
zel::String loggingBaseDir();
/// Always the empty string: nothing in the library sets a home directory.
zel::String const &homeDir();
/// Changes the working directory of the process.
void setWorkingDirectory(zel::String const &directory);
/// Changes the working directory of the process; false when it cannot.
bool changeCurrentDirectory(zel::String const &directory);

} // namespace ostrel5
