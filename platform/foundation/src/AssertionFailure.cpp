#include "zel/AssertionFailure.h"

#include <atomic>
#include <cstdio>

#include "zel/Exception.h"
#include "zel/Logger.h"

namespace zel {

namespace {
std::atomic<unsigned long> g_assertions{0};
}

void AssertionFailure::logAssert(char const *file, int line, char const *expression) {
  g_assertions.fetch_add(1, std::memory_order_relaxed);
  String text = String::format("Assertion failed: %s, file %s, line %d",
                               expression ? expression : "", file ? file : "", line);
  // Unconfigured loggers already write priority 5 to standard error.
  if (LogFactory::isConfigured())
    std::fprintf(stderr, "%s\n", text.c_str());
  LogFactory::getLogger("DEFECT.GENERIC").log(5, text);
}

void AssertionFailure::fail(char const *file, int line, char const *expression) {
  logAssert(file, line, expression);
  throw StructuredException(StructuredException::ASSERTION_CODE,
                            String("Assertion failed: ") + (expression ? expression : ""));
}

unsigned long AssertionFailure::count() { return g_assertions.load(std::memory_order_relaxed); }

} // namespace zel
