//===- PhysicsTest.cpp - Reported beam moments against closed forms --------===//
//
// Tracks are written here from analytic paths, with every digit ("%.17g"), and the
// report of a real run is compared with moments computed in the test itself.
//
//===----------------------------------------------------------------------------===//

#include "Geometry.h"
#include "TestSupport.h"

#include <QMap>
#include <cmath>
#include <gtest/gtest.h>
#include <random>

namespace {

using Nexil::Pi;

/// A 30 degree bend of 2 m radius from s = 2 m, and a kink of 5 degrees at s = 5 m.
const char *const BendAndKink = "%bcstart s=0m\n%bcbend radius=2m angle=30deg phi=0 s=2m\n"
                                "%bcbend radius=0m angle=5deg phi=0 s=5m\n";

struct Vec {
  double x, y, z;
};

/// The report as name -> number (units stripped).
QMap<QString, double> parseReport(const std::string &text) {
  QMap<QString, double> values;
  for (const QString &line : QString::fromStdString(text).split('\n', Qt::SkipEmptyParts)) {
    QStringList parts = line.split('=');
    QString number = parts[1];
    number.remove("mm");
    values[parts[0]] = number.toDouble();
  }
  return values;
}

void expectMoment(double reported, double expected, const char *what) {
  EXPECT_NEAR(reported, expected, 6e-6 * fabs(expected) + 1e-9) << what;
}

class PhysicsTest : public ::testing::Test {
protected:
  QTemporaryDir dir;
  std::string tracks = "";
  void addStep(const Vec &p, int event, int track) {
    tracks += QString::asprintf("%.17g %.17g %.17g 0 0 100 0 -13 %d %d 0 1\n", p.x, p.y, p.z, event,
                                track)
                  .toStdString();
  }
  QMap<QString, double> run(const std::string &coordinates, const std::string &samples) {
    writeFile(dir.path() + "/beamlineCoordinates.txt", coordinates);
    writeFile(dir.path() + "/sampleS.txt", samples);
    writeFile(dir.path() + "/AllTracks.txt", tracks);
    ToolRun r = runTool(dir.path(), {});
    EXPECT_EQ(r.status, 0);
    return parseReport(readFile(dir.path() + "/twiss.calc.txt"));
  }
};

TEST_F(PhysicsTest, driftMomentsMatchTheCrossingPoints) {
  std::mt19937 random(3);
  std::normal_distribution<double> gauss(0, 1);
  const double planes[] = {1050, 2250};
  std::vector<double> xs[2], ys[2];
  for (int p = 0; p < 300; ++p) {
    double x0 = 2 * gauss(random), y0 = gauss(random);
    double xp = 1e-3 * gauss(random), yp = 5e-4 * gauss(random);
    for (double z = 0; z <= 3000; z += 100)
      addStep({x0 + xp * z, y0 + yp * z, z}, p + 1, 1);
    for (int i = 0; i < 2; ++i) {
      xs[i].push_back(x0 + xp * planes[i]);
      ys[i].push_back(y0 + yp * planes[i]);
    }
  }
  QMap<QString, double> report = run("%bcstart s=0m\n", "1050mm 100mm\n2250mm 100mm\n");
  for (int i = 0; i < 2; ++i) {
    auto moments = [](const std::vector<double> &v, double &mean, double &sigma) {
      double sum = 0, sum2 = 0;
      for (double a : v) {
        sum += a;
        sum2 += a * a;
      }
      mean = sum / double(v.size());
      double var = 0;
      for (double a : v)
        var += (a - mean) * (a - mean);
      sigma = sqrt(var / double(v.size()));
    };
    double mx, sx, my, sy;
    moments(xs[i], mx, sx);
    moments(ys[i], my, sy);
    QString s = QString::number(int(planes[i]));
    expectMoment(report["meanX_" + s], mx, "meanX");
    expectMoment(report["sigmaX_" + s], sx, "sigmaX");
    expectMoment(report["meanY_" + s], my, "meanY");
    expectMoment(report["sigmaY_" + s], sy, "sigmaY");
    EXPECT_EQ(report["entries_" + s], 300.0);
  }
}

/// A point of the reference path of a drift to 2 m, a 30 degree bend on 2 m to about
/// 3.047 m, a drift to 5 m, a 5 degree kink and a drift; all in millimetres.
Vec onPath(double s, double sideways) {
  const double R = 2000, a = Pi / 6, arcEnd = 2000 + R * a;
  auto at = [](Vec p, double angle, double along, double side) {
    return Vec{p.x + sin(angle) * along + cos(angle) * side, 0,
               p.z + cos(angle) * along - sin(angle) * side};
  };
  if (s <= 2000)
    return {sideways, 0, s};
  if (s <= arcEnd) {
    double t = (s - 2000) / R;
    return {R - (R - sideways) * cos(t), 0, 2000 + (R - sideways) * sin(t)};
  }
  Vec arcExit{R - R * cos(a), 0, 2000 + R * sin(a)};
  if (s <= 5000)
    return at(arcExit, a, s - arcEnd, sideways);
  Vec kink = at(arcExit, a, 5000 - arcEnd, 0);
  return at(kink, a + 5 * Pi / 180, s - 5000, sideways);
}

TEST_F(PhysicsTest, referenceParticlesStayOnAxisThroughTheBend) {
  for (int p = 0; p < 3; ++p)
    for (double s = 0; s <= 7000; s += 50)
      addStep(onPath(s, 0), p + 1, 1);
  QMap<QString, double> report =
      run(BendAndKink, "1025mm 100mm\n2525mm 100mm\n4025mm 100mm\n6025mm 100mm\n");
  const double sagitta = 50.0 * 50.0 / (8 * 2000);
  for (const char *s : {"1025", "4025", "6025"}) {
    EXPECT_NEAR(report[QString("meanX_") + s], 0, 1e-9) << s;
    EXPECT_NEAR(report[QString("meanY_") + s], 0, 1e-9) << s;
    EXPECT_EQ(report[QString("entries_") + s], 3.0) << s;
  }
  EXPECT_NEAR(report["meanX_2525"], 0, sagitta);
  EXPECT_NE(report["meanX_2525"], 0.0);
  EXPECT_EQ(report["entries_2525"], 3.0);
}

TEST_F(PhysicsTest, displacedBeamKeepsItsOffsetThroughAStraight) {
  for (int p = 0; p < 4; ++p)
    for (double s = 0; s <= 1975; s += 50)
      addStep(onPath(s, 1), p + 1, 1);
  for (int p = 0; p < 4; ++p)
    for (double s = 3100; s <= 4900; s += 50)
      addStep(onPath(s, 1), p + 11, 1);
  QMap<QString, double> report = run(BendAndKink, "1000mm 100mm\n4000mm 100mm\n");
  EXPECT_NEAR(report["meanX_1000"], 1, 1e-9);
  EXPECT_NEAR(report["meanX_4000"], 1, 1e-9);
  EXPECT_NEAR(report["sigmaX_4000"], 0, 1e-6);
}

TEST_F(PhysicsTest, backwardCrossingCountsOnlyWithBothDirections) {
  addStep({0, 0, 900}, 1, 1);
  addStep({0, 0, 1100}, 1, 1);
  addStep({0, 0, 900}, 1, 1);
  QMap<QString, double> report =
      run("%bcstart s=0m\n", "1000mm 100mm\n1000mm 100mm bothDirections=true\n");
  // Both planes report under the same name; the map keeps the later block.
  EXPECT_EQ(report["entries_1000"], 2.0);
  std::string text = readFile(dir.path() + "/twiss.calc.txt");
  EXPECT_NE(text.find("entries_1000=1\n"), std::string::npos);
  EXPECT_NE(text.find("entries_1000=2\n"), std::string::npos);
}

TEST(ExampleTest, bundledExampleGivesItsCommittedReport) {
  QTemporaryDir dir;
  const QString example = QString(SOURCE_DIR) + "/examples/beamline/";
  for (const char *name : {"beamlineCoordinates.txt", "sampleS.txt", "AllTracks.txt"})
    writeFile(dir.path() + "/" + name, readFile(example + name));
  ToolRun r = runTool(dir.path(), {});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "twiss: 15 samples in s\n");
  std::string planes;
  for (int i = 0; i < 15; ++i)
    planes += "twiss: %bcsample " + std::to_string(250 + 500 * i) + "mm\n";
  EXPECT_EQ(r.err, planes);
  EXPECT_EQ(readFile(dir.path() + "/twiss.calc.txt"), readFile(example + "twiss.calc.txt"));
}

} // namespace
