//===- FailingFileCalls.cpp - Makes the last steps of a file write fail ----===//
//
// Preloaded into a tool run by the tests. FAIL_CALL names the call that fails with an
// I/O error for a file whose name ends in ".part" (a file written beside its target)
// and holds the text FAIL_NAME: "fsync" (the flush to the disk), "close" (the file is
// closed all the same) or "rename". Other files and calls are left alone.
//
//===----------------------------------------------------------------------------===//

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <unistd.h>

namespace {

bool failing(const char *call) {
  const char *chosen = getenv("FAIL_CALL");
  return chosen && strcmp(chosen, call) == 0;
}

/// A file written beside its target (".part") whose name holds FAIL_NAME.
bool isChosenFile(const char *name) {
  size_t length = strlen(name);
  const char *chosen = getenv("FAIL_NAME");
  return length >= 5 && strcmp(name + length - 5, ".part") == 0 &&
         strstr(name, chosen ? chosen : "") != nullptr;
}

bool isChosenFile(int descriptor) {
  char link[64], name[PATH_MAX + 1];
  snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
  ssize_t length = readlink(link, name, PATH_MAX);
  if (length < 0)
    return false;
  name[length] = 0;
  return isChosenFile(name);
}

template <typename Call> Call next(const char *name) {
  return reinterpret_cast<Call>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" int fsync(int descriptor) {
  static auto real = next<int (*)(int)>("fsync");
  if (failing("fsync") && isChosenFile(descriptor)) {
    errno = EIO;
    return -1;
  }
  return real(descriptor);
}

extern "C" int close(int descriptor) {
  static auto real = next<int (*)(int)>("close");
  bool fail = failing("close") && isChosenFile(descriptor);
  int status = real(descriptor);
  if (!fail)
    return status;
  errno = EIO;
  return -1;
}

extern "C" int rename(const char *from, const char *to) {
  static auto real = next<int (*)(const char *, const char *)>("rename");
  if (failing("rename") && isChosenFile(from)) {
    errno = EIO;
    return -1;
  }
  return real(from, to);
}
