//===- OpticsPhysicsTest.cpp - Optics of beams with known parameters -------===//
//
// Gaussian beams of known emittance, beta, alpha and dispersion drift through a
// straight beamline; the estimates at 20 planes over many seeds are compared with the
// closed forms of a drift, and their errors must describe their spread: the pulls
// (estimate - truth) / error have unit width.
//
//===----------------------------------------------------------------------------===//

#include "OpticsBeam.h"
#include "Pulls.h"
#include "TestSupport.h"

#include <QTemporaryDir>
#include <cmath>
#include <gtest/gtest.h>
#include <map>

namespace {

const unsigned Seeds = 60;

QList<double> twentyPlanes() {
  QList<double> planes;
  for (int i = 0; i < 20; ++i)
    planes << 100 + 100 * i; // 0.1 m to 2 m, through the waist at s = alpha0 / gamma0
  return planes;
}

QList<QHash<QString, QString>> analyse(const OpticsBeam &beam, const QStringList &options = {}) {
  QTemporaryDir dir;
  beam.write(dir.path(), twentyPlanes());
  ToolRun run = runOpticsTool(dir.path(), options + QStringList{"-q"});
  EXPECT_EQ(run.status, 0) << run.err;
  return csvRows(readFile(dir.path() + "/twiss.optics.csv"));
}

double number(const QHash<QString, QString> &row, const char *column) {
  bool ok = false;
  double v = row.value(column).toDouble(&ok);
  EXPECT_TRUE(ok) << column << " = '" << row.value(column).toStdString() << "'";
  return v;
}

TEST(OpticsPhysicsTest, errorsOfEmittanceBetaAlphaAndWidthAreHonest) {
  std::map<std::string, Pulls> pulls;
  for (unsigned seed = 1; seed <= Seeds; ++seed) {
    OpticsBeam beam;
    beam.seed = seed;
    beam.particles = 1000;
    QList<QHash<QString, QString>> rows = analyse(beam);
    ASSERT_EQ(rows.size(), 20);
    for (const auto &row : rows) {
      double s = number(row, "s_mm") / 1000;
      for (auto [p, emittance, beta0, alpha0] :
           {std::tuple{"x", beam.emitX, beam.betaX, beam.alphaX},
            std::tuple{"y", beam.emitY, beam.betaY, beam.alphaY}}) {
        QString q(p);
        auto column = [](const QString &name) { return name.toLatin1(); };
        double beta = OpticsBeam::betaAt(beta0, alpha0, s);
        double alpha = OpticsBeam::alphaAt(beta0, alpha0, s);
        pulls["emit_" + q.toStdString()].add(number(row, column("emit_proj_" + q + "_mm_mrad")),
                                             emittance,
                                             number(row, column("emit_" + q + "_mm_mrad_err")));
        pulls["beta_" + q.toStdString()].add(number(row, column("beta_" + q + "_m")), beta,
                                             number(row, column("beta_" + q + "_m_err")));
        pulls["alpha_" + q.toStdString()].add(number(row, column("alpha_" + q)), alpha,
                                              number(row, column("alpha_" + q + "_err")));
        pulls["sigma_" + q.toStdString()].add(number(row, column("sigma_" + q + "_mm")),
                                              std::sqrt(emittance * beta),
                                              number(row, column("sigma_" + q + "_mm_err")));
        pulls["mean_" + q.toStdString()].add(number(row, column("mean_" + q + "_mm")), 0,
                                             number(row, column("mean_" + q + "_mm_err")));
      }
      EXPECT_EQ(row.value("status"), "no-momentum-spread");
    }
  }
  expectHonest(pulls, 0.8, 1.25);
}

TEST(OpticsPhysicsTest, dispersionIsRecoveredAndRemovedFromTheEmittance) {
  std::map<std::string, Pulls> pulls;
  Pulls projectedRatio; // (estimate - truth) / truth
  for (unsigned seed = 1; seed <= Seeds; ++seed) {
    OpticsBeam beam;
    beam.seed = seed;
    beam.particles = 1000;
    beam.sigmaDelta = 0.01;
    beam.dispX = 0.5;   // m
    beam.dispXp = -0.2; // D(s) = 0.5 - 0.2 s
    QList<QHash<QString, QString>> rows = analyse(beam);
    ASSERT_EQ(rows.size(), 20);
    for (const auto &row : rows) {
      double s = number(row, "s_mm") / 1000;
      double d = beam.dispX + beam.dispXp * s;
      pulls["disp_x"].add(number(row, "disp_x_m"), d, number(row, "disp_x_m_err"));
      pulls["disp_xp"].add(number(row, "disp_xp"), beam.dispXp, number(row, "disp_xp_err"));
      pulls["disp_y"].add(number(row, "disp_y_m"), 0, number(row, "disp_y_m_err"));
      pulls["emit_x"].add(number(row, "emit_x_mm_mrad"), beam.emitX,
                          number(row, "emit_x_mm_mrad_err"));
      double beta = OpticsBeam::betaAt(beam.betaX, beam.alphaX, s);
      pulls["beta_x"].add(number(row, "beta_x_m"), beta, number(row, "beta_x_m_err"));
      pulls["sigma_delta"].add(number(row, "sigma_delta"), 0.01, 0.01 / std::sqrt(2000.0));
      // The projected emittance grows with the dispersion's share of the width:
      // eps_proj^2 = eps^2 + eps sigma_delta^2 (gamma D^2 + 2 alpha D D' + beta D'^2),
      // with D in mm and D' in mrad (per unit delta) the bracket is in mm mrad.
      double alpha = OpticsBeam::alphaAt(beam.betaX, beam.alphaX, s);
      double gamma = (1 + alpha * alpha) / beta;
      double dm = 1000 * d, dpm = 1000 * beam.dispXp;
      double h = gamma * dm * dm + 2 * alpha * dm * dpm + beta * dpm * dpm;
      double projected = std::sqrt(beam.emitX * beam.emitX + beam.emitX * 1e-4 * h);
      EXPECT_GT(number(row, "emit_proj_x_mm_mrad"), number(row, "emit_x_mm_mrad"));
      projectedRatio.add(number(row, "emit_proj_x_mm_mrad"), projected, projected);
      EXPECT_EQ(row.value("status"), "ok");
    }
  }
  expectHonest(pulls, 0.8, 1.25);
  // A strongly correlated projected emittance scatters by about 20 % per seed.
  double mean = 0;
  for (double v : projectedRatio.values)
    mean += v / double(projectedRatio.values.size());
  EXPECT_NEAR(mean, 0, 0.05);
}

} // namespace
