//===- OpticsOptions.cpp - The command line of twiss-optics ----------------===//

#include "OpticsOptions.h"

#include "BunchSlices.h"
#include "Console.h"
#include "Failure.h"
#include "Measure.h"
#include "RunInput.h"
#include "Species.h"
#include "ThreadCount.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <cmath>

namespace {

/// True when the file name asks for a format a picture can be written in (.png, .svg).
bool isPlotFile(const QString &path) {
  QString suffix = QFileInfo(path).suffix().toLower();
  return suffix == "png" || suffix == "svg";
}

/// The names --measures takes: "2d, 4d or all".
QString measureNames() {
  QStringList names;
  for (const Measure *measure : registeredMeasures())
    names << measure->name;
  return names.join(", ") + " or all";
}

QString measuresDescription() {
  return "the groups of columns, comma-separated: " + measureNames() + " (default " +
         registeredMeasures().first()->name + ", always taken; below)";
}

/// The options, with the descriptions and value names that --help shows.
const QList<QCommandLineOption> &options() {
  static const QList<QCommandLineOption> list = {
      {{"o", "output"},
       "the optics table (CSV); default twiss.optics.csv in the first run directory; - for "
       "standard output. The record of the run is written beside it, as .json",
       "FILE"},
      {"species",
       "only these species: particle names or PDG ids, comma-separated (mu+,e-,proton or "
       "-13,11)",
       "LIST"},
      {"primaries", "only tracks whose parent (column 11) is 0"},
      {"p-ref",
       "reference momentum of delta, with a unit (200MeV, 0.2GeV); default: the weighted mean "
       "momentum at each plane",
       "MOMENTUM"},
      {"unweighted", "every crossing weighs 1 (default: the weight column)"},
      {"measures", measuresDescription(), "LIST"},
      {"bz",
       "the solenoid field at every plane whose line of sampleS.txt gives no Bz= (4T, 40kG; "
       "default 0), for the canonical angular momentum",
       "FIELD"},
      {"acceptance",
       "with the measure amplitude: the share of the first plane's beam within this amplitude "
       "(mm mrad) at every plane",
       "AMPLITUDE"},
      {"amplitude-change",
       "with the measure amplitude: match the tracks crossing the planes at these two s and "
       "write how their amplitudes changed beside the table (1100mm,2.1m)",
       "S1,S2"},
      {"phase-space",
       "draw the crossings of the plane at --at in (x, u_x), (y, u_y), (x, y) and (t, E) (PNG "
       "or SVG by the extension)",
       "FILE"},
      {"at", "the position of the plane --phase-space draws (1100mm, 2.1m)", "S"},
      {"slices",
       "with the measure slices: cut the bunch at every plane into N slices of as many "
       "crossings (default 10)",
       "N"},
      {"slice-width", "with the measure slices: cut it into slices of this duration instead (10ps)",
       "DT"},
      {"tracks",
       "the track file, plain or compressed (.zst, .gz, .xz), - for standard input; default: "
       "AllTracks.txt of the run directory, or where it is missing AllTracks.txt.zst, .gz or .xz",
       "FILE"},
      {"save-moments", "also write every plane's moments, exactly, for --merge", "FILE"},
      {"merge",
       "the arguments are moment files or the jobs' particle files (--particles): write the "
       "table that one run over all their tracks would write"},
      {"lenient", "read values and planes as twiss does: errors in beamlineCoordinates.txt and "
                  "sampleS.txt become warnings"},
      {{"j", "threads"},
       "threads for reading and crossing tests; default: the processors the process may run "
       "on, or TWISS_THREADS (the output does not depend on it)",
       "N"},
      {"particles",
       "also write every counted crossing as openPMD particle data (HDF5): iteration k is row "
       "k of the table",
       "FILE"},
      {"particles-at", "only the planes at these s, comma-separated (1100mm,2.1m)", "LIST"},
      {"particles-compress", "deflate level 0 to 9 for the particle file (default 0: none)", "N"},
      {"plot",
       "draw the widths, means, beta functions, dispersion and emittances along s (PNG or SVG by "
       "the extension; may be given several times)",
       "FILE"},
      {{"q", "quiet"}, "no summary line"},
      {{"h", "help"}, "this text"},
      {"version", "the version"},
  };
  return list;
}

/// "-o, --output FILE": the option's names and its value, as --help shows them.
QString optionNames(const QCommandLineOption &option) {
  QStringList names;
  for (const QString &name : option.names())
    names << (name.size() == 1 ? "-" : "--") + name;
  QString text = names.join(", ");
  return option.valueName().isEmpty() ? text : text + " " + option.valueName();
}

/// The description in lines of at most `width` characters, the first after the names and
/// the others indented to the same column.
QString wrapped(const QString &names, const QString &description) {
  const int column = 27, width = 88;
  QString text = "  " + names.leftJustified(column - 3) + " ", line;
  for (const QString &word : description.split(' ')) {
    if (!line.isEmpty() && column + line.size() + 1 + word.size() > width) {
      text += line + "\n" + QString(column, ' ');
      line.clear();
    }
    line += (line.isEmpty() ? "" : " ") + word;
  }
  return text + line + "\n";
}

double referenceMomentum(const QString &text) {
  double momentum;
  if (!readQuantity(text, "MeV", momentum) || !(momentum > 0))
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
      double s;
      if (!readQuantity(text, "mm", s))
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

/// What the measures of the crossings one by one are asked for; each needs its measure.
void readCrossingChoices(const QCommandLineParser &parser, OpticsOptions &o) {
  auto needs = [&](const char *option, const Measure &measure) {
    if (parser.isSet(option) && !o.measures.contains(measure.name))
      throw UsageError(QString("--") + option + " goes with the measure " + measure.name +
                       " (--measures " + measure.name + ")");
  };
  if (parser.isSet("acceptance")) {
    bool number = false;
    double &acceptance = o.choices.acceptance;
    acceptance = parser.value("acceptance").toDouble(&number);
    if (!number || !std::isfinite(acceptance) || acceptance < 0)
      throw UsageError("--acceptance: '" + parser.value("acceptance") +
                       "' is not an amplitude (a number of mm mrad, 0 or more)");
    needs("acceptance", amplitudeMeasure());
  }
  if (parser.isSet("amplitude-change")) {
    const QStringList texts = parser.value("amplitude-change").split(',');
    for (const QString &text : texts) {
      double s;
      if (!readQuantity(text, "mm", s) || texts.size() != 2)
        throw UsageError("--amplitude-change: '" + parser.value("amplitude-change") +
                         "' is not two positions along the beamline (1100mm,2.1m)");
      o.amplitudeChange << s;
      o.amplitudeChangeText << text;
    }
    // A merge takes its measures from its files.
    if (o.action != OpticsOptions::Merge)
      needs("amplitude-change", amplitudeMeasure());
    if (o.output == "-")
      throw UsageError("--amplitude-change writes a file beside the table: not with -o -");
  }
  if (parser.isSet("phase-space") != parser.isSet("at"))
    throw UsageError("--phase-space and --at go together");
  if (parser.isSet("phase-space")) {
    o.phaseSpace = parser.value("phase-space");
    if (!isPlotFile(o.phaseSpace))
      throw UsageError("--phase-space: '" + o.phaseSpace + "' is not a .png or .svg file");
    double s;
    if (!readQuantity(parser.value("at"), "mm", s))
      throw UsageError("--at: '" + parser.value("at") +
                       "' is not a position along the beamline (a number with a length unit: "
                       "1100mm, 2.1m)");
    o.phaseSpaceAt << s;
    o.phaseSpaceAtText << parser.value("at");
  }
  if (parser.isSet("slices") && parser.isSet("slice-width"))
    throw UsageError("--slices and --slice-width cut the bunch two ways: give one");
  if (parser.isSet("slices")) {
    bool number = false;
    o.choices.slices = parser.value("slices").toInt(&number);
    if (!number || o.choices.slices < 1 || o.choices.slices > MaximumSlices)
      throw UsageError("--slices: '" + parser.value("slices") +
                       "' is not a number of slices (1 to " + QString::number(MaximumSlices) + ")");
    needs("slices", sliceMeasure());
  }
  if (parser.isSet("slice-width")) {
    double &width = o.choices.sliceWidth;
    if (!readQuantity(parser.value("slice-width"), "ns", width) || !(width > 0))
      throw UsageError("--slice-width: '" + parser.value("slice-width") +
                       "' is not a duration (a positive number with a unit: 10ps, 0.01ns)");
    needs("slice-width", sliceMeasure());
  }
}

/// The columns, one a line, each with its definition.
QString columnList(const QList<MeasureColumn> &columns) {
  QString text;
  for (const MeasureColumn &column : columns)
    text += wrapped("  " + column.name + (column.error ? " *" : ""), column.definition);
  return text;
}

/// The counts and every measure with its columns, as --help lists them.
QString measureList() {
  QString text =
      wrapped("(counts)", "first in every table; the status last") + columnList(countColumns());
  for (const Measure *measure : registeredMeasures())
    text += wrapped(measure->name,
                    measure->summary + (measure->flags.isEmpty()
                                            ? QString()
                                            : "; status flags: " + measure->flags.join(", "))) +
            columnList(measure->columns);
  return text;
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
  o.tracks = parser.value("tracks");
  if (parser.isSet("tracks") && o.directories.size() > 1)
    throw UsageError("--tracks names the track file of one run directory, not of " +
                     QString::number(o.directories.size()));
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
  if (parser.isSet("measures")) {
    QString bad;
    if (!parseMeasureList(parser.value("measures"), o.measures, bad))
      throw UsageError("--measures: unknown measure '" + bad + "' (" + measureNames() + ")");
  }
  if (parser.isSet("bz") && !readQuantity(parser.value("bz"), "T", o.bz))
    throw UsageError("--bz: '" + parser.value("bz") +
                     "' is not a magnetic field (a number with a unit: 4T, 40kG)");
  readCrossingChoices(parser, o);
  if (parser.isSet("p-ref")) {
    o.reference.fixed = true;
    o.reference.momentum = referenceMomentum(parser.value("p-ref"));
  }
  bool selects = parser.isSet("species") || parser.isSet("primaries") ||
                 parser.isSet("unweighted") || parser.isSet("p-ref") || parser.isSet("lenient") ||
                 parser.isSet("tracks") || parser.isSet("measures") || parser.isSet("bz") ||
                 parser.isSet("acceptance") || parser.isSet("slices") ||
                 parser.isSet("slice-width") || !o.particles.isEmpty();
  if (o.action == OpticsOptions::Merge && (selects || !o.saveMoments.isEmpty()))
    throw UsageError("--merge takes the selection of its files: only -o, -q, -j, --plot, "
                     "--phase-space with --at and --amplitude-change go with it");
  return o;
}

QString opticsUsage() {
  QString options;
  for (const QCommandLineOption &option : ::options())
    options += wrapped(optionNames(option), option.description());
  return "Usage: twiss-optics [OPTIONS] [RUN_DIR ...]\n"
         "       twiss-optics --merge MOMENTS_FILE ... -o FILE\n"
         "\n"
         "Finds where every track of AllTracks.txt crosses the planes of sampleS.txt along\n"
         "the beamline of beamlineCoordinates.txt, and writes one row of beam optics per\n"
         "plane: means, widths, momentum spread, dispersion, emittances and Twiss\n"
         "parameters, with their statistical errors. Several run directories (jobs of one\n"
         "simulation) are analysed as one beam. Default RUN_DIR: the current directory.\n"
         "\n"
         "Options:\n" +
         options +
         "\n"
         "Measures (--measures) and their columns, each with _err where marked *:\n" +
         measureList() +
         "\n"
         "Exit status: 0 on success, 1 for a problem with the input or the output files,\n"
         "2 for a wrong command line.\n";
}
