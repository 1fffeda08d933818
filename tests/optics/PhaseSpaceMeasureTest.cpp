//===- PhaseSpaceMeasureTest.cpp - The whole phase space at once -----------===//
//
// Beams of known 6D phase space: three uncoupled pairs of emittances, mixed by maps that
// keep phase-space volume. The 6D emittance and the three eigen-emittances must stay
// those of the pairs, and their errors describe their spread.
//
//===----------------------------------------------------------------------------===//

#include "BeamOptics.h"
#include "Measure.h"
#include "PhaseSpacePoints.h"
#include "Pulls.h"
#include "Species.h"

#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <random>

namespace {

/// (x mm, u_x mrad, y mm, u_y mrad, -c t mm, 1000 E/(m c^2)).
using Vector6 = PointOf<6>;
using Matrix6 = MapOf<6>;

const double MuonMass = speciesFacts(-13).mass;
const double LightSpeed = 299.792458; // mm/ns
const QStringList Chosen = {"2d", "6d"};

/// A random product of kicks p += S q and drifts q += S p, S random and symmetric over the
/// three pairs (q the positions 0, 2, 4, p the momenta 1, 3, 5): each keeps phase-space
/// volume, and so does the product; x, y and t all mix.
Matrix6 randomSymplecticMap(std::mt19937 &random) {
  std::uniform_real_distribution<double> strength(-0.5, 0.5);
  Matrix6 m = identityMap<6>();
  for (int step = 0; step < 8; ++step) {
    std::array<std::array<double, 3>, 3> s{};
    for (size_t i = 0; i < 3; ++i)
      for (size_t j = i; j < 3; ++j)
        s[i][j] = s[j][i] = strength(random);
    Matrix6 f = identityMap<6>();
    for (size_t i = 0; i < 3; ++i)
      for (size_t j = 0; j < 3; ++j) {
        if (step % 2 == 0)
          f[2 * i + 1][2 * j] = s[i][j]; // kick
        else
          f[2 * i][2 * j + 1] = s[i][j]; // drift
      }
    m = product(f, m);
  }
  return m;
}

/// A muon at the point of phase space.
OpticsCrossing crossing(const Vector6 &v) {
  OpticsCrossing c{};
  c.x = v[0];
  c.qx = v[1];
  c.y = v[2];
  c.qy = v[3];
  c.t = -v[4] / LightSpeed;
  c.kinetic = 100 + v[5] * MuonMass / 1000;
  c.p = 200;
  c.xp = v[1] * MuonMass / c.p;
  c.yp = v[3] * MuonMass / c.p;
  c.weight = 1;
  c.pdgid = -13;
  c.charge = 1;
  c.massKnown = true;
  return c;
}

OpticsRow rowOf(const std::vector<Vector6> &beam, const Matrix6 &map) {
  PlaneStatistics plane(momentSetsOf(Chosen));
  for (const Vector6 &v : beam)
    plane.add(crossing(applied(map, v)));
  return beamOptics(0, plane, plane, MomentumReference(), Chosen);
}

/// Every pairing of the three planes' points: no correlation between them.
std::vector<Vector6> uncoupledBeam() {
  std::vector<Vector6> beam;
  for (const auto &[x, ux] : ring(8, 2, -0.7))
    for (const auto &[y, uy] : ring(7, 1, 0.4))
      for (const auto &[z, d] : ring(5, 1.5, 0.2))
        beam.push_back({x, ux, y, uy, z, d});
  return beam;
}

TEST(PhaseSpaceMeasureTest, anUncoupledBeamHasTheEmittancesOfItsPairsAsEigenEmittances) {
  const std::vector<Vector6> beam = uncoupledBeam();
  const double ex = emittance2(beam, 0, 1), ey = emittance2(beam, 2, 3),
               ez = emittance2(beam, 4, 5);
  // Three different sizes, in this order: x, then t, then y.
  ASSERT_GT(ex, ez);
  ASSERT_GT(ez, ey);
  OpticsRow row = rowOf(beam, identityMap<6>());
  EXPECT_NEAR(row.value("emitn_6d_1_mm_mrad"), ex, 1e-9 * ex);
  EXPECT_NEAR(row.value("emitn_6d_2_mm_mrad"), ez, 1e-9 * ez);
  EXPECT_NEAR(row.value("emitn_6d_3_mm_mrad"), ey, 1e-9 * ey);
  EXPECT_NEAR(row.value("emitn_6d_mm_mrad"), std::cbrt(ex * ey * ez), 1e-12 * ex);
  EXPECT_NEAR(row.value("emitn_x_mm_mrad"), ex, 1e-12 * ex);
}

TEST(PhaseSpaceMeasureTest, anyMapThatKeepsPhaseSpaceVolumeKeepsThe6dEmittances) {
  const std::vector<Vector6> beam = uncoupledBeam();
  OpticsRow before = rowOf(beam, identityMap<6>());
  std::mt19937 random(5);
  for (int trial = 0; trial < 20; ++trial) {
    OpticsRow after = rowOf(beam, randomSymplecticMap(random));
    for (const char *column :
         {"emitn_6d_mm_mrad", "emitn_6d_1_mm_mrad", "emitn_6d_2_mm_mrad", "emitn_6d_3_mm_mrad"})
      EXPECT_NEAR(after.value(column), before.value(column), 1e-9 * before.value(column))
          << column << " trial " << trial;
  }
}

TEST(PhaseSpaceMeasureTest, aBunchWithoutEnergySpreadIsDegenerate) {
  std::vector<Vector6> beam = uncoupledBeam();
  for (Vector6 &v : beam)
    v[5] = 0;
  OpticsRow row = rowOf(beam, identityMap<6>());
  EXPECT_EQ(row.status, "no-momentum-spread;degenerate");
  for (const MeasureColumn &column : phaseSpaceMeasure().columns)
    EXPECT_TRUE(std::isnan(row.value(column.name))) << column.name.toStdString();
}

TEST(PhaseSpaceMeasureTest, errorsAreHonest) {
  // Pairs of emittances 3, 1 and 2 mm mrad with their own beta and alpha, mixed by a map.
  std::mt19937 mapRandom(3);
  const Matrix6 map = randomSymplecticMap(mapRandom);
  const double e[3] = {3, 1, 2}, beta[3] = {1.5, 0.7, 2}, alpha[3] = {0.8, -0.3, 0.1};
  std::map<std::string, Pulls> pulls;
  for (BeamShape shape : {BeamShape::Gaussian, BeamShape::Uniform, BeamShape::Halo}) {
    const double scale = covarianceFactor(shape);
    const double truth[3] = {scale * e[0], scale * e[2], scale * e[1]};
    for (unsigned seed = 1; seed <= 300; ++seed) {
      std::mt19937 random(seed);
      std::vector<Vector6> beam;
      for (int k = 0; k < (shape == BeamShape::Halo ? 5000 : 2000); ++k) {
        const std::vector<double> z = drawUnit(shape, 6, random);
        Vector6 v;
        for (size_t i = 0; i < 3; ++i) {
          v[2 * i] = std::sqrt(e[i] * beta[i]) * z[2 * i];
          v[2 * i + 1] = std::sqrt(e[i] / beta[i]) * (z[2 * i + 1] - alpha[i] * z[2 * i]);
        }
        beam.push_back(v);
      }
      OpticsRow row = rowOf(beam, map);
      auto add = [&](const char *column, double value) {
        pulls[nameOf(shape) + column].add(row.value(column), value,
                                          row.value(QString(column) + "_err"));
      };
      add("emitn_6d_mm_mrad", scale * std::cbrt(e[0] * e[1] * e[2]));
      add("emitn_6d_1_mm_mrad", truth[0]);
      add("emitn_6d_2_mm_mrad", truth[1]);
      add("emitn_6d_3_mm_mrad", truth[2]);
    }
  }
  expectHonest(pulls, 0.85, 1.15);
}

} // namespace
