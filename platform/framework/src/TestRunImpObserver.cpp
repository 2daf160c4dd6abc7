#include "zel/TestRunImpObserver.h"

namespace zel {

TestRunImpObserver::~TestRunImpObserver() = default;

} // namespace zel
