//===- AngularMomentumMeasureTest.cpp - Angular momentum about the path ----===//
//
// Beams turning about the axis, in and out of a solenoid field: the kinetic and the
// canonical angular momentum by hand, the canonical emittances of a beam whose
// momenta carry the field's vector potential, and their errors over many seeds.
//
//===----------------------------------------------------------------------------===//

#include "BeamOptics.h"
#include "Measure.h"
#include "Pulls.h"
#include "Species.h"

#include <cmath>
#include <gtest/gtest.h>
#include <random>

namespace {

const QStringList Chosen = {"2d", "angular-momentum"};
const double MuonMass = speciesFacts(-13).mass;
/// (q B / 2) r^2 in mm MeV/c per e T mm^2: half of 0.299792458.
const double HalfQB = 0.299792458 / 2;

/// A muon (positive unless `charge` says otherwise) at (x, y) with transverse momentum
/// (px, py), MeV/c.
OpticsCrossing crossing(double x, double y, double px, double py, int charge = 1) {
  OpticsCrossing c{};
  c.x = x;
  c.y = y;
  c.px = px;
  c.py = py;
  c.pz = 200;
  c.p = std::sqrt(px * px + py * py + 200 * 200);
  c.xp = 1000 * px / 200;
  c.yp = 1000 * py / 200;
  c.qx = 1000 * px / MuonMass;
  c.qy = 1000 * py / MuonMass;
  c.t = 1;
  c.kinetic = 100;
  c.weight = 1;
  c.pdgid = -13 * charge;
  c.charge = charge;
  c.massKnown = true;
  return c;
}

OpticsRow rowOf(const std::vector<OpticsCrossing> &crossings, double bz) {
  PlaneStatistics plane(momentSetsOf(Chosen));
  for (const OpticsCrossing &c : crossings)
    plane.add(c);
  return beamOptics(0, plane, plane, MomentumReference(), Chosen, bz);
}

/// Twelve muons on a ring of 2 mm, each turning about the axis with 3 MeV/c.
std::vector<OpticsCrossing> turningRing() {
  std::vector<OpticsCrossing> ring;
  for (int k = 0; k < 12; ++k) {
    double phase = 2 * M_PI * k / 12;
    ring.push_back(crossing(2 * std::cos(phase), 2 * std::sin(phase), -3 * std::sin(phase),
                            3 * std::cos(phase)));
  }
  return ring;
}

TEST(AngularMomentumMeasureTest, aTurningRingByHand) {
  // x Py - y Px = r Pt = 6 mm MeV/c for every muon, about the axis.
  OpticsRow row = rowOf(turningRing(), 0);
  EXPECT_NEAR(row.value("L_kin_mm_MeV"), 6, 1e-13);
  EXPECT_NEAR(row.value("L_kin_mm_MeV_err"), 0, 1e-13);
  EXPECT_NEAR(row.value("L_kin_n_mm"), 6 / MuonMass, 1e-15);
  EXPECT_NEAR(row.value("L_can_mm_MeV"), 6, 1e-13);
  // In 4 T: (q Bz / 2) <x^2 + y^2> = 0.149896229 * 4 * 4 mm MeV/c more.
  row = rowOf(turningRing(), 4);
  EXPECT_NEAR(row.value("L_kin_mm_MeV"), 6, 1e-13);
  EXPECT_NEAR(row.value("L_can_mm_MeV"), 6 + HalfQB * 4 * 4, 1e-13);
  EXPECT_NEAR(row.value("L_can_n_mm"), (6 + HalfQB * 4 * 4) / MuonMass, 1e-15);
  // A field the other way, as a negative muon would feel this one, cancels it all.
  row = rowOf(turningRing(), -6 / (HalfQB * 4));
  EXPECT_NEAR(row.value("L_can_mm_MeV"), 0, 1e-13);
  EXPECT_EQ(row.status, "no-momentum-spread");
}

TEST(AngularMomentumMeasureTest, aMovedBeamTurnsAboutTheAxisNotItsCentre) {
  // Every muon at (5, 0) mm going up with 2 MeV/c: 10 mm MeV/c about the axis.
  std::vector<OpticsCrossing> crossings;
  for (double dx : {-0.5, 0.5})
    for (double dy : {-0.5, 0.5})
      crossings.push_back(crossing(5 + dx, dy, 0, 2));
  EXPECT_NEAR(rowOf(crossings, 0).value("L_kin_mm_MeV"), 10, 1e-13);
}

class CanonicalEmittanceTest : public ::testing::TestWithParam<int> {};

TEST_P(CanonicalEmittanceTest, canonicalEmittancesTakeTheVectorPotential) {
  // Momenta u = u0 + kappa (y, -x): the canonical ones are u0, whose emittances are those
  // of a beam without the field. Positions correlated in x and y.
  const int charge = GetParam();
  const double bz = 4, kappa = 1000 * HalfQB * charge * bz / MuonMass; // mrad per mm
  std::vector<OpticsCrossing> plain, inField;
  std::vector<std::array<double, 4>> beam;
  for (double x : {-1.0, 0.5, 1.5})
    for (double ux : {-20.0, 10.0})
      for (double y : {-2.0, 2.0})
        for (double uy : {-4.0, 0.0, 8.0})
          beam.push_back({x, ux + 7 * x, y + 0.6 * x, uy - 3 * y});
  for (const auto &[x, ux, y, uy] : beam) {
    plain.push_back(crossing(x, y, ux * MuonMass / 1000, uy * MuonMass / 1000, charge));
    inField.push_back(crossing(x, y, (ux + kappa * y) * MuonMass / 1000,
                               (uy - kappa * x) * MuonMass / 1000, charge));
  }
  OpticsRow without = rowOf(plain, 0), with = rowOf(inField, bz);
  for (const char *p : {"x", "y"}) {
    const QString can = QString("emitn_can_%1_mm_mrad").arg(p),
                  n = QString("emitn_%1_mm_mrad").arg(p);
    EXPECT_NEAR(without.value(can), without.value(n), 1e-12 * without.value(n)) << p;
    EXPECT_NEAR(with.value(can), without.value(n), 1e-9 * without.value(n)) << p;
    EXPECT_GT(std::fabs(with.value(n) / without.value(n) - 1), 0.05) << p;
  }
}

INSTANTIATE_TEST_SUITE_P(BothSigns, CanonicalEmittanceTest, ::testing::Values(1, -1));

TEST(AngularMomentumMeasureTest, withoutOneMassOnlyTheMomentaInMeV) {
  std::vector<OpticsCrossing> crossings = turningRing();
  crossings[0].pdgid = 11;
  crossings[0].charge = -1;
  OpticsRow row = rowOf(crossings, 4);
  EXPECT_NEAR(row.value("L_kin_mm_MeV"), 6, 1e-13);
  // Each crossing's own charge: eleven of +1 and one of -1 at the same radius.
  EXPECT_NEAR(row.value("L_can_mm_MeV"), 6 + HalfQB * 4 * 4 * 10 / 12, 1e-13);
  for (const char *column : {"L_kin_n_mm", "L_can_n_mm", "emitn_can_x_mm_mrad"})
    EXPECT_TRUE(std::isnan(row.value(column))) << column;
}

TEST(AngularMomentumMeasureTest, errorsAreHonest) {
  // A round beam of 1.5 mm turning at 0.4 MeV/c per mm, with a spread of 0.5 MeV/c in each
  // momentum, in 3 T (every second moment times the shape's factor f): L_kin = 0.4 <x^2 +
  // y^2> less the field's part, L_can adds (q Bz / 2) <x^2 + y^2> back.
  const double sigma = 1.5, turn = 0.4, spread = 0.5, bz = 3;
  const double kappa = 1000 * HalfQB * bz / MuonMass;
  std::map<std::string, Pulls> pulls;
  for (BeamShape shape : {BeamShape::Gaussian, BeamShape::Uniform, BeamShape::Halo}) {
    const double f = covarianceFactor(shape), r2 = 2 * sigma * sigma * f;
    for (unsigned seed = 1; seed <= 300; ++seed) {
      std::mt19937 random(seed);
      std::vector<OpticsCrossing> crossings;
      for (int k = 0; k < (shape == BeamShape::Halo ? 5000 : 1000); ++k) {
        const std::vector<double> z = drawUnit(shape, 4, random);
        double x = sigma * z[0], y = sigma * z[1];
        // u = u0 + kappa (y, -x) makes (P + q A)/(m c) = u0; then the turn on top of it.
        double px = spread * z[2] + (kappa * y * MuonMass / 1000) - turn * y;
        double py = spread * z[3] - (kappa * x * MuonMass / 1000) + turn * x;
        crossings.push_back(crossing(x, y, px, py));
      }
      OpticsRow row = rowOf(crossings, bz);
      auto add = [&](const char *column, double truth) {
        pulls[nameOf(shape) + column].add(row.value(column), truth,
                                          row.value(QString(column) + "_err"));
      };
      // x Py - y Px = (turn - kappa m / 1000) r^2 on average; + HalfQB bz r^2 is turn r^2.
      add("L_kin_mm_MeV", (turn - kappa * MuonMass / 1000) * r2);
      add("L_can_mm_MeV", turn * r2);
      add("L_can_n_mm", turn * r2 / MuonMass);
      // The canonical u_x is the spread and the turn's -1000 turn y / m, both apart from x:
      // its emittance is sigma times their quadratic sum, all times f.
      add("emitn_can_x_mm_mrad",
          f * sigma * std::hypot(1000 * spread / MuonMass, 1000 * turn * sigma / MuonMass));
    }
  }
  expectHonest(pulls, 0.85, 1.15);
}

} // namespace
