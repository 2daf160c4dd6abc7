#pragma once
// Internal-condition checks.
//
// ZEL_ASSERT(expr) evaluates expr once; when it is false it reports the source
// file, the line and the expression text exactly as written through
// zel::AssertionFailure::logAssert, then throws zel::StructuredException with
// code 7. The expression text is part of the contract: callers and tests
// recognise failures by it ("index < size()").
//
// Thread-safe: reporting goes through the logger, which serialises output.
// This header includes nothing, so that the containers below zel::String can
// use it; the exception type lives in "zel/Exception.h".

namespace zel {

class AssertionFailure {
public:
  /// Reports a failed condition on the logger "DEFECT.GENERIC" at priority 5
  /// and on standard error. Returns normally; raising is the caller's step.
  static void logAssert(char const *file, int line, char const *expression);

  /// logAssert, then throws StructuredException(7, "Assertion failed: <expression>").
  [[noreturn]] static void fail(char const *file, int line, char const *expression);

  /// Number of assertions reported since process start (for tests and diagnostics).
  static unsigned long count();
};

} // namespace zel

#define ZEL_ASSERT(expr)                                                                           \
  do {                                                                                             \
    if (__builtin_expect(!(expr), 0))                                                              \
      ::zel::AssertionFailure::fail(__FILE__, __LINE__, #expr);                                    \
  } while (0)
