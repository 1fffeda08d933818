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
#include "FieldTracker.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFile>
#include <algorithm>
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
  double momentumSpread = 0.005;
  int secondaryEvery = 20;
  bool followPath = false;
  double tiltDegrees = 0;   ///< of the bend about the path
  double solenoidTesla = 0; ///< 0 for no solenoid
  double solenoidAtMM = 1500, solenoidLengthMM = 3000;
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
    "Gaussian beam of 200 MeV/c positive muons). The muons move as charged particles in the\n"
    "bend's field (a hard-edged sector dipole whose reference orbit is the path) and get a\n"
    "thin kick at the kink, so momenta off 200 MeV/c make dispersion; a step line every\n"
    "--step mm of each particle's path. The same options give the same bytes.\n"
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
    "  --momentum-spread X\n"
    "                   relative r.m.s. spread of the momentum (default 0.005)\n"
    "  --secondary-every N\n"
    "                   every N-th muon decays into a positron after 1 m (default 20; 0: none)\n"
    "  --tilt DEG       the bend tilted about the path by this angle (default 0)\n"
    "  --solenoid TESLA a solenoid of this field on the straight beamline, with hard edges\n"
    "                   (a thin fringe kick at each face, a helix inside); the planes in it\n"
    "                   say Bz= in sampleS.txt\n"
    "  --solenoid-at MM where the solenoid begins along the path (default 1500)\n"
    "  --solenoid-length MM\n"
    "                   its length (default 3000)\n"
    "  --follow-path    the particles keep their offset and angle in the path's frame\n"
    "                   (geometry only) instead of moving through the bends' fields\n"
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
                     {"momentum-spread", "", "X"},
                     {"secondary-every", "", "N"},
                     {"follow-path", ""},
                     {"tilt", "", "DEG"},
                     {"solenoid", "", "TESLA"},
                     {"solenoid-at", "", "MM"},
                     {"solenoid-length", "", "MM"},
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
  o.momentumSpread = number(parser, "momentum-spread", 0, false, o.momentumSpread);
  o.secondaryEvery = int(number(parser, "secondary-every", 0, true, o.secondaryEvery));
  o.followPath = parser.isSet("follow-path");
  o.straight = parser.isSet("straight");
  o.tiltDegrees = number(parser, "tilt", -360, false, o.tiltDegrees);
  if (parser.isSet("solenoid")) {
    bool ok = false;
    o.solenoidTesla = parser.value("solenoid").toDouble(&ok);
    if (!ok || o.solenoidTesla == 0 || !std::isfinite(o.solenoidTesla))
      fail(2, "--solenoid: '" + parser.value("solenoid") + "' is not a field in T other than 0");
    if (!o.straight)
      fail(2, "--solenoid needs --straight: it stands on a straight beamline");
  }
  o.solenoidAtMM = number(parser, "solenoid-at", 0, false, o.solenoidAtMM);
  o.solenoidLengthMM = number(parser, "solenoid-length", 1, false, o.solenoidLengthMM);
  o.general = parser.isSet("general");
  QDir folder(o.directory);
  if (folder.exists() && !folder.isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden) &&
      !parser.isSet("force"))
    fail(1, o.directory + " is not empty (--force writes into it anyway)");
  return o;
}

const double ReferenceMomentum = 200;   // MeV/c
const double SpeedOfLight = 299.792458; // mm/ns
const double DecayAt = 1000;            // mm of the muon's path

/// A species: its PDG id and mass (MeV/c^2).
struct Species {
  int pdgid;
  double mass;
};
const Species Antimuon{-13, 105.6583755}, Positron{-11, 0.51099895};

/// Who a track is: species, event, track and parent numbers.
struct Track {
  Species species;
  int event, track, parent;
};

/// Writes step lines with the options' number format and counts them.
struct TrackWriter {
  TrackWriter(QFile &file, int digits, const char *number)
      : file(file), digits(digits),
        format(QByteArray("@ @ @ @ @ @ @ %d %d %d %d 1\n").replace("@", number)) {}
  QFile &file;
  int digits;
  QByteArray format; ///< a step line's printf format
  long steps = 0;

  void write(const Track &who, const Point &r, const Vector &p, double t) {
    char line[512];
    snprintf(line, sizeof line, format.constData(), digits, r.x, digits, r.y, digits, r.z, digits,
             p.x, digits, p.y, digits, p.z, digits, t, who.species.pdgid, who.event, who.track,
             who.parent);
    file.write(line);
    ++steps;
  }
};

/// The speed (mm/ns) of a particle of the species with momentum p (MeV/c).
double speed(const Species &species, double p) {
  return SpeedOfLight * p / std::sqrt(p * p + species.mass * species.mass);
}

/// A particle where it is at a moment: its phase and its time (ns).
struct State {
  Phase phase;
  double t;
};

/// Tracks the particle through the fields for `length` mm of its path, a step line
/// every `step` mm; returns its state at `mark` mm of its path (if within the length).
State track(TrackWriter &writer, const FieldTracker &field, const Track &who, State start,
            double length, double step, double mark) {
  const double v = speed(who.species, start.phase.momentum.norm());
  Phase phase = start.phase;
  State marked = start;
  for (double lambda = 0; lambda <= length + 1e-9; lambda += step) {
    writer.write(who, phase.position, phase.momentum, start.t + lambda / v);
    if (mark >= lambda && mark < lambda + step) {
      marked = {phase, start.t + mark / v};
      field.advance(marked.phase, mark - lambda);
    }
    field.advance(phase, step);
  }
  return marked;
}

/// The path-following model: the particle keeps its offset and angle in the path's
/// frame, as if the bends changed the coordinates only.
void writeAlongPath(TrackWriter &writer, const Track &who, double x, double y, double xp, double yp,
                    double momentum, const Options &o) {
  const double v = speed(who.species, momentum);
  for (double s = 0; s <= o.lengthMM + 1e-9; s += o.stepMM) {
    Transform frame = BeamlineCoordinates::getTransform(s / 1000);
    Vector direction = frame * Vector(xp, yp, 1);
    writer.write(who, frame.convert("mm") * Point(x + xp * s, y + yp * s, 0),
                 (momentum / direction.norm()) * direction, s / v);
  }
}

void writeText(const QString &path, const QByteArray &text) {
  QFile file(path);
  if (!file.open(QIODevice::WriteOnly | QIODevice::Text) || file.write(text) != text.size()) {
    fprintf(stderr, "make-run: cannot write %s\n", qPrintable(path));
    exit(1);
  }
}

/// Writes the solenoid's field on the lines of sampleS.txt of the planes inside it.
void markSolenoidPlanes(const Options &o) {
  QByteArray text;
  QList<int> planes = BeamlineCoordinates::sampleS.keys();
  std::sort(planes.begin(), planes.end());
  for (int s : planes) {
    bool inside = s > o.solenoidAtMM && s < o.solenoidAtMM + o.solenoidLengthMM;
    text += QString::asprintf("%dmm %gmm", s, BeamlineCoordinates::sampleS.value(s)).toLatin1() +
            (inside ? QString::asprintf(" Bz=%gT", o.solenoidTesla).toLatin1() : "") + "\n";
  }
  writeText(o.directory + "/sampleS.txt", text);
}

} // namespace

int main(int argc, char **argv) {
  Options o = parse(argc, argv);
  QDir().mkpath(o.directory);
  QByteArray coordinates =
      o.straight ? "# Reference path: a straight line.\n"
                   "%bcstart x=0m y=0m z=0m s=0m\n"
                 : "# Reference path: a drift, a 30 degree bend on a 2 m radius, a 5 degree kink "
                   "and a drift.\n"
                   "%bcstart x=0m y=0m z=0m s=0m\n"
                   "%bcbend radius=2m angle=30deg phi=" +
                       QByteArray::number(o.tiltDegrees) + // degrees as a plain number
                       " s=2m\n"
                       "%bcbend radius=0m angle=5deg phi=0 s=5m\n";
  writeText(o.directory + "/beamlineCoordinates.txt", coordinates);
  BeamlineCoordinates::initFromFile(o.directory + "/beamlineCoordinates.txt");

  // Planes spread evenly over the path, away from its ends.
  for (int i = 0; i < o.planes; ++i)
    BeamlineCoordinates::sampleS.insert(int((i + 0.5) * o.lengthMM / o.planes), 100);
  BeamlineCoordinates::writeSampleS(o.directory + "/sampleS.txt");
  if (o.solenoidTesla != 0)
    markSolenoidPlanes(o);

  QFile tracks(o.directory + "/AllTracks.txt");
  if (!tracks.open(QIODevice::WriteOnly)) {
    fprintf(stderr, "make-run: cannot write AllTracks.txt\n");
    return 1;
  }
  tracks.write("# x y z Px Py Pz t PDGid EventID TrackID ParentID Weight\n");
  TrackWriter writer(tracks, o.digits, o.general ? "%.*g" : "%.*f");
  FieldTracker field(ReferenceMomentum);
  if (o.solenoidTesla != 0)
    field.addSolenoid(o.solenoidAtMM / 1000, (o.solenoidAtMM + o.solenoidLengthMM) / 1000,
                      o.solenoidTesla);
  std::mt19937_64 random(o.seed);
  std::normal_distribution<double> gauss(0, 1);
  const qint64 wanted = qint64(o.megabytes * 1e6);
  int p = 0;
  for (; wanted > 0 ? tracks.size() < wanted : p < o.particles; ++p) {
    double x = 2.0 * gauss(random), y = 1.0 * gauss(random);        // mm
    double xp = 0.001 * gauss(random), yp = 0.0005 * gauss(random); // rad
    double momentum = ReferenceMomentum * (1 + o.momentumSpread * gauss(random));
    if (p < o.misses)
      y += 150; // outside every plane's radius cut: no field brings it back
    Track muon{Antimuon, p + 1, 1, 0};
    if (o.followPath) {
      writeAlongPath(writer, muon, x, y, xp, yp, momentum, o);
      continue;
    }
    Transform start = BeamlineCoordinates::getTransform(0);
    Vector direction = start * Vector(xp, yp, 1);
    Phase phase{start.convert("mm") * Point(x, y, 0), (momentum / direction.norm()) * direction};
    bool decays = o.secondaryEvery > 0 && p >= o.misses && (p + 1) % o.secondaryEvery == 0;
    State decay =
        track(writer, field, muon, {phase, 0}, o.lengthMM, o.stepMM, decays ? DecayAt : -1);
    if (decays) {
      // A decay positron, forward with a third of the muon's momentum; its clock goes
      // on from the muon's.
      decay.phase.momentum = (1 / 3.0) * decay.phase.momentum;
      track(writer, field, {Positron, p + 1, 2, 1}, decay, o.lengthMM - DecayAt, o.stepMM, -1);
    }
  }
  printf("make-run: wrote %s: a %s beamline, %d planes, %d particles in %ld steps (%lld bytes)\n",
         qPrintable(o.directory), o.straight ? "straight" : "bent", o.planes, p, writer.steps,
         (long long)tracks.size());
  return 0;
}
