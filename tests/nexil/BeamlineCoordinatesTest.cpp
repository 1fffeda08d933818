//===- BeamlineCoordinatesTest.cpp - The beamline coordinate system --------===//

#include "BeamlineCoordinates.h"

#include "BeamlineFixture.h"
#include "TestSupport.h"

#include <cmath>

using namespace Nexil;

namespace {

class BeamlineCoordinatesTest : public BeamlineFixture {
protected:
  /// Start at the origin, straight to 10, arc of 0.5 rad on radius 4, straight on.
  void buildStraightArcStraight() {
    BeamlineCoordinates::addSegment(new StartBCSegment(0, Transform()));
    BeamlineCoordinates::addSegment(new ArcBCSegment(10, 0.5, 0, 4));
    BeamlineCoordinates::addSegment(new StraightBCSegment(12, 0, 0));
    BeamlineCoordinates::scan(nullptr, ArgHash());
  }
};

TEST_F(BeamlineCoordinatesTest, earlierSegmentWinsAtASharedBoundary) {
  BeamlineCoordinates::addSegment(new StraightBCSegment(10, 0, 0));
  BeamlineCoordinates::addSegment(new StartBCSegment(0, Transform()));
  BeamlineCoordinates::scan(nullptr, ArgHash());
  ASSERT_EQ(BeamlineCoordinates::segments.size(), 2);
  BCSegment *first = BeamlineCoordinates::segments[0];
  BCSegment *second = BeamlineCoordinates::segments[1];
  EXPECT_EQ(first->s_min, 0.0); // sorted
  EXPECT_EQ(first->s_max, 10.0);
  EXPECT_EQ(second->s_max, 1e6);
  EXPECT_EQ(BeamlineCoordinates::bcSegment(10), first);
  EXPECT_EQ(BeamlineCoordinates::bcSegment(10.0000001), second);
  EXPECT_EQ(BeamlineCoordinates::initialS(), 0.0);
}

TEST_F(BeamlineCoordinatesTest, sOutsideEverySegmentDumpsAndThrows) {
  BeamlineCoordinates::addSegment(new StartBCSegment(0, Transform()));
  BeamlineCoordinates::addSegment(new StraightBCSegment(10, 0, 0));
  BeamlineCoordinates::scan(nullptr, ArgHash());
  std::string message;
  std::string err =
      stderrOf([&] { message = thrown([] { BeamlineCoordinates::bcSegment(-0.001); }); });
  EXPECT_EQ(message, "INTERNAL ERROR: No BCSegment for s=-0.001");
  EXPECT_EQ(err, "INTERNAL ERROR: No BCSegment for s=-0.001\n"
                 "segment[0]:     s_min=0.000000 s_max=10.000000 isSubdivide=F\n"
                 "             Transform: x=0 y=0 z=0\n"
                 "segment[1]:     s_min=10.000000 s_max=1000000.000000 isSubdivide=F\n"
                 "             Transform: x=0 y=0 z=10\n");
}

TEST_F(BeamlineCoordinatesTest, lookupWithoutSegmentsThrows) {
  EXPECT_EQ(thrown([] { BeamlineCoordinates::bcSegment(0); }), "INTERNAL ERROR: No BCSegments");
  EXPECT_EQ(thrown([] { BeamlineCoordinates::getTransform(0); }), "INTERNAL ERROR: No BCSegments");
}

TEST_F(BeamlineCoordinatesTest, kinkDisappearsAndTurnsThePath) {
  BeamlineCoordinates::addSegment(new StartBCSegment(0, Transform()));
  BeamlineCoordinates::addSegment(new StraightBCSegment(3, 0.1, 0));
  BeamlineCoordinates::addSegment(new StraightBCSegment(3, 0, 0));
  BeamlineCoordinates::scan(nullptr, ArgHash());
  ASSERT_EQ(BeamlineCoordinates::segments.size(), 2);
  for (BCSegment *seg : BeamlineCoordinates::segments)
    EXPECT_GE(seg->s_max - seg->s_min, BeamlineCoordinates::tolerance);
  Transform at5 = BeamlineCoordinates::getTransform(5);
  expectNear(at5.origin(), 2 * sin(0.1), 0, 3 + 2 * cos(0.1));
  expectNear(at5 * Vector(0, 0, 1), sin(0.1), 0, cos(0.1));
}

TEST_F(BeamlineCoordinatesTest, startAwayFromZeroFailsFinishing) {
  BeamlineCoordinates::addSegment(new StartBCSegment(5, Transform()));
  EXPECT_EQ(thrown([] { BeamlineCoordinates::scan(nullptr, ArgHash()); }),
            "INTERNAL ERROR: %bcstart not smallest value of s");
}

TEST_F(BeamlineCoordinatesTest, segmentPointsAndFactors) {
  buildStraightArcStraight();
  ASSERT_EQ(BeamlineCoordinates::segments.size(), 3);
  ASSERT_EQ(BeamlineCoordinates::segmentPoints.size(), 4);
  ASSERT_EQ(BeamlineCoordinates::factors.size(), 3);
  expectNear(BeamlineCoordinates::segmentPoints[0], 0, 0, 0);
  expectNear(BeamlineCoordinates::segmentPoints[1], 0, 0, 10);
  expectNear(BeamlineCoordinates::segmentPoints[2], 4 * (1 - cos(0.5)), 0, 10 + 4 * sin(0.5));
  EXPECT_NEAR(BeamlineCoordinates::factors[0], 1.0, 1e-15);
  double chord = 2 * 4 * sin(0.25);
  EXPECT_NEAR(BeamlineCoordinates::factors[1], 2 / chord, 1e-12);
  EXPECT_EQ(BeamlineCoordinates::factors[2], 1.0);
}

TEST_F(BeamlineCoordinatesTest, straightPathMovesAlongTheStartFrame) {
  Transform start(Point(1, 2, 3), Vector(1, 2, 3), 0.7);
  BeamlineCoordinates::addSegment(new StartBCSegment(0, start));
  BeamlineCoordinates::scan(nullptr, ArgHash());
  for (double s : {0.0, 0.5, 17.25, 1000.0, 999999.0}) {
    Point expected = start * Point(0, 0, s);
    expectNear(BeamlineCoordinates::getTransform(s).origin(), expected.x, expected.y, expected.z,
               1e-12 * std::max(1.0, s));
  }
}

TEST_F(BeamlineCoordinatesTest, global2BCOnAndBesideTheStraights) {
  buildStraightArcStraight();
  for (double s : {0.5, 4.0, 9.5, 12.5, 20.0, 100.0}) {
    for (auto xy :
         {std::make_pair(0.0, 0.0), std::make_pair(1.0, 0.0), std::make_pair(-0.3, 0.7)}) {
      Point global = BeamlineCoordinates::getTransform(s) * Point(xy.first, xy.second, 0);
      Point bc = BeamlineCoordinates::global2BC(global);
      expectNear(bc, xy.first, xy.second, s, 1e-9);
    }
  }
}

TEST_F(BeamlineCoordinatesTest, global2BCInsideAnArcInterpolatesBetweenItsEndPlanes) {
  buildStraightArcStraight();
  // At the middle of the arc the interpolation between the distances from the start
  // and end planes is exact by symmetry.
  Point onPath = BeamlineCoordinates::getTransform(11).origin();
  expectNear(BeamlineCoordinates::global2BC(onPath), 0, 0, 11, 1e-9);
  // Elsewhere it is the linear interpolation of those distances, as written.
  Point p = BeamlineCoordinates::getTransform(10.5).origin();
  BCSegment *arc = BeamlineCoordinates::segments[1];
  double d0 = arc->startLine.direction.dot(p - arc->startLine.point);
  double d1 = std::min(0.0, arc->endLine.direction.dot(p - arc->endLine.point));
  double s = 10 + (d0 / (d0 - d1)) * 2;
  Point bc = BeamlineCoordinates::global2BC(p);
  EXPECT_NEAR(bc.z, s, 1e-12);
  EXPECT_NE(bc.z, 10.5);
}

TEST_F(BeamlineCoordinatesTest, global2BCBehindEveryStartPlaneIsTakenAtZero) {
  buildStraightArcStraight();
  Point bc = BeamlineCoordinates::global2BC(Point(0.5, 0.25, -3));
  expectNear(bc, 0.5, 0.25, 0);
}

TEST_F(BeamlineCoordinatesTest, global2BCTakesCandidatesUpToAMillionAway) {
  // A straight path along z: a point half a million to the side at s = 10 is still found
  // there; at two million every candidate is too far, and s = 0 is taken.
  BeamlineCoordinates::addSegment(new StartBCSegment(0, Transform()));
  BeamlineCoordinates::scan(nullptr, ArgHash());
  expectNear(BeamlineCoordinates::global2BC(Point(5e5, 0, 10)), 5e5, 0, 10);
  expectNear(BeamlineCoordinates::global2BC(Point(0, -9.99e5, 10)), 0, -9.99e5, 10);
  expectNear(BeamlineCoordinates::global2BC(Point(2e6, 0, 10)), 2e6, 0, 0);
}

TEST_F(BeamlineCoordinatesTest, closestSOfALineParallelToEveryChordIsZero) {
  BeamlineCoordinates::addSegment(new StartBCSegment(0, Transform()));
  BeamlineCoordinates::scan(nullptr, ArgHash());
  EXPECT_EQ(BeamlineCoordinates::getClosestS(Line(Point(1, 0, 0), Vector(0, 0, 1))), 0.0);
}

TEST_F(BeamlineCoordinatesTest, closestSOfAPerpendicularLine) {
  buildStraightArcStraight();
  for (double s : {2.0, 7.5, 10.8, 11.6, 30.0}) {
    Transform t = BeamlineCoordinates::getTransform(s);
    Line line(t.origin(), t * Vector(1, 0, 0));
    // The chord-projection formula, computed here.
    double expected = 0, best = 1e6;
    const QList<Point> &points = BeamlineCoordinates::segmentPoints;
    for (int i = 0; i + 1 < points.size(); ++i) {
      Vector d = line.direction;
      d.normalize();
      Vector u = points[i + 1] - points[i];
      u.normalize();
      Vector w = line.point - points[i];
      double c = u.dot(d);
      if (fabs(c) > 0.99)
        continue;
      double along = (w.dot(u) - w.dot(d) * c) / (1 - c * c);
      BCSegment *seg = BeamlineCoordinates::segments[i];
      double candidate =
          std::clamp(along * BeamlineCoordinates::factors[i] + seg->s_min, seg->s_min, seg->s_max);
      double dist = line.distanceToPoint(BeamlineCoordinates::getTransform(candidate).origin());
      if (dist < best) {
        best = dist;
        expected = candidate;
      }
    }
    EXPECT_EQ(BeamlineCoordinates::getClosestS(line), expected) << s;
    if (s < 10 || s > 12) {
      EXPECT_NEAR(expected, s, 1e-9);
    }
  }
}

TEST_F(BeamlineCoordinatesTest, continuousChainOfEveryKindOfSegment) {
  BeamlineCoordinates::addSegment(
      new StartBCSegment(0, Transform(Point(1, -2, 0.5), Vector(0, 1, 0), 0.3)));
  BeamlineCoordinates::addSegment(new StraightBCSegment(2, 0.2, 0)); // kink
  BeamlineCoordinates::addSegment(new StraightBCSegment(2, 0, 0));
  BeamlineCoordinates::addSegment(new ArcBCSegment(4, 0.6, 30 * Pi / 180, 3));
  BeamlineCoordinates::addSegment(new StraightBCSegment(5.8, 0, 0));
  BeamlineCoordinates::addSegment(new ArcBCSegment(7, -0.4, 0, 2));
  BeamlineCoordinates::addSegment(new StraightBCSegment(7.8, 0, 0));
  BeamlineCoordinates::scan(nullptr, ArgHash());
  QList<BCSegment *> &segs = BeamlineCoordinates::segments;
  ASSERT_EQ(segs.size(), 6);
  for (int i = 0; i + 1 < segs.size(); ++i) {
    double s = segs[i + 1]->s_min;
    Transform before = segs[i]->getTransform(s);
    Transform after = segs[i + 1]->getTransform(s);
    Point a = before.origin(), b = after.origin();
    EXPECT_NEAR(a.distanceTo(b), 0, 1e-9) << i;
    Vector da = before * Vector(0, 0, 1), db = after * Vector(0, 0, 1);
    double turned = acos(std::min(1.0, da.dot(db)));
    EXPECT_NEAR(turned, i == 0 ? 0.2 : 0.0, 1e-7) << i; // only the kink turns
  }
}

TEST_F(BeamlineCoordinatesTest, tiltedArcEndPoint) {
  for (double degrees : {90.0, 30.0}) {
    reset();
    double phi = degrees * Pi / 180, a = 0.5, R = 4;
    BeamlineCoordinates::addSegment(new StartBCSegment(0, Transform()));
    BeamlineCoordinates::addSegment(new ArcBCSegment(1, a, phi, R));
    BeamlineCoordinates::addSegment(new StraightBCSegment(1 + a * R, 0, 0));
    BeamlineCoordinates::scan(nullptr, ArgHash());
    Transform end = BeamlineCoordinates::segments[1]->getTransform(1 + a * R);
    double x = R * (1 - cos(a)), z = R * sin(a);
    expectNear(end.origin(), x * cos(phi), x * sin(phi), 1 + z);
    Transform turn(Point(), Vector(-sin(phi), cos(phi), 0), a);
    for (int i = 0; i < 12; ++i)
      EXPECT_NEAR(end.m[i], turn.m[i], 1e-12) << degrees;
  }
}

TEST_F(BeamlineCoordinatesTest, cmdlinesAppendTheStartWhenMissing) {
  buildStraightArcStraight();
  BeamlineCoordinates::segments[0]->cmdline = "%bcstart x=0 s=2";
  BeamlineCoordinates::segments[1]->cmdline = "s=2 %bcbend radius=4 angle=0.5";
  BeamlineCoordinates::segments[2]->cmdline = "%extra";
  BeamlineCoordinates::segments[2]->isSubdivide = true;
  EXPECT_EQ(BeamlineCoordinates::getCmdlines(),
            QStringList({"%bcstart x=0 s=2", "s=2 %bcbend radius=4 angle=0.5 s=10m"}));
}

TEST_F(BeamlineCoordinatesTest, consoleDumpPrintsCommandLinesThenSegments) {
  buildStraightArcStraight();
  BeamlineCoordinates::segments[1]->cmdline = "%bcbend radius=4 angle=0.5";
  BeamlineCoordinates::segments[2]->isSubdivide = true;
  std::string err = stderrOf([] { BeamlineCoordinates::write("-"); });
  EXPECT_EQ(err, "%bcbend radius=4 angle=0.5 s=10m\n"
                 "segment[0]:     s_min=0.000000 s_max=10.000000 isSubdivide=F\n"
                 "             Transform: x=0 y=0 z=0\n"
                 "segment[1]: arc s_min=10.000000 s_max=12.000000 isSubdivide=F\n"
                 "             Transform: x=0 y=0 z=10\n"
                 "segment[2]:     s_min=12.000000 s_max=1000000.000000 isSubdivide=T\n"
                 "             Transform: x=0.489669752439 y=0 z=11.9177021544 "
                 "rotation=A0.000000,1.000000,0.000000,28.647890\n");
}

TEST_F(BeamlineCoordinatesTest, emptySystemWritesNothing) {
  QTemporaryDir dir;
  std::string err = stderrOf([&] {
    BeamlineCoordinates::write("-");
    BeamlineCoordinates::write(dir.path() + "/coordinates.txt");
  });
  EXPECT_EQ(err, "");
  EXPECT_FALSE(fileExists(dir.path() + "/coordinates.txt"));
}

TEST(BeamlineCoordinatesDeathTest, global2BCAndClosestSNeedSegments) {
  EXPECT_DEATH(BeamlineCoordinates::global2BC(Point()), "segments.size\\(\\) > 0");
  EXPECT_DEATH(BeamlineCoordinates::getClosestS(Line(Point(), Vector(1, 0, 0))),
               "segments.size\\(\\) > 0");
}

TEST(BeamlineCoordinatesDeathTest, finishingAnEmptyListStops) {
  EXPECT_DEATH(BeamlineCoordinates::scan(nullptr, ArgHash()), "index out of range");
}

} // namespace
