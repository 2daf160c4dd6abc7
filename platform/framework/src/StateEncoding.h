#pragma once
// The encoding of a whole zel::StateManager (the mirror, or a partial state
// carried by a message), for messages and for the cache file. Decoding
// builds a new state and replaces the target's content only once the whole
// state was read, so a malformed state leaves the target unchanged. (The
// trailing-bytes check of encoding::decode comes after that: decode into a
// fresh object when the target must survive any bad input.)
//
// Layout: devices in mirror order (each with its properties and the GUIDs of
// its children), modules, tests, the three associations (module-test,
// module-device, test-device) as pairs in the order they were made, alerts
// (with their device's GUID), indicators, indicator runs.

#include "Encoding.h"
#include "zel/StateManager.h"

namespace zel {

void save(OutputArchive &ar, StateManager const &state);
void load(InputArchive &ar, StateManager &state);

} // namespace zel
