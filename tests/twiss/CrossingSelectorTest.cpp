//===- CrossingSelectorTest.cpp - Selected planes against every plane ------===//
//
// The same tracks are fed once to every plane (BCSample::trackStep), then through the
// selector and through the two-thread feed; the sums, the counts and every debug line
// must be identical.
//
//===----------------------------------------------------------------------------===//

#include "CrossingSelector.h"
#include "ParallelCrossings.h"

#include "BeamlineFixture.h"
#include "Console.h"
#include "TestSupport.h"

#include <cmath>
#include <cstring>
#include <random>

using namespace Nexil;

namespace {

struct Outcome {
  std::vector<std::string> sums;
  std::string debug;
};

std::string bits(const BCSample *p) {
  const Twiss &t = p->statistics;
  return QString::asprintf("%d %a %a %a %a n=%d", t.entries, t.sumX, t.sumX2, t.sumY, t.sumY2,
                           p->nCrossings)
      .toStdString();
}

class CrossingSelectorTest : public BeamlineFixture {
protected:
  QStringList planeTexts;
  std::vector<std::vector<Step>> tracks;

  void TearDown() override {
    dropPlanes();
    BeamlineFixture::TearDown();
  }
  void dropPlanes() {
    qDeleteAll(BCSample::samples);
    BCSample::samples.clear();
    BCSample::firstStep = true;
  }
  void makePlanes() {
    stderrOf([&] {
      for (const QString &planeText : planeTexts)
        new BCSample(planeText);
    });
  }
  enum Feed { EveryPlane, Selected, OnTwoThreads };

  template <typename TrackStep> Outcome feedTracks(bool debug, TrackStep trackStep) {
    Outcome outcome;
    Debug = debug;
    outcome.debug = stderrOf([&] {
      for (const std::vector<Step> &track : tracks) {
        BCSample::beginTrack(track[0].EventID, track[0].TrackID);
        for (Step step : track)
          trackStep(step);
        BCSample::endTrack(track[0].EventID, track[0].TrackID);
      }
    });
    Debug = false;
    return outcome;
  }
  Outcome run(Feed feed, bool debug) {
    dropPlanes();
    makePlanes();
    Outcome outcome;
    if (feed == EveryPlane) {
      outcome = feedTracks(debug, [](Step &step) { BCSample::trackStep(step); });
    } else if (feed == Selected) {
      CrossingSelector selector(BCSample::samples);
      outcome = feedTracks(debug, [&](Step &step) { selector.trackStep(step); });
    } else {
      // The helper has tested every move once the feed is destroyed.
      Debug = debug;
      ParallelCrossings<CrossingSelector> crossings(BCSample::nSamples(), debug ? 1 : 2,
                                                    CrossingSelector::groupsOf(BCSample::samples));
      outcome = feedTracks(debug, [&](Step &step) { crossings.trackStep(step); });
    }
    for (const BCSample *p : BCSample::samples)
      outcome.sums.push_back(bits(p));
    return outcome;
  }
  /// Without -d the selected planes take the shorter path that skips the columns only
  /// the debug lines show, on two threads when there are many planes; with -d they
  /// take the full one on one thread. All must match testing every plane.
  void expectSameOutcome() {
    Outcome all = run(EveryPlane, true);
    for (Feed feed : {Selected, OnTwoThreads}) {
      Outcome debugged = run(feed, true);
      EXPECT_EQ(all.sums, debugged.sums);
      EXPECT_EQ(all.debug, debugged.debug);
      Outcome quiet = run(feed, false);
      EXPECT_EQ(all.sums, quiet.sums);
      EXPECT_EQ(quiet.debug, "");
    }
    int crossings = 0;
    for (const BCSample *p : BCSample::samples)
      crossings += p->nCrossings;
    EXPECT_GT(crossings, 100);
  }
  /// Tracks that wander back and forth along the path, with steps landing exactly on
  /// planes, zero-length steps and the odd NaN.
  void wanderingTracks(unsigned seed, double length,
                       const std::function<Point(double, double, double)> &at) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> uni(0, 1);
    for (int t = 0; t < 60; ++t) {
      std::vector<Step> track;
      double s = uni(random) * length, x = (uni(random) - 0.5) * 60, y = (uni(random) - 0.5) * 60;
      for (int k = 0; k < 120; ++k) {
        double r = uni(random);
        if (r < 0.05)
          s = std::round(s / 100) * 100; // exactly on a plane of a 100 mm grid
        else if (r > 0.03 && r < 0.06)
          ; // the same position again
        else
          s += (uni(random) - 0.35) * 150;
        s = std::max(0.0, s);
        Step step;
        step.position = at(s, x + (uni(random) - 0.5) * 4, y + (uni(random) - 0.5) * 4);
        if (uni(random) < 0.01)
          step.position.x = NAN;
        step.momentum = Vector(uni(random), uni(random), 100 + uni(random));
        step.t = k;
        step.extraValue = uni(random);
        step.PDGid = 11;
        step.EventID = t / 3;
        step.TrackID = t % 3;
        step.extraID = 0;
        track.push_back(step);
      }
      tracks.push_back(track);
    }
  }
};

TEST_F(CrossingSelectorTest, straightPathWithManyPlanes) {
  BeamlineCoordinates::addSegment(new StartBCSegment(0, Transform()));
  BeamlineCoordinates::scan(nullptr, ArgHash());
  for (int i = 0; i < 300; ++i) {
    QString planeText = QString("%1mm %2mm").arg(i * 100 % 20000).arg(5 + i % 40);
    if (i % 7 == 0)
      planeText += " bothDirections=true";
    planeTexts << planeText;
  }
  planeTexts << "2000mm 100mm"
             << "2000mm 100mm bothDirections=true"
             << "2000mm 1e400mm"
             << "2500mm 0mm"
             << "3000mm -20mm";
  wanderingTracks(1, 20000, [](double s, double x, double y) { return Point(x, y, s); });
  expectSameOutcome();
}

TEST_F(CrossingSelectorTest, bentPathWithTiltedArcAndKink) {
  BeamlineCoordinates::addSegment(new StartBCSegment(0, Transform()));
  BeamlineCoordinates::addSegment(new ArcBCSegment(2, 0.5, 0.3, 4));
  BeamlineCoordinates::addSegment(new StraightBCSegment(4, 0, 0));
  BeamlineCoordinates::addSegment(new StraightBCSegment(6, 0.2, 0));
  BeamlineCoordinates::addSegment(new StraightBCSegment(6, 0, 0));
  BeamlineCoordinates::scan(nullptr, ArgHash());
  for (int i = 0; i < 90; ++i)
    planeTexts << QString("%1mm %2mm%3")
                      .arg(i * 100)
                      .arg(20 + i % 30)
                      .arg(i % 5 ? "" : " bothDirections=t");
  wanderingTracks(2, 9000, [](double s, double x, double y) {
    return BeamlineCoordinates::getTransform(s / 1000).convert("mm") * Point(x, y, 0);
  });
  expectSameOutcome();
}

TEST_F(CrossingSelectorTest, planeCountsAroundTheSwitchToTheTree) {
  // Up to 32 planes are looked at one by one; from 33 on through the tree.
  for (int count : {31, 32, 33}) {
    BeamlineFixture::reset();
    qDeleteAll(BCSample::samples);
    BCSample::samples.clear();
    planeTexts.clear();
    tracks.clear();
    BeamlineCoordinates::addSegment(new StartBCSegment(0, Transform()));
    BeamlineCoordinates::scan(nullptr, ArgHash());
    for (int i = 0; i < count; ++i)
      planeTexts << QString("%1mm %2mm").arg(100 + i * 100).arg(10 + i % 20);
    wanderingTracks(4, 3500, [](double s, double x, double y) { return Point(x, y, s); });
    SCOPED_TRACE(count);
    expectSameOutcome();
  }
}

TEST_F(CrossingSelectorTest, fewPlanesUseTheLinearScan) {
  BeamlineCoordinates::addSegment(new StartBCSegment(0, Transform()));
  BeamlineCoordinates::scan(nullptr, ArgHash());
  planeTexts << "500mm 30mm"
             << "1000mm 30mm bothDirections=true"
             << "1000mm 30mm";
  wanderingTracks(3, 1500, [](double s, double x, double y) { return Point(x, y, s); });
  expectSameOutcome();
}

} // namespace
