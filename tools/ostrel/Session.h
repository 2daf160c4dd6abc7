#pragma once
// One connection of the host program to the diagnostics engine, from the
// common options to a filled mirror.
//
// open() applies the options in this order: base directory (settings file,
// logs), then either the cache file (the mirror is loaded from it; the
// engine is not asked for anything) or the machine to serve, the connection
// and the enumerations, and last the cache file to write. Every problem ends
// with a Failure carrying the exit status (ExitStatus.h). The destructor
// closes the connection and shuts an in-process engine down.
//
// Enumeration sources (a bus, a module database) report one by one. When
// every device source (or every test source) fails, the enumeration has
// failed: engine trouble, with the sources' reasons. When only some fail,
// what the others found is used and each failure is a warning on `warnings`;
// a machine with one unreadable bus still shows the rest.
//
// One Session per process: the client library's connection is process-wide.

#include <memory>
#include <ostream>
#include <string>

#include "Progress.h"

namespace ostrel5 {
namespace host {

struct SessionOptions {
  std::string machine;   ///< machine-description file; empty: leave "Engine.Machine" as configured
  std::string baseDir;   ///< base directory; empty: the library's default
  std::string loadCache; ///< read the mirror from this cache file instead of enumerating
  std::string saveCache; ///< after enumerating, write the mirror to this cache file
};

class Session {
public:
  enum class Need { DEVICES, DEVICES_AND_TESTS };

  Session(SessionOptions options, Progress &progress, std::ostream &warnings);
  ~Session();
  Session(Session const &) = delete;
  Session &operator=(Session const &) = delete;

  /// Fills the mirror with what `need` asks for. Saving a cache always
  /// enumerates tests as well, so that a saved cache serves every subcommand.
  void open(Need need);

private:
  void applyBaseDirectory();
  void loadFromCache();
  void enumerate(Need need);

  class SourceWatch;

  SessionOptions m_options;
  Progress &m_progress;
  std::ostream &m_warnings;
  std::unique_ptr<SourceWatch> m_sources;
  bool m_opened = false;
};

} // namespace host
} // namespace ostrel5
