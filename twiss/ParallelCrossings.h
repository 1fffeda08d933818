//===- ParallelCrossings.h - The crossing tests on two threads -*- C++ -*-===//
//
// With many planes, finding the crossings costs more than reading the file. The plane
// list is then cut into groups of consecutive planes, and the moves of the tracks are
// collected in batches. While the caller collects the next batch, a helper thread
// tests the last one against the groups, one group at a time; the caller takes the
// groups still untested once its own batch is full. A group is tested by one thread
// at a time and sees the batches in file order, so every plane adds its crossings in
// the same order as on one thread. With -d the debug lines of a step must come in
// plane order, so nothing is split.
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
  /// Tests the moves still collected and waits for the helper.
  ~ParallelCrossings();
  /// Offers the step to the planes, then records it as the previous step.
  void trackStep(Step &step);

private:
  /// With fewer planes the crossings cost less than reading the file: no helper.
  static constexpr int MinimumPlanesToSplit = 64;
  static constexpr int Groups = 8;
  static constexpr size_t BatchSize = 4096;

  struct Move {
    Nexil::Point from, to;
  };

  std::unique_ptr<CrossingSelector> all; ///< every plane, when nothing is split
  std::vector<std::unique_ptr<CrossingSelector>> groups;
  std::vector<Move> filling; ///< the caller's batch

  // Shared with the helper.
  std::vector<Move> testing; ///< the batch being tested; written only when done
  std::mutex mutex;
  std::condition_variable changed;
  // Under the mutex: the groups in [untestedFront, untestedBack) are still to be taken.
  int untestedFront = Groups, untestedBack = Groups;
  int groupsDone = Groups; ///< groups of `testing` tested so far
  long batches = 0;        ///< batches handed over so far, under the mutex
  bool stopping = false;   ///< under the mutex
  std::thread helper;

  void handOver();
  /// Tests `testing` against the groups still untaken, taking them from one end.
  void testGroups(bool fromFront);
  void help();
};

#endif // TWISS_PARALLELCROSSINGS_H
