//===- ParallelCrossings.h - The crossing tests on two threads -*- C++ -*-===//
//
// With many planes, finding the crossings costs more than reading the file. The plane
// list is then cut in two halves: the caller's thread tests its steps against the
// first half at once, and a helper thread tests the same moves, handed over in
// batches, against the second half. A plane belongs to one thread only and sees the
// moves in file order, so every sum is added in the same order as on one thread.
// With -d the debug lines of a step must come in plane order, so nothing is split.
//
//===----------------------------------------------------------------------------===//
#ifndef TWISS_PARALLELCROSSINGS_H
#define TWISS_PARALLELCROSSINGS_H

#include "CrossingSelector.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

/// Feeds steps to the planes, as CrossingSelector does, on one or two threads.
class ParallelCrossings {
public:
  explicit ParallelCrossings(const QList<BCSample *> &planes);
  /// Waits until the helper has tested every move handed to it.
  ~ParallelCrossings();
  /// Offers the step to the planes, then records it as the previous step.
  void trackStep(Step &step);

private:
  /// With fewer planes the crossings cost less than reading the file: no helper.
  static constexpr int MinimumPlanesToSplit = 64;
  static constexpr size_t BatchSize = 4096;

  struct Move {
    Nexil::Point from, to;
  };

  CrossingSelector own;
  std::unique_ptr<CrossingSelector> helped; ///< the second half, tested by the helper
  std::vector<Move> filling;                ///< moves not yet handed over

  // Shared with the helper, under the mutex.
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<Move> handedOver; ///< moves the helper has yet to test; empty when it is idle
  bool stopping = false;
  std::thread helper;

  static bool split(const QList<BCSample *> &planes);
  void handOver();
  void help();
};

#endif // TWISS_PARALLELCROSSINGS_H
