//===- BeamlineFixture.h - A clean coordinate system for each test --*- C++ -*-===//
#ifndef TESTS_BEAMLINEFIXTURE_H
#define TESTS_BEAMLINEFIXTURE_H

#include "BeamlineCoordinates.h"
#include "Geometry.h"

#include <gtest/gtest.h>

/// Empties the process-wide coordinate system before and after each test.
class BeamlineFixture : public ::testing::Test {
protected:
  static void reset() { Nexil::BeamlineCoordinates::clear(); }
  void SetUp() override { reset(); }
  void TearDown() override { reset(); }
};

inline void expectNear(const Nexil::Point &p, double x, double y, double z, double tol = 1e-12) {
  EXPECT_NEAR(p.x, x, tol);
  EXPECT_NEAR(p.y, y, tol);
  EXPECT_NEAR(p.z, z, tol);
}

inline void expectNear(const Nexil::Vector &v, double x, double y, double z, double tol = 1e-12) {
  EXPECT_NEAR(v.x, x, tol);
  EXPECT_NEAR(v.y, y, tol);
  EXPECT_NEAR(v.z, z, tol);
}

inline void expectSameTransform(const Nexil::Transform &a, const Nexil::Transform &b,
                                double tol = 1e-12) {
  for (int i = 0; i < 16; ++i)
    EXPECT_NEAR(a.m[i], b.m[i], tol) << "element " << i;
}

#endif // TESTS_BEAMLINEFIXTURE_H
