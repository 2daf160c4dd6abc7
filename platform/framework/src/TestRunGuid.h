#pragma once
// Identities of test runs and of their events.
//
// A run's guid keys the run manager and every message about the run, and an
// event's guid is what drops an event the engine reports twice. Neither is
// derived from content (two runs of the same test on the same device are
// different runs), so both are random version-4 UUIDs in their usual text
// form, "xxxxxxxx-xxxx-4xxx-yxxx-xxxxxxxxxxxx", lower case.

#include "zel/String.h"

namespace zel {
namespace testrun {

/// A fresh identity. Thread-safe; each thread draws from its own generator,
/// seeded from the operating system's entropy source.
String newGuid();

} // namespace testrun
} // namespace zel
