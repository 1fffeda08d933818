//===- TransformCreateTest.cpp - Transforms from texts and arguments -------===//

#include "Geometry.h"

#include "ArgHash.h"
#include "BeamlineFixture.h"
#include "TestSupport.h"

#include <cmath>
#include <random>

using namespace Nexil;

namespace {

void expectRotationNear(const Transform &a, const Transform &b, double tol) {
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      EXPECT_NEAR(a.m[4 * i + j], b.m[4 * i + j], tol) << i << "," << j;
}

TEST(TransformCreateTest, emptyTextsAreTheIdentity) {
  EXPECT_TRUE(Transform::rotation("").isIdentity());
  EXPECT_TRUE(Transform::rotation(",").isIdentity());
  EXPECT_TRUE(Transform::rotation(",,,").isIdentity());
}

TEST(TransformCreateTest, badLetterIsReportedAndGivesNaN) {
  Transform t;
  std::string err = stderrOf([&] { t = Transform::rotation("a90"); });
  EXPECT_EQ(bannerMessages(err), "Invalid rotation 'a90'");
  EXPECT_TRUE(std::isnan(t.m[0]));
  err = stderrOf([&] { t = Transform::rotation("X90,Q5"); });
  EXPECT_EQ(bannerMessages(err), "Invalid rotation 'Q5'");
  EXPECT_TRUE(std::isnan(t.m[5]));
}

TEST(TransformCreateTest, axisAngleTerm) {
  Transform t = Transform::rotation("A0,0,1,90");
  expectRotationNear(t, Transform(Point(), Vector(0, 0, 1), Pi / 2), 1e-15);
  expectNear(t * Point(1, 0, 0), 0, 1, 0, 1e-15);
  expectRotationNear(Transform::rotation("a0,0,2,90"), t, 1e-15);
}

TEST(TransformCreateTest, fourPartsNotBeginningWithAAreAxisTerms) {
  expectRotationNear(Transform::rotation("X90,Y0,Z0,X-90"), Transform(), 1e-15);
}

TEST(TransformCreateTest, axisTermsAccumulate) {
  expectRotationNear(Transform::rotation("x30,X60"), Transform::rotation("X90"), 1e-15);
  // X90 first, then Z90 about the fixed axes.
  expectNear(Transform::rotation("X90,Z90") * Point(0, 0, 1), 1, 0, 0, 1e-15);
  expectNear(Transform::rotation("y90") * Point(0, 0, 1), 1, 0, 0, 1e-15);
}

TEST(TransformCreateTest, numbersThatAreNoNumbersReadAsZero) {
  std::string err = stderrOf([] { EXPECT_TRUE(Transform::rotation("Xabc").isIdentity()); });
  EXPECT_EQ(err, "");
}

TEST(TransformCreateTest, rotationStringRoundTrip) {
  std::mt19937 gen(7);
  std::uniform_real_distribution<double> uni(-1, 1);
  for (int n = 0; n < 500; ++n) {
    Vector axis(uni(gen), uni(gen), uni(gen));
    double angle = 0.001 + (uni(gen) + 1) / 2 * (Pi - 0.0021);
    Transform t(Point(), axis, angle);
    expectRotationNear(Transform::rotation(t.rotationString()), t, 5e-6);
  }
}

TEST(TransformCreateTest, rotationStringRoundTripForHalfTurns) {
  for (Vector axis : {Vector(1, 0, 0), Vector(0, 1, 0), Vector(0, 0, 1), Vector(1, 1, 0),
                      Vector(1, -2, 3), Vector(-0.2, 0.5, 0.9)}) {
    Transform t(Point(), axis, Pi);
    expectRotationNear(Transform::rotation(t.rotationString()), t, 5e-6);
  }
}

TEST(TransformCreateTest, tinyRotationReadsBackAsTheIdentity) {
  Transform t(Point(), Vector(1, 1, 1), 0.0009);
  EXPECT_EQ(t.rotationString(), "");
  EXPECT_TRUE(Transform::rotation(t.rotationString()).isIdentity());
}

TEST(TransformCreateTest, createFromPointRotatesFirst) {
  Transform t = Transform::create(Point(1, 2, 3), "Z90");
  expectNear(t * Point(1, 0, 0), 1, 3, 3, 1e-15);
}

TEST(TransformCreateTest, createFromArguments) {
  ArgHash args("x=1mm y=2mm z=3mm rotation=Z90");
  Transform t = Transform::create(args, "mm", false);
  expectNear(t.origin(), 1, 2, 3);
  expectNear(t * Vector(1, 0, 0), 0, 1, 0, 1e-15);
  expectNear(Transform::create(ArgHash("x=1m"), "mm", false).origin(), 1000, 0, 0, 1e-12);
}

TEST(TransformCreateTest, bareNumbersInAUnitAreReported) {
  Transform t;
  std::string err = stderrOf([&] { t = Transform::create(ArgHash("x=1 y=2"), "m", false); });
  EXPECT_EQ(bannerMessages(err),
            "Units Conversion Error from (none) to m|Units Conversion Error from (none) to m");
  expectNear(t.origin(), 1, 2, 0);
}

TEST(TransformCreateTest, parentPlacement) {
  Transform parent(Point(1, 0, 0), Vector(0, 0, 1), Pi / 2); // in metres
  QString tag = QString::asprintf("%p", static_cast<void *>(static_cast<Base *>(&parent)));
  ArgHash args("x=1mm");
  args.insert("_PARENTXFORM", tag);
  // The parent's translation is converted from metres into the caller's unit.
  expectNear(Transform::create(args, "mm", true).origin(), 1000, 1, 0, 1e-12);
  expectNear(Transform::create(args, "mm", false).origin(), 1, 0, 0, 1e-12);
  ArgHash only;
  only.insert("_PARENTXFORM", tag);
  Transform itself = Transform::create(only, "m", true);
  expectSameTransform(itself, parent, 1e-15);
  ArgHash emptyParent("x=2mm");
  emptyParent.insert("_PARENTXFORM", "");
  expectSameTransform(Transform::create(emptyParent, "mm", true), Transform::translate(2, 0, 0));
  EXPECT_TRUE(Transform::create(ArgHash(), "mm", true).isIdentity());
}

TEST(TransformCreateTest, convertScalesOnlyTheTranslation) {
  Transform t(Point(1, 2, 3), Vector(0, 1, 0), 0.3);
  Transform mm = t.convert("mm");
  expectNear(mm.origin(), 1000, 2000, 3000, 1e-9);
  expectRotationNear(mm, t, 0);
}

TEST(TransformCreateTest, getTransformOfTags) {
  EXPECT_EQ(Transform::getTransform(""), &Transform::identityTransform);
  Transform t = Transform::translate(1, 2, 3);
  QString tag = QString::asprintf("%p", static_cast<void *>(static_cast<Base *>(&t)));
  EXPECT_EQ(Transform::getTransform(tag), &t);
  Base notATransform;
  QString other = QString::asprintf("%p", static_cast<void *>(&notATransform));
  try {
    Transform::getTransform(other);
    FAIL();
  } catch (const QString &e) {
    EXPECT_EQ(e, "INTERNAL ERROR: Invalid Transform tag '" + other + "'");
  }
  try {
    Transform::getTransform("nonsense");
    FAIL();
  } catch (const QString &e) {
    EXPECT_EQ(e, "INTERNAL ERROR: Invalid pointer in Base::get A");
  }
}

} // namespace
