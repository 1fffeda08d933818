//===- LongitudinalMeasureTest.cpp - Time against energy -------------------===//

#include "BeamOptics.h"
#include "Measure.h"
#include "Pulls.h"
#include "Species.h"

#include <cmath>
#include <gtest/gtest.h>
#include <random>

namespace {

const QStringList Chosen = {"2d", "longitudinal"};
const double MuonMass = speciesFacts(-13).mass;
/// sqrt(det C(c t, 1000 E / (m c^2))) per sqrt(det C(t, E)) of a muon: c in mm/ns.
const double Scale = 299.792458 * 1000 / MuonMass;

/// A crossing at (t, E); its transverse coordinates scattered without regard to them.
OpticsCrossing crossing(double t, double kinetic, int pdgid = -13) {
  OpticsCrossing c{};
  c.x = std::sin(7 * t + 13 * kinetic);
  c.xp = std::cos(11 * t - 5 * kinetic);
  c.y = std::sin(3 * t - 17 * kinetic);
  c.yp = std::cos(19 * t + 2 * kinetic);
  c.p = 200 + kinetic;
  c.qx = c.xp;
  c.qy = c.yp;
  c.t = t;
  c.kinetic = kinetic;
  c.weight = 1;
  c.pdgid = pdgid;
  c.massKnown = speciesFacts(pdgid).known;
  return c;
}

OpticsRow rowOf(const std::vector<OpticsCrossing> &crossings) {
  PlaneStatistics plane(momentSetsOf(Chosen));
  for (const OpticsCrossing &c : crossings)
    plane.add(c);
  return beamOptics(0, plane, plane, MomentumReference(), Chosen);
}

TEST(LongitudinalMeasureTest, aDiamondInTimeAndEnergyByHand) {
  // (t, E - 100 MeV) = (+-1 ns, 0), (0, +-2 MeV): C(t,t) = 1/2, C(E,E) = 2, C(t,E) = 0.
  OpticsRow row = rowOf({crossing(1, 100), crossing(-1, 100), crossing(0, 102), crossing(0, 98)});
  EXPECT_DOUBLE_EQ(row.value("sigma_E_MeV"), std::sqrt(2.0));
  EXPECT_DOUBLE_EQ(row.value("emitn_l_mm_mrad"), Scale * 1);
  EXPECT_EQ(row.value("chirp_MeV_per_ns"), 0);
  // The delta method of a width: var = sum (u^2 - C)^2 / (4 C W^2) = (4 * 4) / (4 * 2 * 16).
  EXPECT_NEAR(row.value("sigma_E_MeV_err"), std::sqrt(1.0 / 8), 1e-12);
}

TEST(LongitudinalMeasureTest, theChirpIsTheSlopeOfEnergyAgainstTime) {
  // E = 100 + 3 t + e with e = +-0.5 for every t: no correlation left but the slope.
  std::vector<OpticsCrossing> crossings;
  for (double t : {-2.0, -0.5, 0.25, 1.0, 1.25})
    for (double e : {-0.5, 0.5})
      crossings.push_back(crossing(t, 100 + 3 * t + e));
  OpticsRow row = rowOf(crossings);
  EXPECT_NEAR(row.value("chirp_MeV_per_ns"), 3, 1e-12);
  // det C(t, E) = C(t,t) C(e,e): the chirp takes nothing of the area.
  double mean = 0, tt = 0;
  for (double t : {-2.0, -0.5, 0.25, 1.0, 1.25})
    mean += t / 5;
  for (double t : {-2.0, -0.5, 0.25, 1.0, 1.25})
    tt += (t - mean) * (t - mean) / 5;
  EXPECT_NEAR(row.value("emitn_l_mm_mrad"), Scale * std::sqrt(tt * 0.25), 1e-9);
  EXPECT_EQ(row.status, "ok");
}

TEST(LongitudinalMeasureTest, aBunchWithoutEnergySpreadIsDegenerate) {
  OpticsRow row = rowOf({crossing(1, 100), crossing(-1, 100), crossing(0.5, 100)});
  EXPECT_EQ(row.status, "few;no-momentum-spread;degenerate");
  EXPECT_EQ(row.value("sigma_E_MeV"), 0);
  EXPECT_TRUE(std::isnan(row.value("emitn_l_mm_mrad")));
  EXPECT_TRUE(std::isnan(row.value("emitn_l_mm_mrad_err")));
}

TEST(LongitudinalMeasureTest, speciesDecideWhatCanBeMeasured) {
  std::vector<OpticsCrossing> crossings = {crossing(1, 100), crossing(-1, 100), crossing(0, 102),
                                           crossing(0, 98)};
  crossings[0].pdgid = 11; // an electron among muons: energies known, no one mass
  OpticsRow row = rowOf(crossings);
  EXPECT_DOUBLE_EQ(row.value("sigma_E_MeV"), std::sqrt(2.0));
  EXPECT_EQ(row.value("chirp_MeV_per_ns"), 0);
  EXPECT_TRUE(std::isnan(row.value("emitn_l_mm_mrad")));
  // Without one mass there is no longitudinal emittance to call degenerate.
  row = rowOf({crossing(1, 100, 11), crossing(-1, 100), crossing(0.5, 100)});
  EXPECT_EQ(row.status, "few;no-momentum-spread;mixed-species");
  crossings[0] = crossing(1, 0, 999); // a species without a known mass: no energy
  row = rowOf(crossings);
  for (const MeasureColumn &column : longitudinalMeasure().columns)
    EXPECT_TRUE(std::isnan(row.value(column.name))) << column.name.toStdString();
}

TEST(LongitudinalMeasureTest, errorsAreHonest) {
  // A bunch of 0.2 ns and 1.5 MeV, chirp 4 MeV/ns: C = [[0.04, 0.16], [0.16, 2.25 + 0.64]],
  // times the shape's factor.
  const double sigmaT = 0.2, sigmaE = 1.5, chirp = 4;
  std::map<std::string, Pulls> pulls;
  for (BeamShape shape : {BeamShape::Gaussian, BeamShape::Uniform, BeamShape::Halo}) {
    const double scale = covarianceFactor(shape);
    for (unsigned seed = 1; seed <= 300; ++seed) {
      std::mt19937 random(seed);
      std::vector<OpticsCrossing> crossings;
      for (int k = 0; k < (shape == BeamShape::Halo ? 5000 : 1000); ++k) {
        const std::vector<double> z = drawUnit(shape, 2, random);
        double t = sigmaT * z[0];
        crossings.push_back(crossing(t, 100 + chirp * t + sigmaE * z[1]));
      }
      OpticsRow row = rowOf(crossings);
      auto add = [&](const char *column, double truth) {
        pulls[nameOf(shape) + column].add(row.value(column), truth,
                                          row.value(QString(column) + "_err"));
      };
      add("sigma_E_MeV", std::sqrt(scale * (sigmaE * sigmaE + chirp * chirp * sigmaT * sigmaT)));
      add("emitn_l_mm_mrad", scale * Scale * sigmaT * sigmaE);
      add("chirp_MeV_per_ns", chirp);
    }
  }
  expectHonest(pulls, 0.85, 1.15);
}

} // namespace
