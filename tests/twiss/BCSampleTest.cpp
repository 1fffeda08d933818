//===- BCSampleTest.cpp - Sampling planes and crossings --------------------===//

#include "BCSample.h"

#include "BeamlineFixture.h"
#include "Console.h"
#include "TestSupport.h"

#include <climits>
#include <cmath>

using namespace Nexil;

namespace {

Step stepAt(double x, double y, double z, int event = 1, int track = 1) {
  Step step;
  step.position = Point(x, y, z);
  step.momentum = Vector(0.1, 0.2, 100);
  step.t = z / 300;
  step.extraValue = 2 * z;
  step.PDGid = 11;
  step.EventID = event;
  step.TrackID = track;
  step.extraID = 7;
  return step;
}

class BCSampleTest : public BeamlineFixture {
protected:
  void SetUp() override {
    BeamlineFixture::SetUp();
    BeamlineCoordinates::addSegment(new StartBCSegment(0, Transform()));
    BeamlineCoordinates::scan(nullptr, ArgHash());
  }
  void TearDown() override {
    qDeleteAll(BCSample::samples);
    BCSample::samples.clear();
    BCSample::firstStep = true;
    BeamlineFixture::TearDown();
  }
  BCSample *plane(const QString &planeText) {
    BCSample *sample = nullptr;
    stderrOf([&] { sample = new BCSample(planeText); });
    return sample;
  }
  void track(const QList<Step> &steps) {
    BCSample::beginTrack(steps[0].EventID, steps[0].TrackID);
    for (const Step &step : steps)
      BCSample::trackStep(step);
    BCSample::endTrack(steps[0].EventID, steps[0].TrackID);
  }
};

TEST_F(BCSampleTest, planeTextGivesPositionRadiusAndPlacement) {
  BCSample *p = plane("1500mm 100mm");
  EXPECT_EQ(p->s, 1500);
  EXPECT_EQ(p->statistics.s, 1500);
  EXPECT_EQ(p->radiusCut, 100.0);
  expectNear(p->point, 0, 0, 1500);
  expectNear(p->normal, 0, 0, 1);
  EXPECT_FALSE(p->bothDirections);
  EXPECT_EQ(p->nCrossings, 0);
  EXPECT_EQ(p->previousDistance, 0.0);
  expectNear(p->transform.origin(), 0, 0, -1.5); // the coordinate system's metres
  EXPECT_EQ(BCSample::nSamples(), 1);
  EXPECT_EQ(BCSample::samples[0], p);
}

TEST_F(BCSampleTest, planeTextValuesAreExpressionsWithUnits) {
  BCSample *p = plane("1.5m+0.4mm 10cm");
  EXPECT_EQ(p->s, 1500);
  EXPECT_EQ(p->radiusCut, 100.0);
}

TEST_F(BCSampleTest, bareNumbersAreReportedAndKept) {
  BCSample *p = nullptr;
  std::string err = stderrOf([&] { p = new BCSample("1500 100"); });
  EXPECT_EQ(p->s, 1500);
  EXPECT_EQ(p->radiusCut, 100.0);
  EXPECT_EQ(bannerMessages(err),
            "Units Conversion Error from (none) to mm|Units Conversion Error from (none) to mm");
}

TEST_F(BCSampleTest, sIsRoundedByAddingAHalfAndTruncating) {
  EXPECT_EQ(plane("1499.6mm 1mm")->s, 1500);
  EXPECT_EQ(plane("1499.4mm 1mm")->s, 1499);
  EXPECT_EQ(roundedMillimetres(1499.6), 1500);
  EXPECT_EQ(roundedMillimetres(1499.5), 1500); // the bound: plus 0.5, then truncated
  EXPECT_EQ(roundedMillimetres(std::nextafter(1499.5, 0.0)), 1499);
  EXPECT_EQ(roundedMillimetres(-2.7), -2);
  EXPECT_EQ(roundedMillimetres(-0.7), 0);
  EXPECT_EQ(roundedMillimetres(2147483646.4), 2147483646);
  EXPECT_EQ(roundedMillimetres(2147483647.6), INT_MIN);
  EXPECT_EQ(roundedMillimetres(-2147483648.9), INT_MIN);
  EXPECT_EQ(roundedMillimetres(1e300), INT_MIN);
  EXPECT_EQ(roundedMillimetres(NAN), INT_MIN);
}

TEST_F(BCSampleTest, missingRadiusIsZeroAndEmptySpecIsAtZero) {
  BCSample *p = plane("2000mm");
  EXPECT_EQ(p->radiusCut, 0.0);
  BCSample *empty = plane("");
  EXPECT_EQ(empty->s, 0);
  EXPECT_EQ(empty->radiusCut, 0.0);
}

TEST_F(BCSampleTest, bothDirectionsWhenTheValueBeginsWithT) {
  EXPECT_TRUE(plane("1mm 1mm bothDirections=true")->bothDirections);
  EXPECT_TRUE(plane("1mm 1mm bothDirections=T")->bothDirections);
  EXPECT_TRUE(plane("1mm 1mm bothDirections=Tomorrow")->bothDirections);
  EXPECT_FALSE(plane("1mm 1mm bothDirections=yes")->bothDirections);
  EXPECT_FALSE(plane("1mm 1mm bothDirections=")->bothDirections);
  EXPECT_FALSE(plane("1mm 1mm bothdirections=true")->bothDirections);
}

TEST_F(BCSampleTest, perPlaneLineIsAlwaysPrinted) {
  std::string err = stderrOf([] { new BCSample("1500mm 100mm"); });
  EXPECT_EQ(err, "twiss: %bcsample 1500mm\n");
}

TEST_F(BCSampleTest, debugLinesOfAPlane) {
  Debug = true;
  std::string err = stderrOf([] { new BCSample("1500mm 100mm"); });
  Debug = false;
  EXPECT_EQ(err, "twiss: %bcsample 1500mm\n"
                 "            point=0.000mm,0.000mm,1500.000mm normal=0.0000,0.0000,1.0000\n"
                 "            radiusCut=100.000mm rotation=\n");
}

TEST_F(BCSampleTest, sOutsideThePathEndsThroughTheLookup) {
  try {
    stderrOf([] { new BCSample("-2mm 1mm"); }); // -2 + 0.5 truncates to -1
    FAIL();
  } catch (const QString &e) {
    EXPECT_EQ(e, "INTERNAL ERROR: No BCSegment for s=-0.001");
  }
}

TEST_F(BCSampleTest, forwardCrossingIsInterpolated) {
  BCSample *p = plane("1000mm 100mm");
  track({stepAt(1, 2, 900), stepAt(3, 4, 1100)});
  EXPECT_EQ(p->nCrossings, 1);
  EXPECT_EQ(p->statistics.entries, 1);
  EXPECT_EQ(p->statistics.sumX, 2.0);
  EXPECT_EQ(p->statistics.sumY, 3.0);
}

TEST_F(BCSampleTest, firstStepOfATrackNeverCrosses) {
  BCSample *p = plane("1000mm 100mm");
  track({stepAt(0, 0, 900)});
  track({stepAt(0, 0, 1100), stepAt(0, 0, 1200)});
  EXPECT_EQ(p->nCrossings, 0);
}

TEST_F(BCSampleTest, stepOnThePlaneFromTheNegativeSideIsTheCrossing) {
  BCSample *p = plane("1000mm 100mm");
  track({stepAt(1, 0, 900), stepAt(2, 0, 1000), stepAt(3, 0, 1100)});
  EXPECT_EQ(p->nCrossings, 1);
  EXPECT_EQ(p->statistics.sumX, 2.0);
  EXPECT_EQ(p->previousDistance, 100.0);
}

TEST_F(BCSampleTest, stepOnThePlaneIsStoredJustOnThePositiveSide) {
  BCSample *p = plane("1000mm 100mm");
  track({stepAt(0, 0, 1000)});
  EXPECT_EQ(p->previousDistance, 1e-9);
}

TEST_F(BCSampleTest, nearlyEqualDistancesGiveTheMidpoint) {
  BCSample *p = plane("1000mm 100mm");
  track({stepAt(1, 0, 1000 - 4e-10), stepAt(3, 0, 1000 + 4e-10)});
  ASSERT_EQ(p->nCrossings, 1);
  EXPECT_EQ(p->statistics.sumX, 2.0);
}

TEST_F(BCSampleTest, crossingAtExactlyTheRadiusIsAccepted) {
  BCSample *p = plane("1000mm 3mm");
  track({stepAt(3, 0, 999), stepAt(3, 0, 1001)});
  EXPECT_EQ(p->nCrossings, 1);
  track({stepAt(3.0001, 0, 999), stepAt(3.0001, 0, 1001)});
  EXPECT_EQ(p->nCrossings, 1);
}

TEST_F(BCSampleTest, negativeRadiusCutWorksLikeItsMagnitude) {
  BCSample *p = plane("1000mm -3mm");
  track({stepAt(2, 0, 999), stepAt(2, 0, 1001)});
  EXPECT_EQ(p->nCrossings, 1);
}

TEST_F(BCSampleTest, backwardCrossingCountsOnlyWithBothDirections) {
  BCSample *one = plane("1000mm 100mm");
  BCSample *both = plane("1000mm 100mm bothDirections=true");
  track({stepAt(0, 0, 900), stepAt(0, 0, 1100), stepAt(0, 0, 950)});
  EXPECT_EQ(one->nCrossings, 1);
  EXPECT_EQ(both->nCrossings, 2);
}

TEST_F(BCSampleTest, nanPositionNeverCrosses) {
  BCSample *p = plane("1000mm 100mm");
  track({stepAt(0, 0, 900), stepAt(NAN, 0, NAN), stepAt(0, 0, 1100)});
  EXPECT_EQ(p->nCrossings, 0);
}

TEST_F(BCSampleTest, crossingCarriesInterpolatedColumnsAndLocalMomentum) {
  BeamlineFixture::reset();
  // A start turned by 90 degrees about y: the path runs along global +x.
  BeamlineCoordinates::addSegment(
      new StartBCSegment(0, Transform(Point(), Vector(0, 1, 0), Pi / 2)));
  BeamlineCoordinates::scan(nullptr, ArgHash());
  BCSample *p = plane("1000mm 100mm");
  expectNear(p->normal, 1, 0, 0, 1e-15);
  Debug = true;
  Step a = stepAt(900, 5, 7), b = stepAt(1100, 5, 7);
  a.momentum = Vector(100, 0, 0);
  b.momentum = Vector(100, 0, 0);
  std::string err = stderrOf([&] { track({a, b}); });
  Debug = false;
  // Local x is global -z; the momentum along the path becomes local z.
  EXPECT_EQ(err, "BCSample::trackBegin EventID=1 TrackID=1\n"
                 "BCSample::calculate s=1000 pos=-7.000,5.000,0.000 mom=0.000,0.000,100.000\n"
                 "BCSample::trackEnd EventID=1 TrackID=1\n");
  EXPECT_NEAR(p->statistics.sumX, -7, 1e-12);
}

TEST_F(BCSampleTest, crossingsAreInterpolatedFromTheCurrentStepBack) {
  // Plane at z = 1000. Steps at 800 and 1050: the plane lies 50 / 250 = 0.2 of the way
  // back from the current step, so a column v becomes 0.8 v(current) + 0.2 v(previous).
  // Steps at 940 and 1140: 0.7 of the way back, 0.3 v(current) + 0.7 v(previous).
  BCSample *p = plane("1000mm 100mm");
  Step previous = stepAt(1, 10, 800), current = stepAt(6, 0, 1050);
  previous.momentum = Vector(10, 20, 100);
  current.momentum = Vector(30, -20, 200);
  Debug = true;
  std::string err = stderrOf([&] { track({previous, current}); });
  Step later = stepAt(1, 10, 940), latest = stepAt(6, 0, 1140);
  later.momentum = previous.momentum;
  latest.momentum = current.momentum;
  err += stderrOf([&] { track({later, latest}); });
  Debug = false;
  // 0.8 * 6 + 0.2 * 1 = 5, 0.2 * 10 = 2; 0.8 * 30 + 0.2 * 10 = 26, -16 + 4 = -12,
  // 160 + 20 = 180. Then 1.8 + 0.7 = 2.5, 7; 9 + 7 = 16, -6 + 14 = 8, 60 + 70 = 130.
  EXPECT_EQ(err, "BCSample::trackBegin EventID=1 TrackID=1\n"
                 "BCSample::calculate s=1000 pos=5.000,2.000,0.000 mom=26.000,-12.000,180.000\n"
                 "BCSample::trackEnd EventID=1 TrackID=1\n"
                 "BCSample::trackBegin EventID=1 TrackID=1\n"
                 "BCSample::calculate s=1000 pos=2.500,7.000,0.000 mom=16.000,8.000,130.000\n"
                 "BCSample::trackEnd EventID=1 TrackID=1\n");
  EXPECT_NEAR(p->statistics.sumX, 7.5, 1e-12);
  EXPECT_NEAR(p->statistics.sumY, 9, 1e-12);
}

TEST_F(BCSampleTest, broadcastsKeepThePreviousStep) {
  plane("1000mm 100mm");
  BCSample::beginTrack(3, 4);
  EXPECT_TRUE(BCSample::firstStep);
  BCSample::trackStep(stepAt(1, 2, 3, 3, 4));
  EXPECT_FALSE(BCSample::firstStep);
  EXPECT_EQ(BCSample::previous.position.z, 3.0);
  EXPECT_EQ(BCSample::previous.TrackID, 4);
  BCSample::endTrack(3, 4);
  EXPECT_FALSE(BCSample::firstStep); // not touched at the end of a track
}

TEST_F(BCSampleTest, resultIsTheStatisticsReport) {
  BCSample *p = plane("1500mm 100mm");
  EXPECT_EQ(p->result(), p->statistics.result());
  EXPECT_TRUE(p->result().startsWith("meanX_1500=0mm\n"));
}

} // namespace
