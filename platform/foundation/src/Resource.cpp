#include "zel/Resource.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <set>
#include <unordered_map>
#include <vector>

#include "zel/FileSystem.h"
#include "zel/Logger.h"
#include "zel/Mutex.h"
#include "zel/Paths.h"
#include "zel/Properties.h"

namespace zel {

namespace {

// What identifies one version of a file without reading it. A replaced file
// (save by rename) has a new inode even when the clock is too coarse to move
// the modification time.
struct Stamp {
  dev_t dev = 0;
  ino_t ino = 0;
  off_t size = 0;
  long long mtimeSec = 0;
  long long mtimeNsec = 0;

  bool operator==(Stamp const &o) const {
    return dev == o.dev && ino == o.ino && size == o.size && mtimeSec == o.mtimeSec &&
           mtimeNsec == o.mtimeNsec;
  }
  String key() const {
    return String::format("%llu:%llu:%lld:%lld.%09lld", static_cast<unsigned long long>(dev),
                          static_cast<unsigned long long>(ino), static_cast<long long>(size),
                          mtimeSec, mtimeNsec);
  }
};

struct CachedFile {
  Stamp stamp;
  Properties values; // empty when the file was malformed
};

struct State {
  zel::mutex lock;
  bool hasBase = false;
  String base;
  bool hasDatabase = false;
  String database;
  Properties overrides;
  std::unordered_map<String, CachedFile> files;
  std::set<String> reported; // path + stamp of every malformed version reported
};

State &state() {
  // Never destroyed: look-ups may run from other static destructors.
  static State *s = new State;
  return *s;
}

// Reports gathered under the lock and written after it is released, so that
// logging never runs inside the resource lock.
using Reports = std::vector<String>;

void emit(Reports const &reports) {
  if (reports.empty())
    return;
  Logger &log = LogFactory::getLogger("OSTREL-Global");
  for (String const &text : reports) {
    // An unconfigured logger already writes priority 4 to standard error;
    // writing there too would report twice.
    bool loggerWritesStderr = !LogFactory::isConfigured() && log.isEnabled(4);
    log.log(4, text);
    if (!loggerWritesStderr)
      std::fprintf(stderr, "%s\n", text.c_str());
  }
}

// The values of one file, read again when it changed. Null when there is no
// such file. Call with the lock held.
Properties const *fileValues(State &s, String const &path, char const *consequence,
                             Reports &reports) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
    s.files.erase(path);
    return nullptr;
  }
  Stamp stamp;
  stamp.dev = st.st_dev;
  stamp.ino = st.st_ino;
  stamp.size = st.st_size;
  stamp.mtimeSec = static_cast<long long>(st.st_mtim.tv_sec);
  stamp.mtimeNsec = static_cast<long long>(st.st_mtim.tv_nsec);
  auto it = s.files.find(path);
  if (it != s.files.end() && it->second.stamp == stamp)
    return &it->second.values;

  CachedFile entry;
  entry.stamp = stamp;
  String error;
  if (!entry.values.loadFromFile(path, &error)) {
    entry.values.clear();
    if (s.reported.insert(path + "|" + stamp.key()).second)
      reports.push_back(error + "; " + consequence);
  }
  CachedFile &slot = s.files[path];
  slot = std::move(entry);
  return &slot.values;
}

String envName(char const *key) {
  std::string name = std::string("OSTREL_") + key;
  for (char &c : name)
    if (c == '.')
      c = '_';
  return String(std::move(name));
}

String baseDirectoryLocked(State &s) {
  if (s.hasBase)
    return s.base;
  if (char const *env = std::getenv("OSTREL_BASE_DIR"); env && *env)
    return String(env);
  char buf[4096];
  if (::getcwd(buf, sizeof buf))
    return String(buf);
  return String(".");
}

String databaseDirectoryLocked(State &s) {
  return s.hasDatabase ? s.database : FileSystem::joinPath(Paths::dataDirectory(), "lang");
}

bool settingLocked(State &s, char const *key, String &out, Reports &reports) {
  if (!key || !*key)
    return false;
  if (s.overrides.get(String(key), out))
    return true;
  if (char const *env = std::getenv(envName(key).c_str())) {
    out = String(env);
    return true;
  }
  String path = FileSystem::joinPath(baseDirectoryLocked(s), Resource::settingsFileName());
  Properties const *values =
      fileValues(s, path, "its settings are ignored and defaults apply", reports);
  return values && values->get(String(key), out);
}

bool stringLocked(State &s, String const &directory, String const &file, char const *key,
                  String &out, ZELLocale const &locale, Reports &reports) {
  if (!key || !*key)
    return false;
  Array<String> candidates = FileSystem::localeBasedCandidates(directory, file, ".xml", locale);
  String english = FileSystem::joinPath(directory, file + "_en.xml");
  if (!candidates.contains(english))
    candidates.append(english);
  for (String const &path : candidates) {
    Properties const *values = fileValues(s, path, "its strings are ignored", reports);
    if (values && values->get(String(key), out))
      return true;
  }
  return false;
}

bool lookUp(String const *directory, char const *file, char const *key, String &out,
            ZELLocale const &locale) {
  State &s = state();
  Reports reports;
  bool found;
  {
    mutex::scoped_lock g(s.lock);
    if (!file || !*file)
      found = settingLocked(s, key, out, reports);
    else
      found = stringLocked(s, directory ? *directory : databaseDirectoryLocked(s), String(file),
                           key, out, locale, reports);
  }
  emit(reports);
  return found;
}

} // namespace

bool Resource::getString(char const *file, char const *key, String &out, ZELLocale const &locale) {
  return lookUp(nullptr, file, key, out, locale);
}

bool Resource::getDefaultValue(int resource, char const *key, String &out, void *) {
  if (resource != OVERRIDES_RESOURCE)
    return false;
  return lookUp(nullptr, "", key, out, ZELLocale());
}

void Resource::setString(String const &key, String const &value) {
  State &s = state();
  mutex::scoped_lock g(s.lock);
  s.overrides.set(key, value);
}

bool Resource::clearString(String const &key) {
  State &s = state();
  mutex::scoped_lock g(s.lock);
  return s.overrides.remove(key);
}

void Resource::setBaseDirectory(String const &directory) {
  State &s = state();
  mutex::scoped_lock g(s.lock);
  s.hasBase = true;
  s.base = directory;
}

void Resource::clearBaseDirectory() {
  State &s = state();
  mutex::scoped_lock g(s.lock);
  s.hasBase = false;
  s.base = String();
}

String Resource::getBaseDirectory() {
  State &s = state();
  mutex::scoped_lock g(s.lock);
  return baseDirectoryLocked(s);
}

String Resource::getSettingsFile() {
  return FileSystem::joinPath(getBaseDirectory(), settingsFileName());
}

void Resource::changeDefaultDatabaseDirectory(String const &databaseDirectory) {
  State &s = state();
  mutex::scoped_lock g(s.lock);
  s.hasDatabase = true;
  s.database = databaseDirectory;
}

String Resource::getDefaultDatabaseDirectory() {
  State &s = state();
  mutex::scoped_lock g(s.lock);
  return databaseDirectoryLocked(s);
}

void Resource::reset() {
  State &s = state();
  mutex::scoped_lock g(s.lock);
  s.hasBase = false;
  s.base = String();
  s.hasDatabase = false;
  s.database = String();
  s.overrides.clear();
  s.files.clear();
  s.reported.clear();
}

ScopedResource::ScopedResource(String const &databaseDirectory, String const &name)
    : m_directory(databaseDirectory), m_name(name) {}

bool ScopedResource::getString(char const *file, char const *key, String &out,
                               ZELLocale const &locale) const {
  char const *f = (file && *file) ? file : m_name.c_str();
  return lookUp(&m_directory, f, key, out, locale);
}

} // namespace zel
