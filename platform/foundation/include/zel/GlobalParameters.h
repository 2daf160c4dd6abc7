#pragma once
// zel::GlobalParameters: typed access to the settings of the system.
//
// Every value is read through zel::Resource (setString, then the environment
// variable OSTREL_<key with "." as "_">, then "ostrel-settings.xml" in the
// base directory), so a changed file takes effect at the next call.
//
// The settings keys (the default applies when the key is absent):
//
//   Ostrel.EngineStartTimeout   wait for a separate engine to start, decimal
//                               ms; 20000 (applied by the client library)
//   Ostrel.EnumerationTimeout   wait for an enumeration, decimal ms (despite
//                               the accessor's name); 180000 (the caller)
//   Ostrel.RealtimeIdleInterval idle time of paused live indicators, decimal;
//                               60 (the caller)
//   Ostrel.PromptUser           default prompting of scripts, the text the
//                               framework's prompting type reads; "enabled"
//   Ostrel.UseUiUserLangOnlyForOptimalLang
//                               boolean: choose the optimal language from
//                               the user-interface language only; false
//   Engine.Version              the engine's version text; "5.0.0"
//   Engine.Machine              machine-description file of a simulated
//                               machine; empty (or absent) = this computer
//   Language                    language override, a code ("de") or
//                               "OPTIMAL" (any case) for the best one;
//                               "OPTIMAL" (applied by the client library)
//
// Numbers are unsigned decimals; blanks around them are allowed, anything
// else ("abc", "12abc", "-1", out of range) is malformed. Booleans are
// "true"/"false", "yes"/"no", "on"/"off", "1"/"0", case-blind. A malformed
// value makes its accessor answer as if the key were absent (false, or the
// default) and is logged once per key and text on the logger "OSTREL-Global"
// at priority 4.
//
// All functions are thread-safe. The locale argument is accepted for the
// callers' sake; settings do not depend on it.

#include "zel/String.h"
#include "zel/ZELLocale.h"

namespace zel {

class PromptingImp;
class VersionImp;

class GlobalParameters {
public:
  GlobalParameters() = delete;

  static constexpr unsigned int DEFAULT_ENGINE_START_TIMEOUT_MS = 20000;
  static constexpr unsigned int DEFAULT_ENUMERATION_TIMEOUT_MS = 180000;
  static constexpr unsigned int DEFAULT_REALTIME_IDLE_INTERVAL = 60;
  static char const *defaultPromptUserText() noexcept { return "enabled"; }
  static char const *defaultEngineVersionText() noexcept { return "5.0.0"; }

  /// "Ostrel.EnumerationTimeout", milliseconds despite the name. True and
  /// `value` set when present and well-formed; `value` untouched otherwise.
  static bool ostrelEnumerationTimeoutSeconds(unsigned int &value, ZELLocale const &locale);
  /// "Ostrel.RealtimeIdleInterval"; as above.
  static bool realtimeIdleInterval(unsigned int &value, ZELLocale const &locale);
  /// "Ostrel.EngineStartTimeout" in milliseconds; as above.
  static bool engineStartTimeout(unsigned int &value, ZELLocale const &locale);
  /// "Ostrel.UseUiUserLangOnlyForOptimalLang"; false when absent or malformed.
  static bool ostrelUseUiUserLangOnlyForOptimalLang(ZELLocale const &locale);
  /// "Ostrel.PromptUser", trimmed; "enabled" when absent or blank.
  static String promptUserText(ZELLocale const &locale);
  /// "Engine.Version", trimmed; "5.0.0" when absent or blank.
  static String engineVersionText(ZELLocale const &locale);
  /// "Engine.Machine", trimmed. True when set (the empty value counts: it
  /// asks for this computer explicitly).
  static bool engineMachine(String &path, ZELLocale const &locale);

  // Defined in the framework library, where PromptingImp and VersionImp
  // live; each is built on the text accessor of the same setting above.
  static PromptingImp promptUser(ZELLocale const &locale);
  static VersionImp engineVersion(ZELLocale const &locale);
};

} // namespace zel
