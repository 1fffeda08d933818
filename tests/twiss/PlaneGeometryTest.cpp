//===- PlaneGeometryTest.cpp - The crossing test of one plane -------------===//

#include "PlaneGeometry.h"

#include "BeamlineFixture.h"
#include "TestSupport.h"

#include <cmath>
#include <random>

using namespace Nexil;

namespace {

const double QuarterTurn = 1.5707963267948966;

class PlaneGeometryTest : public BeamlineFixture {
protected:
  void TearDown() override {
    qDeleteAll(BCSample::samples);
    BCSample::samples.clear();
    BCSample::firstStep = true;
    BeamlineFixture::TearDown();
  }
  /// A path along z from the origin, or one whose start is turned about z.
  void startPath(double turnAboutZ = 0) {
    BeamlineCoordinates::addSegment(
        new StartBCSegment(0, Transform(Point(), Vector(0, 0, 1), turnAboutZ)));
    BeamlineCoordinates::scan(nullptr, ArgHash());
  }
  PlaneGeometry::Passage passage(const BCSample &plane, const Point &from, const Point &to) {
    double f = -1;
    Vector r;
    return PlaneGeometry(plane).passage(from, to, f, r);
  }
};

TEST_F(PlaneGeometryTest, aMoveThroughThePlaneIsCountedAtItsLocalPosition) {
  startPath();
  BCSample plane(1500, 100, false);
  PlaneGeometry geometry(plane);
  double f = -1, x = 0, y = 0;
  Vector r;
  EXPECT_EQ(geometry.passage(Point(10, 20, 1400), Point(30, -20, 1800), f, r),
            PlaneGeometry::Passage::Counted);
  EXPECT_DOUBLE_EQ(f, 0.75); // a quarter of the way from 1400 to 1800
  expectNear(r, 15, 10, 0);
  ASSERT_TRUE(geometry.crossing(Point(10, 20, 1400), Point(30, -20, 1800), x, y));
  EXPECT_DOUBLE_EQ(x, 15);
  EXPECT_DOUBLE_EQ(y, 10);
}

TEST_F(PlaneGeometryTest, aMoveThatStopsShortOrStaysBehindIsOutside) {
  startPath();
  BCSample plane(1500, 100, false);
  EXPECT_EQ(passage(plane, Point(0, 0, 1000), Point(0, 0, 1499)), PlaneGeometry::Passage::Outside);
  EXPECT_EQ(passage(plane, Point(0, 0, 1501), Point(0, 0, 2000)), PlaneGeometry::Passage::Outside);
}

TEST_F(PlaneGeometryTest, theRadiusCutHoldsOnItsCircle) {
  startPath();
  BCSample plane(1500, 100, false);
  EXPECT_EQ(passage(plane, Point(60, 80, 1400), Point(60, 80, 1600)),
            PlaneGeometry::Passage::Counted); // r = 100 exactly
  EXPECT_EQ(passage(plane, Point(60, 80.001, 1400), Point(60, 80.001, 1600)),
            PlaneGeometry::Passage::Outside);
}

TEST_F(PlaneGeometryTest, aBackwardMoveCountsOnlyOnAPlaneOfBothDirections) {
  startPath();
  BCSample oneWay(1500, 100, false), bothWays(1500, 100, true);
  double x = 0, y = 0;
  EXPECT_EQ(passage(oneWay, Point(5, 0, 1600), Point(5, 0, 1400)),
            PlaneGeometry::Passage::Backward);
  EXPECT_FALSE(PlaneGeometry(oneWay).crossing(Point(5, 0, 1600), Point(5, 0, 1400), x, y));
  EXPECT_EQ(passage(bothWays, Point(5, 0, 1600), Point(5, 0, 1400)),
            PlaneGeometry::Passage::Counted);
  ASSERT_TRUE(PlaneGeometry(bothWays).crossing(Point(5, 0, 1600), Point(5, 0, 1400), x, y));
  EXPECT_DOUBLE_EQ(x, 5);
  // Beyond the cut a backward move is outside, whatever the direction rule.
  EXPECT_EQ(passage(oneWay, Point(500, 0, 1600), Point(500, 0, 1400)),
            PlaneGeometry::Passage::Outside);
}

TEST_F(PlaneGeometryTest, localCoordinatesAreThoseOfThePlanesOwnFrame) {
  // Turned about the beam axis: the local axes are no longer the global ones. The
  // local position is checked against the placement's own axes, in global terms.
  startPath(QuarterTurn / 3);
  BCSample plane(1500, 1000, false);
  PlaneGeometry geometry(plane);
  Transform placement = BeamlineCoordinates::getTransform(1.5);
  Vector xAxis = placement * Vector(1, 0, 0), yAxis = placement * Vector(0, 1, 0);
  expectNear(xAxis, std::sqrt(0.75), 0.5, 0); // a third of a quarter turn towards +y
  std::mt19937 random(5);
  std::uniform_real_distribution<double> offset(-300, 300), before(1000, 1499), after(1501, 2000);
  for (int i = 0; i < 100; ++i) {
    Point from(offset(random), offset(random), before(random));
    Point to(offset(random), offset(random), after(random));
    double x = 0, y = 0;
    ASSERT_TRUE(geometry.crossing(from, to, x, y));
    double f = (to.z - 1500) / (to.z - from.z);
    Vector r = BCSample::mix(to, from, f) - Point(0, 0, 1500);
    EXPECT_NEAR(x, xAxis.dot(r), 1e-9);
    EXPECT_NEAR(y, yAxis.dot(r), 1e-9);
  }
}

TEST_F(PlaneGeometryTest, agreesWithThePlanesOwnStepHandling) {
  // Every move of a random walk about the plane is classified as the plane counts it.
  startPath(0.4);
  BCSample *registered = nullptr; // one of the planes that steps are fed to
  stderrOf([&] { registered = new BCSample("1500mm 150mm"); });
  BCSample &plane = *registered;
  PlaneGeometry geometry(plane);
  std::mt19937 random(11);
  std::uniform_real_distribution<double> offset(-200, 200), z(1300, 1700);
  int counted = 0;
  for (int i = 0; i < 2000; ++i) {
    Point from(offset(random), offset(random), z(random));
    Point to(offset(random), offset(random), z(random));
    double x = 0, y = 0;
    int before = plane.statistics.entries;
    double sumBefore = plane.statistics.sumX;
    Step step;
    step.position = from;
    step.EventID = 1;
    step.TrackID = i + 1;
    BCSample::beginTrack(1, i + 1);
    BCSample::trackStep(step);
    step.position = to;
    BCSample::trackStep(step);
    BCSample::endTrack(1, i + 1);
    bool crossed = geometry.crossing(from, to, x, y);
    ASSERT_EQ(plane.statistics.entries - before, crossed ? 1 : 0) << i;
    if (crossed) {
      EXPECT_NEAR(plane.statistics.sumX - sumBefore, x, 1e-9);
      ++counted;
    }
  }
  EXPECT_GT(counted, 300);
}

} // namespace
