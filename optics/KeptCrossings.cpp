//===- KeptCrossings.cpp - Every crossing of every plane, kept for a second look ===//

#include "KeptCrossings.h"

#include "Failure.h"

#include <QDir>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/uio.h>
#include <unistd.h>

uint64_t trackHash(int eventId, int trackId) {
  // SplitMix64's finaliser of the pair.
  uint64_t z = (uint64_t(uint32_t(eventId)) << 32 | uint32_t(trackId)) + 0x9e3779b97f4a7c15ULL;
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
  return z ^ (z >> 31);
}

int subsampleOf(int eventId, int trackId) {
  return int(trackHash(eventId, trackId) % SubsampleGroups);
}

CrossingPass passOf(const std::vector<KeptCrossing> &crossings) {
  return [&crossings](const auto &take) { take(crossings.data(), crossings.size(), size_t(0)); };
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
  // Each block begins with where the plane's block before it lies: a plane keeps only
  // where its last block lies, however many it has.
  const BlockHeader header = plane.lastBlock;
  const char *head = reinterpret_cast<const char *>(&header);
  const char *data = reinterpret_cast<const char *>(plane.waiting.data());
  const size_t bytes = plane.waiting.size() * sizeof(KeptCrossing);
  {
    std::lock_guard<std::mutex> lock(fileMutex);
    if (staged.size() + sizeof header + bytes > StagingBytes)
      writeStaged();
    plane.lastBlock = stagedFrom + int64_t(staged.size());
    staged.insert(staged.end(), head, head + sizeof header);
    staged.insert(staged.end(), data, data + bytes);
  }
  plane.lastCount = plane.waiting.size();
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

bool KeptCrossings::copyStaged(int64_t offset, size_t bytes, char *header, char *data) const {
  std::lock_guard<std::mutex> lock(fileMutex);
  if (offset < stagedFrom)
    return false;
  const auto from = staged.begin() + (offset - stagedFrom);
  std::copy_n(from, sizeof(BlockHeader), header);
  std::copy_n(from + sizeof(BlockHeader), bytes, data);
  return true;
}

KeptCrossings::BlockHeader KeptCrossings::readBlock(int64_t offset, size_t count,
                                                    KeptCrossing *to) const {
  BlockHeader header;
  iovec parts[2] = {{&header, sizeof header}, {to, count * sizeof(KeptCrossing)}};
  if (copyStaged(offset, parts[1].iov_len, static_cast<char *>(parts[0].iov_base),
                 static_cast<char *>(parts[1].iov_base)))
    return header;
  for (int first = 0; first < 2;) {
    ssize_t n = preadv(file, parts + first, 2 - first, offset);
    if (n <= 0)
      throw InputError(directory + ": cannot read back the temporary file of the crossings (" +
                       QString::fromLocal8Bit(n < 0 ? strerror(errno) : "it is shorter") + ")");
    offset += n;
    for (; first < 2 && size_t(n) >= parts[first].iov_len; ++first)
      n -= ssize_t(parts[first].iov_len);
    if (first < 2) {
      parts[first].iov_base = static_cast<char *>(parts[first].iov_base) + n;
      parts[first].iov_len -= size_t(n);
    }
  }
  return header;
}

void KeptCrossings::walk(
    size_t index, const std::function<KeptCrossing *(size_t, size_t)> &room,
    const std::function<void(const KeptCrossing *, size_t, size_t)> &take) const {
  const Plane &plane = planes[index];
  // The crossings still waiting are the plane's last; each block read says where the
  // one before it lies.
  size_t end = plane.count - plane.waiting.size();
  if (!plane.waiting.empty()) {
    KeptCrossing *to = room(end, plane.waiting.size());
    std::copy(plane.waiting.begin(), plane.waiting.end(), to);
    take(to, plane.waiting.size(), end);
  }
  // Only the last block may be short (the crossings spilled when the run settled).
  for (int64_t offset = plane.lastBlock, count = int64_t(plane.lastCount); offset >= 0;
       count = int64_t(blockSize)) {
    end -= size_t(count);
    KeptCrossing *to = room(end, size_t(count));
    offset = readBlock(offset, size_t(count), to);
    take(to, size_t(count), end);
  }
}

std::vector<KeptCrossing> KeptCrossings::crossingsOf(size_t index) const {
  std::vector<KeptCrossing> crossings(planes[index].count);
  walk(
      index, [&](size_t first, size_t) { return crossings.data() + first; },
      [](const KeptCrossing *, size_t, size_t) {});
  return crossings;
}

void KeptCrossings::forEachBlock(
    size_t index, const std::function<void(const KeptCrossing *, size_t, size_t)> &take) const {
  std::vector<KeptCrossing> block;
  walk(
      index,
      [&](size_t, size_t count) {
        block.resize(count);
        return block.data();
      },
      take);
}

CrossingPass KeptCrossings::passesOver(size_t plane) const {
  return [this, plane](const std::function<void(const KeptCrossing *, size_t, size_t)> &take) {
    forEachBlock(plane, take);
  };
}
