//===- ParticleRunTest.cpp - Merges of the jobs' particle files ------------===//
//
// A particle file carries its run's moments and kept crossings: a merge of the jobs'
// particle files gives the measures of the crossings one by one that one run over all
// the tracks gives, and the moments that a merge of the jobs' moment files gives.
//
//===----------------------------------------------------------------------------===//

#include "ParticleRun.h"
#include "BunchSlices.h"
#include "Measure.h"
#include "Modules.h"
#include "OpticsBeam.h"
#include "OpticsJobsTest.h"
#include "TestSupport.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <functional>
#include <gtest/gtest.h>
#include <hdf5.h>

namespace {

const QStringList CrossingMeasures = {
    "--measures", "amplitude,core,slices", "--acceptance", "4", "--slices", "5"};

class ParticleRunTest : public OpticsJobsTest {
protected:
  QJsonArray planesOf(const QString &record) const { return jsonOf(record)["planes"].toArray(); }
  /// Three jobs, each with its particle file and moments file, and one run over all.
  void writeJobs(const QStringList &measures) {
    for (const char *job : {"a", "b", "c"}) {
      writeJob(job, unsigned(job[0]));
      expectRun(QStringList{job, "-o", QString(job) + ".csv", "--particles", QString(job) + ".h5",
                            "--save-moments", QString(job) + ".bin"} +
                measures);
    }
    expectRun(QStringList{"a", "b", "c", "-o", "one.csv"} + measures);
  }
};

/// The columns of the measures of the crossings one by one, with their errors.
QStringList crossingColumns() {
  QStringList names = tableColumns({"2d", "amplitude", "core", "slices"});
  for (const QString &name : tableColumns({"2d"}))
    names.removeAll(name);
  return names;
}

TEST_F(ParticleRunTest, aMergeOfParticleFilesGivesTheOneRunsCrossingsAndTheMergedMoments) {
  writeJobs(CrossingMeasures);
  // The particle file of a job that wrote one plane of particles still holds them all.
  expectRun(QStringList{"b", "-o", "b1.csv", "--particles", "b1.h5", "--particles-at", "700mm"} +
            CrossingMeasures);
  expectRun({"--merge", "a.h5", "b1.h5", "c.h5", "-o", "m.csv"});
  expectRun({"--merge", "a.bin", "b.bin", "c.bin", "-o", "moments.csv"});
  EXPECT_EQ(readFile(path("m.slices.csv")), readFile(path("one.slices.csv")));
  const QJsonArray one = planesOf("one.json"), merged = planesOf("m.json"),
                   moments = planesOf("moments.json");
  ASSERT_EQ(merged.size(), 3);
  const QStringList crossings = crossingColumns();
  ASSERT_EQ(crossings.size(), 2 * (6 + 19 + 2));
  for (int i = 0; i < 3; ++i) {
    const QJsonObject m = merged[i].toObject();
    EXPECT_EQ(m.keys(), one[i].toObject().keys());
    EXPECT_EQ(m["status"], one[i].toObject()["status"]);
    EXPECT_EQ(m["status"], "ok");
    for (const QString &column : m.keys()) {
      // Every number exactly: the crossings' measures (and the record's distribution of
      // amplitudes) those of one run, the moments' those of the merged moment files, to
      // their last bits.
      const bool ofCrossings = crossings.contains(column) || column == "amplitude_distribution";
      const QJsonObject expected =
          ofCrossings || column == "status" ? one[i].toObject() : moments[i].toObject();
      EXPECT_EQ(m[column], expected[column]) << column.toStdString() << " of plane " << i;
    }
    for (const char *column : {"A_50_mm_mrad", "within_acceptance", "emitn_x_slice_mm_mrad"})
      EXPECT_TRUE(m[column].isDouble()) << column;
  }
  EXPECT_EQ(QDir(dir.path()).entryList({".twiss-optics-crossings-*"}, QDir::Hidden | QDir::Files),
            QStringList());
}

TEST_F(ParticleRunTest, particleFilesOfTheDefaultMeasuresMergeAsTheirMoments) {
  writeJobs({});
  expectRun({"--merge", "a.h5", "b.bin", "c.h5", "-o", "m.csv", "-j", "3"});
  expectRun({"--merge", "a.bin", "b.bin", "c.bin", "-o", "moments.csv"});
  EXPECT_EQ(readFile(path("m.csv")), readFile(path("moments.csv")));
  EXPECT_EQ(planesOf("m.json"), planesOf("moments.json"));
}

TEST_F(ParticleRunTest, aMomentsFileInTheMergeLeavesTheCrossingsOutAndSaysSo) {
  writeJobs(CrossingMeasures);
  ToolRun r = run({"--merge", "a.h5", "b.bin", "c.h5", "-o", "m.csv", "-q"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "twiss-optics: warning: b.bin: the crossings one by one are left out of the "
                   "merge: it holds moments only\n");
  // Said once, and not at all where the first file has none.
  r = run({"--merge", "a.h5", "b.bin", "c.bin", "-o", "m2.csv", "-q"});
  EXPECT_EQ(r.err, "twiss-optics: warning: b.bin: the crossings one by one are left out of the "
                   "merge: it holds moments only\n");
  expectRun({"--merge", "a.bin", "b.h5", "c.h5", "-o", "m3.csv"});
  for (const char *table : {"m.csv", "m2.csv", "m3.csv"}) {
    const QList<QHash<QString, QString>> rows = csvRows(readFile(path(table)));
    ASSERT_EQ(rows.size(), 3);
    for (const QHash<QString, QString> &row : rows) {
      EXPECT_EQ(row["status"], "no-crossings") << table;
      EXPECT_EQ(row["A_50_mm_mrad"], "") << table;
      EXPECT_EQ(row["emitn_4d_core_90_mm_mrad"], "") << table;
      EXPECT_NE(row["emitn_x_mm_mrad"], "") << table;
    }
  }
}

TEST_F(ParticleRunTest, particleFilesOfOtherChoicesOfTheCrossingMeasuresDoNotMerge) {
  writeJob("a", 1);
  writeJob("b", 2);
  expectRun(QStringList{"a", "-o", "a.csv", "--particles", "a.h5"} + CrossingMeasures);
  for (const QStringList &other :
       {QStringList{"--acceptance", "5", "--slices", "5"}, QStringList{"--slices", "6"},
        QStringList{"--acceptance", "4", "--slice-width", "50ps"}, QStringList{"--slices", "5"}}) {
    expectRun(QStringList{"b", "-o", "b.csv", "--particles", "b.h5", "--measures",
                          "amplitude,core,slices"} +
              other);
    ToolRun r = run({"--merge", "a.h5", "b.h5", "-o", "m.csv", "-q"});
    EXPECT_EQ(r.err, "twiss-optics: error: b.h5: cannot be merged: the choices of the measures of "
                     "the crossings (--acceptance, --slices, --slice-width) differ from those of "
                     "the first file\n");
    EXPECT_EQ(r.status, 1);
    EXPECT_FALSE(fileExists(path("m.csv")));
  }
}

TEST_F(ParticleRunTest, anHdf5FileWithoutARunIsNotMerged) {
  writeJob("a", 1);
  expectRun({"a", "-o", "a.csv", "--particles", "a.h5", "--save-moments", "a.json"});
  hid_t file = H5Fcreate(path("plain.h5").toLocal8Bit().constData(), H5F_ACC_TRUNC, H5P_DEFAULT,
                         H5P_DEFAULT);
  H5Gclose(H5Gcreate2(file, "twissOptics", H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT));
  H5Fclose(file);
  ToolRun r = run({"--merge", "a.h5", "plain.h5", "-o", "m.csv", "-q"});
  EXPECT_EQ(r.err, "twiss-optics: error: plain.h5: not a moments file of twiss-optics (an HDF5 "
                   "file without the moments of a run)\n");
  EXPECT_EQ(r.status, 1);
  // A file that begins as HDF5 files do but is cut short.
  writeFile(path("cut.h5"), readFile(path("a.h5")).substr(0, 100));
  r = run({"--merge", "a.json", "cut.h5", "-o", "m.csv", "-q"});
  EXPECT_EQ(r.err, "twiss-optics: error: cut.h5: cannot be read (the HDF5 library could not open "
                   "the file)\n");
  EXPECT_EQ(r.status, 1);
  EXPECT_FALSE(fileExists(path("m.csv")));
  EXPECT_TRUE(isHdf5File(path("a.h5")));
  EXPECT_FALSE(isHdf5File(path("a.json")));
  EXPECT_FALSE(isHdf5File(path("missing.h5")));
}

TEST_F(ParticleRunTest, aRunOfAnotherVersionOrLayoutIsRefused) {
  writeJob("a", 1);
  expectRun(QStringList{"a", "-o", "a.csv", "--particles", "a.h5"} + CrossingMeasures);
  auto changed = [&](const QString &name, const std::function<void(hid_t)> &change) {
    writeFile(path(name), readFile(path("a.h5")));
    hid_t file = H5Fopen(path(name).toLocal8Bit().constData(), H5F_ACC_RDWR, H5P_DEFAULT);
    change(file);
    H5Fclose(file);
  };
  changed("version.h5", [](hid_t file) {
    const int64_t version = 2;
    hid_t section = H5Gopen2(file, "twissOptics", H5P_DEFAULT);
    H5Adelete(section, "format_version");
    hid_t space = H5Screate(H5S_SCALAR);
    hid_t a =
        H5Acreate2(section, "format_version", H5T_NATIVE_INT64, space, H5P_DEFAULT, H5P_DEFAULT);
    H5Awrite(a, H5T_NATIVE_INT64, &version);
    H5Aclose(a);
    H5Sclose(space);
    H5Gclose(section);
  });
  changed("layout.h5", [](hid_t file) {
    H5Ldelete(file, "twissOptics/crossings/1", H5P_DEFAULT);
    hid_t type = H5Tcreate(H5T_COMPOUND, 16);
    H5Tinsert(type, "x", 0, H5T_NATIVE_DOUBLE);
    H5Tinsert(type, "ux", 8, H5T_NATIVE_DOUBLE);
    const hsize_t rows = 3;
    hid_t space = H5Screate_simple(1, &rows, nullptr);
    H5Dclose(H5Dcreate2(file, "twissOptics/crossings/1", type, space, H5P_DEFAULT, H5P_DEFAULT,
                        H5P_DEFAULT));
    H5Sclose(space);
    H5Tclose(type);
  });
  changed("missing.h5",
          [](hid_t file) { H5Ldelete(file, "twissOptics/crossings/2", H5P_DEFAULT); });
  for (auto [name, message] :
       {std::pair{"version.h5", "not a moments file of twiss-optics (particle file run version 2)"},
        {"layout.h5", "not a moments file of twiss-optics (the crossings of plane 1 are not laid "
                      "out as this version writes them)"},
        {"missing.h5",
         "cannot be read (the HDF5 library could not open the crossings of a plane)"}}) {
    ToolRun r = run({"--merge", "a.h5", name, "-o", "m.csv", "-q"});
    EXPECT_EQ(r.err, "twiss-optics: error: " + std::string(name) + ": " + message + "\n");
    EXPECT_EQ(r.status, 1);
    EXPECT_FALSE(fileExists(path("m.csv")));
  }
}

TEST_F(ParticleRunTest, theRunsCrossingsAreTableRowsOfNamedNumbers) {
  writeJob("a", 1);
  expectRun(QStringList{"a", "-o", "a.csv", "--particles", "a.h5"} + CrossingMeasures);
  hid_t file = H5Fopen(path("a.h5").toLocal8Bit().constData(), H5F_ACC_RDONLY, H5P_DEFAULT);
  ASSERT_GE(file, 0);
  const QList<QHash<QString, QString>> rows = csvRows(readFile(path("a.csv")));
  for (int k = 0; k < 3; ++k) {
    hid_t set = H5Dopen2(file, ("twissOptics/crossings/" + std::to_string(k)).c_str(), H5P_DEFAULT);
    ASSERT_GE(set, 0);
    hid_t space = H5Dget_space(set), type = H5Dget_type(set);
    // A muon beam: every crossing the row counts is kept.
    EXPECT_EQ(QString::number(H5Sget_simple_extent_npoints(space)), rows[k]["n"]);
    std::vector<std::string> fields;
    for (int f = 0; f < H5Tget_nmembers(type); ++f) {
      char *name = H5Tget_member_name(type, unsigned(f));
      fields.push_back(name);
      H5free_memory(name);
    }
    EXPECT_EQ(fields, std::vector<std::string>({"x", "ux", "y", "uy", "weight", "job", "t",
                                                "energy", "event", "track"}));
    EXPECT_EQ(H5Tget_size(type), 7 * 8 + 3 * 4u);
    H5Tclose(type);
    H5Sclose(space);
    H5Dclose(set);
  }
  double acceptance = 0, width = 0;
  int64_t slices = 0;
  hid_t crossings = H5Gopen2(file, "twissOptics/crossings", H5P_DEFAULT);
  H5Aread(H5Aopen(crossings, "acceptance", H5P_DEFAULT), H5T_NATIVE_DOUBLE, &acceptance);
  H5Aread(H5Aopen(crossings, "slices", H5P_DEFAULT), H5T_NATIVE_INT64, &slices);
  H5Aread(H5Aopen(crossings, "slice_width", H5P_DEFAULT), H5T_NATIVE_DOUBLE, &width);
  EXPECT_EQ(acceptance, 4);
  EXPECT_EQ(slices, 5);
  EXPECT_TRUE(std::isnan(width));
  H5Gclose(crossings);
  H5Fclose(file);
}

TEST_F(ParticleRunTest, aDeflatedParticleFileMergesAsAnUncompressedOne) {
  writeJob("a", 1);
  expectRun(QStringList{"a", "-o", "a.csv", "--particles", "plain.h5"} + CrossingMeasures);
  expectRun(
      QStringList{"a", "-o", "a.csv", "--particles", "deflated.h5", "--particles-compress", "6"} +
      CrossingMeasures);
  hid_t file = H5Fopen(path("deflated.h5").toLocal8Bit().constData(), H5F_ACC_RDONLY, H5P_DEFAULT);
  hid_t set = H5Dopen2(file, "twissOptics/crossings/1", H5P_DEFAULT);
  hid_t properties = H5Dget_create_plist(set);
  EXPECT_GE(H5Pget_filter_by_id2(properties, H5Z_FILTER_DEFLATE, nullptr, nullptr, nullptr, 0,
                                 nullptr, nullptr),
            0);
  H5Pclose(properties);
  H5Dclose(set);
  H5Fclose(file);
  expectRun({"--merge", "plain.h5", "-o", "plain.csv"});
  expectRun({"--merge", "deflated.h5", "-o", "deflated.csv"});
  EXPECT_EQ(readFile(path("deflated.csv")), readFile(path("plain.csv")));
  EXPECT_EQ(readFile(path("deflated.slices.csv")), readFile(path("plain.slices.csv")));
}

TEST_F(ParticleRunTest, theAmplitudeChangeTellsTheTracksOfEveryRunDirectoryApart) {
  // Two jobs that number their events and tracks alike, through a drift without a
  // momentum spread: every particle keeps its amplitude, whichever job it is of.
  const QStringList change = {"--measures", "amplitude", "--amplitude-change", "0.1m,1300mm"};
  for (const char *job : {"a", "b"}) {
    QDir(dir.path()).mkdir(job);
    OpticsBeam beam = OpticsBeam::job(unsigned(job[0]));
    beam.sigmaDelta = 0;
    beam.write(path(job), {100, 700, 1300});
    expectRun(QStringList{job, "-o", QString(job) + ".csv", "--particles", QString(job) + ".h5"} +
              change);
  }
  expectRun(QStringList{"a", "b", "-o", "one.csv"} + change);
  auto lines = [&](const QString &table) {
    return QString::fromStdString(readFile(path(table))).split('\n', Qt::SkipEmptyParts);
  };
  const QStringList one = lines("one.amplitude-change.csv");
  ASSERT_EQ(one.size(), 42);
  for (int k = 0; k <= 40; ++k) {
    const QStringList fields = one[k + 1].split(',');
    for (int j = 0; j <= 41; ++j)
      EXPECT_TRUE(j == k || fields[7 + j] == "0") << k << " to " << j;
  }
  // Every particle of both jobs below the last bin's end, upstream and downstream.
  const double below = lines("a.amplitude-change.csv")[41].split(',')[3].toDouble() +
                       lines("b.amplitude-change.csv")[41].split(',')[3].toDouble();
  EXPECT_EQ(one[41].split(',')[3].toDouble(), below);
  EXPECT_EQ(one[41].split(',')[4].toDouble(), below);
  // The merge of the jobs' particle files tells them apart alike.
  expectRun({"--merge", "a.h5", "b.h5", "-o", "m.csv", "--amplitude-change", "0.1m,1300mm",
             "--phase-space", "ps.svg", "--at", "700mm"});
  EXPECT_EQ(readFile(path("m.amplitude-change.csv")), readFile(path("one.amplitude-change.csv")));
  const std::string title = "<title>merge of " + path("a.h5").toStdString() + ", " +
                            path("b.h5").toStdString() +
                            " (all species, weighted), s = 0.7 m</title>";
  EXPECT_NE(readFile(path("ps.svg")).find(title), std::string::npos);
}

TEST_F(ParticleRunTest, aMergeWithoutCrossingsDrawsAndTabulatesNone) {
  writeJob("a", 1);
  expectRun({"a", "-o", "a.csv", "--measures", "amplitude", "--save-moments", "a.bin",
             "--particles", "a.h5"});
  for (const QStringList &files : {QStringList{"a.bin"}, QStringList{"a.h5", "a.bin"}}) {
    for (const QStringList &option : {QStringList{"--phase-space", "ps.png", "--at", "700mm"},
                                      QStringList{"--amplitude-change", "100mm,1300mm"}}) {
      ToolRun r = run(QStringList{"--merge"} + files + QStringList{"-o", "m.csv", "-q"} + option);
      EXPECT_EQ(r.err.substr(r.err.find("error: ")),
                "error: " + option[0].toStdString() +
                    ": the merged files hold no crossings one by one (the particle files of runs "
                    "that took amplitude, core or slices hold them)\n");
      EXPECT_EQ(r.status, 1);
      EXPECT_FALSE(fileExists(path("m.csv")));
      EXPECT_FALSE(fileExists(path("ps.png")));
    }
  }
}

} // namespace
