//===- PhaseSpacePlotTest.cpp - The crossings of one plane, drawn ----------===//

#include "PhaseSpacePlot.h"

#include <QImage>
#include <cmath>
#include <gtest/gtest.h>
#include <random>

namespace {

/// A round Gaussian beam centred at 0 in every pair, u_x correlated with x.
std::vector<KeptCrossing> beam() {
  std::mt19937 random(5);
  std::normal_distribution<double> normal;
  std::vector<KeptCrossing> crossings;
  for (int k = 0; k < 20000; ++k) {
    const double x = normal(random);
    KeptCrossing c{x, 0.5 * x + normal(random), normal(random), normal(random), 1, 0};
    c.t = normal(random);
    c.energy = normal(random);
    crossings.push_back(c);
  }
  return crossings;
}

} // namespace

TEST(PhaseSpacePlotTest, fourPanelsOfDensityDenseAtTheCentre) {
  QImage image;
  ASSERT_TRUE(image.loadFromData(phaseSpacePlot("p.png", phaseSpaceView(beam()), "a beam")));
  EXPECT_EQ(image.size(), QSize(1200, 1040));
  // Panels (1200 - 90 - 30 - 110) / 2 = 485 by (1040 - 60 - 90 - 80) / 2 = 405 pixels
  // from (90, 60), (685, 60), (90, 555), (685, 555); each spans four r.m.s. widths either
  // side of the mean, so the mean is at its centre.
  const QPoint corners[] = {{90, 60}, {685, 60}, {90, 555}, {685, 555}};
  for (const QPoint &corner : corners) {
    const QColor centre = image.pixelColor(corner + QPoint(242 + 3, 202 + 3));
    EXPECT_GT(centre.red(), 150) << corner.x() << "," << corner.y();
    EXPECT_GT(centre.green(), 150) << corner.x() << "," << corner.y();
    EXPECT_LT(centre.blue(), 120) << corner.x() << "," << corner.y();
    // Four widths out along both axes nothing was met: white.
    EXPECT_EQ(image.pixelColor(corner + QPoint(5, 5)), QColor(Qt::white));
  }
  // The r.m.s. ellipse of (x, y) crosses the x axis one width right of the centre: a
  // black pixel at 485 / 8 = 60.6 pixels.
  const QPoint centre(90 + 242, 555 + 202);
  bool black = false;
  for (int dx = 57; dx <= 64; ++dx) {
    const QColor c = image.pixelColor(centre + QPoint(dx, 0));
    black = black || (c.red() < 60 && c.green() < 60 && c.blue() < 60);
  }
  EXPECT_TRUE(black);
}

TEST(PhaseSpacePlotTest, anSvgNamesItsTitleAndHoldsTheDensityAsAnImage) {
  const QByteArray svg = phaseSpacePlot("p.svg", phaseSpaceView(beam()), "a beam at s = 1 m");
  EXPECT_TRUE(svg.contains("<title>a beam at s = 1 m</title>"));
  EXPECT_EQ(svg.count("<image "), 4);
  EXPECT_TRUE(svg.contains(">90 % core</text>"));
  EXPECT_TRUE(svg.contains(">u_x = Px/(m c) [mrad]</text>"));
  EXPECT_TRUE(svg.contains(">kinetic energy [MeV]</text>"));
}
