#include "ostrel/ApiWrapper.h"

namespace ostrel5 {
namespace SharedAll {

// Out of line, so the vtable has one home in the library.
ApiWrapper::~ApiWrapper() = default;

} // namespace SharedAll
} // namespace ostrel5
