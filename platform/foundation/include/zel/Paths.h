#pragma once
// Where the system finds its installed data (language files, the default
// logger configuration).

#include "zel/String.h"

namespace zel {

class Paths {
public:
  /// The data folder: $OSTREL_DATA_DIR when set, else the installed folder
  /// when it exists, else the source tree's data/ (a build that was not
  /// installed). Never empty.
  static String dataDirectory();
};

} // namespace zel
