// The sensors, battery and optical modules: readings against limits, the
// wear and charge of a battery, and whether a drive holds a disc.

#include <fcntl.h>
#include <linux/cdrom.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstring>

#include "linux/DiagnosticModules.h"
#include "linux/LinuxModel.h"
#include "zel/PropertyImp.h"

namespace morvain {
namespace diag {

namespace {

namespace lm = linuxmodel;
using Result = zel::TestResultImp;

bool exists(std::string const &path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

bool isType(DiagnosticRun &run, char const *type) {
  return run.device()->deviceType().isCapable(zel::CapabilityImp(type)) ||
         run.device()->capabilities().isCapable(zel::CapabilityImp(type));
}

bool propertyDouble(DiagnosticRun &run, char const *key, double &out) {
  auto p = run.device()->property(key);
  if (!p || !p->value().hasData())
    return false;
  try {
    out = p->value().valueDouble();
    return true;
  } catch (...) {
    return false;
  }
}

// ---- sensors ----------------------------------------------------------------

enum class SensorKind { TEMPERATURE, FAN, VOLTAGE, ZONE };

struct Limits {
  bool hasMin = false, hasMax = false, hasCrit = false;
  double min = 0, max = 0, crit = 0;
};

struct SensorSource {
  SensorKind kind;
  std::string base; // root-joined locator
  double scale;     // sysfs unit to display unit
  char const *unit;
  char const *noun;
};

bool readScaled(std::string const &path, double scale, double &out) {
  long long raw = 0;
  if (!readNumber(path, raw))
    return false;
  out = double(raw) * scale;
  return true;
}

bool flagSet(std::string const &path) {
  long long v = 0;
  return readNumber(path, v) && v != 0;
}

Limits sensorLimits(DiagnosticRun &run, SensorSource const &s) {
  Limits l;
  if (s.kind == SensorKind::ZONE) {
    // Trip points: "critical" shuts the machine down, "hot" is the warning;
    // "passive" and "active" only start cooling.
    for (int i = 0; i < 32; ++i) {
      std::string const trip = s.base + "/trip_point_" + std::to_string(i);
      std::string type;
      if (!readLine(trip + "_type", type))
        break;
      double t = 0;
      if (!readScaled(trip + "_temp", s.scale, t) || t <= 0)
        continue;
      if (type == "critical" && (!l.hasCrit || t < l.crit)) {
        l.hasCrit = true;
        l.crit = t;
      } else if (type == "hot" && (!l.hasMax || t < l.max)) {
        l.hasMax = true;
        l.max = t;
      }
    }
  } else {
    l.hasMin = readScaled(s.base + "_min", s.scale, l.min);
    l.hasMax = readScaled(s.base + "_max", s.scale, l.max);
    l.hasCrit = readScaled(s.base + "_crit", s.scale, l.crit);
  }
  // What enumeration recorded, where the files give nothing.
  if (!l.hasMin)
    l.hasMin = propertyDouble(run, lm::KEY_MIN, l.min);
  if (!l.hasMax)
    l.hasMax = propertyDouble(run, lm::KEY_MAX, l.max);
  if (!l.hasCrit)
    l.hasCrit = propertyDouble(run, lm::KEY_CRITICAL, l.crit);
  // Chips report 0 for a limit they do not have.
  if (s.kind != SensorKind::VOLTAGE) {
    l.hasMax = l.hasMax && l.max > 0;
    l.hasCrit = l.hasCrit && l.crit > 0;
  }
  return l;
}

std::string value(double v, char const *unit) {
  return fixed(v, std::fabs(v) < 20 ? 3 : 1) + " " + unit;
}

TestOutcome sensorLimitsTest(DiagnosticRun &run) {
  SensorSource s{SensorKind::TEMPERATURE, run.path(run.device()->osLocator().str()), 0.001, "C",
                 "temperature"};
  if (isType(run, lm::THERMAL_ZONE))
    s = {SensorKind::ZONE, s.base, 0.001, "C", "temperature"};
  else if (isType(run, lm::FAN))
    s = {SensorKind::FAN, s.base, 1.0, "RPM", "fan speed"};
  else if (isType(run, lm::VOLTAGE_SENSOR))
    s = {SensorKind::VOLTAGE, s.base, 0.001, "V", "voltage"};
  if (s.kind != SensorKind::ZONE && !exists(s.base + "_input")) {
    // Older drivers keep the attributes in the chip's device folder.
    auto const slash = s.base.rfind('/');
    std::string const inDevice = s.base.substr(0, slash) + "/device" + s.base.substr(slash);
    if (slash != std::string::npos && exists(inDevice + "_input"))
      s.base = inDevice;
  }
  std::string const input = s.kind == SensorKind::ZONE ? s.base + "/temp" : s.base + "_input";

  std::uint64_t const readings = run.uintParameter("Readings", 3);
  std::uint64_t const interval = run.uintParameter("IntervalMs", 500);
  double const warnTemperature = run.doubleParameter("WarnTemperature", 90.0);
  if (readings == 0 || readings > 100000 || interval > 3600000) {
    run.info("BadParameter", "Readings must be at least 1 and IntervalMs at most an hour");
    return run.outcome(Result::BADPARAMS);
  }
  if (run.device()->osLocator().isEmpty() || !exists(input)) {
    run.info("NoDevice",
             "the sensor gives no reading (" + input.substr(run.root().size()) + " is not there)");
    return run.outcome(Result::NODEVICE);
  }
  Limits const limits = sensorLimits(run, s);
  bool const temperature = s.kind == SensorKind::TEMPERATURE || s.kind == SensorKind::ZONE;
  if (temperature && !limits.hasMax && !limits.hasCrit)
    run.info("NoLimits", "the chip gives no temperature limit: warning at " +
                             value(warnTemperature, s.unit) + " (WarnTemperature)");
  else if (!temperature && !limits.hasMin && !limits.hasMax && !limits.hasCrit)
    run.info("NoLimits", "the chip gives no limits for this " + std::string(s.noun) +
                             ": readings are reported, not judged");

  bool failed = false, warned = false;
  double low = 0, high = 0, sum = 0;
  std::uint64_t taken = 0;
  for (std::uint64_t i = 0; i < readings; ++i) {
    if (i > 0 && !run.pause(static_cast<unsigned>(interval)))
      return run.interrupted();
    double v = 0;
    if (!readScaled(input, s.scale, v)) {
      run.error("NoReading", "SENSOR_NO_READING",
                "reading " + input.substr(run.root().size()) + " failed: " + std::strerror(errno));
      failed = true;
      break;
    }
    low = taken == 0 ? v : std::min(low, v);
    high = taken == 0 ? v : std::max(high, v);
    sum += v;
    ++taken;
    run.progress(double(i + 1) / double(readings), std::string(s.noun) + " " + value(v, s.unit));
  }
  if (taken > 0) {
    double const avg = sum / double(taken);
    std::string const reading = value(high, s.unit);
    if (s.kind == SensorKind::FAN) {
      if (flagSet(s.base + "_fault")) {
        run.error("SensorFault", "SENSOR_FAULT", "the chip reports a fault of this fan");
        failed = true;
      }
      if (limits.hasMin && limits.min > 0 && low < limits.min) {
        run.error("BelowLimit", "SENSOR_BELOW_MINIMUM",
                  "fan speed " + value(low, s.unit) + " is under its minimum of " +
                      value(limits.min, s.unit));
        failed = true;
      }
      if (high == 0 && !failed)
        run.info("FanStopped", "the fan stands still (some fans stop when cool)");
    } else if (s.kind == SensorKind::VOLTAGE) {
      if (limits.hasMin && low < limits.min) {
        run.error("BelowLimit", "SENSOR_OUT_OF_RANGE",
                  "voltage " + value(low, s.unit) + " is under its minimum of " +
                      value(limits.min, s.unit));
        failed = true;
      }
      if (limits.hasMax && high > limits.max) {
        run.error("OverLimit", "SENSOR_OUT_OF_RANGE",
                  "voltage " + reading + " is over its maximum of " + value(limits.max, s.unit));
        failed = true;
      }
    } else {
      if (limits.hasCrit && high >= limits.crit) {
        run.error("OverCritical", "SENSOR_OVER_CRITICAL",
                  "temperature " + reading + " is at or over its critical limit of " +
                      value(limits.crit, s.unit));
        failed = true;
      } else if (limits.hasMax && high >= limits.max) {
        run.warning("OverMaximum", "temperature " + reading + " is at or over its maximum of " +
                                       value(limits.max, s.unit));
        warned = true;
      } else if (!limits.hasMax && !limits.hasCrit && high >= warnTemperature) {
        run.warning("OverWarning", "temperature " + reading + " is at or over " +
                                       value(warnTemperature, s.unit) + " (WarnTemperature)");
        warned = true;
      }
    }
    if (s.kind != SensorKind::ZONE) {
      if (flagSet(s.base + "_crit_alarm") || flagSet(s.base + "_lcrit_alarm")) {
        run.error("CriticalAlarm", "SENSOR_ALARM", "the chip raised the critical alarm");
        failed = true;
      } else if (flagSet(s.base + "_alarm") || flagSet(s.base + "_max_alarm") ||
                 flagSet(s.base + "_min_alarm")) {
        run.warning("Alarm", "the chip raised an alarm for this " + std::string(s.noun));
        warned = true;
      }
    }
    run.measurement(std::string("Average ") + s.noun, avg, s.unit);
    if (taken > 1)
      run.measurement(std::string("Highest ") + s.noun, high, s.unit);
  }
  if (failed)
    return run.outcome(Result::FAIL);
  return run.outcome(warned ? Result::WARN : Result::PASS);
}

// ---- battery ------------------------------------------------------------------

TestOutcome batteryHealth(DiagnosticRun &run) {
  std::string const base = run.path(run.device()->osLocator().str());
  if (run.device()->osLocator().isEmpty() || !exists(base)) {
    run.info("NoDevice", "the battery is not there any more");
    return run.outcome(Result::NODEVICE);
  }
  long long present = 1;
  if (readNumber(base + "/present", present) && present == 0) {
    run.info("NoDevice", "the battery bay is empty");
    return run.outcome(Result::NODEVICE);
  }
  std::uint64_t const warnHealth = run.uintParameter("WarnHealthPercent", 70);
  std::uint64_t const failHealth = run.uintParameter("FailHealthPercent", 40);
  std::uint64_t const warnCharge = run.uintParameter("WarnChargePercent", 10);
  if (warnHealth > 100 || failHealth > warnHealth || warnCharge > 100) {
    run.info("BadParameter", "the percentages must be 0 to 100, FailHealthPercent not above "
                             "WarnHealthPercent");
    return run.outcome(Result::BADPARAMS);
  }
  bool failed = false, warned = false, known = false;
  std::string status;
  readLine(base + "/status", status);

  long long full = 0, design = 0;
  bool const energy =
      readNumber(base + "/energy_full", full) && readNumber(base + "/energy_full_design", design);
  if (!energy) {
    full = design = 0;
    readNumber(base + "/charge_full", full);
    readNumber(base + "/charge_full_design", design);
  }
  if (full > 0 && design > 0) {
    known = true;
    double const health = 100.0 * double(full) / double(design);
    run.measurement("Health (full capacity / design capacity)", health, "%");
    std::string const text = "the battery holds " + fixed(health, 1) + " % of its design capacity";
    if (health < double(failHealth)) {
      run.error("Worn", "BATTERY_WORN",
                text + ", under " + std::to_string(failHealth) + " % (FailHealthPercent)");
      failed = true;
    } else if (health < double(warnHealth)) {
      run.warning("Worn",
                  text + ", under " + std::to_string(warnHealth) + " % (WarnHealthPercent)");
      warned = true;
    } else {
      run.info("Capacity", text);
    }
  } else {
    run.info("CapacityUnknown", "the battery does not report its full and design capacity");
  }
  long long charge = -1;
  if (readNumber(base + "/capacity", charge) && charge >= 0) {
    known = true;
    run.measurement("Charge", double(charge), "%");
    if (charge < static_cast<long long>(warnCharge)) {
      run.warning("LowCharge", "charge " + std::to_string(charge) + " % is under " +
                                   std::to_string(warnCharge) + " % (WarnChargePercent)" +
                                   (status.empty() ? "" : ", status \"" + status + "\""));
      warned = true;
    }
  }
  long long cycles = 0;
  if (readNumber(base + "/cycle_count", cycles) && cycles > 0)
    run.measurement("Charge cycles", double(cycles), "");
  std::string health;
  if (readLine(base + "/health", health) && !health.empty() && health != "Unknown") {
    known = true;
    char const *const failing[] = {"Dead", "Over voltage", "Unspecified failure", "Over current"};
    char const *const fine[] = {"Good", "Cool", "Warm"};
    if (std::find_if(std::begin(failing), std::end(failing),
                     [&](char const *h) { return health == h; }) != std::end(failing)) {
      run.error("BatteryState", "BATTERY_FAILED",
                "the battery reports its health as \"" + health + "\"");
      failed = true;
    } else if (std::find_if(std::begin(fine), std::end(fine),
                            [&](char const *h) { return health == h; }) == std::end(fine)) {
      run.warning("BatteryState", "the battery reports its health as \"" + health + "\"");
      warned = true;
    }
  }
  if (!known) {
    run.info("NothingToJudge", "the battery reports neither capacity, charge nor health");
    return run.outcome(Result::NOTAPPLICABLE);
  }
  if (failed)
    return run.outcome(Result::FAIL);
  return run.outcome(warned ? Result::WARN : Result::PASS);
}

// ---- optical ------------------------------------------------------------------

TestOutcome mediaPresent(DiagnosticRun &run) {
  std::string const locator = run.device()->osLocator().str();
  std::string const node = run.path(locator);
  std::uint64_t const wait = run.uintParameter("WaitSeconds", 5);
  if (wait > 600) {
    run.info("BadParameter", "WaitSeconds must be at most 600");
    return run.outcome(Result::BADPARAMS);
  }
  // O_NONBLOCK opens the drive without a disc and without closing its tray.
  int const fd = locator.empty() ? -1 : ::open(node.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    int const e = locator.empty() ? ENOENT : errno;
    run.info("OpenFailed",
             (locator.empty() ? std::string("no device node") : locator) + ": " + std::strerror(e));
    if (e == EACCES || e == EPERM)
      return run.outcome(Result::INSUFFICIENTPRIVILEGE);
    if (e == ENOMEDIUM)
      return run.outcome(Result::NOMEDIA);
    if (e == ENOENT || e == ENXIO || e == ENODEV)
      return run.outcome(Result::NODEVICE);
    return run.outcome(Result::CANNOTRUN);
  }
  auto const start = std::chrono::steady_clock::now();
  TestOutcome outcome = run.outcome(Result::NOMEDIA);
  for (;;) {
    int const status = ioctl(fd, CDROM_DRIVE_STATUS, CDSL_CURRENT);
    int const e = errno;
    if (status == CDS_DISC_OK) {
      char const *kind = "a disc";
      switch (ioctl(fd, CDROM_DISC_STATUS, 0)) {
      case CDS_AUDIO:
        kind = "an audio disc";
        break;
      case CDS_DATA_1:
      case CDS_DATA_2:
      case CDS_XA_2_1:
      case CDS_XA_2_2:
        kind = "a data disc";
        break;
      case CDS_MIXED:
        kind = "a mixed audio and data disc";
        break;
      case CDS_NO_INFO:
        kind = "a disc (or blank medium)";
        break;
      default:
        break;
      }
      run.info("MediaPresent", locator + " holds " + kind);
      outcome = run.outcome(Result::PASS);
      break;
    }
    if (status == CDS_NO_DISC) {
      run.info("NoMedia", locator + " holds no disc");
      break;
    }
    if (status == CDS_TRAY_OPEN) {
      run.info("TrayOpen", "the tray of " + locator + " is open");
      break;
    }
    if (status == CDS_NO_INFO) {
      run.info("NoInfo", locator + " does not report whether it holds a disc");
      outcome = run.outcome(Result::NOTAPPLICABLE);
      break;
    }
    if (status < 0) {
      run.info("StatusFailed", locator + ": drive status unreadable: " + std::strerror(e));
      outcome = run.outcome(e == EPERM || e == EACCES ? Result::INSUFFICIENTPRIVILEGE
                            : e == ENOTTY || e == ENOSYS || e == EINVAL ? Result::NOTAPPLICABLE
                                                                        : Result::CANNOTRUN);
      break;
    }
    // CDS_DRIVE_NOT_READY: the drive is still reading the disc in.
    double const waited =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (waited >= double(wait)) {
      run.info("NotReady", locator + " did not become ready within " + std::to_string(wait) +
                               " s: no readable disc");
      break;
    }
    run.progress(waited / double(wait ? wait : 1), "waiting for the drive to become ready");
    if (!run.pause(250)) {
      outcome = run.interrupted();
      break;
    }
  }
  ::close(fd);
  return outcome;
}

} // namespace

TestOutcome runSensorTest(DiagnosticRun &run, std::string const &key) {
  if (key == "Limits")
    return sensorLimitsTest(run);
  return run.outcome(Result::NOTEST);
}

TestOutcome runBatteryTest(DiagnosticRun &run, std::string const &key) {
  if (key == "Health")
    return batteryHealth(run);
  return run.outcome(Result::NOTEST);
}

TestOutcome runOpticalTest(DiagnosticRun &run, std::string const &key) {
  if (key == "MediaPresent")
    return mediaPresent(run);
  return run.outcome(Result::NOTEST);
}

} // namespace diag
} // namespace morvain
