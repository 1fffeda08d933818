//===- ThreadCount.cpp - How many threads a run uses -----------------------===//

#include "ThreadCount.h"

#include <algorithm>
#include <cstdlib>
#include <sched.h>

int parseThreadCount(const char *text) {
  if (!text || !*text)
    return 0;
  long count = 0;
  for (const char *p = text; *p; ++p) {
    if (*p < '0' || *p > '9')
      return 0;
    count = std::min<long>(count * 10 + (*p - '0'), MaxThreads);
  }
  return int(count);
}

int threadCount() {
  if (int asked = parseThreadCount(getenv("TWISS_THREADS")))
    return asked;
  return processorCount();
}

int processorCount() {
  cpu_set_t allowed;
  if (sched_getaffinity(0, sizeof allowed, &allowed) != 0)
    return 1;
  return std::clamp(CPU_COUNT(&allowed), 1, MaxThreads);
}
