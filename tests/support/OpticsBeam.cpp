//===- OpticsBeam.cpp - Beams of known optics for the tests ----------------===//

#include "OpticsBeam.h"

#include "TestSupport.h"

#include <cmath>
#include <cstdio>
#include <random>

void OpticsBeam::write(const QString &directory, const QList<double> &planesMM) const {
  writeFile(directory + "/beamlineCoordinates.txt", "%bcstart x=0m y=0m z=0m s=0m\n");
  std::string planes;
  for (double s : planesMM)
    planes += QString::asprintf("%.17gmm 1000mm\n", s).toStdString();
  writeFile(directory + "/sampleS.txt", planes);

  std::mt19937_64 random(seed);
  std::normal_distribution<double> gauss(0, 1);
  std::string tracks = "# x y z Px Py Pz t PDGid EventID TrackID ParentID Weight\n";
  int track = 0;
  for (int i = 0; i < particles; ++i) {
    // Normalised coordinates u1, u2 with x = sqrt(eps beta) u1 and
    // x' = sqrt(eps / beta) (u2 - alpha u1): mm and mrad for eps in mm mrad, beta in m.
    double u1 = gauss(random), u2 = gauss(random), v1 = gauss(random), v2 = gauss(random);
    double delta = sigmaDelta * gauss(random);
    double x = std::sqrt(emitX * betaX) * u1 + 1000 * dispX * delta + offsetX;
    double xp = std::sqrt(emitX / betaX) * (u2 - alphaX * u1) + 1000 * dispXp * delta;
    double y = std::sqrt(emitY * betaY) * v1;
    double yp = std::sqrt(emitY / betaY) * (v2 - alphaY * v1);
    double p = momentum * (1 + delta);
    double t0 = sigmaT > 0 ? sigmaT * gauss(random) : 0; // drawn only where asked for
    bool secondary = secondaryEvery > 0 && i % secondaryEvery == 0;
    for (int copy = 0; copy < copies; ++copy) {
      ++track;
      double norm = std::sqrt(1 + xp * xp * 1e-6 + yp * yp * 1e-6);
      for (double z = startMM; z <= endMM + 1e-9; z += stepMM) {
        char line[400];
        snprintf(line, sizeof line, "%.15g %.15g %.15g %.15g %.15g %.15g %.15g %d %d %d %d %.15g\n",
                 x + xp * z / 1000, y + yp * z / 1000, z, p * xp / 1000 / norm,
                 p * yp / 1000 / norm, p / norm, t0 + z / 250.0, secondary ? 11 : pdgid, track, 1,
                 secondary ? 1 : 0, weight);
        tracks += line;
      }
    }
  }
  writeFile(directory + "/AllTracks.txt", tracks);
}
