//===- Assert.cpp - Assertions that stay on in every build type ------------===//

#include "Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Nexil {

void assertionFailed(const char *expression, const char *file, int line, const char *function) {
  fprintf(stderr, "%s:%d: %s: Assertion `%s' failed.\n", file, line, function, expression);
  abort();
}

void assertionFailedX(const char *where, const char *what, const char *file, int line) {
  fprintf(stderr, "ASSERT failure in %s: \"%s\", file %s, line %d\n", where, what, file, line);
  abort();
}

} // namespace Nexil
