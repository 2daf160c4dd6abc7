#include "zel/GlobalParameters.h"

#include <climits>
#include <set>

#include "zel/Logger.h"
#include "zel/Mutex.h"
#include "zel/Resource.h"

namespace zel {

namespace {

zel::mutex g_reportLock;

void reportMalformed(char const *key, String const &text, char const *expected) {
  static std::set<String> *reported = new std::set<String>; // guarded by g_reportLock
  {
    mutex::scoped_lock g(g_reportLock);
    if (!reported->insert(String(key) + "=" + text).second)
      return;
  }
  LogFactory::getLogger("OSTREL-Global")
      .log(4, String("Setting ") + key + " has the malformed value \"" + text + "\" (expected " +
                  expected + "); the default applies");
}

bool parseUnsigned(String const &text, unsigned int &value) {
  String t = text.trim();
  if (t.isEmpty())
    return false;
  unsigned long long v = 0;
  for (std::size_t i = 0; i < t.length(); ++i) {
    if (t[i] < '0' || t[i] > '9')
      return false;
    v = v * 10 + static_cast<unsigned>(t[i] - '0');
    if (v > UINT_MAX)
      return false;
  }
  value = static_cast<unsigned int>(v);
  return true;
}

bool parseBoolean(String const &text, bool &value) {
  String t = text.trim().toLower();
  if (t == "true" || t == "yes" || t == "on" || t == "1")
    value = true;
  else if (t == "false" || t == "no" || t == "off" || t == "0")
    value = false;
  else
    return false;
  return true;
}

bool readUnsigned(char const *key, unsigned int &value, ZELLocale const &locale) {
  String text;
  if (!Resource::getString("", key, text, locale))
    return false;
  unsigned int parsed = 0;
  if (!parseUnsigned(text, parsed)) {
    reportMalformed(key, text, "an unsigned decimal number");
    return false;
  }
  value = parsed;
  return true;
}

String readText(char const *key, char const *fallback, ZELLocale const &locale) {
  String text;
  if (Resource::getString("", key, text, locale) && !text.trim().isEmpty())
    return text.trim();
  return String(fallback);
}

} // namespace

bool GlobalParameters::ostrelEnumerationTimeoutSeconds(unsigned int &value,
                                                       ZELLocale const &locale) {
  return readUnsigned("Ostrel.EnumerationTimeout", value, locale);
}

bool GlobalParameters::realtimeIdleInterval(unsigned int &value, ZELLocale const &locale) {
  return readUnsigned("Ostrel.RealtimeIdleInterval", value, locale);
}

bool GlobalParameters::engineStartTimeout(unsigned int &value, ZELLocale const &locale) {
  return readUnsigned("Ostrel.EngineStartTimeout", value, locale);
}

bool GlobalParameters::ostrelUseUiUserLangOnlyForOptimalLang(ZELLocale const &locale) {
  char const *key = "Ostrel.UseUiUserLangOnlyForOptimalLang";
  String text;
  if (!Resource::getString("", key, text, locale))
    return false;
  bool value = false;
  if (!parseBoolean(text, value)) {
    reportMalformed(key, text, "true or false");
    return false;
  }
  return value;
}

String GlobalParameters::promptUserText(ZELLocale const &locale) {
  return readText("Ostrel.PromptUser", defaultPromptUserText(), locale);
}

String GlobalParameters::engineVersionText(ZELLocale const &locale) {
  return readText("Engine.Version", defaultEngineVersionText(), locale);
}

bool GlobalParameters::engineMachine(String &path, ZELLocale const &locale) {
  String text;
  if (!Resource::getString("", "Engine.Machine", text, locale))
    return false;
  path = text.trim();
  return true;
}

} // namespace zel
