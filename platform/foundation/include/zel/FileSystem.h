#pragma once
// zel::FileSystem: the file operations the system needs, on POSIX paths.
//
// Every function is static, thread-safe (no shared state) and never throws:
// failures come back as false, -1 or an empty result. Paths are UTF-8 byte
// strings with '/' as the only separator; text that may carry the other slash
// direction goes through translateSlashes first.
//
// Path-splitting rules (extractFileName, extractBaseFileName,
// extractDirectory) are purely textual and ignore trailing slashes, so
// "/a/b/" and "/a/b" name the same thing:
//
//   path              extractDirectory  extractFileName  extractBaseFileName
//   "/a/b/c.xml"      "/a/b"            "c.xml"          "c"
//   "/a/b/"           "/a"              "b"              "b"
//   "c.tar.gz"        ""                "c.tar.gz"       "c.tar"
//   "/c"              "/"               "c"              "c"
//   ".profile"        ""                ".profile"       ".profile"
//   "/", ""           "/", ""           ""               ""
//
// extractBaseFileName drops the last extension only, and a leading dot is
// not an extension: the name a loaded script takes when it has none is the
// file's name as a person would say it ("memory-quick" for
// "memory-quick.xml").

#include <cstdint>

#include "zel/Array.h"
#include "zel/String.h"

namespace zel {

class ZELLocale;

class FileSystem {
public:
  FileSystem() = delete;

  /// True when something (file, directory, device, ...) is at the path;
  /// symbolic links are followed. The empty path does not exist.
  static bool exists(String const &path);
  static bool isDirectory(String const &path);
  /// True for a regular file (after following links).
  static bool isFile(String const &path);

  /// Creates the directory (mode 0777 less the umask). With createParents
  /// every missing ancestor is created too; without it the parent must exist.
  /// True when the path is a directory afterwards, so an existing directory
  /// is success; false when something else stands at the path or creation
  /// failed.
  static bool makeDirectory(String const &path, bool createParents);
  /// Removes a file (or a symbolic link, not its target). False when nothing
  /// was removed, including for a directory.
  static bool removeFile(String const &path);
  /// Removes a directory. Without recursive the directory must be empty.
  /// With recursive its contents go first; links inside are removed, never
  /// followed. True when the directory is gone.
  static bool removeDirectory(String const &path, bool recursive);
  /// Size in bytes of a regular file, -1 when there is none.
  static std::int64_t fileSize(String const &path);
  /// Names (not paths) of the entries of a directory, without "." and "..",
  /// sorted by bytes. Empty when the directory cannot be read.
  static Array<String> listDirectory(String const &path);

  /// See the table at the top of this file.
  static String extractFileName(String const &path);
  static String extractBaseFileName(String const &path);
  static String extractDirectory(String const &path);
  /// Every '\' becomes '/'.
  static String translateSlashes(String const &path);
  /// `tail` below `head` with exactly one '/' between. An absolute tail is
  /// returned as it is; an empty head gives the tail and an empty tail the
  /// head.
  static String joinPath(String const &head, String const &tail);

  /// Reads the whole file into `out`, bytes as they are (NUL included).
  /// On failure returns false and leaves `out` untouched.
  static bool loadFile(String const &path, String &out);
  /// Replaces the file's content atomically: the bytes go to a new file in
  /// the same directory, are flushed to disk, and that file is renamed over
  /// the target. Readers see the old or the new content, never a mix, and a
  /// crash leaves at worst a stray temporary file (named
  /// "<name>.tmp.<pid>.<n>"). An existing file keeps its permission bits; a
  /// symbolic link is followed and its target replaced.
  /// False when the directory is missing or not writable.
  static bool saveFile(String const &path, String const &content);

  /// The first existing file among, in this order:
  ///   directory/baseName_language_VARIANT extension   (when the locale has a variant)
  ///   directory/baseName_language extension           (when the locale has a language)
  ///   directory/baseName extension
  /// where language is the locale's language code ("de") and VARIANT its
  /// variant as written ("CH"). `extension` may be given with or without its
  /// dot (".xml" or "xml"), or empty. Returns the path as joinPath builds it,
  /// or the empty string when none exists.
  static String getExistingLocaleBasedFile(String const &directory, String const &baseName,
                                           String const &extension, ZELLocale const &locale);
  /// The candidate paths getExistingLocaleBasedFile tries, in order, existing
  /// or not.
  static Array<String> localeBasedCandidates(String const &directory, String const &baseName,
                                             String const &extension, ZELLocale const &locale);

  /// $TMPDIR when it names a directory, else "/tmp".
  static String getTempDirectory();
  /// Creates a new private (0700) directory below getTempDirectory() whose
  /// name starts with `prefix` ('/' in the prefix become '_'). Returns its
  /// path, or "" on failure. The caller removes it.
  static String makeTempDirectory(String const &prefix);
};

} // namespace zel
