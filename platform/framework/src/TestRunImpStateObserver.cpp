#include "zel/TestRunImpStateObserver.h"

namespace zel {

TestRunImpStateObserver::~TestRunImpStateObserver() = default;

} // namespace zel
