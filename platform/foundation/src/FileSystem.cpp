#include "zel/FileSystem.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <vector>

#include "zel/ZELLocale.h"

namespace zel {

namespace {

// The path without trailing slashes, keeping a lone "/".
String stripTrailingSlashes(String const &path) {
  std::size_t end = path.length();
  while (end > 1 && path[end - 1] == '/')
    --end;
  return path.substring(0, end);
}

bool statOf(String const &path, struct stat &st) {
  return !path.isEmpty() && ::stat(path.c_str(), &st) == 0;
}

bool mkdirOne(String const &path) {
  if (::mkdir(path.c_str(), 0777) == 0)
    return true;
  struct stat st;
  // Someone else may have made it meanwhile; a directory is what we wanted.
  return errno == EEXIST && statOf(path, st) && S_ISDIR(st.st_mode);
}

bool removeTree(String const &path) {
  DIR *d = ::opendir(path.c_str());
  if (!d)
    return false;
  std::vector<String> names;
  while (struct dirent *e = ::readdir(d)) {
    String name(e->d_name);
    if (name != "." && name != "..")
      names.push_back(name);
  }
  ::closedir(d);
  bool ok = true;
  for (String const &name : names) {
    String child = path + "/" + name;
    struct stat st;
    if (::lstat(child.c_str(), &st) != 0)
      continue;
    if (S_ISDIR(st.st_mode))
      ok = removeTree(child) && ok;
    else
      ok = (::unlink(child.c_str()) == 0) && ok;
  }
  return (::rmdir(path.c_str()) == 0) && ok;
}

bool writeAll(int fd, char const *data, std::size_t size) {
  while (size > 0) {
    ssize_t n = ::write(fd, data, size);
    if (n < 0) {
      if (errno == EINTR)
        continue;
      return false;
    }
    data += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

std::atomic<unsigned long> g_tempCounter{0};

} // namespace

bool FileSystem::exists(String const &path) {
  struct stat st;
  return statOf(path, st);
}

bool FileSystem::isDirectory(String const &path) {
  struct stat st;
  return statOf(path, st) && S_ISDIR(st.st_mode);
}

bool FileSystem::isFile(String const &path) {
  struct stat st;
  return statOf(path, st) && S_ISREG(st.st_mode);
}

bool FileSystem::makeDirectory(String const &path, bool createParents) {
  String p = stripTrailingSlashes(path);
  if (p.isEmpty())
    return false;
  if (isDirectory(p))
    return true;
  if (!createParents)
    return mkdirOne(p);
  // Create each missing ancestor from the top down; "a//b" is one separator.
  for (std::size_t i = 1; i < p.length(); ++i) {
    if (p[i] != '/' || p[i - 1] == '/')
      continue;
    String prefix = p.substring(0, i);
    if (!isDirectory(prefix) && !mkdirOne(prefix))
      return false;
  }
  return mkdirOne(p);
}

bool FileSystem::removeFile(String const &path) {
  struct stat st;
  if (path.isEmpty() || ::lstat(path.c_str(), &st) != 0 || S_ISDIR(st.st_mode))
    return false;
  return ::unlink(path.c_str()) == 0;
}

bool FileSystem::removeDirectory(String const &path, bool recursive) {
  String p = stripTrailingSlashes(path);
  struct stat st;
  if (p.isEmpty() || ::lstat(p.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
    return false;
  if (recursive)
    return removeTree(p);
  return ::rmdir(p.c_str()) == 0;
}

std::int64_t FileSystem::fileSize(String const &path) {
  struct stat st;
  if (!statOf(path, st) || !S_ISREG(st.st_mode))
    return -1;
  return static_cast<std::int64_t>(st.st_size);
}

Array<String> FileSystem::listDirectory(String const &path) {
  std::vector<String> names;
  if (DIR *d = path.isEmpty() ? nullptr : ::opendir(path.c_str())) {
    while (struct dirent *e = ::readdir(d)) {
      String name(e->d_name);
      if (name != "." && name != "..")
        names.push_back(name);
    }
    ::closedir(d);
  }
  std::sort(names.begin(), names.end());
  Array<String> out(names.size());
  for (String &n : names)
    out.append(std::move(n));
  return out;
}

String FileSystem::extractFileName(String const &path) {
  String p = stripTrailingSlashes(path);
  if (p == "/")
    return String();
  std::size_t slash = p.str().rfind('/');
  return slash == std::string::npos ? p : p.substring(slash + 1);
}

String FileSystem::extractBaseFileName(String const &path) {
  String name = extractFileName(path);
  std::size_t dot = name.str().rfind('.');
  if (dot == std::string::npos || dot == 0)
    return name;
  return name.substring(0, dot);
}

String FileSystem::extractDirectory(String const &path) {
  String p = stripTrailingSlashes(path);
  if (p == "/")
    return p;
  std::size_t slash = p.str().rfind('/');
  if (slash == std::string::npos)
    return String();
  // "/a//b" has the directory "/a"; "/b" has "/".
  while (slash > 0 && p[slash - 1] == '/')
    --slash;
  return slash == 0 ? String("/") : p.substring(0, slash);
}

String FileSystem::translateSlashes(String const &path) {
  std::string s = path.str();
  std::replace(s.begin(), s.end(), '\\', '/');
  return String(std::move(s));
}

String FileSystem::joinPath(String const &head, String const &tail) {
  if (head.isEmpty() || (!tail.isEmpty() && tail[0] == '/'))
    return tail;
  if (tail.isEmpty())
    return head;
  String h = stripTrailingSlashes(head);
  return h == "/" ? h + tail : h + "/" + tail;
}

bool FileSystem::loadFile(String const &path, String &out) {
  if (path.isEmpty())
    return false;
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    return false;
  struct stat st;
  if (::fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
    ::close(fd);
    return false;
  }
  std::string data;
  if (S_ISREG(st.st_mode) && st.st_size > 0)
    data.reserve(static_cast<std::size_t>(st.st_size));
  char buf[65536];
  for (;;) {
    ssize_t n = ::read(fd, buf, sizeof buf);
    if (n < 0) {
      if (errno == EINTR)
        continue;
      ::close(fd);
      return false;
    }
    if (n == 0)
      break;
    data.append(buf, static_cast<std::size_t>(n));
  }
  ::close(fd);
  out = String(std::move(data));
  return true;
}

bool FileSystem::saveFile(String const &path, String const &content) {
  String target = stripTrailingSlashes(path);
  if (target.isEmpty() || isDirectory(target))
    return false;
  // Write through a symbolic link (a settings file kept elsewhere) instead of
  // replacing the link by a plain file.
  struct stat link;
  if (::lstat(target.c_str(), &link) == 0 && S_ISLNK(link.st_mode)) {
    if (char *real = ::realpath(target.c_str(), nullptr)) {
      target = String(real);
      std::free(real);
    }
  }
  String temp = target + ".tmp." + String::fromInt(::getpid()) + "." +
                String::fromUInt(g_tempCounter.fetch_add(1));
  // 0666 lets the umask decide, as for any new file.
  int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (fd < 0)
    return false;
  struct stat old;
  if (::stat(target.c_str(), &old) == 0 && S_ISREG(old.st_mode))
    (void)::fchmod(fd, old.st_mode & 07777);
  bool ok = writeAll(fd, content.data(), content.length()) && ::fsync(fd) == 0;
  ok = (::close(fd) == 0) && ok;
  if (ok)
    ok = ::rename(temp.c_str(), target.c_str()) == 0;
  if (!ok) {
    ::unlink(temp.c_str());
    return false;
  }
  // Make the rename itself durable; failing that is no reason to report failure.
  String dir = extractDirectory(target);
  int dfd = ::open(dir.isEmpty() ? "." : dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dfd >= 0) {
    (void)::fsync(dfd);
    ::close(dfd);
  }
  return true;
}

Array<String> FileSystem::localeBasedCandidates(String const &directory, String const &baseName,
                                                String const &extension, ZELLocale const &locale) {
  String ext = extension;
  if (!ext.isEmpty() && ext[0] != '.')
    ext = "." + ext;
  String language = locale.getLanguage().toString();
  Array<String> out;
  if (!language.isEmpty()) {
    if (!locale.getVariant().isEmpty())
      out.append(joinPath(directory, baseName + "_" + language + "_" + locale.getVariant() + ext));
    out.append(joinPath(directory, baseName + "_" + language + ext));
  }
  out.append(joinPath(directory, baseName + ext));
  return out;
}

String FileSystem::getExistingLocaleBasedFile(String const &directory, String const &baseName,
                                              String const &extension, ZELLocale const &locale) {
  for (String const &candidate : localeBasedCandidates(directory, baseName, extension, locale))
    if (isFile(candidate))
      return candidate;
  return String();
}

String FileSystem::getTempDirectory() {
  char const *env = std::getenv("TMPDIR");
  if (env && *env && isDirectory(String(env)))
    return stripTrailingSlashes(String(env));
  return String("/tmp");
}

String FileSystem::makeTempDirectory(String const &prefix) {
  std::string p = prefix.str();
  std::replace(p.begin(), p.end(), '/', '_');
  std::string templ = joinPath(getTempDirectory(), String(p + "XXXXXX")).str();
  if (::mkdtemp(&templ[0]) == nullptr)
    return String();
  return String(templ);
}

} // namespace zel
