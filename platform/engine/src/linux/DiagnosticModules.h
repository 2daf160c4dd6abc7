#pragma once
// The bodies of the diagnostic modules of this computer, one function per
// module; LinuxDiagnostics picks the one of the run's test. `key` is the
// test's key in its module. Each returns NOTEST for a key it does not know.

#include <string>

#include "linux/DiagnosticRun.h"
#include "linux/LinuxDiagnostics.h"

namespace morvain {
namespace diag {

TestOutcome runProcessorTest(DiagnosticRun &run, std::string const &key);
TestOutcome runMemoryTest(DiagnosticRun &run, std::string const &key,
                          LinuxDiagnostics::Seams const &seams);
TestOutcome runStorageTest(DiagnosticRun &run, std::string const &key,
                           LinuxDiagnostics::Seams const &seams);
TestOutcome runNetworkTest(DiagnosticRun &run, std::string const &key);
TestOutcome runSensorTest(DiagnosticRun &run, std::string const &key);
TestOutcome runBatteryTest(DiagnosticRun &run, std::string const &key);
TestOutcome runOpticalTest(DiagnosticRun &run, std::string const &key);

} // namespace diag
} // namespace morvain
