//===- ThreadCounter.cpp - Counts the threads a program starts -------------===//
//
// Preloaded into a tool run by the tests: every thread the program starts goes
// through pthread_create, which this counts; at exit the count is written to the file
// that THREAD_COUNT_FILE names.
//
//===----------------------------------------------------------------------------===//

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <pthread.h>

namespace {

std::atomic<int> started{0};

struct Report {
  ~Report() {
    const char *path = getenv("THREAD_COUNT_FILE");
    if (FILE *file = path ? fopen(path, "w") : nullptr) {
      fprintf(file, "%d\n", started.load());
      fclose(file);
    }
  }
} report;

} // namespace

extern "C" int pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                              void *(*start)(void *), void *argument) {
  using Create = int (*)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
  static Create create = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
  ++started;
  return create(thread, attributes, start, argument);
}
