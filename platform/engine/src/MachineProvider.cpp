#include "morvain/MachineProvider.h"

namespace morvain {

bool LiveUpdate::isEmpty() const {
  return state.isEmpty() && deviceGuidsToRemove.isEmpty() &&
         deviceGuidsForPropertiesToRemove.isEmpty() && propertyKeysToRemove.isEmpty() &&
         alertGuidsToRemove.isEmpty();
}

} // namespace morvain
