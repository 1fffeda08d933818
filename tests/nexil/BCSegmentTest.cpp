//===- BCSegmentTest.cpp - Pieces of the reference path --------------------===//

#include "BCSegment.h"

#include "BeamlineFixture.h"
#include "TestSupport.h"

#include <cmath>

using namespace Nexil;

namespace {

using BCSegmentTest = BeamlineFixture;

TEST_F(BCSegmentTest, newSegmentIsIncomplete) {
  StraightBCSegment seg(2, 0, 0);
  EXPECT_EQ(seg.s_min, 2.0);
  EXPECT_EQ(seg.s_max, 1e6);
  EXPECT_TRUE(seg.transform.isIdentity());
  EXPECT_EQ(seg.cmdline, "");
  EXPECT_FALSE(seg.isSubdivide);
}

TEST_F(BCSegmentTest, straightContinuesFromPrevWithoutOffset) {
  Transform prev(Point(1, 2, 3), Vector(1, 1, 0), 0.4);
  StraightBCSegment seg(2, 0, 0);
  Transform end = seg.complete(7, prev);
  expectSameTransform(seg.getTransform(5), prev * Transform::translate(0, 0, 3));
  expectSameTransform(end, prev * Transform::translate(0, 0, 5));
  expectSameTransform(seg.getTransform(2), prev);
  expectNear(seg.startLine.point, 1, 2, 3);
  Vector forward = prev * Vector(0, 0, 1);
  expectNear(seg.startLine.direction, forward.x, forward.y, forward.z);
  expectNear(seg.endLine.point, end.origin().x, end.origin().y, end.origin().z);
}

TEST_F(BCSegmentTest, straightBoundsAreInclusiveWithoutTolerance) {
  StraightBCSegment seg(2, 0, 0);
  seg.complete(7, Transform());
  EXPECT_NO_THROW(seg.getTransform(2));
  EXPECT_NO_THROW(seg.getTransform(7));
  EXPECT_EQ(thrown([&] { seg.getTransform(std::nextafter(2.0, 0.0)); }),
            "INTERNAL ERROR: StraightBCSegment invalid s");
  EXPECT_EQ(thrown([&] { seg.getTransform(std::nextafter(7.0, 8.0)); }),
            "INTERNAL ERROR: StraightBCSegment invalid s");
}

TEST_F(BCSegmentTest, arcBoundsAreInclusiveWithoutTolerance) {
  ArcBCSegment arc(10, 0.5, 0, 5);
  arc.complete(12.5, Transform());
  EXPECT_NO_THROW(arc.getTransform(10));
  EXPECT_NO_THROW(arc.getTransform(12.5));
  EXPECT_EQ(thrown([&] { arc.getTransform(std::nextafter(10.0, 0.0)); }),
            "INTERNAL ERROR: s out of bounds in ArcBCSegment");
  EXPECT_EQ(thrown([&] { arc.getTransform(std::nextafter(12.5, 13.0)); }),
            "INTERNAL ERROR: s out of bounds in ArcBCSegment");
}

TEST_F(BCSegmentTest, quarterArcEndsSidewaysAndTurned) {
  const double R = 2;
  ArcBCSegment left(0, Pi / 2, 0, R);
  Transform end = left.complete(Pi / 2 * R, Transform());
  expectNear(end.origin(), R, 0, R);
  expectNear(end * Vector(0, 0, 1), 1, 0, 0);
  expectNear(end * Vector(0, 1, 0), 0, 1, 0);

  ArcBCSegment right(0, -Pi / 2, 0, R);
  end = right.complete(Pi / 2 * R, Transform());
  expectNear(end.origin(), -R, 0, R);
  expectNear(end * Vector(0, 0, 1), -1, 0, 0);
}

TEST_F(BCSegmentTest, arcEndPointsForAnyAngle) {
  for (double a : {0.1, 0.5, 1.0, 2.5, -0.1, -0.7, -2.0}) {
    const double R = 3.5;
    ArcBCSegment arc(1, a, 0, R);
    Transform end = arc.complete(1 + fabs(a) * R, Transform());
    double sign = a < 0 ? -1 : 1;
    expectNear(end.origin(), sign * R * (1 - cos(fabs(a))), 0, R * sin(fabs(a)), 1e-12);
    // The frame turns by a about local y.
    Transform expected(Point(), Vector(0, 1, 0), a);
    for (int i = 0; i < 12; ++i)
      EXPECT_NEAR(end.m[i], expected.m[i], 1e-12) << a;
  }
}

TEST_F(BCSegmentTest, arcLengthComesFromTheSegmentNotTheAngle) {
  ArcBCSegment arc(0, 1.0, 0, 2);
  arc.complete(2, Transform());
  // Halfway along the length the angle turned is 0.5 rad.
  Transform mid = arc.getTransform(1);
  expectNear(mid.origin(), 2 * (1 - cos(0.5)), 0, 2 * sin(0.5));
}

TEST_F(BCSegmentTest, tiltedArcBendsTowardsY) {
  ArcBCSegment arc(0, Pi / 2, Pi / 2, 1);
  Transform end = arc.complete(Pi / 2, Transform());
  expectNear(end.origin(), 0, 1, 1);
  expectNear(end * Vector(0, 0, 1), 0, 1, 0);
  // The untilt leaves the transverse axes as they were, apart from the bend.
  expectNear(end * Vector(1, 0, 0), 1, 0, 0);
}

TEST_F(BCSegmentTest, tiltAbove360LeavesTheFrameTurnedByTheTilt) {
  const double tilt = 361;
  ArcBCSegment arc(0, 0.5, tilt, 2);
  EXPECT_TRUE(arc.untiltTransform.isIdentity());
  Transform end = arc.complete(1, Transform());
  ArcBCSegment plain(0, 0.5, 0, 2);
  Transform plainEnd = plain.complete(1, Transform());
  Transform tiltT(Point(), Vector(0, 0, 1), tilt);
  expectSameTransform(end, tiltT * plainEnd, 1e-12);
}

TEST_F(BCSegmentTest, tiltAtMost360IsUndone) {
  ArcBCSegment arc(0, 0.5, 300, 2);
  expectSameTransform(arc.untiltTransform, arc.tiltTransform.inverse());
}

TEST_F(BCSegmentTest, arcTiltIsUndoneUpToExactly360) {
  // 360 is compared with a tilt in radians: 360 rad is 57.3 turns, a real rotation.
  ArcBCSegment atBound(0, 0.5, 360, 2);
  expectSameTransform(atBound.untiltTransform, atBound.tiltTransform.inverse());
  EXPECT_FALSE(atBound.untiltTransform.isIdentity());
  ArcBCSegment below(0, 0.5, std::nextafter(360.0, 0.0), 2);
  EXPECT_FALSE(below.untiltTransform.isIdentity());
  ArcBCSegment above(0, 0.5, std::nextafter(360.0, 400.0), 2);
  EXPECT_TRUE(above.untiltTransform.isIdentity());
  ArcBCSegment negative(0, 0.5, -360, 2);
  EXPECT_FALSE(negative.untiltTransform.isIdentity());
}

TEST_F(BCSegmentTest, kinkTiltIsUndoneUpToExactlyTwoPi) {
  // A kink about an axis in the x-y plane leaves the x-y block of its rotation
  // symmetric. Undoing a tilt of 2 pi turns the frame about z by the rounding of
  // sin(2 pi) (2.4e-16), which breaks that symmetry: so it shows up to the bound
  // exactly, and not one step beyond it.
  auto symmetric = [](double tilt) {
    Transform out = StraightBCSegment(0, 0.3, tilt).complete(0, Transform());
    return out.m[1] == out.m[4];
  };
  EXPECT_FALSE(symmetric(std::nextafter(2 * Pi, 0.0)));
  EXPECT_FALSE(symmetric(2 * Pi));
  EXPECT_FALSE(symmetric(-2 * Pi));
  EXPECT_TRUE(symmetric(std::nextafter(2 * Pi, 7.0)));
  EXPECT_TRUE(symmetric(std::nextafter(-2 * Pi, -7.0)));
}

TEST_F(BCSegmentTest, arcClosingWithinTheToleranceCompletes) {
  for (double end : {12.5000009, 12.4999991, 12.5}) {
    ArcBCSegment arc(10, 0.5, 0, 5);
    std::string err = stderrOf([&] { EXPECT_NO_THROW(arc.complete(end, Transform())); });
    EXPECT_EQ(err, "");
    EXPECT_EQ(arc.s_max, end);
  }
}

TEST_F(BCSegmentTest, arcClosingOutsideTheToleranceThrows) {
  for (double end : {12.5000011, 12.4999989, 12.500002}) {
    ArcBCSegment arc(10, 0.5, 0, 5);
    std::string message;
    std::string err = stderrOf([&] { message = thrown([&] { arc.complete(end, Transform()); }); });
    EXPECT_EQ(message, "INTERNAL ERROR: Invalid overlap of Beamline Coordinate segments. "
                       "radius=5 angle=0.5");
    std::string expected =
        "ArcBCSegment Invalid Overlap\n" + QString::asprintf("s_min=10.000000 s_max=%.5f "
                                                             "s_min+angle*radius=12.500000\n",
                                                             end)
                                               .toStdString();
    EXPECT_EQ(err, expected); // no segments in the system: the dump prints nothing
  }
}

TEST_F(BCSegmentTest, overlapMessageUsesSignedAngle) {
  ArcBCSegment arc(3, -0.25, 0, 2);
  std::string message;
  stderrOf([&] { message = thrown([&] { arc.complete(4, Transform()); }); });
  EXPECT_EQ(message, "INTERNAL ERROR: Invalid overlap of Beamline Coordinate segments. "
                     "radius=2 angle=-0.25");
}

TEST_F(BCSegmentTest, kinkTurnsAboutLocalY) {
  Transform prev = Transform::translate(0, 0, 4);
  StraightBCSegment kink(3, 0.1, 0);
  Transform out = kink.complete(3, prev);
  Transform expected = prev * Transform(Point(), Vector(0, 1, 0), 0.1);
  // The kink's s_min is folded in: the frame sits at the kink's own position.
  expectSameTransform(out,
                      expected * Transform::translate(0, 0, -3) * Transform::translate(0, 0, 3));
  expectNear(out.origin(), 0, 0, 4);
}

TEST_F(BCSegmentTest, tiltedKinkIsLeftTurnedByMinusTilt) {
  StraightBCSegment kink(0, 0.3, Pi / 2);
  Transform out = kink.complete(0, Transform());
  Transform axisTurn(Point(), Vector(-1, 0, 0), 0.3); // y turned by +90 about z is -x
  Transform untilt(Point(), Vector(0, 0, 1), -Pi / 2);
  expectSameTransform(out, axisTurn * untilt);
}

TEST_F(BCSegmentTest, startIgnoresPrevAndReportsASecondStart) {
  Transform placement(Point(1, 0, 0), Vector(0, 0, 1), 0.2);
  StartBCSegment start(0, placement);
  expectSameTransform(start.transform, placement);
  Transform end;
  std::string err = stderrOf([&] { end = start.complete(5, Transform::translate(9, 9, 9)); });
  EXPECT_EQ(bannerMessages(err), "Multiple %bcstart commands");
  expectSameTransform(end, placement * Transform::translate(0, 0, 5));
  err = stderrOf([&] { start.complete(5, Transform()); });
  EXPECT_EQ(err, "");
}

TEST_F(BCSegmentTest, negativeRadiusIsReportedAndBuilt) {
  std::string err = stderrOf([] { ArcBCSegment arc(0, 1, 0, -2); });
  EXPECT_EQ(bannerMessages(err), "Invalid %bcbend command: radius < 0");
}

} // namespace
