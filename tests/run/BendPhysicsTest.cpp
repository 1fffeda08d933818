//===- BendPhysicsTest.cpp - Dispersion from a bend, as a physicist expects -===//
//
// make-run moves 200 MeV/c muons with a momentum spread through the example beamline's
// sector bend (2 m radius, 30 degrees from s = 2 m) and its 5 degree kink at s = 5 m;
// twiss-optics must find at every plane the dispersion of linear optics, within its
// reported errors:
//   in the bend, a distance r = s - 2 m into it:  D = R (1 - cos(r/R)), D' = sin(r/R);
//   after it:  D' = sin(theta), D = R (1 - cos(theta)) + sin(theta) (s - s_exit);
//   after the kink (a thin kick of 5 degrees times p0/p): D' grows by the kink's angle;
// and the betatron emittance must stay what it was before the bend.
//
//===----------------------------------------------------------------------------===//

#include "BeamlineFixture.h"
#include "TestSupport.h"

#include <cmath>
#include <gtest/gtest.h>

namespace {

const double R = 2.0, Theta = Nexil::Pi / 6, Kink = 5 * Nexil::Pi / 180; // m, rad
const double BendStart = 2.0, BendEnd = BendStart + R * Theta, KinkAt = 5.0;

struct Dispersion {
  double d, dp; ///< m, 1
};

/// The dispersion of linear optics at s (m), for a bend turning the path towards +x.
Dispersion expected(double s) {
  if (s < BendStart)
    return {0, 0};
  if (s < BendEnd) {
    double phi = (s - BendStart) / R;
    return {R * (1 - std::cos(phi)), std::sin(phi)};
  }
  double d = R * (1 - std::cos(Theta)) + std::sin(Theta) * (s - BendEnd);
  if (s < KinkAt)
    return {d, std::sin(Theta)};
  double atKink = R * (1 - std::cos(Theta)) + std::sin(Theta) * (KinkAt - BendEnd);
  double slope = std::sin(Theta) + Kink;
  return {atKink + slope * (s - KinkAt), slope};
}

using BendPhysicsTest = BeamlineFixture; // the beamline read here is cleared afterwards

TEST_F(BendPhysicsTest, dispersionOfTheBendAndTheKinkAndAnUnchangedEmittance) {
  QTemporaryDir dir;
  ToolRun made = runCommand(dir.path(), {MAKE_RUN_BINARY, "run", "--particles", "4000", "--digits",
                                         "6", "--momentum-spread", "0.005"});
  ASSERT_EQ(made.status, 0) << made.err;
  ToolRun r = runOpticsTool(dir.path() + "/run", {"-q", "--species", "mu+"});
  ASSERT_EQ(r.status, 0) << r.err;
  QList<QHash<QString, QString>> rows = csvRows(readFile(dir.path() + "/run/twiss.optics.csv"));
  ASSERT_EQ(rows.size(), 15);

  // Which way the path turns in the planes' frame, from the beamline itself: momenta
  // above the reference bend less and end up on the outside, so D has the other sign.
  Nexil::BeamlineCoordinates::initFromFile(dir.path() + "/run/beamlineCoordinates.txt");
  Nexil::Transform entry = Nexil::BeamlineCoordinates::getTransform(BendStart);
  Nexil::Vector turn = Nexil::BeamlineCoordinates::getTransform(BendEnd) * Nexil::Vector(0, 0, 1);
  double outside = turn.dot(entry * Nexil::Vector(1, 0, 0)) > 0 ? -1 : 1;

  const double emittance = rows[0]["emit_x_mm_mrad"].toDouble();
  const double emittanceError = rows[0]["emit_x_mm_mrad_err"].toDouble();
  ASSERT_NEAR(emittance, 2.0, 0.2); // 2 mm x 1 mrad at s = 0
  for (const auto &row : rows) {
    double s = row["s_mm"].toDouble() / 1000;
    Dispersion e = expected(s);
    EXPECT_EQ(row["n"], "3995") << "s = " << s; // every muon but the five misses
    EXPECT_NEAR(row["disp_x_m"].toDouble(), outside * e.d, 3 * row["disp_x_m_err"].toDouble())
        << "s = " << s;
    EXPECT_NEAR(row["disp_xp"].toDouble(), outside * e.dp, 3 * row["disp_xp_err"].toDouble())
        << "s = " << s;
    // The same muons at every plane: the emittance's error is that of the first plane.
    EXPECT_NEAR(row["emit_x_mm_mrad"].toDouble(), emittance, emittanceError) << "s = " << s;
  }
  // The closed forms are not trivially met: the dispersion after the kink is large.
  EXPECT_GT(std::fabs(rows[14]["disp_x_m"].toDouble()), 2.0);
}

/// The rows of the coupled measure over a run with the bend tilted by 45 degrees about
/// the path, which mixes x and y.
QList<QHash<QString, QString>> tiltedRun(const QTemporaryDir &dir, const char *spread) {
  ToolRun made = runCommand(dir.path(), {MAKE_RUN_BINARY, "run", "--tilt", "45", "--particles",
                                         "1000", "--digits", "6", "--momentum-spread", spread,
                                         "--secondary-every", "0", "--misses", "0"});
  EXPECT_EQ(made.status, 0) << made.err;
  EXPECT_NE(readFile(dir.path() + "/run/beamlineCoordinates.txt")
                .find("%bcbend radius=2m angle=30deg phi=45 s=2m\n"),
            std::string::npos);
  ToolRun r = runOpticsTool(dir.path() + "/run", {"-q", "--measures", "4d"});
  EXPECT_EQ(r.status, 0) << r.err;
  return csvRows(readFile(dir.path() + "/run/twiss.optics.csv"));
}

TEST(TiltedBendPhysicsTest, aTiltedBendMixesXAndYButKeepsThe4dMeasures) {
  QTemporaryDir dir;
  const QList<QHash<QString, QString>> rows = tiltedRun(dir, "0");
  ASSERT_EQ(rows.size(), 15);
  const QHash<QString, QString> &entrance = rows[0];
  auto v = [](const QHash<QString, QString> &row, const QString &column) {
    return row[column].toDouble();
  };
  // The tilted bend turns some of x into y: emitn_y grows by far more than its error.
  EXPECT_GT(v(rows[14], "emitn_y_mm_mrad") - v(entrance, "emitn_y_mm_mrad"),
            10 * v(entrance, "emitn_y_mm_mrad_err"));
  for (const auto &row : rows)
    for (const QString kept : {"emitn_4d_mm_mrad", "emitn_4d_1_mm_mrad", "emitn_4d_2_mm_mrad"})
      EXPECT_LT(std::fabs(v(row, kept) - v(entrance, kept)), v(entrance, kept + "_err"))
          << kept.toStdString() << " at " << v(row, "s_mm");
}

TEST(TiltedBendPhysicsTest, withAMomentumSpreadTheBetatron4dEmittanceStays) {
  QTemporaryDir dir;
  const QList<QHash<QString, QString>> rows = tiltedRun(dir, "0.005");
  ASSERT_EQ(rows.size(), 15);
  auto v = [](const QHash<QString, QString> &row, const char *column) {
    return row[column].toDouble();
  };
  const double first = v(rows[0], "emitn_4d_betatron_mm_mrad");
  for (const auto &row : rows)
    EXPECT_LT(std::fabs(v(row, "emitn_4d_betatron_mm_mrad") - first),
              v(rows[0], "emitn_4d_betatron_mm_mrad_err"))
        << v(row, "s_mm");
  // The dispersion the bend makes in both planes grows the projected 4D emittance.
  EXPECT_GT(v(rows[14], "emitn_4d_mm_mrad"), 2 * v(rows[0], "emitn_4d_mm_mrad"));
}

} // namespace
