//===- MeasureTest.cpp - Groups of columns chosen by name ------------------===//
//
// The measures of the optics table: their order, how a list of them is read, the
// columns and moments they bring, and what the tool makes of them: the table, the
// record, moment files and their merges, the help, the man page and the README.
//
//===----------------------------------------------------------------------------===//

#include "Measure.h"
#include "BunchSlices.h"
#include "OpticsBeam.h"
#include "OpticsJobsTest.h"
#include "TestSupport.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

const char *const Hint = "Try 'twiss-optics --help'.\n";

QStringList names(const QList<const Measure *> &measures) {
  QStringList list;
  for (const Measure *measure : measures)
    list << measure->name;
  return list;
}

TEST(MeasureTest, theDefaultComesFirstThenTheCoupledAndLongitudinalMeasures) {
  EXPECT_EQ(names(registeredMeasures()),
            QStringList({"2d", "4d", "6d", "longitudinal", "angular-momentum", "amplitude", "core",
                         "slices"}));
  EXPECT_EQ(measureNamed("6d"), &phaseSpaceMeasure());
  EXPECT_EQ(measureNamed("amplitude"), &amplitudeMeasure());
  EXPECT_EQ(measureNamed("core"), &coreMeasure());
  EXPECT_EQ(measureNamed("longitudinal"), &longitudinalMeasure());
  EXPECT_EQ(measureNamed("angular-momentum"), &angularMomentumMeasure());
  EXPECT_EQ(measureNamed("4d"), &coupledMeasure());
  EXPECT_EQ(measureNamed("2d"), &uncoupledMeasure());
  EXPECT_EQ(measureNamed("all"), nullptr);
}

TEST(MeasureTest, aListOfMeasuresAlwaysHoldsTheDefaultAndKeepsTheRegistrysOrder) {
  QStringList chosen;
  QString bad;
  for (const char *text : {"4d", "4d,2d", "2d,4d", " 4d ", "4d,4d"}) {
    EXPECT_TRUE(parseMeasureList(text, chosen, bad)) << text;
    EXPECT_EQ(chosen, QStringList({"2d", "4d"})) << text;
  }
  for (const char *text : {"all", "longitudinal,all,4d",
                           "slices,core,angular-momentum,6d,amplitude,longitudinal,4d"}) {
    EXPECT_TRUE(parseMeasureList(text, chosen, bad)) << text;
    EXPECT_EQ(chosen, QStringList({"2d", "4d", "6d", "longitudinal", "angular-momentum",
                                   "amplitude", "core", "slices"}))
        << text;
  }
  EXPECT_TRUE(parseMeasureList("2d", chosen, bad));
  EXPECT_EQ(chosen, QStringList({"2d"}));
  for (auto [text, offending] : {std::pair{"8d", "8d"},
                                 {"4d,transverse", "transverse"},
                                 {"", ""},
                                 {"4d,", ""},
                                 {"4D", "4D"}}) {
    chosen = QStringList({"kept"});
    EXPECT_FALSE(parseMeasureList(text, chosen, bad)) << text;
    EXPECT_EQ(bad, offending) << text;
    EXPECT_EQ(chosen, QStringList({"kept"})) << text;
  }
}

TEST(MeasureTest, theCoupledColumnsComeAfterTodaysBeforeTheStatus) {
  const QStringList today = tableColumns({"2d"}), both = tableColumns({"2d", "4d"});
  EXPECT_EQ(today.size(), 59);
  ASSERT_EQ(both.size(), 71);
  EXPECT_EQ(both.mid(0, 58), today.mid(0, 58));
  EXPECT_EQ(both.mid(58),
            QStringList({"emitn_4d_mm_mrad", "emitn_4d_mm_mrad_err", "emitn_4d_1_mm_mrad",
                         "emitn_4d_1_mm_mrad_err", "emitn_4d_2_mm_mrad", "emitn_4d_2_mm_mrad_err",
                         "beta_perp_m", "beta_perp_m_err", "alpha_perp", "alpha_perp_err",
                         "emitn_4d_betatron_mm_mrad", "emitn_4d_betatron_mm_mrad_err", "status"}));
  EXPECT_EQ(tableColumns({"2d", "longitudinal"}).mid(58),
            QStringList({"sigma_E_MeV", "sigma_E_MeV_err", "emitn_l_mm_mrad", "emitn_l_mm_mrad_err",
                         "chirp_MeV_per_ns", "chirp_MeV_per_ns_err", "status"}));
  EXPECT_EQ(tableColumns({"2d", "4d", "longitudinal"}).size(), 77);
  EXPECT_EQ(tableColumns({"2d", "6d"}).mid(58),
            QStringList({"emitn_6d_mm_mrad", "emitn_6d_mm_mrad_err", "emitn_6d_1_mm_mrad",
                         "emitn_6d_1_mm_mrad_err", "emitn_6d_2_mm_mrad", "emitn_6d_2_mm_mrad_err",
                         "emitn_6d_3_mm_mrad", "emitn_6d_3_mm_mrad_err", "status"}));
  EXPECT_EQ(tableColumns({"2d", "angular-momentum"}).mid(58),
            QStringList({"L_kin_mm_MeV", "L_kin_mm_MeV_err", "L_kin_n_mm", "L_kin_n_mm_err",
                         "L_can_mm_MeV", "L_can_mm_MeV_err", "L_can_n_mm", "L_can_n_mm_err",
                         "emitn_can_x_mm_mrad", "emitn_can_x_mm_mrad_err", "emitn_can_y_mm_mrad",
                         "emitn_can_y_mm_mrad_err", "status"}));
  // The counts frame every table.
  EXPECT_EQ(tableColumns({}), QStringList({"s_mm", "n", "n_back", "weight", "n_eff", "transmission",
                                           "transmission_err", "status"}));
}

TEST(MeasureTest, eachSetOfMomentsIsKeptOnce) {
  const std::vector<const MomentSet *> basic = PlaneStatistics::basicSets();
  ASSERT_EQ(basic.size(), 5u);
  EXPECT_EQ(momentSetsOf({"2d"}), basic);
  // The coupled measure and the angular momentum share the transverse moments.
  const std::vector<const MomentSet *> shared = momentSetsOf({"2d", "4d", "angular-momentum"});
  ASSERT_EQ(shared.size(), 7u);
  EXPECT_EQ(shared[5], &transverse4dMoments());
  EXPECT_STREQ(shared[6]->name, "angular_momentum");
  const std::vector<const MomentSet *> both = momentSetsOf({"2d", "4d"});
  ASSERT_EQ(both.size(), 6u);
  EXPECT_STREQ(both[5]->name, "transverse_4d");
  EXPECT_EQ(both[5]->coordinates.size(), 5u);
  EXPECT_EQ(both[5]->order, 4);
  EXPECT_EQ(PlaneStatistics(both).sets(), both);
}

/// A beam in run directories, analysed by the tool.
class MeasureToolTest : public OpticsJobsTest {};

TEST_F(MeasureToolTest, theCoupledColumnsJoinTodaysWhichStayAsTheyWere) {
  writeJob("a", 1);
  expectRun({"a", "-o", "today.csv"});
  expectRun({"a", "-o", "explicit.csv", "--measures", "2d"});
  expectRun({"a", "-o", "both.csv", "--measures", "4d"});
  expectRun({"a", "-o", "all.csv", "--measures", "all"});
  EXPECT_EQ(readFile(path("explicit.csv")), readFile(path("today.csv")));
  EXPECT_EQ(readFile(path("explicit.json")), readFile(path("today.json")));
  // Every measure's columns after today's, in the registry's order, whatever the list's.
  expectRun({"a", "-o", "reversed.csv", "--measures",
             "slices,core,amplitude,angular-momentum,longitudinal,6d,4d"});
  EXPECT_EQ(readFile(path("all.csv")), readFile(path("reversed.csv")));
  EXPECT_EQ(header("all.csv"), tableColumns({"2d", "4d", "6d", "longitudinal", "angular-momentum",
                                             "amplitude", "core", "slices"})
                                   .join(',')
                                   .toStdString());
  EXPECT_EQ(header("both.csv"), tableColumns({"2d", "4d"}).join(',').toStdString());
  const QList<QHash<QString, QString>> today = csvRows(readFile(path("today.csv")));
  const QList<QHash<QString, QString>> both = csvRows(readFile(path("both.csv")));
  ASSERT_EQ(both.size(), 3);
  for (int i = 0; i < 3; ++i) {
    for (const QString &column : tableColumns({"2d"}))
      EXPECT_EQ(both[i][column], today[i][column]) << column.toStdString();
    // A muon beam with a momentum spread: every coupled column has a value.
    for (const QString &column : tableColumns({"2d", "4d"}))
      EXPECT_FALSE(both[i][column].isEmpty()) << column.toStdString();
  }
  // The record says what the coupled columns are, and only where they are.
  QJsonObject conventions = jsonOf("both.json")["conventions"].toObject();
  EXPECT_TRUE(conventions["4d emittance"].toString().startsWith("Sigma4 = C of (x, u_x, y, u_y)"));
  EXPECT_TRUE(conventions["4d twiss"].toString().startsWith("beta_perp = "));
  EXPECT_EQ(conventions.size(), jsonOf("today.json")["conventions"].toObject().size() + 2);
  EXPECT_FALSE(jsonOf("today.json")["conventions"].toObject().contains("4d emittance"));
  QJsonObject plane = jsonOf("both.json")["planes"].toArray()[0].toObject();
  EXPECT_EQ(plane.size(), 71);
  EXPECT_EQ(QString::number(plane["emitn_4d_mm_mrad"].toDouble(), 'g', 10),
            both[0]["emitn_4d_mm_mrad"]);
}

TEST_F(MeasureToolTest, anUnknownMeasureIsAUsageError) {
  writeJob("a", 1);
  ToolRun r = run({"a", "--measures", "8d"});
  EXPECT_EQ(r.err, std::string("twiss-optics: error: --measures: unknown measure '8d' (2d, 4d, "
                               "6d, longitudinal, angular-momentum, amplitude, core, "
                               "slices or all)\n") +
                       Hint);
  EXPECT_EQ(r.status, 2);
  r = run({"--merge", "a.json", "--measures", "4d", "-o", "m.csv"});
  EXPECT_EQ(r.err, std::string("twiss-optics: error: --merge takes the selection of its files: "
                               "only -o, -q, -j, --plot, --phase-space with --at and "
                               "--amplitude-change go with it\n") +
                       Hint);
  EXPECT_EQ(r.status, 2);
  EXPECT_FALSE(fileExists(path("a/twiss.optics.csv")));
}

TEST_F(MeasureToolTest, mergedMomentsOfEveryMeasureGiveTheOneRunRecord) {
  const QString ofMoments = "4d,6d,longitudinal,angular-momentum";
  for (const char *job : {"a", "b", "c"}) {
    writeJob(job, unsigned(job[0]));
    for (const char *extension : {".json", ".bin"})
      expectRun({job, "-o", QString(job) + "-table.csv", "--measures", ofMoments, "--bz", "1.5T",
                 "--save-moments", QString(job) + extension});
  }
  expectRun({"a", "b", "c", "-o", "one.csv", "--measures", ofMoments, "--bz", "1.5T"});
  expectRun({"--merge", "a.json", "b.json", "c.json", "-o", "text.csv"});
  expectRun({"--merge", "a.bin", "b.json", "c.bin", "-o", "mixed.csv"});
  EXPECT_EQ(readFile(path("mixed.csv")), readFile(path("text.csv")));
  EXPECT_EQ(readFile(path("mixed.json")), readFile(path("text.json")));
  EXPECT_EQ(header("text.csv"), header("one.csv"));
  // The record holds every number at full precision: the merge is the one run's to 1e-12,
  // but for the 6D eigen-emittances, roots of a cubic whose coefficients come from traces
  // of powers of J Sigma6 with cancellation: they magnify the moments' last bits.
  const QJsonArray one = jsonOf("one.json")["planes"].toArray();
  const QJsonArray merged = jsonOf("text.json")["planes"].toArray();
  ASSERT_EQ(merged.size(), 3);
  for (int i = 0; i < 3; ++i) {
    const QJsonObject expected = one[i].toObject(), actual = merged[i].toObject();
    EXPECT_EQ(actual.keys(), expected.keys());
    for (const QString &column :
         tableColumns({"2d", "4d", "6d", "longitudinal", "angular-momentum"})) {
      if (column == "status") {
        EXPECT_EQ(actual[column], expected[column]);
        continue;
      }
      ASSERT_TRUE(expected[column].isDouble()) << column.toStdString() << " of plane " << i;
      double v = expected[column].toDouble();
      const double tolerance = column.startsWith("emitn_6d_") ? 1e-9 : 1e-12;
      EXPECT_NEAR(actual[column].toDouble(), v, tolerance * std::fabs(v))
          << column.toStdString() << " of plane " << i;
    }
  }
  EXPECT_EQ(
      jsonOf("a.json")["measures"].toObject(),
      QJsonObject({{"2d", 1}, {"4d", 1}, {"6d", 1}, {"longitudinal", 1}, {"angular-momentum", 1}}));
}

TEST_F(MeasureToolTest, aMergeLeavesOutTheMeasuresNotInEveryFileAndSaysSo) {
  writeJob("a", 1);
  writeJob("b", 2);
  expectRun({"a", "--measures", "4d", "--save-moments", "a4.bin"});
  expectRun({"b", "--save-moments", "b2.json"});
  expectRun({"a", "b", "-o", "one.csv"});
  for (QStringList files : {QStringList{"a4.bin", "b2.json"}, QStringList{"b2.json", "a4.bin"}}) {
    ToolRun r = run(QStringList{"--merge"} + files + QStringList{"-o", "m.csv", "-q"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "twiss-optics: warning: " + files[1].toStdString() +
                         ": the measure 4d is left out of the merge: it is not in every moments "
                         "file\n");
    EXPECT_EQ(header("m.csv"), header("one.csv"));
  }
}

TEST_F(MeasureToolTest, aMomentsFileNamesMeasuresThisVersionKnows) {
  writeJob("a", 1);
  expectRun({"a", "--measures", "4d", "--save-moments", "a.json"});
  const QJsonObject saved = jsonOf("a.json");
  for (auto [measures, why] :
       {std::pair{QJsonObject({{"2d", 1}, {"4d", 2}}), "measure 4d version 2"},
        {QJsonObject({{"2d", 1}, {"9d", 1}}), "a measure this version does not know: 9d"},
        {QJsonObject({{"4d", 1}}), "no moments of the measure 2d"},
        {QJsonObject(), "no moments of the measure 2d"}}) {
    QJsonObject changed = saved;
    changed["measures"] = measures;
    writeFile(path("b.json"), QJsonDocument(changed).toJson().toStdString());
    ToolRun r = run({"--merge", "b.json", "-o", "m.csv"});
    EXPECT_EQ(r.err,
              std::string("twiss-optics: error: b.json: not a moments file of twiss-optics (") +
                  why + ")\n");
    EXPECT_EQ(r.status, 1);
  }
  EXPECT_FALSE(fileExists(path("m.csv")));
}

TEST_F(MeasureToolTest, theSolenoidFieldOfEachPlaneComesFromItsLineOrTheCommandLine) {
  writeJob("a", 1);
  // Bz= on a plane's line wins; --bz stands for the others; twiss reads past the name.
  writeFile(path("a/sampleS.txt"), "100mm 1000mm Bz=4T\n700mm 1000mm\n1300mm 1000mm Bz=-20kG\n");
  expectRun({"a", "-o", "field.csv", "--measures", "angular-momentum", "--bz", "0.5T"});
  const QList<QHash<QString, QString>> rows = csvRows(readFile(path("field.csv")));
  ASSERT_EQ(rows.size(), 3);
  const double fields[] = {4, 0.5, -2};
  for (int i = 0; i < 3; ++i) {
    // L_can - L_kin = (q Bz / 2) <x^2 + y^2>, with <x^2> = sigma^2 + mean^2.
    auto v = [&](const char *column) { return rows[i][column].toDouble(); };
    double r2 = v("sigma_x_mm") * v("sigma_x_mm") + v("mean_x_mm") * v("mean_x_mm") +
                v("sigma_y_mm") * v("sigma_y_mm") + v("mean_y_mm") * v("mean_y_mm");
    EXPECT_NEAR(v("L_can_mm_MeV") - v("L_kin_mm_MeV"), 0.299792458 / 2 * fields[i] * r2, 1e-6 * r2)
        << i;
  }
  // The moments file keeps the fields, exactly, and a merge refuses other ones.
  expectRun({"a", "-o", "a-table.csv", "--measures", "angular-momentum", "--save-moments", "a.json",
             "--bz", "0.5T"});
  EXPECT_EQ(jsonOf("a.json")["planes_bz_T"].toArray(), QJsonArray({"0x1p+2", "0x1p-1", "-0x1p+1"}));
  expectRun(
      {"a", "-o", "b-table.csv", "--measures", "angular-momentum", "--save-moments", "b.json"});
  ToolRun r = run({"--merge", "a.json", "b.json", "-o", "m.csv"});
  EXPECT_EQ(r.err, "twiss-optics: error: b.json: cannot be merged: the solenoid fields (Bz, --bz) "
                   "differ from those of the first file\n");
  EXPECT_EQ(r.status, 1);
}

TEST_F(MeasureToolTest, aFieldWithoutItsUnitIsAnError) {
  writeJob("a", 1);
  ToolRun r = run({"a", "--bz", "4"});
  EXPECT_EQ(r.err, std::string("twiss-optics: error: --bz: '4' is not a magnetic field (a number "
                               "with a unit: 4T, 40kG)\n") +
                       Hint);
  EXPECT_EQ(r.status, 2);
  writeFile(path("a/sampleS.txt"), "100mm 1000mm\n700mm 1000mm Bz=strong\n");
  r = run({"a", "-q"});
  EXPECT_EQ(r.err, "twiss-optics: error: a/sampleS.txt:2: Bz=strong is not a magnetic field (a "
                   "number with a unit: 4T, 40kG)\n");
  EXPECT_EQ(r.status, 1);
  r = run({"a", "-q", "--lenient"});
  EXPECT_EQ(r.err, "twiss-optics: warning: a/sampleS.txt:2: Bz=strong is not a magnetic field (a "
                   "number with a unit: 4T, 40kG)\n");
  EXPECT_EQ(r.status, 0);
}

TEST_F(MeasureToolTest, twissReadsPastTheFieldOfAPlane) {
  writeJob("a", 1);
  ToolRun plain = runTool(path("a"), {});
  const std::string table = readFile(path("a/twiss.calc.txt"));
  writeFile(path("a/sampleS.txt"), "100mm 1000mm Bz=4T\n700mm 1000mm Bz=-2T\n1300mm 1000mm\n");
  ToolRun field = runTool(path("a"), {});
  EXPECT_EQ(field.out, plain.out);
  EXPECT_EQ(field.err, plain.err);
  EXPECT_EQ(field.status, 0);
  EXPECT_EQ(readFile(path("a/twiss.calc.txt")), table);
}

/// The column of x that a column of y mirrors; the column itself if it is of neither.
std::string xCounterpart(QString column) {
  column.replace("_yp", "_xp").replace("_y_", "_x_");
  if (column.endsWith("_y"))
    column.replace(column.size() - 1, 1, "x");
  return column.toStdString();
}

TEST_F(MeasureToolTest, helpManPageAndReadmeDefineEveryColumn) {
  const std::string help = run({"--help"}).out;
  const std::string man = readFile(SOURCE_DIR "/man/twiss-optics.1");
  const std::string readme = readFile(SOURCE_DIR "/README.md");
  EXPECT_NE(help.find("  --measures LIST          the groups of columns, comma-separated: 2d, "
                      "4d, 6d,\n                           longitudinal, angular-momentum, "
                      "amplitude, core, slices or\n                           all (default 2d"),
            std::string::npos);
  EXPECT_NE(help.find("  core                     of the crossings one by one: core emittances "
                      "and halo\n                           parameters; status flags: degenerate, "
                      "no-crossings\n"),
            std::string::npos);
  const MeasureColumn status{"status", false, "ok, or the flags"};
  QList<QPair<QString, QList<MeasureColumn>>> groups = {{"(counts)", countColumns()}};
  for (const Measure *measure : registeredMeasures())
    groups.append({measure->name, measure->columns});
  // Each measure says which status flags it may raise.
  EXPECT_NE(help.find("\n  4d                       x and y together: the 4D and eigen-emittances, "
                      "beta and alpha\n                           of the whole beam; status flags: "
                      "degenerate\n"),
            std::string::npos);
  EXPECT_NE(help.find("energy; status flags: no-momentum-spread, mixed-species,\n"
                      "                           unknown-species, degenerate\n"),
            std::string::npos);
  for (const auto &[group, columns] : groups) {
    EXPECT_NE(help.find("\n  " + group.toStdString() + " "), std::string::npos);
    for (const MeasureColumn &column : columns + QList<MeasureColumn>{status}) {
      const std::string name = column.name.toStdString();
      if (column.name != "status") {
        const std::string line = "    " + name + (column.error ? " *" : "");
        EXPECT_NE(help.find("\n" + line + " "), std::string::npos) << name;
        EXPECT_NE(help.find(column.definition.left(20).toStdString()), std::string::npos) << name;
      }
      // The documents define a column of y as "likewise" beside the one of x.
      const std::string defined = xCounterpart(column.name);
      EXPECT_NE(readme.find("`" + defined + "`"), std::string::npos) << name;
      EXPECT_NE(man.find(defined), std::string::npos) << name;
    }
  }
}

} // namespace

namespace {

/// The planes of a run long enough to be split between threads.
QList<double> manyPlanes() {
  QList<double> planes;
  for (int k = 0; k < 80; ++k)
    planes << 100 + 15 * k;
  return planes;
}

/// The temporary files of kept crossings left in a directory.
QStringList leftTemporaryFiles(const QString &directory) {
  return QDir(directory).entryList({".twiss-optics-crossings-*"}, QDir::Hidden | QDir::Files);
}

TEST_F(MeasureToolTest, theCrossingsOneByOneGiveTheSameBytesOnAnyNumberOfThreads) {
  QDir(dir.path()).mkdir("a");
  OpticsBeam::job(3).write(path("a"), manyPlanes());
  const QStringList measures = {"--measures", "amplitude,core", "--acceptance", "4"};
  for (const char *threads : {"1", "2", "7"})
    expectRun(QStringList{"a", "-o", QString("j%1.csv").arg(threads), "-j", threads} + measures);
  for (const char *threads : {"2", "7"}) {
    EXPECT_EQ(readFile(path(QString("j%1.csv").arg(threads))), readFile(path("j1.csv")));
    EXPECT_EQ(readFile(path(QString("j%1.json").arg(threads))), readFile(path("j1.json")));
  }
  // A muon beam: every column of both measures has a value at every plane.
  const QList<QHash<QString, QString>> rows = csvRows(readFile(path("j1.csv")));
  ASSERT_EQ(rows.size(), 80);
  int columns = 0;
  for (const Measure *measure : {&amplitudeMeasure(), &coreMeasure()})
    for (const MeasureColumn &column : measure->columns)
      for (const QString &name : {column.name, column.name + "_err"}) {
        EXPECT_FALSE(rows[40][name].isEmpty()) << name.toStdString();
        ++columns;
      }
  EXPECT_EQ(columns, 2 * (6 + 19));
  EXPECT_EQ(rows[40]["status"], "ok");
  EXPECT_EQ(leftTemporaryFiles(dir.path()), QStringList());
  EXPECT_EQ(leftTemporaryFiles(path("a")), QStringList());
}

TEST_F(MeasureToolTest, theAcceptanceIsAnAmplitudeOfTheAmplitudeMeasure) {
  writeJob("a", 1);
  for (const char *bad : {"x", "-1", "inf", "4mm"}) {
    ToolRun r = run({"a", "--measures", "amplitude", "--acceptance", bad});
    EXPECT_EQ(r.err, "twiss-optics: error: --acceptance: '" + std::string(bad) +
                         "' is not an amplitude (a number of mm mrad, 0 or more)\n" + Hint);
    EXPECT_EQ(r.status, 2);
  }
  ToolRun r = run({"a", "--measures", "4d,core", "--acceptance", "4"});
  EXPECT_EQ(r.err, "twiss-optics: error: --acceptance goes with the measure amplitude (--measures "
                   "amplitude)\n" +
                       std::string(Hint));
  EXPECT_EQ(r.status, 2);
  r = run({"--merge", "a.json", "--acceptance", "4", "-o", "m.csv"});
  EXPECT_EQ(r.status, 2);
  EXPECT_FALSE(fileExists(path("a/twiss.optics.csv")));
  expectRun({"a", "-o", "zero.csv", "--measures", "amplitude", "--acceptance", "0"});
  EXPECT_EQ(csvRows(readFile(path("zero.csv")))[0]["within_acceptance"], "0");
}

TEST_F(MeasureToolTest, aMergeOfMomentsHasNoCrossingsOneByOne) {
  writeJob("a", 1);
  expectRun({"a", "-o", "a.csv", "--measures", "amplitude,core", "--save-moments", "a.bin"});
  EXPECT_EQ(jsonOf("a.json")["planes"].toArray()[0].toObject()["status"], "ok");
  expectRun({"--merge", "a.bin", "-o", "m.csv"});
  EXPECT_EQ(header("m.csv"), header("a.csv"));
  const QList<QHash<QString, QString>> merged = csvRows(readFile(path("m.csv")));
  const QList<QHash<QString, QString>> one = csvRows(readFile(path("a.csv")));
  ASSERT_EQ(merged.size(), 3);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(merged[i]["status"], "no-crossings");
    EXPECT_EQ(merged[i]["emitn_x_mm_mrad"], one[i]["emitn_x_mm_mrad"]);
    for (const char *column :
         {"A_50_mm_mrad", "within_acceptance", "emitn_4d_core_90_mm_mrad", "halo_y_err"})
      EXPECT_EQ(merged[i][column], "") << column;
    EXPECT_NE(one[i]["A_50_mm_mrad"], "");
  }
}

TEST_F(MeasureToolTest, crossingsLeftOutOfTheMomentsAreNotAmongTheParticles) {
  // Every seventh track has no time in "zero" (left out of the moments as it is counted),
  // and is missing from "fewer": both give the same amplitudes, cores and halos.
  writeJob("zero", 1);
  QDir(dir.path()).mkdir("fewer");
  for (const char *file : {"beamlineCoordinates.txt", "sampleS.txt"})
    QFile::copy(path(QString("zero/") + file), path(QString("fewer/") + file));
  std::string zero, fewer;
  for (const QString &line : QString::fromStdString(readFile(path("zero/AllTracks.txt")))
                                 .split('\n', Qt::SkipEmptyParts)) {
    QStringList fields = line.split(' ');
    if (fields[8].toInt() % 7 != 0) {
      fewer += line.toStdString() + "\n";
    } else {
      fields[6] = "nan";
    }
    zero += fields.join(' ').toStdString() + "\n";
  }
  writeFile(path("zero/AllTracks.txt"), zero);
  writeFile(path("fewer/AllTracks.txt"), fewer);
  for (const char *job : {"zero", "fewer"})
    expectRun({job, "-o", QString(job) + ".csv", "--measures", "amplitude,core"});
  const QList<QHash<QString, QString>> a = csvRows(readFile(path("zero.csv")));
  const QList<QHash<QString, QString>> b = csvRows(readFile(path("fewer.csv")));
  ASSERT_EQ(a.size(), 3);
  for (int i = 0; i < 3; ++i) {
    EXPECT_NE(a[i]["n"], b[i]["n"]);
    for (const char *column : {"A_50_mm_mrad", "A_99_mm_mrad_err", "emitn_4d_core_90_mm_mrad",
                               "emitn_x_core_50_mm_mrad_err", "halo_x"})
      EXPECT_EQ(a[i][column], b[i][column]) << column;
  }
}

TEST_F(MeasureToolTest, theCrossingsNeedARoomBesideTheTable) {
  writeJob("a", 1);
  ToolRun r = run({"a", "--measures", "core", "-o", "missing/t.csv"});
  EXPECT_EQ(r.err, "twiss-optics: error: " + path("missing").toStdString() +
                       ": cannot make a temporary file for the crossings (No such file or "
                       "directory)\n");
  EXPECT_EQ(r.status, 1);
  // An error after the file was made leaves nothing either.
  writeFile(path("a/AllTracks.txt"), "# nothing\n");
  r = run({"a", "--measures", "core"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(leftTemporaryFiles(path("a")), QStringList());
}

} // namespace

namespace {

TEST_F(MeasureToolTest, theSlicesAreWrittenBesideTheTable) {
  QDir(dir.path()).mkdir("a");
  OpticsBeam beam = OpticsBeam::job(4);
  beam.sigmaT = 0.1;
  beam.write(path("a"), manyPlanes());
  for (const char *threads : {"1", "2", "7"})
    expectRun({"a", "-o", QString("j%1.csv").arg(threads), "-j", threads, "--measures", "slices",
               "--slices", "4"});
  for (const char *threads : {"2", "7"})
    EXPECT_EQ(readFile(path(QString("j%1.slices.csv").arg(threads))),
              readFile(path("j1.slices.csv")));
  const QList<QHash<QString, QString>> slices = csvRows(readFile(path("j1.slices.csv")));
  ASSERT_EQ(slices.size(), 80 * 4);
  EXPECT_EQ(header("j1.slices.csv"),
            ("plane,s_mm,slice," + sliceColumns().join(',')).toStdString());
  EXPECT_EQ(slices[5]["plane"], "1");
  EXPECT_EQ(slices[5]["s_mm"], "115");
  EXPECT_EQ(slices[5]["slice"], "1");
  // 300 crossings in four slices of 75.
  EXPECT_EQ(slices[5]["n"], "75");
  const QList<QHash<QString, QString>> rows = csvRows(readFile(path("j1.csv")));
  EXPECT_FALSE(rows[1]["emitn_x_slice_mm_mrad"].isEmpty());
  // Slices of a duration; none without the measure, nor for a table on standard output.
  expectRun({"a", "-o", "w.csv", "--measures", "slices", "--slice-width", "50ps"});
  EXPECT_EQ(csvRows(readFile(path("w.slices.csv")))[0]["duration_ns"], "0.05");
  expectRun({"a", "-o", "plain.csv"});
  EXPECT_FALSE(fileExists(path("plain.slices.csv")));
  ToolRun r = run({"a", "-o", "-", "--measures", "slices", "-q"});
  EXPECT_EQ(r.status, 0);
  EXPECT_FALSE(fileExists(path("a/twiss.optics.slices.csv")));
  expectRun({"a", "--measures", "slices"});
  EXPECT_TRUE(fileExists(path("a/twiss.optics.slices.csv")));
}

TEST_F(MeasureToolTest, theSlicingIsAnOptionOfTheSliceMeasure) {
  writeJob("a", 1);
  for (auto [arguments, message] :
       {std::pair{QStringList{"--slices", "0"},
                  "--slices: '0' is not a number of slices (1 to 1000)"},
        {QStringList{"--slices", "1001"}, "--slices: '1001' is not a number of slices (1 to 1000)"},
        {QStringList{"--slices", "x"}, "--slices: 'x' is not a number of slices (1 to 1000)"},
        {QStringList{"--slice-width", "5"},
         "--slice-width: '5' is not a duration (a positive number with a unit: 10ps, 0.01ns)"},
        {QStringList{"--slice-width", "-5ps"},
         "--slice-width: '-5ps' is not a duration (a positive number with a unit: 10ps, 0.01ns)"},
        {QStringList{"--slices", "4", "--slice-width", "5ps"},
         "--slices and --slice-width cut the bunch two ways: give one"}}) {
    ToolRun r = run(QStringList{"a", "--measures", "slices"} + arguments);
    EXPECT_EQ(r.err, "twiss-optics: error: " + std::string(message) + "\n" + Hint);
    EXPECT_EQ(r.status, 2);
  }
  ToolRun r = run({"a", "--slices", "4"});
  EXPECT_EQ(r.err,
            "twiss-optics: error: --slices goes with the measure slices (--measures slices)\n" +
                std::string(Hint));
  r = run({"a", "--measures", "core", "--slice-width", "1ns"});
  EXPECT_EQ(r.err, "twiss-optics: error: --slice-width goes with the measure slices (--measures "
                   "slices)\n" +
                       std::string(Hint));
  EXPECT_FALSE(fileExists(path("a/twiss.optics.csv")));
  // More than a thousand slices of a duration: the plane says so.
  expectRun({"a", "-o", "fine.csv", "--measures", "slices", "--slice-width", "0.1ps"});
  EXPECT_EQ(csvRows(readFile(path("fine.csv")))[0]["status"], "too-many-slices");
  EXPECT_EQ(readFile(path("fine.slices.csv")),
            "plane,s_mm,slice," + sliceColumns().join(',').toStdString() + "\n");
}

} // namespace

namespace {

TEST_F(MeasureToolTest, theAmplitudeChangeBetweenTwoPlanesIsWrittenBesideTheTable) {
  // A drift without a momentum spread: every particle keeps its amplitude, so each
  // bin's particles stay in it (with a spread the drift's map in (x, u_x) differs from
  // one momentum to another).
  QDir(dir.path()).mkdir("a");
  OpticsBeam beam = OpticsBeam::job(1);
  beam.sigmaDelta = 0;
  beam.write(path("a"), {100, 700, 1300});
  expectRun({"a", "-o", "t.csv", "--measures", "amplitude", "--amplitude-change", "0.1m,1300mm"});
  const std::string table = readFile(path("t.amplitude-change.csv"));
  const QStringList lines = QString::fromStdString(table).split('\n', Qt::SkipEmptyParts);
  ASSERT_EQ(lines.size(), 42);
  for (int k = 0; k <= 40; ++k) {
    const QStringList fields = lines[k + 1].split(',');
    EXPECT_EQ(fields[0], QString::number(k));
    for (int j = 0; j <= 41; ++j)
      EXPECT_TRUE(j == k || fields[7 + j] == "0") << k << " to " << j;
  }
  EXPECT_EQ(lines[41].split(',')[5], "1");
  for (auto [arguments, message] :
       {std::pair{QStringList{"--amplitude-change", "100mm"},
                  "--amplitude-change: '100mm' is not two positions along the beamline "
                  "(1100mm,2.1m)"},
        {QStringList{"--amplitude-change", "100mm,7"},
         "--amplitude-change: '100mm,7' is not two positions along the beamline (1100mm,2.1m)"},
        {QStringList{"--amplitude-change", "100mm,700mm", "-o", "-"},
         "--amplitude-change writes a file beside the table: not with -o -"}}) {
    ToolRun r = run(QStringList{"a", "--measures", "amplitude"} + arguments);
    EXPECT_EQ(r.err, "twiss-optics: error: " + std::string(message) + "\n" + Hint);
    EXPECT_EQ(r.status, 2);
  }
  ToolRun r = run({"a", "--amplitude-change", "100mm,700mm"});
  EXPECT_EQ(r.err, "twiss-optics: error: --amplitude-change goes with the measure amplitude "
                   "(--measures amplitude)\n" +
                       std::string(Hint));
  r = run({"a", "--measures", "amplitude", "--amplitude-change", "100mm,800mm", "-o", "u.csv"});
  EXPECT_EQ(r.err, "twiss-optics: error: --amplitude-change: '800mm' matches no plane of "
                   "sampleS.txt\n" +
                       std::string(Hint));
  EXPECT_EQ(r.status, 2);
  EXPECT_FALSE(fileExists(path("u.csv")));
}

} // namespace

namespace {

TEST_F(MeasureToolTest, aPlaneOfMoreCrossingsThanAreReadBackAtOnceIsTakenInPasses) {
  // One more muon than a plane's crossings read back at once, each through both planes.
  QDir(dir.path()).mkdir("big");
  writeFile(path("big/beamlineCoordinates.txt"), "%bcstart s=0m\n");
  writeFile(path("big/sampleS.txt"), "1000mm 100mm\n1100mm 100mm\n");
  std::string tracks;
  for (size_t k = 1; k <= KeptCrossings::MaximumPlaneCrossings + 1; ++k) {
    const std::string xy = std::to_string(k % 7) + " " + std::to_string(k % 5);
    const std::string p = std::to_string(int(k % 3) - 1) + " " + std::to_string(int(k % 11) - 5);
    tracks += xy + " 950 " + p + " 200 0 -13 1 " + std::to_string(k) + " 0 1\n";
    tracks += xy + " 1150 " + p + " 200 1 -13 1 " + std::to_string(k) + " 0 1\n";
  }
  writeFile(path("big/AllTracks.txt"), tracks);
  // Its picture is drawn from passes over its crossings, and its tracks are matched with
  // those of the other plane a part at a time: every track keeps its amplitude.
  expectRun({"big", "-o", "t.csv", "--phase-space", "ps.png", "--at", "1m"});
  EXPECT_EQ(readFile(path("ps.png")).substr(1, 3), "PNG");
  expectRun(
      {"big", "-o", "t.csv", "--measures", "amplitude", "--amplitude-change", "1000mm,1100mm"});
  const QStringList lines = QString::fromStdString(readFile(path("t.amplitude-change.csv")))
                                .split('\n', Qt::SkipEmptyParts);
  ASSERT_EQ(lines.size(), AmplitudeBins + 2);
  double moved = 0;
  for (int k = 0; k <= AmplitudeBins; ++k) {
    const QStringList fields = lines[k + 1].split(',');
    for (int j = 0; j <= AmplitudeBins + 1; ++j) {
      EXPECT_TRUE(j == k || fields[7 + j] == "0") << k << " to " << j;
      moved += fields[7 + j].toDouble();
    }
  }
  EXPECT_EQ(moved, 209716);
  // The amplitudes and slices of such a plane come from passes over its crossings (its
  // cores too, at twenty times the cost: see the rows of such a plane in
  // ParticleMeasureTest).
  expectRun({"big", "-o", "t.csv", "--measures", "amplitude,slices", "--slices", "3"});
  const QList<QHash<QString, QString>> rows = csvRows(readFile(path("t.csv")));
  ASSERT_EQ(rows.size(), 2);
  for (const QHash<QString, QString> &row : rows) {
    EXPECT_EQ(row["status"], "ok");
    for (const char *column : {"A_50_mm_mrad", "A_99_9_mm_mrad_err", "emitn_x_slice_mm_mrad",
                               "emitn_y_slice_mm_mrad_err"})
      EXPECT_NE(row[column], "") << column;
  }
  // Both planes see the same crossings (the tracks keep their place and momentum).
  for (const char *column : {"A_90_mm_mrad", "emitn_x_slice_mm_mrad"})
    EXPECT_EQ(rows[1][column], rows[0][column]) << column;
  // Every crossing of a plane at the same time, so in the order of the tracks: three
  // slices of 69905 crossings, the last with the one left over.
  const QList<QHash<QString, QString>> slices = csvRows(readFile(path("t.slices.csv")));
  ASSERT_EQ(slices.size(), 6);
  for (int k = 0; k < 6; ++k)
    EXPECT_EQ(slices[k]["n"], k % 3 == 2 ? "69906" : "69905") << k;
}

TEST_F(MeasureToolTest, thePhaseSpaceOfAPlaneIsDrawn) {
  writeJob("a", 1);
  expectRun({"a", "-o", "t.csv", "--phase-space", "ps.svg", "--at", "0.7m"});
  const std::string svg = readFile(path("ps.svg"));
  EXPECT_NE(svg.find(", s = 0.7 m</title>"), std::string::npos);
  expectRun({"a", "-o", "t.csv", "--phase-space", "ps.png", "--at", "700mm"});
  EXPECT_EQ(readFile(path("ps.png")).substr(1, 3), "PNG");
  for (auto [arguments, message] :
       {std::pair{QStringList{"--phase-space", "ps.png"}, "--phase-space and --at go together"},
        {QStringList{"--at", "1m"}, "--phase-space and --at go together"},
        {QStringList{"--phase-space", "ps.jpg", "--at", "1m"},
         "--phase-space: 'ps.jpg' is not a .png or .svg file"},
        {QStringList{"--phase-space", "ps.png", "--at", "7"},
         "--at: '7' is not a position along the beamline (a number with a length unit: 1100mm, "
         "2.1m)"},
        {QStringList{"--phase-space", "ps.png", "--at", "701mm"},
         "--at: '701mm' matches no plane of sampleS.txt"}}) {
    ToolRun r = run(QStringList{"a", "-o", "u.csv"} + arguments);
    EXPECT_EQ(r.err, "twiss-optics: error: " + std::string(message) + "\n" + Hint);
    EXPECT_EQ(r.status, 2);
  }
  // No crossing of a species with a known mass: nothing to draw, nothing written.
  ToolRun r =
      run({"a", "-o", "u.csv", "--species", "e-", "--phase-space", "e.png", "--at", "1.3m"});
  EXPECT_EQ(r.err, "twiss-optics: error: --phase-space: the plane at 1.3m has fewer than two "
                   "crossings of a species with a known mass\n");
  EXPECT_EQ(r.status, 1);
  EXPECT_FALSE(fileExists(path("u.csv")));
  EXPECT_FALSE(fileExists(path("e.png")));
}

} // namespace
