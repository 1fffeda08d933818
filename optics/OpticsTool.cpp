//===- OpticsTool.cpp - The twiss-optics tool ------------------------------===//
//
// Reads the run directories (or the moment files to merge), analyses the tracks and
// writes the optics table, its record and, when asked, the moments.
//
//===----------------------------------------------------------------------------===//

#include "OpticsTool.h"

#include "AmplitudeChange.h"
#include "Failure.h"
#include "InputFile.h"
#include "Measure.h"
#include "Modules.h"
#include "MomentsFile.h"
#include "OpticsOptions.h"
#include "OpticsReport.h"
#include "Particle.h"
#include "RunInput.h"

#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <algorithm>
#include <cmath>
#include <future>
#include <malloc.h>
#include <unistd.h>

namespace {

const char *const CoordinatesFile = "beamlineCoordinates.txt";
const char *const PlanesFile = "sampleS.txt";
const char *const TracksFile = "AllTracks.txt";

QString inDirectory(const QString &directory, const char *name) {
  return directory == "." ? QString(name) : QDir(directory).filePath(name);
}

QByteArray contents(const QString &path) {
  checkInputFile(path);
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly))
    throw InputError(path + ": cannot be read");
  QString failure;
  QByteArray bytes = readWhole(file, failure);
  if (!failure.isEmpty())
    throw InputError::unreadable(path, failure);
  return bytes;
}

/// AllTracks.txt, or where it is missing the first of its compressed forms that exists.
QString trackFileIn(const QString &directory) {
  const QString plain = inDirectory(directory, TracksFile);
  if (QFileInfo::exists(plain))
    return plain;
  for (const char *extension : {".zst", ".gz", ".xz"})
    if (QFileInfo::exists(plain + extension))
      return plain + extension;
  return plain;
}

QString digest(const QByteArray &bytes) {
  return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex();
}

/// The digest of a file that every run directory must share.
QString sharedDigest(const QStringList &directories, const char *name) {
  const QString first = inDirectory(directories[0], name);
  const QByteArray bytes = contents(first);
  for (const QString &directory : directories.mid(1)) {
    QString path = inDirectory(directory, name);
    if (contents(path) != bytes)
      throw InputError(path + ": differs from " + first + ": the runs of one beam share their " +
                       name);
  }
  return digest(bytes);
}

/// Where the table goes ("-" for standard output).
QString tablePath(const OpticsOptions &options) {
  return options.output.isEmpty() ? inDirectory(options.directories[0], "twiss.optics.csv")
                                  : options.output;
}

/// The directory of the outputs, where the temporary file of the crossings is made.
QString outputDirectory(const OpticsOptions &options) {
  const QString table = tablePath(options);
  if (table != "-")
    return QFileInfo(table).absolutePath();
  // A merge's arguments are files.
  return options.action == OpticsOptions::Merge ? QFileInfo(options.directories[0]).absolutePath()
                                                : options.directories[0];
}

/// Whether two positions name one plane: a nanometre apart is the same plane (2.1m and
/// 2100mm name one).
bool samePlane(double a, double b) {
  return std::fabs(a - b) <= 1e-6;
}

/// The first row of a plane at each position an option gives; throws a usage Failure
/// naming the option and the position that matches none.
QList<int> rowsAt(const QList<double> &planeS, const QList<double> &positions,
                  const QStringList &texts, const char *option) {
  QList<int> rows;
  for (qsizetype i = 0; i < positions.size(); ++i) {
    auto at = std::find_if(planeS.begin(), planeS.end(),
                           [&](double s) { return samePlane(s, positions[i]); });
    if (at == planeS.end())
      throw UsageError(QString("--") + option + ": '" + texts[i] + "' matches no plane of " +
                       PlanesFile);
    rows << int(at - planeS.begin());
  }
  return rows;
}

/// The rows of the planes that the particle file holds: those at the positions asked
/// for, or every row.
QList<int> particleRows(const OpticsOptions &options, const QList<double> &planeS) {
  rowsAt(planeS, options.particlesAt, options.particlesAtText, "particles-at");
  QList<int> rows;
  for (int row = 0; row < planeS.size(); ++row)
    if (options.particlesAt.isEmpty() ||
        std::any_of(options.particlesAt.begin(), options.particlesAt.end(),
                    [&](double s) { return samePlane(planeS[row], s); }))
      rows << row;
  return rows;
}

/// The crossings one by one of the run, for an option that draws or tabulates them.
const KeptCrossings &keptFor(const char *option, const OpticsRun &run) {
  if (!run.kept)
    throw InputError(QString("--") + option +
                     ": the merged files hold no crossings one by one (the particle files of "
                     "runs that took amplitude, core or slices hold them)");
  return *run.kept;
}

/// The picture of the crossings of the plane asked for: of the crossings read back
/// whole, or in passes over them where they are more than that takes.
QByteArray phaseSpace(const OpticsOptions &options, const OpticsRun &run, const QString &title) {
  const int row = rowsAt(run.planeS, options.phaseSpaceAt, options.phaseSpaceAtText, "at")[0];
  const KeptCrossings &kept = keptFor("phase-space", run);
  const size_t count = kept.count(size_t(row));
  if (count < 2)
    throw InputError("--phase-space: the plane at " + options.phaseSpaceAtText[0] +
                     " has fewer than two crossings of a species with a known mass");
  const PhaseSpaceView view = count > KeptCrossings::MaximumPlaneCrossings
                                  ? phaseSpaceView(kept.passesOver(size_t(row)))
                                  : phaseSpaceView(kept.crossingsOf(size_t(row)));
  return pictureModule().phaseSpacePlot(
      options.phaseSpace, view, title + QString::asprintf(", s = %g m", run.planeS[row] / 1000));
}

/// The table of the change of amplitude between the two planes asked for: of their
/// crossings read back whole, or in passes over them where either has more than that
/// takes.
QByteArray amplitudeChange(const OpticsOptions &options, const OpticsRun &run) {
  const QList<int> rows =
      rowsAt(run.planeS, options.amplitudeChange, options.amplitudeChangeText, "amplitude-change");
  const KeptCrossings &kept = keptFor("amplitude-change", run);
  const size_t up = size_t(rows[0]), down = size_t(rows[1]);
  const size_t crossings = std::max(kept.count(up), kept.count(down));
  const QByteArray table =
      crossings > KeptCrossings::MaximumPlaneCrossings
          ? amplitudeChangeTable(kept.passesOver(up), kept.passesOver(down), crossings)
          : amplitudeChangeTable(kept.crossingsOf(up), kept.crossingsOf(down));
  if (table.isEmpty())
    throw InputError("--amplitude-change: the crossings at " + options.amplitudeChangeText[0] +
                     " or " + options.amplitudeChangeText[1] +
                     " have no amplitudes (their 4D covariance is degenerate)");
  return table;
}

OpticsRun analyse(const OpticsOptions &options, std::unique_ptr<ParticleFile> &particles) {
  OpticsRun run;
  run.directories = options.directories;
  run.selection = options.selection;
  run.reference = options.reference;
  run.measures = options.measures;
  run.coordinatesDigest = sharedDigest(options.directories, CoordinatesFile);
  run.planesDigest = sharedDigest(options.directories, PlanesFile);
  QStringList trackFiles;
  for (const QString &directory : options.directories) {
    trackFiles << (options.tracks.isEmpty() ? trackFileIn(directory) : options.tracks);
    if (trackFiles.back() != "-")
      checkInputFile(trackFiles.back());
  }
  readCoordinates(inDirectory(options.directories[0], CoordinatesFile), options.lenient);
  const QString planesPath = inDirectory(options.directories[0], PlanesFile);
  QList<PlaneLine> lines = readPlaneLines(planesPath, options.lenient);
  std::vector<std::unique_ptr<BCSample>> planes = placePlanes(lines, planesPath);
  QList<BCSample *> planeList;
  for (size_t i = 0; i < planes.size(); ++i) {
    planeList.append(planes[i].get());
    run.planeS.append(lines[qsizetype(i)].sMillimetres);
    const double bz = lines[qsizetype(i)].bz;
    run.planeBz.append(std::isnan(bz) ? options.bz : bz);
  }
  run.startStatistics(planes.size());
  run.choices = options.choices;
  if (keepsCrossings(run.measures) || !options.phaseSpace.isEmpty())
    run.kept = std::make_shared<KeptCrossings>(planes.size(), outputDirectory(options));
  if (!options.particles.isEmpty())
    particles =
        particleModule().create(options.particles, run.planeS, particleRows(options, run.planeS),
                                options.particlesCompression);
  run.totals = analyseTracks(trackFiles, planeList, run.statistics, run.selection,
                             !options.quiet && isatty(STDERR_FILENO), options.threads,
                             particles.get(), run.kept.get());
  if (run.kept)
    run.kept->settle();
  return run;
}

/// A moments file, or the run a particle file holds.
MomentsPart readPart(const QString &path) {
  checkInputFile(path);
  return isHdf5File(path) ? particleModule().readRun(path) : readMomentsPart(path, contents(path));
}

/// Whether two runs chose alike for the measures of the crossings one by one.
bool sameChoices(const CrossingChoices &a, const CrossingChoices &b) {
  auto same = [](double u, double v) { return u == v || (std::isnan(u) && std::isnan(v)); };
  return same(a.acceptance, b.acceptance) && a.slices == b.slices &&
         same(a.sliceWidth, b.sliceWidth);
}

/// Adds the crossings of a part of a merge where every part before it had them, for
/// the measures that take them, its run directories counted after `jobsBefore`; a part
/// without them leaves those measures without values.
void addCrossings(OpticsRun &run, const MomentsPart &part, const QString &path, int jobsBefore) {
  if (run.kept && keepsCrossings(run.measures) && !part.crossings)
    fprintf(stderr,
            "twiss-optics: warning: %s: the crossings one by one are left out of the merge: it "
            "holds moments only\n",
            qPrintable(path));
  if (!run.kept || !keepsCrossings(run.measures) || !part.crossings) {
    run.kept.reset();
    return;
  }
  if (!sameChoices(run.choices, part.run.choices))
    throw InputError(path + ": cannot be merged: the choices of the measures of the crossings "
                            "(--acceptance, --slices, --slice-width) differ from those of the "
                            "first file");
  particleModule().addCrossings(path, *run.kept, jobsBefore);
}

OpticsRun merge(const OpticsOptions &options) {
  // Reading and checking a file takes about as long as adding it: the next file is read
  // on a second thread while the last one is added, always in the order given.
  const QStringList &paths = options.directories;
  MomentsPart first = readPart(paths[0]);
  const bool crossings = first.crossings;
  OpticsRun run = runOfPart(std::move(first));
  if (crossings && keepsCrossings(run.measures)) {
    run.kept = std::make_shared<KeptCrossings>(size_t(run.planeS.size()), outputDirectory(options));
    particleModule().addCrossings(paths[0], *run.kept, 0);
  }
  std::future<MomentsPart> next;
  if (paths.size() > 1)
    next = std::async(std::launch::async, readPart, paths[1]);
  for (qsizetype i = 1; i < paths.size(); ++i) {
    MomentsPart part = next.get();
    if (i + 1 < paths.size())
      next = std::async(std::launch::async, readPart, paths[i + 1]);
    const int jobsBefore = int(run.directories.size());
    for (const QString &measure : addMomentsPart(run, part, paths[i]))
      fprintf(stderr,
              "twiss-optics: warning: %s: the measure %s is left out of the merge: it is not "
              "in every moments file\n",
              qPrintable(paths[i]), qPrintable(measure));
    addCrossings(run, part, paths[i], jobsBefore);
  }
  if (run.kept)
    run.kept->settle();
  return run;
}

/// The plot's title: what was analysed and which crossings.
QString plotTitle(const OpticsOptions &options, const OpticsRun &run) {
  QStringList names;
  for (const QString &directory : options.directories)
    names << QFileInfo(directory).absoluteFilePath();
  QString title = (options.action == OpticsOptions::Merge ? "merge of " : "") + names.join(", ");
  QStringList selection;
  QStringList species;
  for (int id : run.selection.species)
    species << Nexil::Particle::get(id)->name(); // mu+, as the user names it
  selection << (species.isEmpty() ? "all species" : "species " + species.join(","));
  if (run.selection.primariesOnly)
    selection << "primaries";
  selection << (run.selection.weighted ? "weighted" : "unweighted");
  return title + " (" + selection.join(", ") + ")";
}

void summarise(const OpticsRun &run, const QList<OpticsRow> &rows, double seconds) {
  const TrackLineCounts &lines = run.totals.lines;
  long crossings = 0;
  for (const OpticsRow &row : rows)
    crossings += long(row.value("n"));
  fprintf(stderr,
          "twiss-optics: %ld lines read, %ld skipped (%ld blank or comment, %ld with fewer than "
          "12 fields); %ld tracks (%ld selected), %ld events, %ld crossings, %lld planes; "
          "%.2f s, %.0f MB/s\n",
          lines.steps + lines.comments + lines.malformed, lines.comments + lines.malformed,
          lines.comments, lines.malformed, run.totals.tracks, run.totals.selectedTracks,
          run.totals.events, crossings, (long long)rows.size(), seconds,
          run.totals.bytes / 1e6 / std::max(seconds, 1e-6));
}

int runWith(const OpticsOptions &options) {
  QElapsedTimer clock;
  clock.start();
  // A run that draws finds its module before the tracks are read, not after.
  if (!options.plots.isEmpty() || !options.phaseSpace.isEmpty())
    pictureModule();
  std::unique_ptr<ParticleFile> particles;
  OpticsRun run =
      options.action == OpticsOptions::Merge ? merge(options) : analyse(options, particles);
  const QString table = tablePath(options);
  // Everything is made before anything is put in place; the texts of the rows are
  // written as they come, each row then keeping its values alone.
  QByteArray phaseSpaceBytes;
  if (!options.phaseSpace.isEmpty())
    phaseSpaceBytes = phaseSpace(options, run, plotTitle(options, run));
  QByteArray changeBytes;
  if (!options.amplitudeChange.isEmpty())
    changeBytes = amplitudeChange(options, run);
  OpticsReport report(run, table, run.measures.contains(sliceMeasure().name) && table != "-");
  QList<OpticsRow> rows;
  run.rows(options.threads, [&](OpticsRow &&row) {
    report.add(row);
    row.slices = {};
    row.record = {};
    rows.append(std::move(row));
  });
  // Reading the rows settled every plane's moments: the room of the crossings that
  // waited for them, taken on every thread, goes back before the plots are made.
  malloc_trim(0);
  QList<QByteArray> plotBytes;
  for (const QString &plot : options.plots)
    plotBytes << pictureModule().envelopePlot(plot, rows, plotTitle(options, run),
                                              pictureModule().beamlineMarks());
  if (particles) {
    particles->addRun(run);
    particles->finish();
  }
  for (qsizetype i = 0; i < options.plots.size(); ++i)
    writeWhole(options.plots[i], {plotBytes[i]});
  report.commit();
  if (!phaseSpaceBytes.isEmpty())
    writeWhole(options.phaseSpace, {phaseSpaceBytes});
  if (!changeBytes.isEmpty())
    writeWhole(besideTable(table, ".amplitude-change.csv"), {changeBytes});
  if (!options.saveMoments.isEmpty())
    writeWhole(options.saveMoments, [&](const std::function<void(const QByteArray &)> &take) {
      forEachMomentsPiece(run, options.saveMoments, take);
    });
  if (particles)
    particles->commit();
  if (!options.quiet)
    summarise(run, rows, clock.elapsed() / 1000.0);
  return 0;
}

} // namespace

int runOptics(int argc, char **argv) {
  QStringList arguments;
  for (int i = 1; i < argc; ++i)
    arguments << QString::fromLocal8Bit(argv[i]);
  try {
    OpticsOptions options = parseOpticsOptions(arguments);
    if (options.action == OpticsOptions::Help) {
      fputs(qPrintable(opticsUsage()), stdout);
      return 0;
    }
    if (options.action == OpticsOptions::Version) {
      printf("twiss-optics %s\n", OpticsVersion);
      return 0;
    }
    return runWith(options);
  } catch (const UsageError &failure) {
    fprintf(stderr, "twiss-optics: error: %s\nTry 'twiss-optics --help'.\n",
            qPrintable(failure.message));
    return failure.status;
  } catch (const Failure &failure) {
    fprintf(stderr, "twiss-optics: error: %s\n", qPrintable(failure.message));
    return failure.status;
  }
}
