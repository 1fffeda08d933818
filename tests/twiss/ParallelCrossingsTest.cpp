//===- ParallelCrossingsTest.cpp - The crossing tests on many threads ------===//
//
// Random tracks through many planes, handed between the caller and the helpers in
// small batches with the groups' pace varied: every plane must see the same
// crossings, in the same order, as on one thread, whatever the number of threads.
//
//===----------------------------------------------------------------------------===//

#include "ParallelCrossings.h"
#include "BeamlineFixture.h"
#include "PlaneGeometry.h"

#include <chrono>
#include <memory>
#include <random>
#include <thread>

namespace {

/// One crossing as a plane saw it: which move made it, and where.
struct Seen {
  long move;
  double x, y;
  bool operator==(const Seen &o) const { return move == o.move && x == o.x && y == o.y; }
};

using Record = std::vector<std::vector<Seen>>; ///< per plane, in the order seen

/// A group that records what each of its planes sees, slowing down now and then.
class RecordingGroup {
public:
  struct Move {
    Nexil::Point from, to;
    long index; ///< the current step's number, carried in its time column
  };

  RecordingGroup(const QList<BCSample *> &planes, int first, Record &record, bool slow)
      : first(first), record(record), slow(slow) {
    for (const BCSample *plane : planes)
      geometry.emplace_back(*plane);
  }
  static Move move(const Step &previous, const Step &current) {
    return {previous.position, current.position, long(current.t)};
  }
  void handleMove(const Move &move) {
    // The helper's pace varies: a pause every so often, longer in some groups.
    if (slow && move.index % 97 == 0)
      std::this_thread::sleep_for(std::chrono::microseconds(20 + move.index % 50));
    for (size_t i = 0; i < geometry.size(); ++i) {
      double x, y;
      if (geometry[i].crossing(move.from, move.to, x, y))
        record[size_t(first) + i].push_back({move.index, x, y});
    }
  }
  void trackStep(Step &step) {
    if (!BCSample::firstStep)
      handleMove(move(BCSample::previous, step));
    BCSample::rememberStep(step);
  }

private:
  std::vector<PlaneGeometry> geometry;
  int first;
  Record &record;
  bool slow;
};

using Crossings = ParallelCrossings<RecordingGroup>;

class ParallelCrossingsTest : public BeamlineFixture {
protected:
  std::vector<std::unique_ptr<BCSample>> planes;
  QList<BCSample *> planeList;

  void makePlanes(int count) {
    reset();
    Nexil::BeamlineCoordinates::initFromFile(SOURCE_DIR
                                             "/examples/beamline/beamlineCoordinates.txt");
    for (int i = 0; i < count; ++i) {
      planes.push_back(std::make_unique<BCSample>(100 + 6800.0 * i / count, 60, i % 3 == 0));
      planeList.append(planes.back().get());
    }
  }

  /// Feeds random tracks; returns what every plane saw and how many groups were made.
  Record feed(int threads, size_t batchSize, int &groupsMade) {
    Record record(size_t(planeList.size()));
    groupsMade = 0;
    std::mt19937_64 random(11);
    std::normal_distribution<double> gauss(0, 1);
    {
      ParallelCrossings<RecordingGroup> crossings(
          int(planeList.size()), threads,
          [&](int first, int count) {
            ++groupsMade;
            return std::make_unique<RecordingGroup>(planeList.mid(first, count), first, record,
                                                    first % 2 == 0);
          },
          batchSize);
      long index = 0;
      for (int track = 0; track < 300; ++track) {
        BCSample::beginTrack(1, track);
        // A path near the reference, back and forth along it.
        double s = 0, x = 10 * gauss(random), y = 10 * gauss(random);
        for (int i = 0; i < 30; ++i) {
          s += 300 * gauss(random) + 150;
          Nexil::Transform frame =
              Nexil::BeamlineCoordinates::getTransform(std::min(std::max(s, 0.0), 7400.0) / 1000);
          Nexil::Point local(x + 5 * gauss(random), y + 5 * gauss(random), 0);
          Step step;
          step.position = frame.convert("mm") * local;
          step.t = double(index++);
          crossings.trackStep(step);
        }
      }
    }
    return record;
  }
};

TEST_F(ParallelCrossingsTest, smallBatchesGiveEveryPlaneTheCrossingsOfOneThread) {
  makePlanes(80);
  int groups = 0;
  Record alone = feed(1, 4096, groups);
  EXPECT_EQ(groups, 1);
  size_t crossings = 0;
  for (const auto &plane : alone)
    crossings += plane.size();
  ASSERT_GT(crossings, 5000u);
  // 9000 moves: 9000 hand-overs of one move, 1286 of seven, 141 of 64.
  for (size_t batch : {1u, 7u, 64u}) {
    Record shared = feed(2, batch, groups);
    EXPECT_EQ(groups, 8);
    for (size_t p = 0; p < alone.size(); ++p)
      ASSERT_EQ(shared[p], alone[p]) << "plane " << p << ", batches of " << batch;
  }
}

TEST_F(ParallelCrossingsTest, anyNumberOfThreadsGivesEveryPlaneTheCrossingsOfOne) {
  makePlanes(200);
  int groups = 0;
  Record alone = feed(1, 4096, groups);
  for (int threads : {2, 3, 4, 5, 7, 12, 13, 16, 64}) {
    for (size_t batch : {3u, 61u}) {
      Record shared = feed(threads, batch, groups);
      EXPECT_EQ(groups, Crossings::groupCount(200, threads, processorCount()));
      for (size_t p = 0; p < alone.size(); ++p)
        ASSERT_EQ(shared[p], alone[p])
            << "plane " << p << ", " << threads << " threads, batches of " << batch;
    }
  }
}

TEST(ParallelCrossingsGroupsTest, twoGroupsForEveryThreadThatCanRun) {
  // Two groups a running thread, at least eight, at least eight planes in each: 200
  // planes make at most 25 groups.
  const int expected[][4] = {// planes, threads, processors, groups
                             {200, 2, 2, 8},    {200, 4, 64, 8},   {200, 5, 64, 10},
                             {200, 7, 64, 14},  {200, 12, 64, 24}, {200, 13, 64, 25},
                             {200, 64, 64, 25}, {200, 64, 2, 8},   {200, 7, 5, 10},
                             {64, 16, 16, 8},   {100, 16, 16, 12}, {20000, 64, 64, 128}};
  for (const auto &e : expected)
    EXPECT_EQ(Crossings::groupCount(e[0], e[1], e[2]), e[3])
        << e[0] << " planes, " << e[1] << " threads, " << e[2] << " processors";
}

TEST_F(ParallelCrossingsTest, planesAreSplitFromSixtyFourOn) {
  for (int count : {63, 64, 65}) {
    planes.clear();
    planeList.clear();
    makePlanes(count);
    int groups = 0;
    Record alone = feed(1, 16, groups);
    Record shared = feed(2, 16, groups);
    EXPECT_EQ(groups, count < 64 ? 1 : 8) << count << " planes";
    EXPECT_EQ(shared, alone) << count << " planes";
  }
}

} // namespace
