//===- TrackSource.cpp - Where the lines of a track file come from ---------===//

#include "TrackSource.h"

#include "Failure.h"
#include "InputFile.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>
#include <vector>

namespace {

/// Bytes the thread reads from the file at a time.
const qint64 ReadBytes = 256 * 1024;

/// The most a pipe is asked to hold: what the reader has not yet taken waits there.
const int PipeBytes = 1024 * 1024;

/// Bytes of a compression's magic number, at the most.
const int HeadBytes = 6;

/// Writes every byte to the descriptor; false once nobody reads the pipe any more.
bool writeAll(int descriptor, const char *data, size_t size) {
  while (size > 0) {
    ssize_t count = ::write(descriptor, data, size);
    if (count < 0 && errno == EINTR)
      continue;
    if (count <= 0)
      return false;
    data += count;
    size -= size_t(count);
  }
  return true;
}

} // namespace

TrackSource::TrackSource(const QString &path) : path(path) {
  // Unbuffered: a pipe's bytes beyond those asked for must not wait in a buffer.
  const auto mode = QIODevice::ReadOnly | QIODevice::Unbuffered;
  bool opened = path == "-" ? file.open(STDIN_FILENO, mode, QFileDevice::DontCloseHandle)
                            : (file.setFileName(path), file.open(mode));
  if (!opened)
    throw InputError(name() + ": cannot be read");
  sizeAtOpen = file.size();
  readHead();
  stored = compressionOf(head.constData(), size_t(head.size()));
  Compression named = compressionOfName(path);
  if (named != Compression::None && stored != named)
    throw InputError(name() + ": not " + compressionName(named) + " data (" +
                     (stored == Compression::None
                          ? "it does not begin as " + compressionName(named) + " data does"
                          : "it holds " + compressionName(stored) + " data") +
                     ")");
  direct = stored == Compression::None && path != "-" && !file.isSequential();
  if (direct)
    return;
  if (pipe2(pipeEnds, O_CLOEXEC) != 0)
    throw InputError(name() + ": cannot be read (" + strerror(errno) + ")");
  fcntl(pipeEnds[1], F_SETPIPE_SZ, PipeBytes); // a smaller pipe only costs more switches
  thread = std::thread([this] { pump(); });
}

TrackSource::~TrackSource() {
  // A thread still writing finds the pipe closed and stops.
  if (pipeEnds[0] >= 0)
    close(pipeEnds[0]);
  if (thread.joinable())
    thread.join();
}

QString TrackSource::name() const {
  return path == "-" ? QString("standard input") : path;
}

void TrackSource::readHead() {
  // A pipe may give fewer bytes at a time than asked for.
  head.resize(HeadBytes);
  qint64 filled = 0;
  while (filled < HeadBytes) {
    qint64 count = file.read(head.data() + filled, HeadBytes - filled);
    if (count <= 0) {
      QString failure = readEndFailure(file, sizeAtOpen);
      if (!failure.isEmpty())
        throw InputError::unreadable(name(), failure);
      break;
    }
    filled += count;
  }
  head.resize(filled);
}

std::unique_ptr<TrackReader> TrackSource::openReader(int threads) {
  if (direct)
    return std::make_unique<TrackReader>(path, TrackReader::Blocks, threads);
  // Decoding takes a processor of its own: one converting thread fewer (on two
  // processors, 500 MB of zstd data were read in 0.91 s instead of 1.36 s); copying
  // plain text costs too little to give one up.
  const bool decoding = stored != Compression::None;
  return std::make_unique<TrackReader>(pipeEnds[0], decoding ? std::max(1, threads - 1) : threads);
}

void TrackSource::pump() {
  // A write to a pipe whose reader has gone fails instead of ending the process.
  sigset_t pipeSignal;
  sigemptyset(&pipeSignal);
  sigaddset(&pipeSignal, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr);
  std::vector<char> buffer(ReadBytes);
  bool headGiven = false;
  auto input = [&](const char *&data, size_t &size) {
    if (!headGiven) {
      headGiven = true;
      if (!head.isEmpty()) {
        data = head.constData();
        size = size_t(head.size());
        taken += head.size();
        return true;
      }
    }
    qint64 count = file.read(buffer.data(), ReadBytes);
    if (count <= 0) {
      readFailure = readEndFailure(file, sizeAtOpen);
      return false;
    }
    taken += count;
    data = buffer.data();
    size = size_t(count);
    return true;
  };
  auto output = [this](const char *data, size_t size) { return writeAll(pipeEnds[1], data, size); };
  try {
    if (stored == Compression::None) {
      const char *data;
      size_t size;
      while (input(data, size) && output(data, size)) {
      }
    } else {
      decompress(stored, input, output);
    }
  } catch (const DecodeError &error) {
    decodeFailure = error.message;
  }
  // The reader sees the end of the text.
  close(pipeEnds[1]);
}

void TrackSource::checkEnd() {
  if (thread.joinable())
    thread.join();
  if (!readFailure.isEmpty())
    throw InputError::unreadable(name(), readFailure);
  if (!decodeFailure.isEmpty())
    throw InputError(name() + ": " + decodeFailure);
}
