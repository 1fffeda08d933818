//===- BeamOpticsTest.cpp - The optics row of one plane --------------------===//

#include "BeamOptics.h"
#include "Measure.h"

#include <cmath>
#include <gtest/gtest.h>
#include <random>

namespace {

OpticsCrossing crossing(double x, double xp, double p = 200, double weight = 1, int pdgid = -13) {
  OpticsCrossing c{};
  c.x = x;
  c.xp = xp;
  c.y = xp; // the vertical plane sees the same numbers, swapped
  c.yp = x;
  c.p = p;
  c.qx = 1000 * (p * xp / 1000) / 105.6583715;
  c.qy = 1000 * (p * x / 1000) / 105.6583715;
  c.t = 4;
  c.kinetic = 100;
  c.weight = weight;
  c.pdgid = pdgid;
  c.massKnown = true;
  return c;
}

PlaneStatistics diamond() {
  // (x, x') = (1, 0), (-1, 0), (0, 1), (0, -1): <x^2> = <x'^2> = 1/2, <x x'> = 0.
  PlaneStatistics plane;
  for (auto [x, xp] : {std::pair{1.0, 0.0}, {-1.0, 0.0}, {0.0, 1.0}, {0.0, -1.0}})
    plane.add(crossing(x, xp));
  return plane;
}

TEST(BeamOpticsTest, aDiamondOfFourCrossingsByHand) {
  PlaneStatistics plane = diamond();
  OpticsRow row = beamOptics(1234.5, plane, plane, MomentumReference());
  EXPECT_EQ(row.value("s_mm"), 1234.5);
  EXPECT_EQ(row.value("n"), 4);
  EXPECT_EQ(row.value("n_back"), 0);
  EXPECT_EQ(row.value("weight"), 4);
  EXPECT_EQ(row.value("n_eff"), 4);
  EXPECT_EQ(row.value("transmission"), 1);
  EXPECT_EQ(row.value("transmission_err"), 0);
  EXPECT_EQ(row.value("mean_x_mm"), 0);
  // sqrt(sum u^2) / W = sqrt(2) / 4.
  EXPECT_DOUBLE_EQ(row.value("mean_x_mm_err"), std::sqrt(2.0) / 4);
  EXPECT_DOUBLE_EQ(row.value("sigma_x_mm"), std::sqrt(0.5));
  // var = sum (u^2 - C)^2 / (4 C W^2) = (4 * 1/4) / (4 * 1/2 * 16) = 1/32.
  EXPECT_NEAR(row.value("sigma_x_mm_err"), std::sqrt(1.0 / 32), 1e-9);
  // eps = sqrt(1/2 * 1/2 - 0) = 1/2 mm mrad; beta = (1/2) / (1/2) = 1 m; alpha = 0.
  EXPECT_DOUBLE_EQ(row.value("emit_x_mm_mrad"), 0.5);
  EXPECT_DOUBLE_EQ(row.value("emit_proj_x_mm_mrad"), 0.5);
  EXPECT_DOUBLE_EQ(row.value("beta_x_m"), 1);
  EXPECT_EQ(row.value("alpha_x"), 0);
  EXPECT_DOUBLE_EQ(row.value("gamma_x_per_m"), 1);
  // Normalised: x' (mrad) * p / m = x' * 200 / 105.658..., so eps_n = eps * p / m.
  EXPECT_NEAR(row.value("emitn_x_mm_mrad"), 0.5 * 200 / 105.6583715, 1e-12);
  EXPECT_DOUBLE_EQ(row.value("mean_p_MeV"), 200);
  EXPECT_EQ(row.value("sigma_delta"), 0);
  EXPECT_TRUE(std::isnan(row.value("disp_x_m")));
  EXPECT_DOUBLE_EQ(row.value("mean_t_ns"), 4);
  EXPECT_EQ(row.value("sigma_t_ns"), 0);
  EXPECT_DOUBLE_EQ(row.value("mean_ekin_MeV"), 100);
  EXPECT_EQ(row.status, "few;no-momentum-spread");
}

TEST(BeamOpticsTest, emittanceErrorOfTheDiamond) {
  // eps = sqrt(a b - c^2) with a = b = 1/2, c = 0: d eps = (b da + a db) / (2 eps)
  // = (da + db) / 2, psi_i = (x^2 - 1/2 + x'^2 - 1/2) / 2 = 0 for every crossing.
  PlaneStatistics plane = diamond();
  OpticsRow row = beamOptics(0, plane, plane, MomentumReference());
  EXPECT_NEAR(row.value("emit_x_mm_mrad_err"), 0, 1e-9);
  // beta = a / eps: d beta = da / eps - a d eps / eps^2 = 2 (da - db) / 2 = da - db,
  // psi = x^2 - x'^2 = +-1, var = 4 / 16: 0.5.
  EXPECT_NEAR(row.value("beta_x_m_err"), 0.5, 1e-9);
  // alpha = -c / eps: psi = -2 x x' = 0 for every crossing.
  EXPECT_NEAR(row.value("alpha_x_err"), 0, 1e-9);
}

TEST(BeamOpticsTest, emptyPlaneHasOnlyItsCounts) {
  PlaneStatistics first = diamond(), empty;
  empty.nBack = 3;
  OpticsRow row = beamOptics(10, empty, first, MomentumReference());
  EXPECT_EQ(row.status, "empty");
  EXPECT_EQ(row.value("n"), 0);
  EXPECT_EQ(row.value("n_back"), 3);
  EXPECT_EQ(row.value("weight"), 0);
  EXPECT_EQ(row.value("transmission"), 0);
  EXPECT_EQ(row.value("transmission_err"), 0);
  EXPECT_TRUE(std::isnan(row.value("n_eff")));
  EXPECT_TRUE(std::isnan(row.value("mean_x_mm")));
}

TEST(BeamOpticsTest, transmissionIsBinomialOnTheFirstPlane) {
  PlaneStatistics first, later;
  for (int i = 0; i < 100; ++i)
    first.add(crossing(i % 7, i % 5, 200 + i % 3));
  for (int i = 0; i < 25; ++i)
    later.add(crossing(i % 7, i % 5, 200 + i % 3));
  OpticsRow row = beamOptics(10, later, first, MomentumReference());
  EXPECT_DOUBLE_EQ(row.value("transmission"), 0.25);
  EXPECT_DOUBLE_EQ(row.value("transmission_err"), std::sqrt(0.25 * 0.75 / 100));
}

TEST(BeamOpticsTest, fewMeansAnEffectiveCountBelowTen) {
  for (int count : {9, 10}) {
    PlaneStatistics plane;
    for (int i = 0; i < count; ++i)
      plane.add(crossing(i % 3, i % 4, 200 + i));
    OpticsRow row = beamOptics(0, plane, plane, MomentumReference());
    EXPECT_EQ(row.value("n_eff"), count);
    EXPECT_EQ(row.status, count < 10 ? "few" : "ok") << count;
  }
}

TEST(BeamOpticsTest, speciesFlags) {
  PlaneStatistics mixed = diamond();
  mixed.add(crossing(0.5, 0.5, 200, 1, 11));
  OpticsRow row = beamOptics(0, mixed, mixed, MomentumReference());
  EXPECT_EQ(row.status, "few;no-momentum-spread;mixed-species");
  EXPECT_TRUE(std::isnan(row.value("emitn_x_mm_mrad")));
  EXPECT_FALSE(std::isnan(row.value("mean_ekin_MeV")));

  PlaneStatistics unknown = diamond();
  OpticsCrossing c = crossing(0.5, 0.5);
  c.massKnown = false;
  unknown.add(c);
  row = beamOptics(0, unknown, unknown, MomentumReference());
  EXPECT_EQ(row.status, "few;no-momentum-spread;unknown-species");
  EXPECT_TRUE(std::isnan(row.value("emitn_x_mm_mrad")));
  EXPECT_TRUE(std::isnan(row.value("mean_ekin_MeV")));
}

TEST(BeamOpticsTest, aLineInPhaseSpaceIsDegenerate) {
  PlaneStatistics line;
  for (int i = 0; i < 20; ++i)
    line.add(crossing(i, 2 * i));
  OpticsRow row = beamOptics(0, line, line, MomentumReference());
  EXPECT_EQ(row.status, "no-momentum-spread;degenerate");
  EXPECT_TRUE(std::isnan(row.value("emit_x_mm_mrad")));
  EXPECT_TRUE(std::isnan(row.value("beta_x_m")));
  EXPECT_FALSE(std::isnan(row.value("sigma_x_mm")));
}

TEST(BeamOpticsTest, crossingsWithoutWeightAreCountedButLeftOut) {
  PlaneStatistics plane = diamond();
  plane.add(crossing(100, 100, 200, 0));
  plane.add(crossing(100, 100, 200, -1));
  plane.add(crossing(NAN, 100));
  OpticsRow row = beamOptics(0, plane, plane, MomentumReference());
  EXPECT_EQ(row.value("n"), 7);
  EXPECT_EQ(plane.leftOut, 3);
  EXPECT_DOUBLE_EQ(row.value("sigma_x_mm"), std::sqrt(0.5));
}

TEST(BeamOpticsTest, dispersionAgainstAFixedOrMeanReference) {
  // x = 2000 delta exactly (D = 2 m) plus a betatron part uncorrelated with delta.
  PlaneStatistics plane;
  const double deltas[] = {-0.01, 0.01, -0.01, 0.01};
  const double betatron[] = {1, 1, -1, -1};
  for (int i = 0; i < 4; ++i)
    plane.add(crossing(betatron[i] + 2000 * deltas[i], 0.5 * betatron[i], 200 * (1 + deltas[i])));
  OpticsRow row = beamOptics(0, plane, plane, MomentumReference());
  EXPECT_NEAR(row.value("disp_x_m"), 2, 1e-12);
  EXPECT_NEAR(row.value("sigma_delta"), 0.01, 1e-15);
  // Betatron part: <x^2> = 1, <x'^2> = 1/4, <x x'> = 1/2: a line, hence degenerate.
  EXPECT_EQ(row.status, "few;degenerate");
  // Against 250 MeV/c: delta' = (p - 250) / 250, so D' = D * 250 / 200.
  MomentumReference fixed{true, 250};
  row = beamOptics(0, plane, plane, fixed);
  EXPECT_NEAR(row.value("disp_x_m"), 2.5, 1e-12);
  EXPECT_NEAR(row.value("sigma_delta"), 0.008, 1e-15);
}

TEST(BeamOpticsTest, columnsOfTheTable) {
  const QStringList c = tableColumns({"2d"});
  EXPECT_EQ(c.size(), 59);
  EXPECT_EQ(c.first(), "s_mm");
  EXPECT_EQ(c.last(), "status");
  EXPECT_EQ(c.indexOf("mean_yp_mrad_err"), 20);
  EXPECT_EQ(c.indexOf("disp_yp_err"), 35);
  EXPECT_EQ(c.indexOf("gamma_y_per_m_err"), 57);
}

} // namespace
