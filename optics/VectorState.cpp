//===- VectorState.cpp - Scalar arithmetic free of wide registers' leftovers ===//

#include "VectorState.h"

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <immintrin.h>

namespace {

__attribute__((target("avx"))) void zeroUpper() {
  _mm256_zeroupper();
}

} // namespace

void clearUpperVectorState() {
  static const bool wide = __builtin_cpu_supports("avx");
  if (wide)
    zeroUpper();
}
#else
void clearUpperVectorState() {}
#endif
