//===- Assert.h - Assertions that stay on in every build type --*- C++ -*-===//
//
// The library stops the program on a few broken internal invariants. Release builds
// define NDEBUG and Qt defines QT_NO_DEBUG, which silence assert and Q_ASSERT, so the
// library uses these checks instead: they print the usual assertion line and abort.
//
//===----------------------------------------------------------------------------===//
#ifndef NEXIL_ASSERT_H
#define NEXIL_ASSERT_H

namespace Nexil {

/// Prints "<file>:<line>: <function>: Assertion `<expression>' failed." and aborts.
[[noreturn]] void assertionFailed(const char *expression, const char *file, int line,
                                  const char *function);

/// Prints a container-style failure ("ASSERT failure in <where>: "<what>"") and aborts.
[[noreturn]] void assertionFailedX(const char *where, const char *what, const char *file, int line);

} // namespace Nexil

/// Stops the program with an assertion line when the condition is false.
#define NEXIL_ASSERT(condition)                                                                    \
  ((condition) ? static_cast<void>(0)                                                              \
               : ::Nexil::assertionFailed(#condition, __FILE__, __LINE__, __func__))

/// Stops the program with a message naming the place and the problem.
#define NEXIL_ASSERT_X(condition, where, what)                                                     \
  ((condition) ? static_cast<void>(0) : ::Nexil::assertionFailedX(where, what, __FILE__, __LINE__))

#endif // NEXIL_ASSERT_H
