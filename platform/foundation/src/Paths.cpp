#include "zel/Paths.h"

#include <sys/stat.h>

#include <cstdlib>

namespace zel {

namespace {
bool isDir(char const *p) {
  struct stat st;
  return ::stat(p, &st) == 0 && S_ISDIR(st.st_mode);
}
} // namespace

String Paths::dataDirectory() {
  if (char const *env = std::getenv("OSTREL_DATA_DIR"); env && *env)
    return String(env);
  if (isDir(OSTREL_INSTALL_DATADIR))
    return String(OSTREL_INSTALL_DATADIR);
  return String(OSTREL_SOURCE_DATADIR);
}

} // namespace zel
