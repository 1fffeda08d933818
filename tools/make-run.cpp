//===- make-run.cpp - Writes a complete, deterministic run directory -------===//
//
// Writes beamlineCoordinates.txt, sampleS.txt and AllTracks.txt the way a tracking
// simulation leaves them: a reference path with a drift, a bend, a kink and a drift;
// sampling planes along it; and a Gaussian beam whose particles drift along the path
// (each keeps its transverse offset and angle in the path's local frame), stepped at
// a fixed interval of s. A few particles start far outside the radius cut.
//
//   make-run DIR [--seed N] [--particles N] [--megabytes N] [--step MM] [--length MM]
//                [--planes N] [--straight] [--digits N] [--general] [--misses N]
//
// --megabytes writes particles until the track file reaches that size (instead of
// --particles); --general writes numbers with --digits significant digits ("%g"), the
// way simulations usually do, instead of --digits decimals.
//
//===----------------------------------------------------------------------------===//

#include "BeamlineCoordinates.h"

#include <QDir>
#include <QFile>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

using namespace Nexil;

namespace {

struct Options {
  QString directory;
  unsigned seed = 1;
  int particles = 200;
  double stepMM = 50;
  double lengthMM = 7500;
  int planes = 15;
  bool straight = false;
  int digits = 4;
  int misses = 5;
  double megabytes = 0;
  bool general = false;
};

Options parse(int argc, char **argv) {
  Options o;
  // The directory comes first; a first argument that looks like an option is no folder.
  if (argc < 2 || argv[1][0] == '-') {
    fprintf(stderr, "usage: make-run DIR [--seed N] [--particles N] [--megabytes N] [--step MM] "
                    "[--length MM] [--planes N] [--straight] [--digits N] [--general] "
                    "[--misses N]\n");
    exit(2);
  }
  o.directory = argv[1];
  for (int i = 2; i < argc; ++i) {
    auto value = [&] { return i + 1 < argc ? argv[++i] : "0"; };
    if (!strcmp(argv[i], "--seed"))
      o.seed = unsigned(atol(value()));
    else if (!strcmp(argv[i], "--particles"))
      o.particles = atoi(value());
    else if (!strcmp(argv[i], "--step"))
      o.stepMM = atof(value());
    else if (!strcmp(argv[i], "--length"))
      o.lengthMM = atof(value());
    else if (!strcmp(argv[i], "--planes"))
      o.planes = atoi(value());
    else if (!strcmp(argv[i], "--straight"))
      o.straight = true;
    else if (!strcmp(argv[i], "--digits"))
      o.digits = atoi(value());
    else if (!strcmp(argv[i], "--misses"))
      o.misses = atoi(value());
    else if (!strcmp(argv[i], "--megabytes"))
      o.megabytes = atof(value());
    else if (!strcmp(argv[i], "--general"))
      o.general = true;
  }
  return o;
}

void writeText(const QString &path, const QByteArray &text) {
  QFile file(path);
  if (!file.open(QIODevice::WriteOnly | QIODevice::Text) || file.write(text) != text.size()) {
    fprintf(stderr, "make-run: cannot write %s\n", qPrintable(path));
    exit(1);
  }
}

} // namespace

int main(int argc, char **argv) {
  Options o = parse(argc, argv);
  QDir().mkpath(o.directory);
  QByteArray coordinates = "# Reference path: a drift, a 30 degree bend on a 2 m radius, "
                           "a 5 degree kink and a drift.\n"
                           "%bcstart x=0m y=0m z=0m s=0m\n";
  if (!o.straight)
    coordinates += "%bcbend radius=2m angle=30deg phi=0 s=2m\n"
                   "%bcbend radius=0m angle=5deg phi=0 s=5m\n";
  writeText(o.directory + "/beamlineCoordinates.txt", coordinates);
  BeamlineCoordinates::initFromFile(o.directory + "/beamlineCoordinates.txt");

  // Planes spread evenly over the path, away from its ends.
  for (int i = 0; i < o.planes; ++i)
    BeamlineCoordinates::sampleS.insert(int((i + 0.5) * o.lengthMM / o.planes), 100);
  BeamlineCoordinates::writeSampleS(o.directory + "/sampleS.txt");

  QFile tracks(o.directory + "/AllTracks.txt");
  if (!tracks.open(QIODevice::WriteOnly)) {
    fprintf(stderr, "make-run: cannot write AllTracks.txt\n");
    return 1;
  }
  tracks.write("# x y z Px Py Pz t PDGid EventID TrackID ParentID Weight\n");
  std::mt19937_64 random(o.seed);
  std::normal_distribution<double> gauss(0, 1);
  const double momentum = 200; // MeV/c
  const double speed = 252.3;  // mm/ns of a 200 MeV/c muon
  const char *number = o.general ? "%.*g" : "%.*f";
  QByteArray format = QByteArray("@ @ @ @ @ @ @ -13 %d 1 0 1\n").replace("@", number);
  const qint64 wanted = qint64(o.megabytes * 1e6);
  for (int p = 0; wanted > 0 ? tracks.size() < wanted : p < o.particles; ++p) {
    double x = 2.0 * gauss(random), y = 1.0 * gauss(random);        // mm
    double xp = 0.001 * gauss(random), yp = 0.0005 * gauss(random); // rad
    if (p < o.misses)
      x += 150; // outside every plane's radius cut
    for (double s = 0; s <= o.lengthMM + 1e-9; s += o.stepMM) {
      Transform frame = BeamlineCoordinates::getTransform(s / 1000);
      Point local(x + xp * s, y + yp * s, 0);
      Point global = frame.convert("mm") * local;
      Vector direction = frame * Vector(xp, yp, 1);
      Vector pvec = (momentum / direction.norm()) * direction;
      char line[512];
      snprintf(line, sizeof line, format.constData(), o.digits, global.x, o.digits, global.y,
               o.digits, global.z, o.digits, pvec.x, o.digits, pvec.y, o.digits, pvec.z, o.digits,
               s / speed, p + 1);
      tracks.write(line);
    }
  }
  return 0;
}
