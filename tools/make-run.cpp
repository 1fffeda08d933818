//===- make-run.cpp - Writes a complete, deterministic run directory -------===//
//
// Writes beamlineCoordinates.txt, sampleS.txt and AllTracks.txt the way a tracking
// simulation leaves them: a reference path with a drift, a bend, a kink and a drift;
// sampling planes along it; and a Gaussian beam whose particles drift along the path
// (each keeps its transverse offset and angle in the path's local frame), stepped at
// a fixed interval of s. A few particles start far outside the radius cut.
//
// make-run --help lists the options.
//
//===----------------------------------------------------------------------------===//

#include "BeamlineCoordinates.h"

#include <QCommandLineParser>
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

[[noreturn]] void fail(int status, const QString &message) {
  fprintf(stderr, "make-run: error: %s\n", qPrintable(message));
  if (status == 2)
    fputs("Try 'make-run --help'.\n", stderr);
  exit(status);
}

const char *const Usage =
    "Usage: make-run [OPTIONS] DIR\n"
    "\n"
    "Writes a run directory as a tracking simulation leaves it: beamlineCoordinates.txt (a\n"
    "drift, a 30 degree bend on a 2 m radius, a 5 degree kink and a drift), sampleS.txt\n"
    "(planes spread evenly along the path, 100 mm radius cut) and AllTracks.txt (a\n"
    "Gaussian beam of 200 MeV/c muons stepped along the path). The same options give the\n"
    "same bytes.\n"
    "\n"
    "Options:\n"
    "  --seed N         random seed (default 1)\n"
    "  --particles N    particles to write (default 200)\n"
    "  --megabytes N    write particles until the track file has this size instead\n"
    "  --step MM        step along the path in mm (default 50)\n"
    "  --length MM      length of the tracks along the path in mm (default 7500)\n"
    "  --planes N       sampling planes (default 15)\n"
    "  --straight       a straight beamline: no bend, no kink\n"
    "  --digits N       digits of the numbers written (default 4)\n"
    "  --general        numbers with N significant digits (%g) instead of N decimals\n"
    "  --misses N       the first N particles start outside every radius cut (default 5)\n"
    "  --force          write into DIR even when it is not empty\n"
    "  -h, --help       this text\n";

/// The value of a numeric option, which must be finite and at least `least`.
double number(const QCommandLineParser &parser, const char *name, double least, bool whole,
              double fallback) {
  if (!parser.isSet(name))
    return fallback;
  QString text = parser.value(name);
  bool ok = false;
  double value = whole ? double(text.toLongLong(&ok)) : text.toDouble(&ok);
  if (!ok || !std::isfinite(value) || value < least)
    fail(2, QString("--%1: '%2' is not %3 from %4")
                .arg(name, text, whole ? "a whole number" : "a number")
                .arg(least));
  return value;
}

Options parse(int argc, char **argv) {
  QCommandLineParser parser;
  parser.addOptions({{"seed", "", "N"},
                     {"particles", "", "N"},
                     {"megabytes", "", "N"},
                     {"step", "", "MM"},
                     {"length", "", "MM"},
                     {"planes", "", "N"},
                     {"straight", ""},
                     {"digits", "", "N"},
                     {"general", ""},
                     {"misses", "", "N"},
                     {"force", ""},
                     {{"h", "help"}, ""}});
  QStringList arguments;
  for (int i = 0; i < argc; ++i)
    arguments << QString::fromLocal8Bit(argv[i]);
  if (!parser.parse(arguments))
    fail(2, parser.errorText());
  if (parser.isSet("help")) {
    fputs(Usage, stdout);
    exit(0);
  }
  QStringList folders = parser.positionalArguments();
  if (folders.size() != 1)
    fail(2, folders.isEmpty() ? "no run directory given"
                              : "one run directory only, not " + folders.join(", "));
  Options o;
  o.directory = folders[0];
  if (o.directory.startsWith('-'))
    fail(2, "'" + o.directory + "' looks like an option, not a run directory");
  o.seed = unsigned(number(parser, "seed", 0, true, 1));
  o.particles = int(number(parser, "particles", 1, true, o.particles));
  o.megabytes = number(parser, "megabytes", 0, false, 0);
  o.stepMM = number(parser, "step", 1e-3, false, o.stepMM);
  o.lengthMM = number(parser, "length", 1, false, o.lengthMM);
  o.planes = int(number(parser, "planes", 1, true, o.planes));
  o.digits = int(number(parser, "digits", 1, true, o.digits));
  o.misses = int(number(parser, "misses", 0, true, o.misses));
  o.straight = parser.isSet("straight");
  o.general = parser.isSet("general");
  QDir folder(o.directory);
  if (folder.exists() && !folder.isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden) &&
      !parser.isSet("force"))
    fail(1, o.directory + " is not empty (--force writes into it anyway)");
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
  QByteArray coordinates = o.straight ? "# Reference path: a straight line.\n"
                                        "%bcstart x=0m y=0m z=0m s=0m\n"
                                      : "# Reference path: a drift, a 30 degree bend on a 2 m "
                                        "radius, a 5 degree kink and a drift.\n"
                                        "%bcstart x=0m y=0m z=0m s=0m\n"
                                        "%bcbend radius=2m angle=30deg phi=0 s=2m\n"
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
  int p = 0;
  long steps = 0;
  for (; wanted > 0 ? tracks.size() < wanted : p < o.particles; ++p) {
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
      ++steps;
    }
  }
  printf("make-run: wrote %s: a %s beamline, %d planes, %d particles in %ld steps (%lld bytes)\n",
         qPrintable(o.directory), o.straight ? "straight" : "bent", o.planes, p, steps,
         (long long)tracks.size());
  return 0;
}
