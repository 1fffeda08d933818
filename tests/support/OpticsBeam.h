//===- OpticsBeam.h - Beams of known optics for the tests ------*- C++ -*-===//
//
// Writes a run directory with a straight beamline along z and a Gaussian beam of
// known emittance, beta and alpha at s = 0 in both planes, with a momentum spread and
// dispersion, drifting to the planes. The tracks are straight lines, so the crossings
// are exact; the truth at every s follows from the drift in closed form.
//
//===----------------------------------------------------------------------------===//
#ifndef TESTS_OPTICSBEAM_H
#define TESTS_OPTICSBEAM_H

#include <QList>
#include <QString>

/// The beam at s = 0 and how it is written.
struct OpticsBeam {
  unsigned seed = 1;
  int particles = 1000;
  double emitX = 2, betaX = 3, alphaX = 1.5; ///< mm mrad, m, 1
  double emitY = 1, betaY = 2, alphaY = -0.5;
  double sigmaDelta = 0;        ///< relative momentum spread
  double sigmaT = 0;            ///< time spread at s = 0, ns
  double dispX = 0, dispXp = 0; ///< D (m) and D' at s = 0
  double offsetX = 0;           ///< mm, added to every x
  double momentum = 200;        ///< MeV/c
  int pdgid = -13;              ///< a muon by default
  double weight = 1;            ///< the weight column
  int copies = 1;               ///< each track written this many times (as new tracks)
  int secondaryEvery = 0;       ///< every n-th track a secondary (parent 1, PDG 11)
  double stepMM = 100, startMM = -50, endMM = 2150;

  /// beta(s) = beta0 - 2 alpha0 s + gamma0 s^2 of a drift (s in m).
  static double betaAt(double beta0, double alpha0, double s) {
    return beta0 - 2 * alpha0 * s + (1 + alpha0 * alpha0) / beta0 * s * s;
  }
  static double alphaAt(double beta0, double alpha0, double s) {
    return alpha0 - (1 + alpha0 * alpha0) / beta0 * s;
  }

  /// The beam of one job of a batch: 300 particles, a momentum spread of 1 % and a
  /// dispersion of 0.3 m, drawn with the job's seed.
  static OpticsBeam job(unsigned seed) {
    OpticsBeam beam;
    beam.seed = seed;
    beam.particles = 300;
    beam.sigmaDelta = 0.01;
    beam.dispX = 0.3;
    return beam;
  }

  /// Writes beamlineCoordinates.txt, sampleS.txt (planes at `planesMM` with a 1 m cut)
  /// and AllTracks.txt into the directory.
  void write(const QString &directory, const QList<double> &planesMM) const;
};

#endif // TESTS_OPTICSBEAM_H
