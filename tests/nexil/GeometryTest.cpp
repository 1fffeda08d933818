//===- GeometryTest.cpp - Points, vectors, lines and rigid transforms ------===//

#include "Geometry.h"

#include <QString>
#include <cmath>
#include <gtest/gtest.h>
#include <random>

using namespace Nexil;

namespace {

void expectPointNear(const Point &p, double x, double y, double z, double tol = 1e-12) {
  EXPECT_NEAR(p.x, x, tol);
  EXPECT_NEAR(p.y, y, tol);
  EXPECT_NEAR(p.z, z, tol);
}

/// A random rigid transform built from an axis, an angle and a translation.
class RandomRigid {
public:
  explicit RandomRigid(unsigned seed) : gen(seed) {}
  Transform next() {
    Vector axis(uni(gen), uni(gen), uni(gen));
    double angle = uni(gen) * Pi;
    Point origin(uni(gen) * 1000, uni(gen) * 1000, uni(gen) * 1000);
    return Transform(origin, axis, angle);
  }
  Point point() { return Point(uni(gen) * 100, uni(gen) * 100, uni(gen) * 100); }

private:
  std::mt19937 gen;
  std::uniform_real_distribution<double> uni{-1.0, 1.0};
};

TEST(GeometryTest, defaultPointAndVectorAreZero) {
  Point p;
  Vector v;
  EXPECT_EQ(p.x, 0.0);
  EXPECT_EQ(p.y, 0.0);
  EXPECT_EQ(p.z, 0.0);
  EXPECT_EQ(v.x, 0.0);
  EXPECT_EQ(v.y, 0.0);
  EXPECT_EQ(v.z, 0.0);
}

TEST(GeometryTest, pointDistanceAndDifference) {
  EXPECT_EQ(Point(1, 2, 3).distanceTo(Point(4, 6, 3)), 5.0);
  Vector d = Point(4, 6, 3) - Point(1, 2, 3);
  EXPECT_EQ(d.x, 3.0);
  EXPECT_EQ(d.y, 4.0);
  EXPECT_EQ(d.z, 0.0);
}

TEST(GeometryTest, vectorArithmetic) {
  Vector a(1, 2, 3), b(4, 5, 6);
  Vector s = a + b;
  EXPECT_EQ(s.x, 5.0);
  EXPECT_EQ(s.y, 7.0);
  EXPECT_EQ(s.z, 9.0);
  Vector k = 2.0 * a;
  EXPECT_EQ(k.z, 6.0);
  EXPECT_EQ(a.dot(b), 32.0);
  Vector c = a.cross(b);
  EXPECT_EQ(c.x, -3.0);
  EXPECT_EQ(c.y, 6.0);
  EXPECT_EQ(c.z, -3.0);
  EXPECT_EQ(Vector(3, 4, 12).norm(), 13.0);
  Vector n(0, 3, 4);
  n.normalize();
  EXPECT_DOUBLE_EQ(n.y, 0.6);
  EXPECT_DOUBLE_EQ(n.z, 0.8);
}

TEST(GeometryTest, normalizeOfZeroVectorIsNaN) {
  Vector z;
  z.normalize();
  EXPECT_TRUE(std::isnan(z.x));
  EXPECT_TRUE(std::isnan(z.y));
  EXPECT_TRUE(std::isnan(z.z));
}

TEST(GeometryTest, lineDistanceAlongAxis) {
  Line line;
  line.direction = Vector(0, 0, 2);
  EXPECT_DOUBLE_EQ(line.distanceToPoint(Point(3, 4, 7)), 5.0);
}

TEST(GeometryTest, lineDistanceForSkewDirection) {
  // The line through (1,1,1) along (1,1,0); the point (1,1,1) + (0,0,3) + (1,-1,0) lies
  // sqrt(2) sideways and 3 above it, so its distance is sqrt(11).
  Line line(Point(1, 1, 1), Vector(1, 1, 0));
  EXPECT_NEAR(line.distanceToPoint(Point(2, 0, 4)), sqrt(11.0), 1e-12);
}

TEST(GeometryTest, turnByNinetyDegreesAboutZ) {
  Transform t(Point(10, 20, 30), Vector(0, 0, 1), Pi / 2);
  expectPointNear(t * Point(1, 0, 0), 10, 21, 30);
  Vector v = t * Vector(1, 0, 0);
  EXPECT_NEAR(v.x, 0, 1e-15);
  EXPECT_NEAR(v.y, 1, 1e-15);
  EXPECT_NEAR(v.z, 0, 1e-15);
}

TEST(GeometryTest, axisIsNormalised) {
  Transform a(Point(), Vector(0, 0, 5), 0.3);
  Transform b(Point(), Vector(0, 0, 1), 0.3);
  for (int i = 0; i < 16; ++i)
    EXPECT_DOUBLE_EQ(a.m[i], b.m[i]);
}

TEST(GeometryTest, zeroAxisGivesNaN) {
  Transform t(Point(), Vector(), 0.3);
  EXPECT_TRUE(std::isnan(t.m[0]));
}

TEST(GeometryTest, constructorFillsRowVectorLayout) {
  Transform t(Point(7, 8, 9), Vector(1, 0, 0), Pi / 2);
  // Rotation by +90 degrees about x takes y to z: row 1 is the image of (0,1,0).
  EXPECT_NEAR(t.m[4], 0, 1e-15);
  EXPECT_NEAR(t.m[5], 0, 1e-15);
  EXPECT_NEAR(t.m[6], 1, 1e-15);
  EXPECT_EQ(t.m[3], 0.0);
  EXPECT_EQ(t.m[12], 7.0);
  EXPECT_EQ(t.m[13], 8.0);
  EXPECT_EQ(t.m[14], 9.0);
  EXPECT_EQ(t.m[15], 1.0);
}

TEST(GeometryTest, compositionAppliesRightOperandFirst) {
  Transform rotate(Point(), Vector(0, 0, 1), Pi / 2);
  Transform shift = Transform::translate(1, 0, 0);
  // rotate * shift: shift first, then turn: (0,0,0) -> (1,0,0) -> (0,1,0).
  expectPointNear((rotate * shift) * Point(0, 0, 0), 0, 1, 0);
  expectPointNear((shift * rotate) * Point(0, 0, 0), 1, 0, 0);
}

TEST(GeometryTest, compositionMatchesIndependentRotationPlusTranslation) {
  RandomRigid random(1);
  for (int n = 0; n < 200; ++n) {
    Transform a = random.next(), b = random.next();
    Point p = random.point();
    // Column-convention rotation R (R[j][i] = m[i][j]) plus translation, by hand.
    auto apply = [](const Transform &t, const Point &q) {
      double in[3] = {q.x, q.y, q.z}, out[3];
      for (int j = 0; j < 3; ++j) {
        out[j] = t.m[12 + j];
        for (int i = 0; i < 3; ++i)
          out[j] += t.m[4 * i + j] * in[i];
      }
      return Point(out[0], out[1], out[2]);
    };
    Point expected = apply(a, apply(b, p));
    Point got = (a * b) * p;
    EXPECT_NEAR(got.x, expected.x, 1e-9);
    EXPECT_NEAR(got.y, expected.y, 1e-9);
    EXPECT_NEAR(got.z, expected.z, 1e-9);
    Point nested = a * (b * p);
    EXPECT_NEAR(got.x, nested.x, 1e-9);
    EXPECT_NEAR(got.y, nested.y, 1e-9);
    EXPECT_NEAR(got.z, nested.z, 1e-9);
  }
}

TEST(GeometryTest, inverseTimesTransformIsIdentity) {
  RandomRigid random(2);
  for (int n = 0; n < 200; ++n) {
    Transform a = random.next();
    Transform product = a.inverse() * a;
    for (int i = 0; i < 16; ++i)
      EXPECT_NEAR(product.m[i], Transform::ident[i], 1e-9);
    EXPECT_TRUE((a * a.inverse()).isIdentity());
  }
}

TEST(GeometryTest, pureTranslation) {
  Transform t = Transform::translate(Point(1, 2, 3));
  EXPECT_FALSE(t.isIdentity());
  EXPECT_TRUE(t.isRotation());
  EXPECT_EQ(t.rotationString(), "");
  EXPECT_EQ(t.toString(), "x=1 y=2 z=3");
  expectPointNear(t.origin(), 1, 2, 3);
  Vector v = t * Vector(1, 1, 1);
  EXPECT_EQ(v.x, 1.0);
  EXPECT_EQ(v.z, 1.0);
}

TEST(GeometryTest, isRotationIsFalseWhenTheTransformRotates) {
  Transform t(Point(), Vector(0, 1, 0), 0.1);
  EXPECT_FALSE(t.isRotation());
  EXPECT_FALSE(t.isIdentity());
}

TEST(GeometryTest, toleranceOfIdentityTests) {
  Transform t;
  t.m[15] = 1 + 1e-10;
  EXPECT_TRUE(t.isIdentity());
  t.m[15] = 1 + 2e-9;
  EXPECT_FALSE(t.isIdentity());
  EXPECT_TRUE(t.isRotation()); // column 3 and row 3 are not part of the rotation block
  t.m[5] = 1 + 2e-9;
  EXPECT_FALSE(t.isRotation());
}

TEST(GeometryTest, identityAndStaticArrays) {
  EXPECT_TRUE(Transform::identity().isIdentity());
  EXPECT_EQ(&Transform::identity(), &Transform::identityTransform);
  EXPECT_TRUE(Transform().isIdentity());
  for (int i = 0; i < 16; ++i)
    EXPECT_EQ(Transform::zero[i], 0.0);
}

TEST(GeometryTest, smallRotationHasEmptyRotationString) {
  EXPECT_EQ(Transform(Point(), Vector(1, 0, 0), 0.0005).rotationString(), "");
  EXPECT_EQ(Transform(Point(5, 0, 0), Vector(1, 0, 0), 0.0005).toString(), "x=5 y=0 z=0");
}

TEST(GeometryTest, halfTurnAboutX) {
  EXPECT_EQ(Transform(Point(), Vector(1, 0, 0), Pi).rotationString(),
            "A1.000000,0.000000,0.000000,180.000000");
}

TEST(GeometryTest, halfTurnsAboutEachAxisUseTheDiagonalBranch) {
  EXPECT_EQ(Transform(Point(), Vector(0, 1, 0), Pi).rotationString(),
            "A0.000000,1.000000,0.000000,180.000000");
  EXPECT_EQ(Transform(Point(), Vector(0, 0, 1), Pi).rotationString(),
            "A0.000000,0.000000,1.000000,180.000000");
  EXPECT_EQ(Transform(Point(), Vector(1, 1, 0), Pi).rotationString(),
            "A0.707107,0.707107,0.000000,180.000000");
  // Axes (0.8, -0.36, 0.48) and its shuffles: a half turn is 2 n n^T - I, so the largest
  // diagonal entry, 2 * 0.64 - 1 = 0.28, picks the branch; the off-diagonal entries, as
  // low as 2 * 0.8 * -0.36 = -0.576, are below the other diagonal ones (-0.5392 and
  // -0.7408) and must not.
  EXPECT_EQ(Transform(Point(), Vector(0.8, -0.36, 0.48), Pi).rotationString(),
            "A0.800000,-0.360000,0.480000,180.000000");
  EXPECT_EQ(Transform(Point(), Vector(-0.36, 0.8, 0.48), Pi).rotationString(),
            "A-0.360000,0.800000,0.480000,180.000000");
  EXPECT_EQ(Transform(Point(), Vector(0.48, -0.36, 0.8), Pi).rotationString(),
            "A0.480000,-0.360000,0.800000,180.000000");
}

TEST(GeometryTest, nearHalfTurnTextAsItStands) {
  // Within 0.001 rad below a half turn the diagonal branch loses the axis's sign.
  double angle = Pi - 0.0005;
  EXPECT_EQ(Transform(Point(), Vector(0, 0, -1), angle).rotationString(),
            "A0.000000,0.000000,1.000000,179.971352");
}

TEST(GeometryTest, quarterTurnAboutZInToString) {
  QString text = Transform(Point(), Vector(0, 0, 1), Pi / 2).toString();
  EXPECT_EQ(text, "x=0 y=0 z=0 rotation=A0.000000,0.000000,1.000000,90.000000");
}

TEST(GeometryTest, toStringUsesTwelveSignificantDigits) {
  EXPECT_EQ(Transform::translate(1.0 / 3, -123456.7890123456, 1e-20).toString(),
            "x=0.333333333333 y=-123456.789012 z=1e-20");
  EXPECT_EQ(Transform::translate(1e15, 0.5, -2).toString(), "x=1e+15 y=0.5 z=-2");
}

TEST(GeometryTest, copyKeepsTagAndMatrix) {
  Transform a(Point(1, 2, 3), Vector(1, 1, 1), 0.7);
  Transform b;
  b = a;
  for (int i = 0; i < 16; ++i)
    EXPECT_EQ(a.m[i], b.m[i]);
  EXPECT_TRUE(b.checkBase());
}

} // namespace
