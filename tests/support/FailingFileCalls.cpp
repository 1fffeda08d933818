//===- FailingFileCalls.cpp - Makes a file write or a file read fail -------===//
//
// Preloaded into a tool run by the tests. FAIL_CALL names the call that fails with an
// I/O error for a file whose name ends in ".part" (a file written beside its target)
// and holds the text FAIL_NAME: "fsync" (the flush to the disk), "close" (the file is
// closed all the same) or "rename". Reads are made to fail for a file whose name
// (a named pipe's too) holds FAIL_NAME, from its byte FAIL_OFFSET on: FAIL_CALL
// "read" fails them with an I/O error; "shrink" cuts the file there, as another
// program writing it would, and lets the read go on. Other files and calls are left
// alone.
//
//===----------------------------------------------------------------------------===//

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <string>
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

/// The name of the file open under the descriptor; empty if there is none.
std::string fileName(int descriptor) {
  char link[64], name[PATH_MAX + 1];
  snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
  ssize_t length = readlink(link, name, PATH_MAX);
  return std::string(name, size_t(std::max<ssize_t>(length, 0)));
}

bool isChosenFile(int descriptor) {
  return isChosenFile(fileName(descriptor).c_str());
}

/// Bytes read so far from each descriptor that cannot seek (a pipe).
long long pipeBytes[1024];

/// Where the next read of the descriptor starts in its file, or in its stream for a
/// pipe (whose bytes are counted here: `pipe` says which it is).
long long readOffset(int descriptor, bool &pipe) {
  off_t offset = lseek(descriptor, 0, SEEK_CUR);
  pipe = offset < 0 && descriptor >= 0 && descriptor < 1024;
  return pipe ? pipeBytes[descriptor] : offset;
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

extern "C" ssize_t read(int descriptor, void *buffer, size_t count) {
  static auto real = next<ssize_t (*)(int, void *, size_t)>("read");
  bool fails = failing("read"), shrinks = failing("shrink");
  const char *chosen = getenv("FAIL_NAME");
  if (!(fails || shrinks) || !chosen || fileName(descriptor).find(chosen) == std::string::npos)
    return real(descriptor, buffer, count);
  long long from = atoll(getenv("FAIL_OFFSET") ? getenv("FAIL_OFFSET") : "0");
  bool pipe = false;
  long long at = readOffset(descriptor, pipe);
  if (at >= from && fails) {
    errno = EIO;
    return -1;
  }
  if (at >= from && shrinks && truncate(fileName(descriptor).c_str(), from) != 0)
    return -1;
  // The bytes before the failing offset still come, as from a disk that fails there.
  if (at < from)
    count = std::min<size_t>(count, size_t(from - at));
  ssize_t result = real(descriptor, buffer, count);
  if (pipe && result > 0)
    pipeBytes[descriptor] += result;
  return result;
}

extern "C" int rename(const char *from, const char *to) {
  static auto real = next<int (*)(const char *, const char *)>("rename");
  if (failing("rename") && isChosenFile(from)) {
    errno = EIO;
    return -1;
  }
  return real(from, to);
}
