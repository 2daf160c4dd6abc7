#pragma once
// zel::Resource: the settings of the system and its localised strings.
// zel::ScopedResource: the same string look-up in another database directory.
//
// Settings. One file, "ostrel-settings.xml" in the base directory, in the
// zel::Properties format:
//
//   <properties>
//     <property key="Ostrel.EngineStartTimeout" value="30000"/>
//     <property key="Engine.Machine" value="/home/me/machines/laptop.xml"/>
//   </properties>
//
// A key's value is, first found wins:
//   1. a value given by setString in this process (the host program's
//      --machine sets "Engine.Machine" this way);
//   2. the environment variable "OSTREL_" + key with every "." turned into
//      "_" (OSTREL_Engine_Machine, OSTREL_Ostrel_EngineStartTimeout); a
//      variable that is set but empty gives the empty value;
//   3. the settings file.
// A key found nowhere gives false and the caller applies its default. The
// keys and their defaults are listed in zel/GlobalParameters.h.
//
// The base directory is the one given by setBaseDirectory, else
// $OSTREL_BASE_DIR when set and not empty, else the working directory, as of
// each call. The file is read again when the base directory changes and when
// the file changes: every look-up stats it (modification time, size, inode),
// which costs far less than parsing. (A rewrite in place that keeps the size
// within one tick of the file system's clock can go unseen; a file replaced
// by rename, as FileSystem::saveFile does, is always seen.) A missing file
// means no settings. A malformed file is reported once per version of the
// file, on standard error and on the logger "OSTREL-Global" at priority 4,
// and then counts as empty, so every default applies; nothing is thrown.
//
// Strings. getString with a non-empty file name looks up a string-resource
// file: "<database directory>/<file>[_<language>[_<VARIANT>]].xml", in the
// zel::Properties format. The files are tried in this order, and the first
// that has the key wins:
//   file_lang_VARIANT.xml, file_lang.xml, file.xml   (FileSystem::getExistingLocaleBasedFile)
//   file_en.xml                                      (English, complete by rule)
// so a translation may leave keys out. Files are cached and re-read when
// they change; a malformed file is reported like the settings and skipped.
//
// Every function is thread-safe (one lock inside). Strings returned are
// copies.

#include "zel/String.h"
#include "zel/ZELLocale.h"

namespace zel {

class Resource {
public:
  Resource() = delete;

  /// Identifiers for getDefaultValue.
  enum Id {
    /// The settings: setString values, environment, settings file.
    OVERRIDES_RESOURCE = 1
  };

  /// Name of the settings file in the base directory.
  static char const *settingsFileName() noexcept { return "ostrel-settings.xml"; }

  /// `file` null or "" reads a setting; otherwise a string of that resource
  /// file in the default database directory, in `locale` (see above). True
  /// and `out` set when found; `out` untouched otherwise.
  static bool getString(char const *file, char const *key, String &out, ZELLocale const &locale);
  /// The setting `key` of resource `resource` (OVERRIDES_RESOURCE is the one
  /// there is; other identifiers find nothing). `reserved` is not used.
  static bool getDefaultValue(int resource, char const *key, String &out, void *reserved);

  /// Sets a setting for this process; it wins over environment and file.
  static void setString(String const &key, String const &value);
  /// Removes a setting made by setString; true when there was one.
  static bool clearString(String const &key);

  static void setBaseDirectory(String const &directory);
  /// Back to the default base directory ($OSTREL_BASE_DIR or the working directory).
  static void clearBaseDirectory();
  static String getBaseDirectory();
  /// The full path of the settings file in the current base directory.
  static String getSettingsFile();

  static void changeDefaultDatabaseDirectory(String const &databaseDirectory);
  /// Paths::dataDirectory() + "/lang" unless changed.
  static String getDefaultDatabaseDirectory();

  /// Forgets everything set in this process (setString values, base and
  /// database directories) and every cached file and report. For tests.
  static void reset();
};

/// A string look-up of the shape of Resource::getString in a database
/// directory of its own. `name` is the resource file used when getString is
/// given an empty file name; with an empty `name` that case reads the
/// settings, as Resource::getString does. Shares Resource's cache; copies are
/// independent; thread-safe.
class ScopedResource {
public:
  ScopedResource(String const &databaseDirectory, String const &name);

  bool getString(char const *file, char const *key, String &out, ZELLocale const &locale) const;

  String const &getDatabaseDirectory() const noexcept { return m_directory; }
  String const &getName() const noexcept { return m_name; }

private:
  String m_directory;
  String m_name;
};

} // namespace zel
