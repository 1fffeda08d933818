//===- ParallelCrossings.h - The crossing tests on two threads -*- C++ -*-===//
//
// With many planes, finding the crossings costs more than reading the file. The plane
// list is then cut into groups of consecutive planes, and the moves of the tracks are
// collected in batches. While the caller collects the next batch, a helper thread
// tests the last one against the groups, one group at a time; the caller takes the
// groups still untested once its own batch is full. A group is tested by one thread
// at a time and sees the batches in file order, so every plane adds its crossings in
// the same order as on one thread.
//
// A group is anything that tests moves against a range of planes: it has a Move type,
// a static move(previous, current) that makes one from two steps of a track,
// handleMove(move), and trackStep(step), which tests a step and records it as the
// previous one when nothing is split.
//
//===----------------------------------------------------------------------------===//
#ifndef TWISS_PARALLELCROSSINGS_H
#define TWISS_PARALLELCROSSINGS_H

#include "BCSample.h"

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

/// Feeds steps to groups of planes, on one or two threads, with the results of one.
template <typename Group> class ParallelCrossings {
public:
  /// Makes the group of the planes [first, first + count) of the plane list.
  using GroupMaker = std::function<std::unique_ptr<Group>(int first, int count)>;

  /// With fewer planes the crossings cost less than reading the file: no helper.
  static constexpr int MinimumPlanesToSplit = 64;
  static constexpr int Groups = 8;

  /// Moves handed to the helper at a time.
  static constexpr size_t DefaultBatchSize = 4096;

  /// Splits `planes` planes into groups when there are enough of them and `mayShare`;
  /// the moves go to the helper `batchSize` at a time.
  ParallelCrossings(int planes, bool mayShare, const GroupMaker &makeGroup,
                    size_t batchSize = DefaultBatchSize)
      : batchSize(batchSize) {
    if (!mayShare || planes < MinimumPlanesToSplit) {
      all = makeGroup(0, planes);
      return;
    }
    for (int g = 0; g < Groups; ++g) {
      int first = planes * g / Groups, last = planes * (g + 1) / Groups;
      groups.push_back(makeGroup(first, last - first));
    }
    filling.reserve(batchSize);
    testing.reserve(batchSize);
    helper = std::thread([this] { help(); });
  }

  /// Tests the moves still collected and waits for the helper.
  ~ParallelCrossings() {
    if (all)
      return;
    handOver();
    testGroups(false);
    {
      std::unique_lock<std::mutex> lock(mutex);
      changed.wait(lock, [this] { return groupsDone == Groups; });
      stopping = true;
    }
    changed.notify_all();
    helper.join();
  }

  /// Offers the step to the planes, then records it as the previous step.
  void trackStep(Step &step) {
    if (all) {
      all->trackStep(step);
      return;
    }
    if (!BCSample::firstStep) {
      filling.push_back(Group::move(BCSample::previous, step));
      if (filling.size() == batchSize)
        handOver();
    }
    BCSample::rememberStep(step);
  }

private:
  using Move = typename Group::Move;

  const size_t batchSize;
  std::unique_ptr<Group> all; ///< every plane, when nothing is split
  std::vector<std::unique_ptr<Group>> groups;
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

  void handOver() {
    testGroups(false); // the caller is ahead: it helps with the batch still being tested
    {
      std::unique_lock<std::mutex> lock(mutex);
      changed.wait(lock, [this] { return groupsDone == Groups; });
      testing.swap(filling);
      groupsDone = 0;
      untestedFront = 0;
      untestedBack = Groups;
      ++batches;
    }
    changed.notify_all();
    filling.clear();
  }

  /// Tests `testing` against the groups still untaken, taking them from one end.
  void testGroups(bool fromFront) {
    // The helper takes the groups from the front and the caller from the back, so that
    // a group's planes usually stay in the cache of the same processor.
    for (;;) {
      int g;
      {
        std::lock_guard<std::mutex> lock(mutex);
        if (untestedFront == untestedBack)
          return;
        g = fromFront ? untestedFront++ : --untestedBack;
      }
      Group &group = *groups[size_t(g)];
      for (const Move &move : testing)
        group.handleMove(move);
      std::lock_guard<std::mutex> lock(mutex);
      if (++groupsDone == Groups)
        changed.notify_all();
    }
  }

  void help() {
    long seen = 0;
    for (;;) {
      {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [&] { return stopping || batches > seen; });
        if (batches == seen)
          return;
        seen = batches;
      }
      testGroups(true);
    }
  }
};

#endif // TWISS_PARALLELCROSSINGS_H
