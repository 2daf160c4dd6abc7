#pragma once
// The reader of machine-description files (docs/machine-description.md) and
// the model it reads them into.
//
// The model is what the simulated machine serves: the devices with their
// properties, the modules with their tests, benchmarks and indicators, the
// scripts that say how each test behaves, the alerts, the enumeration
// sources and the timeline of changes. Objects that the mirror holds
// (devices, properties, modules, tests, alerts, indicators) are kept as the
// framework's own classes, fully built and checked; the rest (scripts,
// sources, timeline) is plain data.
//
// Reading is all or nothing: the first problem ends it with a
// MachineDescriptionError that names the file, the line (and the column when
// known) and what is wrong. GUIDs are either given in the file or derived
// from the ids the file gives, so the same file always gives the same
// objects with the same GUIDs.
//
// A model is immutable once read, and may be shared between threads.

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <memory>
#include <vector>

#include "zel/DeviceStateImp.h"
#include "zel/EventTypeImp.h"
#include "zel/Exception.h"
#include "zel/IAlertImp.h"
#include "zel/IDeviceImp.h"
#include "zel/IndicatorImp.h"
#include "zel/MessageBox2.h"
#include "zel/ModuleImp.h"
#include "zel/PropertyImp.h"
#include "zel/String.h"
#include "zel/TestImp.h"
#include "zel/TestResultImp.h"
#include "zel/TipImp.h"

namespace morvain {

/// A description that cannot be read. what() is the whole message,
/// "<file>:<line>:<column>: <context>: <problem>" (column or line left out
/// when unknown); the parts are kept apart as well.
class MachineDescriptionError : public zel::BadInput {
public:
  MachineDescriptionError(zel::String const &file, int line, int column,
                          zel::String const &problem);
  char const *className() const noexcept override;

  zel::String const &file() const noexcept { return m_file; }
  /// 0 when the problem concerns the file as a whole.
  int line() const noexcept { return m_line; }
  /// 0 when unknown.
  int column() const noexcept { return m_column; }
  /// The message without the file and position.
  zel::String const &problem() const noexcept { return m_problem; }

private:
  zel::String m_file;
  int m_line;
  int m_column;
  zel::String m_problem;
};

// --- enumeration sources --------------------------------------------------------

struct SourceModel {
  enum class Kind { DEVICES, TESTS };
  Kind kind = Kind::DEVICES;
  zel::String name;
  /// Time the source takes, in milliseconds.
  unsigned int delayMs = 0;
  /// Non-empty: the source fails with this reason.
  zel::String failReason;
  /// With failReason: how many enumerations fail before the source works
  /// (0: every one fails).
  unsigned int failTimes = 0;
  /// What a completed source reports it could not read (may be empty).
  zel::String warning;
};

// --- devices ---------------------------------------------------------------------

struct DeviceModel {
  /// The id the file uses for the device (its GUID when it gave no id).
  zel::String id;
  /// Identity, state and properties; no children (the mirror links them).
  boost::shared_ptr<zel::IDeviceImp> device;
  /// Index into MachineDescription::deviceSources.
  std::size_t source = 0;
  /// The machine itself keeps the device busy (another program holds it).
  bool heldBusy = false;
};

// --- scripts ----------------------------------------------------------------------

struct Step;
using Steps = std::vector<Step>;

/// A test-run event as the script reports it; every report is a new event.
struct EventModel {
  zel::String key;
  zel::EventTypeImp type = zel::EventTypeImp::INFORMATIVE;
  zel::String message;
  unsigned int code = 0;
  zel::String codeString;
  zel::String customerCode;
  zel::TipArray tips;
};

/// One way a prompt can end, and what the script does then.
struct PromptBranch {
  /// For answers: whether value and input must match.
  bool matchValue = false;
  std::uint32_t value = 0;
  bool matchInput = false;
  zel::String input;
  Steps steps;
};

struct PromptModel {
  zel::MessageBox2Request request;
  /// 0: no time limit.
  unsigned int timeoutMs = 0;
  std::vector<PromptBranch> answers;
  /// Absent branches end the script with the defaults (see the docs).
  std::shared_ptr<PromptBranch> refused;
  std::shared_ptr<PromptBranch> timedOut;
};

struct Step {
  enum class Kind {
    PROGRESS,    ///< percent (when hasPercent) and text
    WORK,        ///< ms spread over `count` slices, percent moving to `percent`
    IGNORE_STOP, ///< ms that no stop interrupts
    HANG,        ///< until stopped
    EVENT,
    MEASUREMENT,
    PROMPT,
    END,    ///< result, errorCode
    IF,     ///< condition, then `body`, else `otherwise`
    REPEAT, ///< `count` times `body`
    CRASH,
    THROW ///< text
  };

  Kind kind = Kind::PROGRESS;
  int line = 0;
  bool hasPercent = false;
  unsigned int percent = 0;
  unsigned int ms = 0;
  unsigned int count = 1;
  zel::String text;
  std::shared_ptr<EventModel> event;
  // MEASUREMENT
  zel::String name;
  double value = 0.0;
  zel::String unit;
  std::shared_ptr<PromptModel> prompt;
  // END
  zel::TestResultImp result = zel::TestResultImp::PASS;
  zel::String errorCode;
  // IF: every condition given must hold.
  std::vector<unsigned int> passes;
  zel::String parameter;
  bool hasParameterValue = false;
  zel::String parameterValue;
  std::vector<zel::String> deviceGuids;
  Steps body;
  Steps otherwise;
};

struct ScriptModel {
  Steps steps;
  /// The outcome when the steps run out.
  zel::TestResultImp result = zel::TestResultImp::PASS;
  zel::String errorCode;
  /// Passes (from 1) on which the outcome is failResult/failErrorCode instead.
  std::vector<unsigned int> failPasses;
  zel::TestResultImp failResult = zel::TestResultImp::FAIL;
  zel::String failErrorCode;
};

// --- modules, tests, indicators ---------------------------------------------------------

struct TestModel {
  boost::shared_ptr<zel::TestImp> test;
  /// Listed devices (GUIDs); used instead of capability matching when
  /// `explicitDevices` is true.
  bool explicitDevices = false;
  std::vector<zel::String> deviceGuids;
  ScriptModel script;
};

struct IndicatorReading {
  zel::String deviceGuid;
  std::vector<boost::shared_ptr<zel::PropertyImp>> properties;
};

struct IndicatorModel {
  zel::IndicatorImp indicator;
  /// Given in turn, from the first again after the last.
  std::vector<IndicatorReading> readings;
};

struct ModuleModel {
  zel::String id;
  boost::shared_ptr<zel::ModuleImp> module;
  /// Index into MachineDescription::testSources.
  std::size_t source = 0;
  std::vector<TestModel> tests;
  std::vector<IndicatorModel> indicators;
};

// --- timeline ---------------------------------------------------------------------

struct TimelineAction {
  enum class Kind {
    ADD_DEVICES,     ///< devices (a new device and the devices below it)
    SET_PROPERTIES,  ///< deviceGuid, properties
    SET_STATE,       ///< deviceGuid, state
    SET_BUSY,        ///< deviceGuid, busy
    REMOVE_PROPERTY, ///< deviceGuid, key
    REMOVE_DEVICE,   ///< deviceGuid
    ADD_ALERT,       ///< alert
    REMOVE_ALERT     ///< key (the alert's GUID)
  };
  Kind kind = Kind::ADD_DEVICES;
  std::vector<DeviceModel> devices;
  zel::String deviceGuid;
  std::vector<boost::shared_ptr<zel::PropertyImp>> properties;
  zel::DeviceStateImp state = zel::DeviceStateImp::FUNCTIONAL;
  bool busy = false;
  zel::String key;
  boost::shared_ptr<zel::IAlertImp> alert;
};

struct TimelineEntry {
  /// Milliseconds after the end of the first device enumeration.
  std::uint64_t atMs = 0;
  std::vector<TimelineAction> actions;
};

// --- the whole machine ----------------------------------------------------------------

struct MachineDescription {
  /// The file (or the name given with the text) it was read from.
  zel::String origin;
  /// The machine's display name (the root element's name, else the origin).
  zel::String name;
  /// Never empty: a description without sources has one of each, named
  /// after the machine.
  std::vector<SourceModel> deviceSources;
  std::vector<SourceModel> testSources;
  /// In file order: a nested device comes right after its parent.
  std::vector<DeviceModel> devices;
  std::vector<ModuleModel> modules;
  /// Alerts about devices point at the device by GUID (deviceGuid).
  std::vector<boost::shared_ptr<zel::IAlertImp>> alerts;
  /// In time order.
  std::vector<TimelineEntry> timeline;
};

/// Reads a description file (UTF-8). Throws MachineDescriptionError.
std::shared_ptr<MachineDescription const> readMachineDescription(zel::String const &path);
/// Reads a description from text; `name` stands for the file in messages.
std::shared_ptr<MachineDescription const> readMachineDescriptionText(zel::String const &xml,
                                                                     zel::String const &name);

/// The GUID a description derives from an id: a name-based UUID-shaped
/// text ("3f2a...-...") of `kind` and `id`, the same on every run.
zel::String deriveGuid(char const *kind, zel::String const &id);

} // namespace morvain
