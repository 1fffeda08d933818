//===- PhaseSpaceViewTest.cpp - What the picture of a plane's crossings shows ===//

#include "PhaseSpaceView.h"

#include <QTemporaryDir>
#include <cmath>
#include <gtest/gtest.h>
#include <random>

namespace {

/// A beam of weighted crossings, u_x correlated with x, y with x.
std::vector<KeptCrossing> beam(size_t count) {
  std::mt19937 random(31);
  std::normal_distribution<double> normal;
  std::uniform_real_distribution<double> uniform(0.5, 1.5);
  std::vector<KeptCrossing> crossings;
  for (size_t k = 0; k < count; ++k) {
    const double x = 2 + normal(random);
    KeptCrossing c{
        x, 0.5 * x + normal(random), 0.3 * x + normal(random), normal(random), uniform(random), 0};
    c.t = 10 + 0.01 * normal(random);
    c.energy = 100 + normal(random);
    crossings.push_back(c);
  }
  return crossings;
}

void expectNear(const Ellipsoid &actual, const Ellipsoid &expected, const std::string &what) {
  EXPECT_EQ(actual.first, expected.first) << what;
  EXPECT_EQ(actual.stride, expected.stride) << what;
  for (size_t i = 0; i < 2; ++i) {
    EXPECT_NEAR(actual.mean[i], expected.mean[i], 1e-12 * std::fabs(expected.mean[i])) << what;
    for (size_t j = 0; j < 2; ++j)
      EXPECT_NEAR(actual.covariance[i][j], expected.covariance[i][j],
                  1e-12 * expected.covariance[i][i])
          << what;
  }
  if (std::isnan(expected.boundary))
    EXPECT_TRUE(std::isnan(actual.boundary)) << what; // an r.m.s. ellipse has none
  else
    EXPECT_NEAR(actual.boundary, expected.boundary, 1e-12 * expected.boundary) << what;
}

} // namespace

TEST(PhaseSpaceViewTest, fourPairsEachFramedByFourWidthsAboutItsMean) {
  const PhaseSpaceView view = phaseSpaceView(beam(2000));
  const int pairs[4][2] = {{PhaseX, 1}, {PhaseY, 1}, {PhaseX, 2}, {PhaseT, 1}};
  for (size_t i = 0; i < 4; ++i) {
    const PhasePanel &panel = view[i];
    EXPECT_EQ(panel.pair.first, pairs[i][0]);
    EXPECT_EQ(panel.pair.stride, pairs[i][1]);
    EXPECT_EQ(panel.rms.stride, pairs[i][1]);
    const double sx = std::sqrt(panel.rms.covariance[0][0]);
    EXPECT_DOUBLE_EQ(panel.xMin, panel.rms.mean[0] - 4 * sx);
    EXPECT_DOUBLE_EQ(panel.xMax, panel.rms.mean[0] + 4 * sx);
    EXPECT_EQ(panel.weights.size(), size_t(PhaseBins * PhaseBins));
    // The core holds 90 % of the weight, within the r.m.s. frame.
    EXPECT_GT(panel.core.boundary, 0);
    EXPECT_LT(panel.core.covariance[0][0], panel.rms.covariance[0][0]);
  }
}

TEST(PhaseSpaceViewTest, aPlaneInPassesShowsWhatItsCrossingsReadBackWholeShow) {
  // Kept in blocks of 233, as a thousand planes share the blocks' memory.
  const std::vector<KeptCrossing> whole = beam(5000);
  QTemporaryDir dir;
  KeptCrossings kept(1000, dir.path());
  for (const KeptCrossing &c : whole)
    kept.add(0, c);
  kept.settle();
  const PhaseSpaceView a = phaseSpaceView(whole), b = phaseSpaceView(kept.passesOver(0));
  for (size_t i = 0; i < 4; ++i) {
    const std::string what = "panel " + std::to_string(i);
    expectNear(b[i].rms, a[i].rms, what + " r.m.s.");
    expectNear(b[i].core, a[i].core, what + " core");
    EXPECT_NEAR(b[i].xMin, a[i].xMin, 1e-12 * std::fabs(a[i].xMin)) << what;
    EXPECT_NEAR(b[i].yMax, a[i].yMax, 1e-12 * std::fabs(a[i].yMax)) << what;
    double total = 0;
    for (size_t k = 0; k < a[i].weights.size(); ++k) {
      EXPECT_NEAR(b[i].weights[k], a[i].weights[k], 1e-12 * a[i].weights[k])
          << what << " bin " << k;
      total += a[i].weights[k];
    }
    EXPECT_GT(total, 0.99 * 5000 * 0.9); // nearly every crossing within four widths
  }
}
