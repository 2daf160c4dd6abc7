#pragma once
// Internal: starting a child process, shared by zel::System and zel::Process.

#include <sys/types.h>

#include "zel/Array.h"
#include "zel/String.h"

namespace zel {
namespace detail {

/// Starts `path` with argv = path followed by `arguments`. The child reads
/// standard input from /dev/null, starts with an empty signal mask and default
/// signal dispositions, and with `ownProcessGroup` leads a process group of its
/// own. Returns the pid, or -1 with errno set (a missing program is reported
/// here, not by a child that fails later).
pid_t spawnProcess(String const &path, Array<String> const &arguments, bool ownProcessGroup);

/// Reaps `pid` without blocking when it is an exited child. True when it was
/// reaped now; the wait status goes to *status when given.
bool reapIfExited(pid_t pid, int *status);

} // namespace detail
} // namespace zel
