//===- CoupledMeasureTest.cpp - x and y measured together ------------------===//
//
// Beams of known 4D phase space, made from an uncoupled beam of two emittances by maps
// that keep the phase-space volume (symplectic), crossing one plane. The 4D emittance
// and the eigen-emittances must stay what the uncoupled beam had, whatever the map;
// their errors must describe their spread over many seeds.
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

using Vector4 = PointOf<4>; // x mm, u_x mrad, y mm, u_y mrad
using Matrix4 = MapOf<4>;

const double Momentum = 200; // MeV/c
const double MuonMass = speciesFacts(-13).mass;
const QStringList Both = {"2d", "4d"};

/// M S M^T.
Matrix4 transformed(const Matrix4 &m, const Matrix4 &s) {
  Matrix4 t{};
  for (size_t i = 0; i < 4; ++i)
    for (size_t j = 0; j < 4; ++j)
      t[i][j] = m[j][i];
  return product(product(m, s), t);
}

/// A rotation of the x-y plane by `angle`, of positions and momenta alike.
Matrix4 rotation(double angle) {
  double c = std::cos(angle), s = std::sin(angle);
  return {{{c, 0, s, 0}, {0, c, 0, s}, {-s, 0, c, 0}, {0, -s, 0, c}}};
}

/// A random product of drifts, thin lenses in x and y, skew kicks and rotations: each
/// keeps phase-space volume, and so does the product.
Matrix4 randomSymplecticMap(std::mt19937 &random) {
  std::uniform_real_distribution<double> strength(-0.8, 0.8);
  Matrix4 m = identityMap<4>();
  for (int step = 0; step < 12; ++step) {
    Matrix4 f = identityMap<4>();
    double k = strength(random);
    switch (step % 4) {
    case 0: // drifts: x += L u_x, y += L u_y
      f[0][1] = k;
      f[2][3] = 2 * k;
      break;
    case 1: // thin lenses
      f[1][0] = -k;
      f[3][2] = k / 2;
      break;
    case 2: // a skew kick: u_x -= k y, u_y -= k x
      f[1][2] = -k;
      f[3][0] = -k;
      break;
    default:
      f = rotation(3 * k);
    }
    m = product(f, m);
  }
  return m;
}

/// The beam's crossing: a muon of 200 MeV/c along the path, x' = u_x m / p.
OpticsCrossing crossing(const Vector4 &v, double delta = 0) {
  OpticsCrossing c{};
  c.x = v[0];
  c.qx = v[1];
  c.y = v[2];
  c.qy = v[3];
  c.p = Momentum * (1 + delta);
  c.xp = v[1] * MuonMass / c.p;
  c.yp = v[3] * MuonMass / c.p;
  c.t = 1;
  c.kinetic = 100;
  c.weight = 1;
  c.pdgid = -13;
  c.massKnown = true;
  return c;
}

OpticsRow rowOf(const std::vector<OpticsCrossing> &crossings) {
  PlaneStatistics plane(momentSetsOf(Both));
  for (const OpticsCrossing &c : crossings)
    plane.add(c);
  return beamOptics(0, plane, plane, MomentumReference(), Both);
}

/// Every pairing of the x points with the y points: no correlation between x and y.
std::vector<Vector4> uncoupledBeam() {
  std::vector<Vector4> beam;
  for (const auto &[x, ux] : ring(12, 2, -0.7))
    for (const auto &[y, uy] : ring(7, 1, 0.4))
      beam.push_back({x, ux, y, uy});
  return beam;
}

std::vector<OpticsCrossing> crossingsOf(const std::vector<Vector4> &beam, const Matrix4 &map) {
  std::vector<OpticsCrossing> crossings;
  for (const Vector4 &v : beam)
    crossings.push_back(crossing(applied(map, v)));
  return crossings;
}

TEST(CoupledMeasureTest, anUncoupledBeamHasTheEmittancesOfXAndYAsItsEigenEmittances) {
  const std::vector<Vector4> beam = uncoupledBeam();
  const double ex = emittance2(beam, 0, 1), ey = emittance2(beam, 2, 3);
  ASSERT_GT(ex, 2 * ey);
  OpticsRow row = rowOf(crossingsOf(beam, identityMap<4>()));
  EXPECT_EQ(row.status, "no-momentum-spread");
  EXPECT_NEAR(row.value("emitn_4d_1_mm_mrad"), ex, 1e-12 * ex);
  EXPECT_NEAR(row.value("emitn_4d_2_mm_mrad"), ey, 1e-12 * ey);
  EXPECT_NEAR(row.value("emitn_4d_mm_mrad"), std::sqrt(ex * ey), 1e-12 * ex);
  EXPECT_NEAR(row.value("emitn_x_mm_mrad"), ex, 1e-12 * ex);
  EXPECT_NEAR(row.value("emitn_y_mm_mrad"), ey, 1e-12 * ey);
  // No momentum spread: no betatron emittance to tell from the 4D one.
  EXPECT_TRUE(std::isnan(row.value("emitn_4d_betatron_mm_mrad")));
}

TEST(CoupledMeasureTest, aRoundBeamHasTheTwissParametersOfEachPlane) {
  // The same points in x and y: beta_perp and alpha_perp are beta and alpha of either.
  std::vector<Vector4> beam;
  for (const auto &[x, ux] : ring(12, 2, -0.7))
    for (const auto &[y, uy] : ring(12, 2, -0.7))
      beam.push_back({x, ux, y, uy});
  OpticsRow row = rowOf(crossingsOf(beam, identityMap<4>()));
  EXPECT_NEAR(row.value("beta_perp_m"), row.value("beta_x_m"), 1e-12 * row.value("beta_x_m"));
  EXPECT_NEAR(row.value("alpha_perp"), row.value("alpha_x"), 1e-12);
  // alpha = -<x u_x> / eps: the shear -0.7 of u against x makes it positive.
  EXPECT_GT(row.value("alpha_perp"), 0.5);
  // beta = <x^2> (p / m c) / eps_n, by hand from the points.
  double n = double(beam.size()), xx = 0;
  for (const Vector4 &v : beam)
    xx += v[0] * v[0] / n;
  const double eps = emittance2(beam, 0, 1);
  EXPECT_NEAR(row.value("beta_perp_m"), xx * Momentum / MuonMass / eps, 1e-9);
}

TEST(CoupledMeasureTest, aRotationAboutThePathTradesXAgainstYButKeepsThe4dMeasures) {
  const std::vector<Vector4> beam = uncoupledBeam();
  OpticsRow before = rowOf(crossingsOf(beam, identityMap<4>()));
  OpticsRow after = rowOf(crossingsOf(beam, rotation(0.5)));
  EXPECT_GT(after.value("emitn_x_mm_mrad"), 1.2 * before.value("emitn_x_mm_mrad") - 10);
  EXPECT_GT(std::fabs(after.value("emitn_x_mm_mrad") / before.value("emitn_x_mm_mrad") - 1), 0.1);
  for (const char *column : {"emitn_4d_mm_mrad", "emitn_4d_1_mm_mrad", "emitn_4d_2_mm_mrad",
                             "beta_perp_m", "alpha_perp"})
    EXPECT_NEAR(after.value(column), before.value(column), 1e-9 * std::fabs(before.value(column)))
        << column;
}

TEST(CoupledMeasureTest, anyMapThatKeepsPhaseSpaceVolumeKeepsThe4dEmittances) {
  const std::vector<Vector4> beam = uncoupledBeam();
  OpticsRow before = rowOf(crossingsOf(beam, identityMap<4>()));
  std::mt19937 random(7);
  for (int trial = 0; trial < 20; ++trial) {
    OpticsRow after = rowOf(crossingsOf(beam, randomSymplecticMap(random)));
    for (const char *column : {"emitn_4d_mm_mrad", "emitn_4d_1_mm_mrad", "emitn_4d_2_mm_mrad"})
      EXPECT_NEAR(after.value(column), before.value(column), 1e-9 * before.value(column))
          << column << " trial " << trial;
  }
}

TEST(CoupledMeasureTest, theBetatronEmittanceLeavesOutTheCorrelationsWithTheMomentum) {
  // Each point of the uncoupled beam with delta = +-1 %, and dispersion in x and y:
  // the momentum is uncorrelated with the betatron motion by construction.
  const Vector4 dispersion = {2000, 30, -500, 10}; // per unit delta
  std::vector<OpticsCrossing> crossings;
  for (const Vector4 &v : uncoupledBeam())
    for (double delta : {0.01, -0.01}) {
      Vector4 w = v;
      for (size_t i = 0; i < 4; ++i)
        w[i] += dispersion[i] * delta;
      crossings.push_back(crossing(w, delta));
    }
  OpticsRow row = rowOf(crossings);
  OpticsRow betatron = rowOf(crossingsOf(uncoupledBeam(), identityMap<4>()));
  EXPECT_EQ(row.status, "ok");
  EXPECT_NEAR(row.value("emitn_4d_betatron_mm_mrad"), betatron.value("emitn_4d_mm_mrad"),
              1e-9 * betatron.value("emitn_4d_mm_mrad"));
  EXPECT_GT(row.value("emitn_4d_mm_mrad"), 2 * betatron.value("emitn_4d_mm_mrad"));
  EXPECT_GT(row.value("emitn_4d_betatron_mm_mrad_err"), 0);
}

TEST(CoupledMeasureTest, aBeamOnAPlaneOfPhaseSpaceIsDegenerate) {
  // y = x and u_y = u_x: each 2D emittance is fine, the 4D volume is zero.
  std::vector<OpticsCrossing> crossings;
  for (const auto &[x, ux] : ring(12, 2, -0.7))
    crossings.push_back(crossing({x, ux, x, ux}));
  OpticsRow row = rowOf(crossings);
  EXPECT_EQ(row.status, "no-momentum-spread;degenerate");
  EXPECT_GT(row.value("emitn_x_mm_mrad"), 0);
  for (const MeasureColumn &column : coupledMeasure().columns)
    EXPECT_TRUE(std::isnan(row.value(column.name))) << column.name.toStdString();
}

TEST(CoupledMeasureTest, mixedSpeciesHaveNoNormalisedMomenta) {
  std::vector<OpticsCrossing> crossings = crossingsOf(uncoupledBeam(), identityMap<4>());
  crossings[3].pdgid = 11;
  OpticsRow row = rowOf(crossings);
  EXPECT_EQ(row.status, "no-momentum-spread;mixed-species");
  EXPECT_TRUE(std::isnan(row.value("emitn_4d_mm_mrad")));
  EXPECT_TRUE(std::isnan(row.value("beta_perp_m")));
}

/// A beam drawn from an uncoupled distribution of emittances (3, 1) mm mrad and known
/// Twiss parameters, coupled by a fixed map; its shape sets how the points are drawn.
using Kind = BeamShape;

struct CoupledBeam {
  Matrix4 map;
  double e1 = 3, e2 = 1;
  double beta1 = 1.5, alpha1 = 0.8, beta2 = 0.7, alpha2 = -0.3; // mm/mrad

  /// The covariance of the drawn points: the uncoupled one moved by the map, times the
  /// shape's factor.
  Matrix4 covariance(Kind kind) const {
    Matrix4 s{};
    s[0][0] = e1 * beta1;
    s[0][1] = s[1][0] = -e1 * alpha1;
    s[1][1] = e1 * (1 + alpha1 * alpha1) / beta1;
    s[2][2] = e2 * beta2;
    s[2][3] = s[3][2] = -e2 * alpha2;
    s[3][3] = e2 * (1 + alpha2 * alpha2) / beta2;
    Matrix4 c = transformed(map, s);
    for (Vector4 &row : c)
      for (double &v : row)
        v *= covarianceFactor(kind);
    return c;
  }

  Vector4 draw(Kind kind, std::mt19937 &random) const {
    const std::vector<double> z = drawUnit(kind, 4, random);
    // Uncoupled Twiss coordinates: x = sqrt(e beta) z1, u = sqrt(e / beta) (z2 - alpha z1).
    Vector4 v = {std::sqrt(e1 * beta1) * z[0], std::sqrt(e1 / beta1) * (z[1] - alpha1 * z[0]),
                 std::sqrt(e2 * beta2) * z[2], std::sqrt(e2 / beta2) * (z[3] - alpha2 * z[2])};
    return applied(map, v);
  }
};

TEST(CoupledMeasureTest, errorsOfThe4dMeasuresAreHonest) {
  std::mt19937 mapRandom(11);
  CoupledBeam beam{randomSymplecticMap(mapRandom)};
  std::map<std::string, Pulls> pulls;
  for (Kind kind : {Kind::Gaussian, Kind::Uniform, Kind::Halo}) {
    const std::string name = nameOf(kind);
    const Matrix4 c = beam.covariance(kind);
    const double scale = covarianceFactor(kind);
    const double e4 = scale * std::sqrt(beam.e1 * beam.e2);
    const double betaPerp = Momentum / MuonMass * (c[0][0] + c[2][2]) / (2 * e4);
    const double alphaPerp = -(c[0][1] + c[2][3]) / (2 * e4);
    for (unsigned seed = 1; seed <= 300; ++seed) {
      std::mt19937 random(seed);
      std::normal_distribution<double> spread(0, 0.01);
      // The same beam, and the beam with a momentum spread and dispersion in x and y. A
      // halo's heavy tails make its fourth moments, and so the errors, need more
      // crossings to settle: at 1000 its pulls reach 1.2.
      std::vector<OpticsCrossing> crossings, dispersed;
      for (int k = 0; k < (kind == Kind::Halo ? 5000 : 2000); ++k) {
        Vector4 v = beam.draw(kind, random);
        crossings.push_back(crossing(v));
        const double delta = spread(random);
        const Vector4 dispersion = {1500, -20, 700, 10};
        for (size_t i = 0; i < 4; ++i)
          v[i] += dispersion[i] * delta;
        dispersed.push_back(crossing(v, delta));
      }
      OpticsRow betatron = rowOf(dispersed);
      pulls[name + "emitn_4d_betatron_mm_mrad"].add(
          betatron.value("emitn_4d_betatron_mm_mrad"), e4,
          betatron.value("emitn_4d_betatron_mm_mrad_err"));
      OpticsRow row = rowOf(crossings);
      auto add = [&](const char *column, double truth) {
        pulls[name + column].add(row.value(column), truth, row.value(QString(column) + "_err"));
      };
      add("emitn_4d_mm_mrad", e4);
      add("emitn_4d_1_mm_mrad", scale * beam.e1);
      add("emitn_4d_2_mm_mrad", scale * beam.e2);
      add("beta_perp_m", betaPerp);
      add("alpha_perp", alphaPerp);
    }
  }
  expectHonest(pulls, 0.85, 1.15);
}

} // namespace
