//===- OpticsOptions.cpp - The command line of twiss-optics ----------------===//

#include "OpticsOptions.h"

#include "Console.h"
#include "EnvelopePlot.h"
#include "Failure.h"
#include "Species.h"
#include "ThreadCount.h"
#include "Units.h"

#include <QCommandLineParser>
#include <cmath>

namespace {

const QList<QCommandLineOption> &options() {
  static const QList<QCommandLineOption> list = {
      {{"o", "output"}, "", "FILE"},
      {"species", "", "LIST"},
      {"primaries", ""},
      {"p-ref", "", "MOMENTUM"},
      {"unweighted", ""},
      {"save-moments", "", "FILE"},
      {"merge", ""},
      {"lenient", ""},
      {{"j", "threads"}, "", "N"},
      {"particles", "", "FILE"},
      {"particles-at", "", "LIST"},
      {"particles-compress", "", "LEVEL"},
      {"plot", "", "FILE"},
      {{"q", "quiet"}, ""},
      {{"h", "help"}, ""},
      {"version", ""},
  };
  return list;
}

double referenceMomentum(const QString &text) {
  Nexil::MessageCapture capture;
  double momentum = Nexil::Units::value(text, "MeV", nullptr);
  if (!capture.takeMessages().isEmpty() || !(momentum > 0) || !std::isfinite(momentum))
    throw UsageError("--p-ref: '" + text +
                     "' is not a positive momentum (a number with an energy unit: 200MeV, 0.2GeV)");
  return momentum;
}

void readParticleOptions(const QCommandLineParser &parser, OpticsOptions &o) {
  o.particles = parser.value("particles");
  for (const char *option : {"particles-at", "particles-compress"})
    if (parser.isSet(option) && o.particles.isEmpty())
      throw UsageError(QString("--") + option + " needs --particles FILE");
  if (parser.isSet("particles-at")) {
    for (const QString &text : parser.value("particles-at").split(',')) {
      Nexil::MessageCapture capture;
      double s = Nexil::Units::value(text, "mm", nullptr);
      if (!capture.takeMessages().isEmpty() || !std::isfinite(s) || text.trimmed().isEmpty())
        throw UsageError("--particles-at: '" + text +
                         "' is not a position along the beamline (a number with a length unit: "
                         "1100mm, 2.1m)");
      o.particlesAt << s;
      o.particlesAtText << text;
    }
  }
  if (parser.isSet("particles-compress")) {
    bool number = false;
    QString level = parser.value("particles-compress");
    o.particlesCompression = level.toInt(&number);
    if (!number || o.particlesCompression < 0 || o.particlesCompression > 9)
      throw UsageError("--particles-compress: '" + level + "' is not a deflate level (0 to 9)");
  }
}

} // namespace

OpticsOptions parseOpticsOptions(const QStringList &arguments) {
  QCommandLineParser parser;
  parser.addOptions(options());
  if (!parser.parse(QStringList("twiss-optics") + arguments))
    throw UsageError(parser.errorText());
  OpticsOptions o;
  if (parser.isSet("help")) {
    o.action = OpticsOptions::Help;
    return o;
  }
  if (parser.isSet("version")) {
    o.action = OpticsOptions::Version;
    return o;
  }
  o.action = parser.isSet("merge") ? OpticsOptions::Merge : OpticsOptions::Analyse;
  o.directories = parser.positionalArguments();
  if (o.directories.isEmpty() && o.action == OpticsOptions::Merge)
    throw UsageError("--merge needs the moment files to merge");
  if (o.directories.isEmpty())
    o.directories << ".";
  o.output = parser.value("output");
  if (o.action == OpticsOptions::Merge && o.output.isEmpty())
    throw UsageError("--merge needs -o FILE (or -o - for standard output)");
  o.saveMoments = parser.value("save-moments");
  o.quiet = parser.isSet("quiet");
  o.lenient = parser.isSet("lenient");
  readParticleOptions(parser, o);
  o.plots = parser.values("plot");
  for (const QString &plot : o.plots)
    if (!isPlotFile(plot))
      throw UsageError("--plot: '" + plot + "' is not a .png or .svg file");
  o.threads = threadCount();
  if (parser.isSet("threads")) {
    o.threads = parseThreadCount(parser.value("threads").toLatin1().constData());
    if (o.threads == 0)
      throw UsageError("-j: '" + parser.value("threads") +
                       "' is not a number of threads (1 or more)");
  }
  o.selection.primariesOnly = parser.isSet("primaries");
  o.selection.weighted = !parser.isSet("unweighted");
  if (parser.isSet("species")) {
    QString bad;
    if (!parseSpeciesList(parser.value("species"), o.selection.species, bad))
      throw UsageError("--species: unknown species '" + bad +
                       "' (names as the particle table gives them, such as mu+, e-, proton, "
                       "pi+, gamma; or PDG ids, such as -13)");
  }
  if (parser.isSet("p-ref")) {
    o.reference.fixed = true;
    o.reference.momentum = referenceMomentum(parser.value("p-ref"));
  }
  bool selects = parser.isSet("species") || parser.isSet("primaries") ||
                 parser.isSet("unweighted") || parser.isSet("p-ref") || parser.isSet("lenient") ||
                 !o.particles.isEmpty();
  if (o.action == OpticsOptions::Merge && (selects || !o.saveMoments.isEmpty()))
    throw UsageError(
        "--merge takes the selection of its moment files: only -o, -q, -j and --plot go "
        "with it");
  return o;
}

QString opticsUsage() {
  return "Usage: twiss-optics [OPTIONS] [RUN_DIR ...]\n"
         "       twiss-optics --merge MOMENTS_FILE ... -o FILE\n"
         "\n"
         "Finds where every track of AllTracks.txt crosses the planes of sampleS.txt along\n"
         "the beamline of beamlineCoordinates.txt, and writes one row of beam optics per\n"
         "plane: means, widths, momentum spread, dispersion, emittances and Twiss\n"
         "parameters, with their statistical errors. Several run directories (jobs of one\n"
         "simulation) are analysed as one beam. Default RUN_DIR: the current directory.\n"
         "\n"
         "Options:\n"
         "  -o, --output FILE        the optics table (CSV); default twiss.optics.csv in the\n"
         "                           first run directory; - for standard output. The record\n"
         "                           of the run is written beside it, as .json\n"
         "  --species LIST           only these species: particle names or PDG ids,\n"
         "                           comma-separated (mu+,e-,proton or -13,11)\n"
         "  --primaries              only tracks whose parent (column 11) is 0\n"
         "  --p-ref MOMENTUM         reference momentum of delta, with a unit (200MeV,\n"
         "                           0.2GeV); default: the weighted mean momentum at each\n"
         "                           plane\n"
         "  --unweighted             every crossing weighs 1 (default: the weight column)\n"
         "  --save-moments FILE      also write every plane's moments, exactly, for --merge\n"
         "  --merge                  the arguments are moment files: write the table that\n"
         "                           one run over all their tracks would write\n"
         "  --lenient                read values and planes as twiss does: errors in\n"
         "                           beamlineCoordinates.txt and sampleS.txt become warnings\n"
         "  --particles FILE         also write every counted crossing as openPMD particle\n"
         "                           data (HDF5): iteration k is row k of the table\n"
         "  --particles-at LIST      only the planes at these s, comma-separated (1100mm,2.1m)\n"
         "  --particles-compress N   deflate level 1 to 9 for the particle file (default 0)\n"
         "  --plot FILE              draw the widths, means and beta functions along s (PNG\n"
         "                           or SVG by the extension; may be given several times)\n"
         "  -j, --threads N          threads for reading and crossing tests; default: the\n"
         "                           processors the process may run on, or TWISS_THREADS\n"
         "                           (the output does not depend on it)\n"
         "  -q, --quiet              no summary line\n"
         "  -h, --help               this text\n"
         "  --version                the version\n"
         "\n"
         "Exit status: 0 on success, 1 for a problem with the input or the output files,\n"
         "2 for a wrong command line.\n";
}
