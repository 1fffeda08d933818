//===- KeptCrossings.cpp - Every crossing of every plane, kept for a second look ===//

#include "KeptCrossings.h"

#include "Failure.h"

#include <QDir>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

int subsampleOf(int eventId, int trackId) {
  // SplitMix64's finaliser of the pair: neighbouring tracks fall in unrelated groups.
  uint64_t z = (uint64_t(uint32_t(eventId)) << 32 | uint32_t(trackId)) + 0x9e3779b97f4a7c15ULL;
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
  z ^= z >> 31;
  return int(z % SubsampleGroups);
}

KeptCrossings::KeptCrossings(size_t planeCount, const QString &directory)
    : planes(planeCount), directory(directory) {
  // Every plane may hold a whole block at once: the blocks share the budget.
  blockSize = std::clamp<size_t>(
      MemoryBudget / sizeof(KeptCrossing) / std::max<size_t>(planeCount, 1), 16, 4096);
  QByteArray name =
      QDir(directory).absoluteFilePath(".twiss-optics-crossings-XXXXXX").toLocal8Bit();
  file = mkstemp(name.data());
  if (file < 0)
    throw OutputError(directory + ": cannot make a temporary file for the crossings (" +
                      QString::fromLocal8Bit(strerror(errno)) + ")");
  unlink(name.constData());
}

KeptCrossings::~KeptCrossings() {
  close(file);
}

void KeptCrossings::add(size_t index, const KeptCrossing &crossing) {
  Plane &plane = planes[index];
  if (plane.waiting.empty())
    plane.waiting.reserve(blockSize);
  plane.waiting.push_back(crossing);
  ++plane.count;
  if (plane.waiting.size() == blockSize)
    spill(plane);
}

void KeptCrossings::spill(Plane &plane) {
  const size_t bytes = plane.waiting.size() * sizeof(KeptCrossing);
  const char *data = reinterpret_cast<const char *>(plane.waiting.data());
  {
    std::lock_guard<std::mutex> lock(fileMutex);
    if (staged.size() + bytes > StagingBytes)
      writeStaged();
    plane.segments.push_back({stagedFrom + int64_t(staged.size()), plane.waiting.size()});
    staged.insert(staged.end(), data, data + bytes);
  }
  plane.waiting.clear();
}

void KeptCrossings::writeStaged() {
  for (size_t written = 0; written < staged.size();) {
    ssize_t n = pwrite(file, staged.data() + written, staged.size() - written,
                       stagedFrom + int64_t(written));
    if (n <= 0)
      throw OutputError(directory + ": cannot write the temporary file of the crossings (" +
                        QString::fromLocal8Bit(strerror(n < 0 ? errno : ENOSPC)) + ")");
    written += size_t(n);
  }
  stagedFrom += int64_t(staged.size());
  staged.clear();
}

void KeptCrossings::settle() {
  for (Plane &plane : planes) {
    if (!plane.waiting.empty())
      spill(plane);
    std::vector<KeptCrossing>().swap(plane.waiting);
  }
  std::lock_guard<std::mutex> lock(fileMutex);
  writeStaged();
  std::vector<char>().swap(staged);
}

bool KeptCrossings::copyStaged(const Segment &segment, char *to) const {
  std::lock_guard<std::mutex> lock(fileMutex);
  if (segment.offset < stagedFrom)
    return false;
  std::copy_n(staged.begin() + (segment.offset - stagedFrom), segment.count * sizeof(KeptCrossing),
              to);
  return true;
}

void KeptCrossings::readSegment(const Segment &segment, char *to) const {
  const size_t bytes = segment.count * sizeof(KeptCrossing);
  for (size_t read = copyStaged(segment, to) ? bytes : 0; read < bytes;) {
    ssize_t n = pread(file, to + read, bytes - read, segment.offset + int64_t(read));
    if (n <= 0)
      throw InputError(directory + ": cannot read back the temporary file of the crossings (" +
                       QString::fromLocal8Bit(n < 0 ? strerror(errno) : "it is shorter") + ")");
    read += size_t(n);
  }
}

std::vector<KeptCrossing> KeptCrossings::crossingsOf(size_t index) const {
  const Plane &plane = planes[index];
  std::vector<KeptCrossing> crossings(plane.count);
  KeptCrossing *to = crossings.data();
  for (const Segment &segment : plane.segments) {
    readSegment(segment, reinterpret_cast<char *>(to));
    to += segment.count;
  }
  std::copy(plane.waiting.begin(), plane.waiting.end(), to);
  return crossings;
}

void KeptCrossings::forEachBlock(
    size_t index, const std::function<void(const KeptCrossing *, size_t)> &take) const {
  const Plane &plane = planes[index];
  std::vector<KeptCrossing> block;
  for (const Segment &segment : plane.segments) {
    block.resize(segment.count);
    readSegment(segment, reinterpret_cast<char *>(block.data()));
    take(block.data(), block.size());
  }
  if (!plane.waiting.empty())
    take(plane.waiting.data(), plane.waiting.size());
}
