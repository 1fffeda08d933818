//===- OpticsToolTest.cpp - Whole runs of twiss-optics ---------------------===//

#include "BeamOptics.h"
#include "Measure.h"
#include "OpticsBeam.h"
#include "TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>

namespace {

QStringList opticsColumnsWithErrors() {
  QStringList columns;
  for (const QString &column : tableColumns({"2d"}))
    if (column.endsWith("_err"))
      columns << column;
  return columns;
}

const char *const Hint = "Try 'twiss-optics --help'.\n";
const char *const Straight = "%bcstart s=0m\n";
const char *const TwoTracks = "0 0 0 0 0 200 0 -13 1 1 0 1\n"
                              "0 0 2000 0 0 200 8 -13 1 1 0 1\n"
                              "1 0 0 0 0 200 0 -13 1 2 0 1\n"
                              "1 0 2000 0 0 200 8 -13 1 2 0 1\n";

class OpticsToolTest : public ::testing::Test {
protected:
  QTemporaryDir dir;
  QString path(const QString &name) const { return dir.path() + "/" + name; }
  void write(const QString &name, const std::string &text) { writeFile(path(name), text); }
  void writeRun(const std::string &planes = "1000mm 100mm\n") {
    write("beamlineCoordinates.txt", Straight);
    write("sampleS.txt", planes);
    write("AllTracks.txt", TwoTracks);
  }
  ToolRun run(const QStringList &arguments = {}) { return runOpticsTool(dir.path(), arguments); }
  std::string table() const { return readFile(path("twiss.optics.csv")); }
  /// Fails unless the run ended with this status and error text and left the table as it was.
  void expectFailure(const QStringList &arguments, int status, const std::string &error) {
    write("twiss.optics.csv", "earlier table\n");
    ToolRun r = run(arguments);
    EXPECT_EQ(r.err, error);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.status, status);
    EXPECT_EQ(table(), "earlier table\n");
    EXPECT_FALSE(fileExists(path("twiss.optics.json")));
  }
};

TEST_F(OpticsToolTest, helpListsEveryOptionOnStandardOutput) {
  ToolRun r = run({"--help"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  const std::vector<std::string> options = {"-o, --output FILE",
                                            "--species LIST",
                                            "--primaries",
                                            "--p-ref MOMENTUM",
                                            "--unweighted",
                                            "--measures LIST",
                                            "--bz FIELD",
                                            "--acceptance AMPLITUDE",
                                            "--amplitude-change S1,S2",
                                            "--phase-space FILE",
                                            "--at S",
                                            "--slices N",
                                            "--slice-width DT",
                                            "--tracks FILE",
                                            "--save-moments FILE",
                                            "--merge",
                                            "--lenient",
                                            "-j, --threads N",
                                            "--particles FILE",
                                            "--particles-at LIST",
                                            "--particles-compress N",
                                            "--plot FILE",
                                            "-q, --quiet",
                                            "-h, --help",
                                            "--version"};
  // One line names each option, in this order, its description beside it at column 27.
  std::vector<std::string> named;
  for (const QString &line : QString::fromStdString(r.out).split('\n'))
    if (line.startsWith("  -"))
      named.push_back(line.mid(2, 25).trimmed().toStdString());
  EXPECT_EQ(named, options);
  EXPECT_NE(r.out.find("  --particles-compress N   deflate level 0 to 9 for the particle file "
                       "(default 0: none)\n"),
            std::string::npos);
  EXPECT_NE(r.out.find("  --particles-at LIST      only the planes at these s, comma-separated "
                       "(1100mm,2.1m)\n"),
            std::string::npos);
  EXPECT_EQ(run({"-h"}).out, r.out);
}

TEST_F(OpticsToolTest, version) {
  ToolRun r = run({"--version"});
  EXPECT_EQ(r.out, "twiss-optics 1.1.0\n");
  EXPECT_EQ(r.status, 0);
}

TEST_F(OpticsToolTest, usageErrorsExitTwoWithAHint) {
  writeRun();
  expectFailure({"--bogus"}, 2,
                "twiss-optics: error: Unknown option 'bogus'.\n" + std::string(Hint));
  expectFailure({"--p"}, 2, "twiss-optics: error: Unknown option 'p'.\n" + std::string(Hint));
  expectFailure({"-o"}, 2, "twiss-optics: error: Missing value after '-o'.\n" + std::string(Hint));
  expectFailure({"--species", "mu,e-"}, 2,
                "twiss-optics: error: --species: unknown species 'mu' (names as the particle table "
                "gives them, such as mu+, e-, proton, pi+, gamma; or PDG ids, such as -13)\n" +
                    std::string(Hint));
  for (const char *bad : {"200", "-3MeV", "2mm", "0GeV", "x"})
    expectFailure({"--p-ref", bad}, 2,
                  "twiss-optics: error: --p-ref: '" + std::string(bad) +
                      "' is not a positive momentum (a number with an energy unit: 200MeV, "
                      "0.2GeV)\n" +
                      Hint);
  expectFailure({"--merge"}, 2,
                "twiss-optics: error: --merge needs the moment files to merge\n" +
                    std::string(Hint));
  expectFailure({"--merge", "a.json"}, 2,
                "twiss-optics: error: --merge needs -o FILE (or -o - for standard output)\n" +
                    std::string(Hint));
  expectFailure({"--merge", "a.json", "-o", "x.csv", "--primaries"}, 2,
                "twiss-optics: error: --merge takes the selection of its files: only -o, -q, -j, "
                "--plot, --phase-space with --at and --amplitude-change go with it\n" +
                    std::string(Hint));
  for (const char *bad : {"0", "-1", "two", "1.5", ""})
    expectFailure({"-j", bad}, 2,
                  "twiss-optics: error: -j: '" + std::string(bad) +
                      "' is not a number of threads (1 or more)\n" + Hint);
  expectFailure({"--threads"}, 2,
                "twiss-optics: error: Missing value after '--threads'.\n" + std::string(Hint));
}

TEST_F(OpticsToolTest, missingEmptyAndMisplacedFilesAreNamed) {
  expectFailure({}, 1, "twiss-optics: error: beamlineCoordinates.txt: no such file\n");
  QDir(dir.path()).mkdir("beamlineCoordinates.txt");
  expectFailure({}, 1,
                "twiss-optics: error: beamlineCoordinates.txt: is a directory, not a file\n");
  QDir(dir.path()).rmdir("beamlineCoordinates.txt");
  write("beamlineCoordinates.txt", "");
  expectFailure({}, 1, "twiss-optics: error: beamlineCoordinates.txt: empty file\n");
  write("beamlineCoordinates.txt", Straight);
  expectFailure({}, 1, "twiss-optics: error: sampleS.txt: no such file\n");
  write("sampleS.txt", "1000mm 100mm\n");
  expectFailure({}, 1, "twiss-optics: error: AllTracks.txt: no such file\n");
  write("AllTracks.txt", "# only a comment\n1 2 3\n");
  expectFailure({}, 1,
                "twiss-optics: error: AllTracks.txt: no readable track line (twelve columns: x y "
                "z Px Py Pz t PDGid EventID TrackID ParentID Weight)\n");
  write("sampleS.txt", "# nothing\n\n");
  write("AllTracks.txt", TwoTracks);
  expectFailure({}, 1, "twiss-optics: error: sampleS.txt: no planes\n");
}

TEST_F(OpticsToolTest, errorsInTheCoordinatesNameTheirLine) {
  writeRun();
  write("beamlineCoordinates.txt", "# a comment\n%bcstart s=0\n");
  expectFailure({}, 1,
                "twiss-optics: error: beamlineCoordinates.txt:2: Units Conversion Error from "
                "(none) to m\n");
  write("beamlineCoordinates.txt", "%bcstart s=0m x=(1\n");
  expectFailure({}, 1, "twiss-optics: error: beamlineCoordinates.txt:1: I:Syntax Error in '(1'\n");
  write("beamlineCoordinates.txt", "%bcbend s=1m radius=1m angle=10deg\n");
  expectFailure({}, 1,
                "twiss-optics: error: beamlineCoordinates.txt: %bcstart not smallest value of s\n");
  write("beamlineCoordinates.txt", "# nothing\n");
  expectFailure({}, 1,
                "twiss-optics: error: beamlineCoordinates.txt: no %bcstart line: the beamline has "
                "no start\n");
  write("beamlineCoordinates.txt", "%bcstart s=0m\n%bcbend s=1m radius=1m angle=10deg\n"
                                   "%bcbend s=1.05m radius=1m angle=10deg\n");
  expectFailure({}, 1,
                "twiss-optics: error: beamlineCoordinates.txt: Invalid overlap of Beamline "
                "Coordinate segments. radius=1 angle=0.174533\n");
}

TEST_F(OpticsToolTest, lenientTakesBannersAsWarnings) {
  writeRun();
  write("beamlineCoordinates.txt", "# a comment\n%bcstart s=0\n");
  ToolRun r = run({"--lenient", "-q"});
  EXPECT_EQ(r.err, "twiss-optics: warning: beamlineCoordinates.txt:2: Units Conversion Error "
                   "from (none) to m\n");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(csvRows(table()).size(), 1);
}

TEST_F(OpticsToolTest, errorsInThePlanesNameTheirLine) {
  writeRun();
  write("sampleS.txt", "#x\n1000mm\n");
  expectFailure({}, 1,
                "twiss-optics: error: sampleS.txt:2: no radius cut: a plane without one counts no "
                "crossing\n");
  write("sampleS.txt", "#x\n1000mm 10mm\n\n500mm 10\n");
  expectFailure({}, 1,
                "twiss-optics: error: sampleS.txt:4: Units Conversion Error from (none) to mm\n");
  write("sampleS.txt", "1000mm 10mm\n-500mm 10mm\n");
  expectFailure({}, 1,
                "twiss-optics: error: sampleS.txt:2: the plane at s=-500mm is not on the beamline "
                "(No BCSegment for s=-0.5)\n");
}

TEST_F(OpticsToolTest, lenientPlanesAreTheOnesTwissMakes) {
  writeRun("1000mm\n\n1000mm 10mm\n");
  ToolRun r = run({"--lenient", "-q"});
  EXPECT_EQ(r.err, "twiss-optics: warning: sampleS.txt:1: no radius cut: a plane without one "
                   "counts no crossing\n"
                   "twiss-optics: warning: sampleS.txt:2: no radius cut: a plane without one "
                   "counts no crossing\n");
  EXPECT_EQ(r.status, 0);
  QList<QHash<QString, QString>> rows = csvRows(table());
  ASSERT_EQ(rows.size(), 3);
  // A cut of 0 counts only a crossing through the very centre: the first track's.
  EXPECT_EQ(rows[0]["n"], "1");
  EXPECT_EQ(rows[1]["s_mm"], "0"); // the blank line: s = 0, where no track crosses forward
  EXPECT_EQ(rows[1]["n"], "0");
  EXPECT_EQ(rows[2]["n"], "2");
}

TEST_F(OpticsToolTest, tableOfTwoTracksByHand) {
  writeRun("1000mm 100mm\n1500.4mm 0.5mm bothDirections=true\n");
  ToolRun r = run();
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "");
  const std::string summary = "twiss-optics: 4 lines read, 0 skipped (0 blank or comment, 0 with "
                              "fewer than 12 fields); 2 tracks (2 selected), 1 events, 3 "
                              "crossings, 2 planes; ";
  EXPECT_EQ(r.err.substr(0, summary.size()), summary);
  EXPECT_EQ(r.err.substr(r.err.size() - 6), " MB/s\n");
  QList<QHash<QString, QString>> rows = csvRows(table());
  ASSERT_EQ(rows.size(), 2);
  // x = 0 and 1 at 1000 mm: mean 0.5, sigma 0.5, error of the mean sqrt(0.5) / 2.
  EXPECT_EQ(rows[0]["s_mm"], "1000");
  EXPECT_EQ(rows[0]["n"], "2");
  EXPECT_EQ(rows[0]["mean_x_mm"], "0.5");
  EXPECT_EQ(rows[0]["sigma_x_mm"], "0.5");
  EXPECT_EQ(rows[0]["mean_x_mm_err"], "0.3535533906");
  EXPECT_EQ(rows[0]["mean_t_ns"], "4"); // half-way in time too
  EXPECT_EQ(rows[0]["mean_p_MeV"], "200");
  // Kinetic energy of a 200 MeV/c muon: sqrt(200^2 + 105.6583715^2) - 105.6583715.
  EXPECT_EQ(rows[0]["mean_ekin_MeV"], "120.535553");
  EXPECT_EQ(rows[0]["emit_x_mm_mrad"], "");
  EXPECT_EQ(rows[0]["status"], "few;no-momentum-spread;degenerate");
  // Exact s, and a cut of 0.5 mm: only the track on axis.
  EXPECT_EQ(rows[1]["s_mm"], "1500.4");
  EXPECT_EQ(rows[1]["n"], "1");
  EXPECT_EQ(rows[1]["transmission"], "0.5");
  EXPECT_EQ(rows[1]["transmission_err"], "0.3535533906"); // sqrt(0.5 * 0.5 / 2)
  // 1500.4 mm of the way from t = 0 at z = 0 to t = 8 ns at z = 2000 mm.
  EXPECT_EQ(rows[1]["mean_t_ns"], "6.0016");
  for (const auto &row : rows)
    EXPECT_FALSE(row.contains("(fields)"));
}

TEST_F(OpticsToolTest, backwardCrossingsAreCountedApart) {
  // Forward through 1000 mm at x = 2, back at z 1200 -> 0 (x 2 -> 3, a fraction 5/6 of
  // the way back: x = 13/6), forward again at z 0 -> 1500 (x 3 -> 4, 1/3 back: x = 11/3).
  writeRun("1000mm 100mm\n1000mm 100mm bothDirections=true\n");
  write("AllTracks.txt", "2 0 0 0 0 200 0 -13 1 1 0 1\n"
                         "2 0 1200 0 0 200 8 -13 1 1 0 1\n"
                         "3 0 0 0 0 -200 16 -13 1 1 0 1\n"
                         "4 0 1500 0 0 200 24 -13 1 1 0 1\n");
  ASSERT_EQ(run({"-q"}).status, 0);
  QList<QHash<QString, QString>> rows = csvRows(table());
  ASSERT_EQ(rows.size(), 2);
  EXPECT_EQ(rows[0]["n"], "2");
  EXPECT_EQ(rows[0]["n_back"], "1");
  EXPECT_EQ(rows[0]["mean_x_mm"], "2.833333333"); // (2 + 11/3) / 2
  EXPECT_EQ(rows[1]["n"], "3");
  EXPECT_EQ(rows[1]["n_back"], "0");
  EXPECT_EQ(rows[1]["mean_x_mm"], "2.611111111"); // (2 + 13/6 + 11/3) / 3
}

TEST_F(OpticsToolTest, crossingsWithoutMomentumAreLeftOutOfTheMoments) {
  // Momentum reversed between two steps: half-way it is zero, and x' = 0/0.
  writeRun();
  write("AllTracks.txt", "2 0 0 0 0 200 0 -13 1 1 0 1\n"
                         "2 0 2000 0 0 200 8 -13 1 1 0 1\n"
                         "5 0 0 0 0 -200 16 -13 1 2 0 1\n"
                         "5 0 2000 0 0 200 24 -13 1 2 0 1\n");
  ASSERT_EQ(run({"-q"}).status, 0);
  QList<QHash<QString, QString>> rows = csvRows(table());
  EXPECT_EQ(rows[0]["n"], "2");
  EXPECT_EQ(rows[0]["weight"], "1");
  EXPECT_EQ(rows[0]["mean_x_mm"], "2");
}

TEST_F(OpticsToolTest, theRecordHoldsTheSameNumbers) {
  writeRun();
  ASSERT_EQ(run({"-q"}).status, 0);
  QJsonObject record =
      QJsonDocument::fromJson(QByteArray::fromStdString(readFile(path("twiss.optics.json"))))
          .object();
  EXPECT_EQ(record["tool"].toString(), "twiss-optics");
  EXPECT_EQ(record["crossings"].toDouble(), 2);
  EXPECT_EQ(record["totals"].toObject()["lines"].toObject()["steps"].toDouble(), 4);
  EXPECT_EQ(record["p_ref"].toObject()["mode"].toString(), "mean momentum at each plane");
  QJsonObject plane = record["planes"].toArray()[0].toObject();
  EXPECT_EQ(plane["mean_x_mm"].toDouble(), 0.5);
  EXPECT_TRUE(plane["emit_x_mm_mrad"].isNull());
  EXPECT_EQ(plane["status"].toString(), "few;no-momentum-spread;degenerate");
}

TEST_F(OpticsToolTest, tableToStandardOutputWithoutRecord) {
  writeRun();
  ToolRun r = run({"-o", "-", "-q"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(csvRows(r.out).size(), 1);
  EXPECT_FALSE(fileExists(path("twiss.optics.csv")));
  EXPECT_FALSE(fileExists(path("twiss.optics.json")));
}

TEST_F(OpticsToolTest, aTableThatCannotBeWrittenIsAnError) {
  writeRun();
  QDir(dir.path()).mkdir("out.csv");
  ToolRun r = run({"-o", "out.csv", "-q"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err.substr(0, 43), "twiss-optics: error: out.csv: cannot be wri");
}

TEST_F(OpticsToolTest, devicesAreWrittenInPlaceAndTheirErrorsReported) {
  writeRun();
  // A link to a full device: the write fails, and the device stays a device.
  ASSERT_FALSE(QFileInfo("/dev/full").isFile());
  ASSERT_TRUE(QFile::link("/dev/full", path("full.csv")));
  ToolRun r = run({"-o", "full.csv", "-q"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "twiss-optics: error: full.csv: cannot be written (No space left on device)\n");
  EXPECT_FALSE(QFileInfo("/dev/full").isFile());
  ASSERT_TRUE(QFile::link("/dev/null", path("null.csv")));
  r = run({"-o", "null.csv", "-q", "--save-moments", "/dev/null"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_FALSE(QFileInfo("/dev/null").isFile());
}

/// A beam split over run directories, as jobs of one simulation would leave it.
class SplitRunTest : public OpticsToolTest {
protected:
  QList<double> planes = {100, 700, 1300, 1900};
  void writeJob(const QString &name, unsigned seed) {
    QDir(dir.path()).mkdir(name);
    OpticsBeam::job(seed).write(path(name), planes);
  }
};

TEST_F(SplitRunTest, directoriesOfOneBeamAreAnalysedTogether) {
  writeJob("a", 1);
  writeJob("b", 2);
  writeJob("c", 3);
  ASSERT_EQ(run({"a", "b", "c", "-o", "both.csv", "-q"}).status, 0);
  // The same track numbers in all: each directory's tracks are their own.
  QList<QHash<QString, QString>> rows = csvRows(readFile(path("both.csv")));
  ASSERT_EQ(rows.size(), 4);
  EXPECT_EQ(rows[0]["n"], "900");
  // Saved moments of each, merged (each file read while the one before is added),
  // give the same table to 1e-12.
  for (const char *job : {"a", "b", "c"})
    ASSERT_EQ(
        run({job, "-o", QString(job) + ".csv", "--save-moments", QString(job) + ".json", "-q"})
            .status,
        0);
  ToolRun merging = run({"--merge", "a.json", "b.json", "c.json", "-o", "merged.csv", "-q"});
  ASSERT_EQ(merging.status, 0) << merging.err;
  // The record holds every number at full precision.
  auto planesOf = [this](const char *name) {
    QByteArray text = QByteArray::fromStdString(readFile(path(name)));
    return QJsonDocument::fromJson(text).object()["planes"].toArray();
  };
  QJsonArray one = planesOf("both.json"), merged = planesOf("merged.json");
  ASSERT_EQ(merged.size(), 4);
  for (int i = 0; i < 4; ++i) {
    QJsonObject expected = one[i].toObject(), actual = merged[i].toObject();
    EXPECT_EQ(actual.keys(), expected.keys());
    for (const QString &key : expected.keys()) {
      if (!expected[key].isDouble()) {
        EXPECT_EQ(actual[key], expected[key]) << key.toStdString();
        continue;
      }
      double v = expected[key].toDouble();
      EXPECT_NEAR(actual[key].toDouble(), v, 1e-12 * std::fabs(v)) << key.toStdString();
    }
  }
}

TEST_F(SplitRunTest, binaryAndTextMomentFilesMergeAlike) {
  for (const char *job : {"a", "b", "c"}) {
    writeJob(job, unsigned(job[0]));
    for (const char *extension : {".json", ".bin"})
      ASSERT_EQ(run({job, "-o", QString(job) + "-table.csv", "--save-moments",
                     QString(job) + extension, "-q"})
                    .status,
                0);
  }
  EXPECT_EQ(readFile(path("a.bin")).substr(0, 8), "\x89TWM\r\n\x1a\n");
  EXPECT_EQ(readFile(path("a.json")).substr(0, 1), "{");
  ToolRun text = run({"--merge", "a.json", "b.json", "c.json", "-o", "text.csv", "-q"});
  ASSERT_EQ(text.status, 0) << text.err;
  ASSERT_EQ(run({"--merge", "a.bin", "b.bin", "c.bin", "-o", "binary.csv", "-q"}).status, 0);
  ASSERT_EQ(run({"--merge", "a.bin", "b.json", "c.bin", "-o", "mixed.csv", "-q"}).status, 0);
  const std::string table = readFile(path("text.csv")), record = readFile(path("text.json"));
  EXPECT_FALSE(table.empty());
  for (const char *merged : {"binary", "mixed"}) {
    EXPECT_EQ(readFile(path(QString(merged) + ".csv")), table) << merged;
    EXPECT_EQ(readFile(path(QString(merged) + ".json")), record) << merged;
  }
  // A damaged file ends the merge, naming what is wrong.
  std::string bytes = readFile(path("c.bin"));
  bytes[bytes.size() - 10] ^= 1;
  write("c.bin", bytes);
  ToolRun r = run({"--merge", "a.bin", "c.bin", "-o", "ac.csv"});
  EXPECT_EQ(r.err, "twiss-optics: error: c.bin: not a moments file of twiss-optics (its checksum "
                   "does not match its bytes)\n");
  EXPECT_EQ(r.status, 1);
  EXPECT_FALSE(fileExists(path("ac.csv")));
}

TEST_F(SplitRunTest, directoriesMustShareTheirBeamline) {
  writeJob("a", 1);
  writeJob("b", 2);
  writeFile(path("b/sampleS.txt"), "100mm 1000mm\n");
  ToolRun r = run({"a", "b", "-q"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "twiss-optics: error: b/sampleS.txt: differs from a/sampleS.txt: the runs of "
                   "one beam share their sampleS.txt\n");
  EXPECT_FALSE(fileExists(path("a/twiss.optics.csv")));
}

TEST_F(SplitRunTest, aSelectionOfSpeciesIsASetWhateverItsOrder) {
  writeJob("a", 1);
  writeJob("b", 2);
  ASSERT_EQ(run({"a", "--save-moments", "a.json", "-q", "--species", "mu+,e-"}).status, 0);
  ASSERT_EQ(run({"b", "--save-moments", "b.json", "-q", "--species", "e-,-13"}).status, 0);
  ToolRun r = run({"--merge", "a.json", "b.json", "-o", "m.csv", "-q"});
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.status, 0);
  ASSERT_EQ(run({"a", "b", "-q", "--species", "mu+,e-", "-o", "one.csv"}).status, 0);
  EXPECT_EQ(readFile(path("m.csv")), readFile(path("one.csv")));
  // A set with another member is another selection.
  ASSERT_EQ(run({"b", "--save-moments", "b.json", "-q", "--species", "e-,mu+,mu-"}).status, 0);
  r = run({"--merge", "a.json", "b.json", "-o", "m.csv"});
  EXPECT_EQ(r.err, "twiss-optics: error: b.json: cannot be merged: the selection of tracks "
                   "differ from those of the first file\n");
}

TEST_F(SplitRunTest, momentsOfDifferentRunsAreNotMerged) {
  writeJob("a", 1);
  writeJob("b", 2);
  ASSERT_EQ(run({"a", "--save-moments", "a.json", "-q"}).status, 0);
  ASSERT_EQ(run({"b", "--save-moments", "b.json", "-q", "--primaries"}).status, 0);
  ToolRun r = run({"--merge", "a.json", "b.json", "-o", "m.csv"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "twiss-optics: error: b.json: cannot be merged: the selection of tracks "
                   "differ from those of the first file\n");
  ASSERT_EQ(run({"b", "--save-moments", "b.json", "-q", "--unweighted"}).status, 0);
  r = run({"--merge", "a.json", "b.json", "-o", "m.csv"});
  EXPECT_EQ(r.err, "twiss-optics: error: b.json: cannot be merged: the weights (--unweighted) "
                   "differ from those of the first file\n");
  ASSERT_EQ(run({"b", "--save-moments", "b.json", "-q", "--p-ref", "0.2GeV"}).status, 0);
  r = run({"--merge", "a.json", "b.json", "-o", "m.csv"});
  EXPECT_EQ(r.err, "twiss-optics: error: b.json: cannot be merged: the reference momentum "
                   "(--p-ref) differ from those of the first file\n");
  writeFile(path("b/sampleS.txt"), "100mm 1000mm\n");
  ASSERT_EQ(run({"b", "--save-moments", "b.json", "-q"}).status, 0);
  r = run({"--merge", "a.json", "b.json", "-o", "m.csv"});
  EXPECT_EQ(r.err, "twiss-optics: error: b.json: cannot be merged: the planes differ from those "
                   "of the first file\n");
  writeFile(path("c.json"), "{\"format\": \"something else\"}");
  r = run({"--merge", "a.json", "c.json", "-o", "m.csv"});
  EXPECT_EQ(r.err, "twiss-optics: error: c.json: not a moments file of twiss-optics (no format "
                   "line)\n");
  EXPECT_FALSE(fileExists(path("m.csv")));
}

/// Compares two tables column by column, to 1e-9 relative, except the given columns.
void expectSameTables(const QList<QHash<QString, QString>> &a,
                      const QList<QHash<QString, QString>> &b, const QStringList &except) {
  ASSERT_EQ(a.size(), b.size());
  for (qsizetype i = 0; i < a.size(); ++i)
    for (auto field = a[i].begin(); field != a[i].end(); ++field) {
      if (except.contains(field.key()))
        continue;
      bool isNumber = false;
      double v = field.value().toDouble(&isNumber);
      if (isNumber)
        EXPECT_NEAR(b[i][field.key()].toDouble(), v, 1e-9 * std::fabs(v))
            << field.key().toStdString() << " of row " << i;
      else
        EXPECT_EQ(b[i][field.key()], field.value()) << field.key().toStdString();
    }
}

class BeamRunTest : public OpticsToolTest {
protected:
  QList<double> planes = {100, 800, 1500};
  QList<QHash<QString, QString>> analyse(const OpticsBeam &beam, const QStringList &options = {}) {
    beam.write(dir.path(), planes);
    ToolRun r = run(options + QStringList{"-q"});
    EXPECT_EQ(r.status, 0) << r.err;
    return csvRows(table());
  }
};

TEST_F(BeamRunTest, aWeightOfTwoIsATrackWrittenTwice) {
  OpticsBeam heavy;
  heavy.particles = 400;
  heavy.sigmaDelta = 0.01;
  heavy.weight = 2;
  OpticsBeam twice = heavy;
  twice.weight = 1;
  twice.copies = 2;
  QList<QHash<QString, QString>> weighted = analyse(heavy), doubled = analyse(twice);
  ASSERT_EQ(weighted.size(), 3);
  EXPECT_EQ(weighted[0]["n"], "400");
  EXPECT_EQ(doubled[0]["n"], "800");
  EXPECT_EQ(weighted[0]["weight"], "800");
  EXPECT_EQ(weighted[0]["n_eff"], "400");
  EXPECT_EQ(doubled[0]["n_eff"], "800");
  // A copy is no new information: the weighted beam's errors are the honest ones, and
  // those of the doubled beam smaller by sqrt(2).
  QStringList except = {"n", "n_eff"};
  for (const QString &column : opticsColumnsWithErrors())
    except << column;
  expectSameTables(weighted, doubled, except);
  EXPECT_NEAR(weighted[1]["sigma_x_mm_err"].toDouble(),
              std::sqrt(2.0) * doubled[1]["sigma_x_mm_err"].toDouble(), 1e-9);
  // Unweighted, the heavy beam is the light one.
  QList<QHash<QString, QString>> plain = analyse(heavy, {"--unweighted"});
  EXPECT_EQ(plain[0]["weight"], "400");
  expectSameTables(weighted, plain, {"weight"});
}

TEST_F(BeamRunTest, selectionsBySpeciesAndParent) {
  OpticsBeam beam;
  beam.particles = 400;
  beam.secondaryEvery = 4; // 100 electrons with parent 1, 300 primary muons
  QList<QHash<QString, QString>> all = analyse(beam);
  EXPECT_EQ(all[0]["n"], "400");
  EXPECT_EQ(all[0]["status"], "no-momentum-spread;mixed-species");
  EXPECT_EQ(all[0]["emitn_x_mm_mrad"], "");
  QList<QHash<QString, QString>> muons = analyse(beam, {"--species", "mu+"});
  EXPECT_EQ(muons[0]["n"], "300");
  EXPECT_EQ(muons[0]["status"], "no-momentum-spread");
  EXPECT_NE(muons[0]["emitn_x_mm_mrad"], "");
  expectSameTables(muons, analyse(beam, {"--species", "-13"}), {});
  expectSameTables(muons, analyse(beam, {"--primaries"}), {});
  expectSameTables(muons, analyse(beam, {"--species", "mu+,proton", "--primaries"}), {});
  QList<QHash<QString, QString>> electrons = analyse(beam, {"--species", "e-"});
  EXPECT_EQ(electrons[0]["n"], "100");
  expectSameTables(electrons, analyse(beam, {"--species", " 11"}), {});
  QList<QHash<QString, QString>> none = analyse(beam, {"--species", "proton"});
  EXPECT_EQ(none[0]["n"], "0");
  EXPECT_EQ(none[0]["status"], "empty");
}

TEST_F(BeamRunTest, planesSplitOverTwoThreadsGiveTheRowsOfOne) {
  // 70 planes are tested in groups on two threads; 10 planes on the caller alone.
  planes.clear();
  for (int i = 0; i < 70; ++i)
    planes << 30 + 29.5 * i;
  OpticsBeam beam;
  beam.particles = 300;
  beam.sigmaDelta = 0.001;
  beam.write(dir.path(), planes);
  ASSERT_EQ(run({"-q", "-j", "2"}).status, 0);
  QStringList together = QString::fromStdString(table()).split('\n');
  for (int first = 0; first < 70; first += 10) {
    std::string some;
    for (int i = first; i < first + 10; ++i)
      some += QString::asprintf("%.17gmm 1000mm\n", planes[i]).toStdString();
    write("sampleS.txt", some);
    ASSERT_EQ(run({"-q", "-j", "1", "-o", "part.csv"}).status, 0);
    QStringList part = QString::fromStdString(readFile(path("part.csv"))).split('\n');
    // The transmission is relative to each run's first plane.
    QList<QHash<QString, QString>> a =
        csvRows(together.mid(0, 1).join('\n').toStdString() + "\n" +
                together.mid(1 + first, 10).join('\n').toStdString() + "\n");
    QList<QHash<QString, QString>> b = csvRows(part.join('\n').toStdString());
    ASSERT_EQ(a.size(), 10);
    for (int i = 0; i < 10; ++i) {
      a[i].remove("transmission");
      a[i].remove("transmission_err");
      b[i].remove("transmission");
      b[i].remove("transmission_err");
      EXPECT_EQ(a[i], b[i]) << "plane " << first + i;
    }
  }
}

TEST_F(OpticsToolTest, aBeamFollowingABentPathHasTheOpticsOfAStraightOne) {
  // The generator's particles keep their offset and angle in the path's frame, so the
  // optics at each s are those of the same beam on a straight path. Only the steps, 70 mm
  // chords, cut the 2 m arc (s = 2 m to 3.047 m): a plane a fraction f along a chord
  // finds the crossing f (1 - f) L^2 / (2 R) outside the arc (0.150 mm at 2250 mm).
  for (const char *name : {"bent", "straight"}) {
    QStringList command = {MAKE_RUN_BINARY, path(name), "--particles",  "2000", "--digits", "6",
                           "--step",        "70",       "--follow-path"};
    if (QString(name) == "straight")
      command << "--straight";
    ASSERT_EQ(runCommand(dir.path(), command).status, 0);
    ASSERT_EQ(run({name, "-q"}).status, 0);
  }
  QList<QHash<QString, QString>> bent = csvRows(readFile(path("bent/twiss.optics.csv")));
  QList<QHash<QString, QString>> straight = csvRows(readFile(path("straight/twiss.optics.csv")));
  ASSERT_EQ(bent.size(), 15);
  for (int i = 0; i < 15; ++i) {
    double s = bent[i]["s_mm"].toDouble();
    bool inArc = s > 2000 && s < 3047;
    double before = std::floor(s / 70) * 70; // the step before the plane
    double f = (s - before) / 70;
    double sagitta = inArc ? f * (1 - f) * 70 * 70 / (2 * 2000) : 0;
    EXPECT_NEAR(bent[i]["mean_x_mm"].toDouble() - straight[i]["mean_x_mm"].toDouble(), sagitta,
                0.03 * sagitta + 1e-7)
        << "s = " << s;
    for (const char *column : {"sigma_x_mm", "sigma_xp_mrad", "emit_x_mm_mrad", "beta_x_m",
                               "alpha_x", "sigma_y_mm", "emit_y_mm_mrad", "beta_y_m"}) {
      double expected = straight[i][column].toDouble();
      EXPECT_NEAR(bent[i][column].toDouble(), expected, (inArc ? 1e-3 : 1e-6) * std::fabs(expected))
          << column << " at s = " << s;
    }
  }
}

TEST_F(OpticsToolTest, bundledExampleGivesItsCommittedTable) {
  const QString example = QString(SOURCE_DIR) + "/examples/beamline/";
  for (const char *name : {"beamlineCoordinates.txt", "sampleS.txt", "AllTracks.txt"})
    write(name, readFile(example + name));
  ToolRun r = run({"-q"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(table(), readFile(example + "twiss.optics.csv"));
  EXPECT_EQ(readFile(path("twiss.optics.json")), readFile(example + "twiss.optics.json"));
}

TEST_F(SplitRunTest, damagedMomentFilesAreNamedWithWhatIsWrong) {
  writeJob("a", 1);
  ASSERT_EQ(
      run({"a", "--save-moments", "a.json", "-q", "--species", "mu+", "--p-ref", "200MeV"}).status,
      0);
  const QJsonObject good =
      QJsonDocument::fromJson(QByteArray::fromStdString(readFile(path("a.json")))).object();
  auto damaged = [&](const std::function<void(QJsonObject &)> &damage) {
    QJsonObject object = good;
    damage(object);
    writeFile(path("d.json"), QJsonDocument(object).toJson().toStdString());
    ToolRun r = run({"--merge", "a.json", "d.json", "-o", "m.csv"});
    EXPECT_EQ(r.status, 1);
    EXPECT_FALSE(fileExists(path("m.csv")));
    return r.err;
  };
  const std::string notMoments = "twiss-optics: error: d.json: not a moments file of "
                                 "twiss-optics (";
  auto plane = [](QJsonObject &o, const char *key, const QJsonValue &value) {
    QJsonArray planes = o["planes"].toArray();
    QJsonObject first = planes[0].toObject();
    first[key] = value;
    planes[0] = first;
    o["planes"] = planes;
  };
  EXPECT_EQ(damaged([](QJsonObject &o) { o["format_version"] = 2; }),
            notMoments + "format version 2)\n");
  EXPECT_EQ(damaged([](QJsonObject &o) { o["planes_s_mm"] = QJsonArray{"100mm"}; }),
            notMoments + "a number is not a hexadecimal float)\n");
  EXPECT_EQ(damaged([](QJsonObject &o) {
              QJsonObject p = o["p_ref"].toObject();
              p["MeV"] = 200;
              o["p_ref"] = p;
            }),
            notMoments + "a number is not a hexadecimal float)\n");
  EXPECT_EQ(damaged([](QJsonObject &o) { o.remove("totals"); }), notMoments + "no totals)\n");
  EXPECT_EQ(damaged([](QJsonObject &o) { o["planes"] = QJsonArray(); }),
            notMoments + "the planes do not match their positions)\n");
  EXPECT_EQ(damaged([&](QJsonObject &o) { plane(o, "n_back", "none"); }),
            notMoments + "plane 0)\n");
  EXPECT_EQ(damaged([&](QJsonObject &o) { plane(o, "horizontal", "0x1p+0 1.5x"); }),
            notMoments + "plane 0)\n");
  EXPECT_EQ(damaged([&](QJsonObject &o) { plane(o, "time", "0x1p+0"); }),
            notMoments + "plane 0)\n");
  EXPECT_EQ(damaged([](QJsonObject &o) { o["beamline_sha256"] = "0"; }),
            "twiss-optics: error: d.json: cannot be merged: the beamline coordinates differ from "
            "those of the first file\n");
  EXPECT_EQ(damaged([](QJsonObject &o) {
              QJsonObject selection = o["selection"].toObject();
              selection["species"] = QJsonArray{11};
              o["selection"] = selection;
            }),
            "twiss-optics: error: d.json: cannot be merged: the selection of tracks differ from "
            "those of the first file\n");
  writeFile(path("d.json"), "{ not json");
  ToolRun r = run({"--merge", "d.json", "-o", "m.csv"});
  EXPECT_EQ(r.err, notMoments + "unterminated object)\n");
  writeFile(path("d.json"), "");
  r = run({"--merge", "d.json", "-o", "m.csv"});
  EXPECT_EQ(r.err, "twiss-optics: error: d.json: empty file\n");
  // The file as it was merges.
  writeFile(path("d.json"), readFile(path("a.json")));
  EXPECT_EQ(run({"--merge", "a.json", "d.json", "-o", "m.csv", "-q"}).status, 0);
}

TEST_F(OpticsToolTest, speciesWithoutAKnownMassHaveNoNormalisedEmittance) {
  // PDG id 77 is in no table; a photon (22) has no mass to normalise with.
  for (const char *id : {"77", "22"}) {
    writeRun();
    std::string tracks;
    for (int i = 0; i < 12; ++i) {
      // Angles of a few mrad at a fixed |P| of 200 MeV/c, so no momentum spread.
      double tx = 0.001 * (i % 5), ty = 0.0015 * (i % 3),
             p = 200 / std::sqrt(1 + tx * tx + ty * ty);
      for (double z : {0.0, 2000.0})
        tracks +=
            QString::asprintf("%.12f %.12f %.1f %.12f %.12f %.12f %.1f %s 1 %d 0 1\n",
                              i % 3 + z * tx, i % 4 + z * ty, z, p * tx, p * ty, p, z / 250, id, i)
                .toStdString();
    }
    write("AllTracks.txt", tracks);
    ASSERT_EQ(run({"-q"}).status, 0);
    QList<QHash<QString, QString>> rows = csvRows(table());
    EXPECT_EQ(rows[0]["n"], "12") << id;
    EXPECT_EQ(rows[0]["status"], "no-momentum-spread;unknown-species") << id;
    EXPECT_EQ(rows[0]["emitn_x_mm_mrad"], "") << id;
    EXPECT_EQ(rows[0]["mean_ekin_MeV"], "") << id;
    EXPECT_NE(rows[0]["emit_x_mm_mrad"], "") << id;
  }
}

TEST_F(OpticsToolTest, aTrackFileThatIsADirectoryOrUnreadableIsNamed) {
  writeRun();
  QDir(dir.path()).remove("AllTracks.txt");
  QDir(dir.path()).mkdir("AllTracks.txt");
  expectFailure({}, 1, "twiss-optics: error: AllTracks.txt: is a directory, not a file\n");
}

} // namespace
