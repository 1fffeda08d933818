//===- KeptCrossings.h - Every crossing of every plane, kept for a second look -*- C++ -*-===//
//
// Measures of the particles themselves (amplitudes, cores, halos) need the crossings,
// not only their moments. Each plane's crossings are gathered in a small block of their
// own; a full block is appended to a temporary file beside the output, so that memory
// stays bounded whatever the size of the run. The file is unlinked as soon as it is
// made: it is gone when the tool ends, by an error or a signal too. After the track loop
// a plane's crossings are read back whole, in the order the plane met them, which does
// not depend on the number of threads.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_KEPTCROSSINGS_H
#define OPTICS_KEPTCROSSINGS_H

#include <QString>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

/// The numbers of a crossing that the particle measures take.
struct KeptCrossing {
  double x, ux, y, uy; ///< mm, and P/(m c) in mrad
  double weight;
  int group;         ///< the subsample of its track, 0 to SubsampleGroups - 1
  int job = 0;       ///< its run directory, counted over the files of a merge too
  double t = 0;      ///< ns
  double energy = 0; ///< kinetic, MeV
  int event = 0;     ///< of its track: jobs may use the same numbers
  int track = 0;
};

/// The subsamples the errors of the particle measures come from.
constexpr int SubsampleGroups = 20;

/// A hash of a track's event and track numbers: neighbouring tracks get unrelated ones.
uint64_t trackHash(int eventId, int trackId);

/// The subsample of a track, by its hash, so that the groups do not depend on the order
/// of the file or the number of threads.
int subsampleOf(int eventId, int trackId);

/// Hands every crossing of a plane to `take` a block at a time, in the same order on every
/// call, with the block's count and the place of its first crossing in the order the plane
/// met them: a pass over a plane too large to be read back whole.
using CrossingPass =
    std::function<void(const std::function<void(const KeptCrossing *, size_t, size_t)> &)>;

/// The crossings of a plane read back whole, as a pass of one block.
CrossingPass passOf(const std::vector<KeptCrossing> &crossings);

/// The crossings of every plane of a run.
class KeptCrossings {
public:
  /// At most this many bytes of crossings wait in memory, over all planes.
  static constexpr size_t MemoryBudget = 16 << 20;
  /// At most this many bytes of crossings read back, and of what the measures make of
  /// them, are held at once over all threads.
  static constexpr size_t ReadBackBudget = 24 << 20;
  /// The bytes a plane's crossings take read back, with what the measures make of them.
  static constexpr size_t readBackBytes(size_t crossings) {
    return crossings * (sizeof(KeptCrossing) + 48);
  }
  /// A plane read back whole holds at most this many crossings.
  static constexpr size_t MaximumPlaneCrossings = ReadBackBudget / (sizeof(KeptCrossing) + 48);

  /// Crossings of `planes` planes, spilled to a file made in `directory`; throws an
  /// OutputError when it cannot be made.
  KeptCrossings(size_t planes, const QString &directory);
  ~KeptCrossings();
  KeptCrossings(const KeptCrossings &) = delete;
  KeptCrossings &operator=(const KeptCrossings &) = delete;

  /// Keeps a crossing of a plane; one thread at a time per plane. Throws an
  /// OutputError when the file cannot take a full block.
  void add(size_t plane, const KeptCrossing &crossing);
  /// Writes the crossings still waiting to the file and gives their room back, for the
  /// planes to be read back within their own budget.
  void settle();
  /// The planes whose crossings are kept.
  size_t planeCount() const { return planes.size(); }
  /// The crossings a plane met.
  size_t count(size_t plane) const { return planes[plane].count; }
  /// Every crossing of a plane, in the order it met them; throws an InputError when the
  /// file cannot give them back.
  std::vector<KeptCrossing> crossingsOf(size_t plane) const;
  /// Passes over the crossings of a plane, a block at a time (forEachBlock's order).
  CrossingPass passesOver(size_t plane) const;
  /// Hands every crossing of a plane to `take` a block at a time, the last block first:
  /// its crossings, their count and the place of its first in the order the plane met
  /// them. A plane of any size within a block's memory; throws as crossingsOf().
  void forEachBlock(size_t plane,
                    const std::function<void(const KeptCrossing *, size_t, size_t)> &take) const;

private:
  /// What the file holds before each block of a plane's crossings: where the plane's
  /// block before lies, bytes into the file, or -1. Every block but a plane's last is full.
  using BlockHeader = int64_t;
  struct Plane {
    std::vector<KeptCrossing> waiting; ///< not yet in the file
    int64_t lastBlock = -1;            ///< where its last block lies; -1 for none
    size_t lastCount = 0;              ///< the crossings of that block
    size_t count = 0;
  };
  /// The planes' full blocks are gathered into writes of this many bytes at most: a
  /// system call per block would cost more than the block's bytes when the planes are
  /// many and their blocks small.
  static constexpr size_t StagingBytes = 1 << 20;

  std::vector<Plane> planes;
  size_t blockSize; ///< crossings a plane gathers before they go to the file
  QString directory;
  int file = -1;
  mutable std::mutex fileMutex; ///< over what is staged and where it goes
  std::vector<char> staged;     ///< blocks bound for the file from stagedFrom on
  int64_t stagedFrom = 0;       ///< the end of what the file holds

  void spill(Plane &plane);
  /// Writes what is staged to the file; under the mutex.
  void writeStaged();
  /// Copies a block that is still staged; false when it is in the file.
  bool copyStaged(int64_t offset, size_t bytes, char *header, char *data) const;
  /// Reads a block of `count` crossings from the staging or the file; returns where the
  /// plane's block before it lies.
  BlockHeader readBlock(int64_t offset, size_t count, KeptCrossing *to) const;
  /// Reads a plane's blocks, the last first: `room` says where the block of `count`
  /// crossings from `first` on goes, `take` gets them read.
  void walk(size_t plane, const std::function<KeptCrossing *(size_t first, size_t count)> &room,
            const std::function<void(const KeptCrossing *, size_t, size_t)> &take) const;
};

#endif // OPTICS_KEPTCROSSINGS_H
