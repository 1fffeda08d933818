//===- ParallelCrossings.h - The crossing tests on many threads -*- C++ -*-===//
//
// With many planes, finding the crossings costs more than reading the file. The plane
// list is then cut into groups of consecutive planes, and the moves of the tracks are
// collected in batches that a ring holds a few of at a time. Helper threads take any
// group that has batches left to test and test them, oldest first; the caller helps
// too while the ring is full. A group is tested by one thread at a time and sees the
// batches in file order, so every plane adds its crossings in the same order as on
// one thread, whatever the number of threads.
//
// A group is anything that tests moves against a range of planes: it has a Move type,
// a static move(previous, current, facts...) that makes one from two steps of a track
// and what else the caller gives of the track, handleMove(move), and
// trackStep(step, facts...), which tests a step and records it as the previous one when
// nothing is split.
//
//===----------------------------------------------------------------------------===//
#ifndef TWISS_PARALLELCROSSINGS_H
#define TWISS_PARALLELCROSSINGS_H

#include "BCSample.h"
#include "ThreadCount.h"

#include <algorithm>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

/// Feeds steps to groups of planes, on one or more threads, with the results of one.
template <typename Group> class ParallelCrossings {
public:
  /// Makes the group of the planes [first, first + count) of the plane list.
  using GroupMaker = std::function<std::unique_ptr<Group>(int first, int count)>;

  /// With fewer planes the crossings cost less than reading the file: no helper.
  static constexpr int MinimumPlanesToSplit = 64;
  /// Each group costs every move a test of its bounds, so a group has at least this
  /// many planes.
  static constexpr int MinimumGroupPlanes = 8;
  /// Groups per thread that can run at once (at least eight groups): a thread that
  /// finishes early finds another group to take.
  static constexpr int GroupsPerThread = 2;
  static constexpr int MinimumGroups = 8;
  /// Batches the ring holds: the caller runs this far ahead of the slowest group, so a
  /// helper that waits for a processor while it holds a group seldom stops the caller.
  static constexpr int BatchesInFlight = 16;
  /// Moves in a batch.
  static constexpr size_t DefaultBatchSize = 4096;

  /// The groups that `planes` planes are cut into for `threads` threads on
  /// `processors` processors. Threads beyond the processors add no groups: each group
  /// costs every move a test of its bounds, and they would not run at once anyway.
  static int groupCount(int planes, int threads, int processors) {
    int running = std::min(threads, processors);
    return std::min(std::max(MinimumGroups, GroupsPerThread * running),
                    planes / MinimumGroupPlanes);
  }

  /// Tests the moves against `planes` planes on `threads` threads (the caller and
  /// threads - 1 helpers, no more than there are groups); one thread, or fewer than
  /// MinimumPlanesToSplit planes, keeps everything on the caller's thread.
  ParallelCrossings(int planes, int threads, const GroupMaker &makeGroup,
                    size_t batchSize = DefaultBatchSize)
      : batchSize(batchSize) {
    if (threads <= 1 || planes < MinimumPlanesToSplit) {
      all = makeGroup(0, planes);
      return;
    }
    processors = processorCount();
    int count = groupCount(planes, threads, processors);
    for (int g = 0; g < count; ++g) {
      int first = planes * g / count, last = planes * (g + 1) / count;
      groups.push_back(makeGroup(first, last - first));
    }
    progress.resize(size_t(count));
    ring.resize(BatchesInFlight);
    filling.reserve(batchSize);
    // A thread more than there are groups would find nothing to take.
    int helperCount = std::min(threads, count) - 1;
    for (int h = 0; h < helperCount; ++h)
      helpers.emplace_back([this, h, helperCount, count] { help(count * h / helperCount); });
  }

  /// Tests the moves still collected and waits for the helpers.
  ~ParallelCrossings() {
    if (all)
      return;
    if (!filling.empty())
      handOver();
    std::unique_lock<std::mutex> lock(mutex);
    testWhile(
        lock, progressMade, [this] { return released < published; }, int(groups.size()) - 1);
    stopping = true;
    lock.unlock();
    newBatch.notify_all();
    for (std::thread &helper : helpers)
      helper.join();
  }

  /// Offers the step to the planes, then records it as the previous step; what else
  /// of the track the group needs (its number, say) travels with the move.
  template <typename... Facts> void trackStep(Step &step, const Facts &...facts) {
    if (all) {
      all->trackStep(step, facts...);
      return;
    }
    if (!BCSample::firstStep) {
      filling.push_back(Group::move(BCSample::previous, step, facts...));
      if (filling.size() == batchSize)
        handOver();
    }
    BCSample::rememberStep(step);
  }

private:
  using Move = typename Group::Move;

  /// How far a group has come, under the mutex.
  struct GroupProgress {
    long tested = 0;    ///< batches tested against the group
    bool taken = false; ///< a thread is testing it now
  };

  const size_t batchSize;
  std::unique_ptr<Group> all; ///< every plane, when nothing is split
  std::vector<std::unique_ptr<Group>> groups;
  std::vector<Move> filling; ///< the caller's batch
  std::vector<std::thread> helpers;

  // Shared with the helpers, under the mutex. Batch b lies in ring[b % BatchesInFlight]
  // from its hand-over until every group has tested it; nobody writes it meanwhile.
  std::mutex mutex;
  std::condition_variable newBatch;     ///< helpers wait here for batches to test
  std::condition_variable progressMade; ///< the caller waits here for groups to finish
  std::vector<std::vector<Move>> ring;
  std::vector<GroupProgress> progress;
  long published = 0; ///< batches handed over
  long released = 0;  ///< batches that every group has tested
  bool stopping = false;
  int processors = 1; ///< threads that may test groups at once
  int testers = 0;    ///< threads testing a group now

  /// Puts the caller's batch into the ring, helping while the ring is full.
  void handOver() {
    std::unique_lock<std::mutex> lock(mutex);
    testWhile(
        lock, progressMade, [this] { return published - released == BatchesInFlight; },
        int(groups.size()) - 1);
    ring[size_t(published % BatchesInFlight)].swap(filling);
    ++published;
    // One helper for each processor free to test: the others would find nothing to take.
    int idle = processors - testers;
    lock.unlock();
    for (int i = 0; i < idle; ++i)
      newBatch.notify_one();
    filling.clear();
  }

  /// The untaken group with batches left that is furthest behind, the nearest to
  /// `preferred` among equals (the one a thread had, whose planes are in its cache);
  /// -1 when there is none, or when as many threads test groups as there are
  /// processors: more would only take turns, each evicting the others' planes from the
  /// caches, and a group held by a thread that waits for a processor holds up the ring.
  int groupToTake(int preferred) const {
    if (testers == processors)
      return -1;
    int best = -1, count = int(groups.size());
    for (int i = 0; i < count; ++i) {
      int g = (preferred + i) % count;
      const GroupProgress &p = progress[size_t(g)];
      if (!p.taken && p.tested < published &&
          (best < 0 || p.tested < progress[size_t(best)].tested))
        best = g;
    }
    return best;
  }

  /// Tests groups while `waiting` holds, sleeping on `wake` when none can be taken;
  /// `preferred` is the group to keep when it has batches left.
  template <typename Condition>
  void testWhile(std::unique_lock<std::mutex> &lock, std::condition_variable &wake,
                 Condition waiting, int preferred) {
    while (waiting()) {
      int g = groupToTake(preferred);
      if (g < 0) {
        wake.wait(lock);
        continue;
      }
      testGroup(lock, g);
      preferred = g;
    }
  }

  /// Tests group g against the batches it has not seen, with the mutex released.
  void testGroup(std::unique_lock<std::mutex> &lock, int g) {
    GroupProgress &p = progress[size_t(g)];
    long from = p.tested, to = published;
    p.taken = true;
    ++testers;
    lock.unlock();
    Group &group = *groups[size_t(g)];
    for (long b = from; b < to; ++b)
      for (const Move &move : ring[size_t(b % BatchesInFlight)])
        group.handleMove(move);
    lock.lock();
    p.tested = to;
    p.taken = false;
    --testers;
    long slowest = to;
    for (const GroupProgress &q : progress)
      slowest = std::min(slowest, q.tested);
    released = slowest;
    // Only the caller waits for groups to finish; helpers wait for new batches, and the
    // thread that finishes a group goes on to the next itself.
    progressMade.notify_one();
  }

  void help(int preferred) {
    std::unique_lock<std::mutex> lock(mutex);
    testWhile(
        lock, newBatch, [this] { return !stopping; }, preferred);
  }
};

#endif // TWISS_PARALLELCROSSINGS_H
