//===- MakeRunTest.cpp - The command line of the run generator -------------===//

#include "TestSupport.h"

#include <QDir>
#include <gtest/gtest.h>

namespace {

const char *const Hint = "Try 'make-run --help'.\n";

class MakeRunTest : public ::testing::Test {
protected:
  QTemporaryDir dir;
  ToolRun run(const QStringList &arguments) {
    return runCommand(dir.path(), QStringList{MAKE_RUN_BINARY} + arguments);
  }
  void expectFailure(const QStringList &arguments, int status, const std::string &error) {
    ToolRun r = run(arguments);
    EXPECT_EQ(r.status, status) << arguments.join(' ').toStdString();
    EXPECT_EQ(r.err, error) << arguments.join(' ').toStdString();
    EXPECT_EQ(r.out, "");
    // Nothing written: the temporary directory holds what it held.
    EXPECT_FALSE(QDir(dir.path()).exists("run")) << arguments.join(' ').toStdString();
  }
};

TEST_F(MakeRunTest, helpListsEveryOptionWithItsDefault) {
  ToolRun r = run({"--help"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  for (const char *text :
       {"Usage: make-run [OPTIONS] DIR", "--seed N         random seed (default 1)",
        "--particles N    particles to write (default 200)", "--megabytes N",
        "--step MM        step along the path in mm (default 50)",
        "--length MM      length of the tracks along the path in mm (default 7500)",
        "--planes N       sampling planes (default 15)", "--straight",
        "--digits N       digits of the numbers written (default 4)", "--general",
        "--misses N       the first N particles start outside every radius cut (default 5)",
        "--tilt DEG       the bend tilted about the path by this angle (default 0)",
        "--solenoid TESLA a solenoid of this field on the straight beamline",
        "--solenoid-at MM where the solenoid begins along the path (default 1500)",
        "--solenoid-length MM", "--force", "-h, --help"})
    EXPECT_NE(r.out.find(text), std::string::npos) << text;
  EXPECT_FALSE(QDir(dir.path()).exists("--help"));
  EXPECT_EQ(QDir(dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size(), 0);
}

TEST_F(MakeRunTest, wrongCommandLines) {
  expectFailure({"run", "--colour"}, 2,
                "make-run: error: Unknown option 'colour'.\n" + std::string(Hint));
  expectFailure({"run", "--seed"}, 2,
                "make-run: error: Missing value after '--seed'.\n" + std::string(Hint));
  expectFailure({"run", "--planes", "ten"}, 2,
                "make-run: error: --planes: 'ten' is not a whole number from 1\n" +
                    std::string(Hint));
  expectFailure({"run", "--planes", "0"}, 2,
                "make-run: error: --planes: '0' is not a whole number from 1\n" +
                    std::string(Hint));
  expectFailure({"run", "--step", "-5"}, 2,
                "make-run: error: --step: '-5' is not a number from 0.001\n" + std::string(Hint));
  expectFailure({"run", "--megabytes", "inf"}, 2,
                "make-run: error: --megabytes: 'inf' is not a number from 0\n" + std::string(Hint));
  expectFailure({"run", "--solenoid", "2"}, 2,
                "make-run: error: --solenoid needs --straight: it stands on a straight "
                "beamline\n" +
                    std::string(Hint));
  for (const char *field : {"strong", "0", "inf"})
    expectFailure({"run", "--straight", "--solenoid", field}, 2,
                  "make-run: error: --solenoid: '" + std::string(field) +
                      "' is not a field in T other than 0\n" + std::string(Hint));
  expectFailure({}, 2, "make-run: error: no run directory given\n" + std::string(Hint));
  expectFailure({"run", "other"}, 2,
                "make-run: error: one run directory only, not run, other\n" + std::string(Hint));
  expectFailure({"--", "-x"}, 2,
                "make-run: error: '-x' looks like an option, not a run directory\n" +
                    std::string(Hint));
}

TEST_F(MakeRunTest, refusesAFolderThatIsNotEmptyUnlessForced) {
  QDir(dir.path()).mkdir("full");
  writeFile(dir.path() + "/full/notes.txt", "mine\n");
  ToolRun r = run({"full", "--particles", "3"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "make-run: error: full is not empty (--force writes into it anyway)\n");
  EXPECT_FALSE(QFileInfo::exists(dir.path() + "/full/AllTracks.txt"));
  r = run({"full", "--particles", "3", "--force"});
  EXPECT_EQ(r.status, 0);
  EXPECT_TRUE(QFileInfo::exists(dir.path() + "/full/AllTracks.txt"));
  EXPECT_EQ(readFile(dir.path() + "/full/notes.txt"), "mine\n");
}

TEST_F(MakeRunTest, saysWhatItWrote) {
  ToolRun r = run({"run", "--particles", "3", "--planes", "4", "--length", "1000", "--step", "250",
                   "--straight"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  // Three particles of five steps each (s = 0, 250, ..., 1000).
  std::string tracks = readFile(dir.path() + "/run/AllTracks.txt");
  EXPECT_EQ(r.out, "make-run: wrote run: a straight beamline, 4 planes, 3 particles in 15 "
                   "steps (" +
                       std::to_string(tracks.size()) + " bytes)\n");
  EXPECT_EQ(readFile(dir.path() + "/run/beamlineCoordinates.txt"),
            "# Reference path: a straight line.\n%bcstart x=0m y=0m z=0m s=0m\n");
  EXPECT_EQ(readFile(dir.path() + "/run/sampleS.txt").find("125mm"), 0u);
}

TEST_F(MakeRunTest, aDecayPositronsClockGoesOnFromItsParents) {
  ASSERT_EQ(
      run({"run", "--particles", "1", "--secondary-every", "1", "--straight", "--length", "2000",
           "--step", "500", "--momentum-spread", "0", "--misses", "0", "--digits", "7"})
          .status,
      0);
  // The muon decays 1 m along its path, at the fields of its third step.
  QStringList lines = QString::fromStdString(readFile(dir.path() + "/run/AllTracks.txt"))
                          .split('\n', Qt::SkipEmptyParts);
  ASSERT_EQ(lines.size(), 1 + 5 + 3);
  QStringList muon = lines[3].split(' '), positron = lines[6].split(' ');
  EXPECT_EQ(muon[7], "-13");
  EXPECT_EQ(positron[7], "-11");
  EXPECT_EQ(positron.mid(0, 3), muon.mid(0, 3)); // where it decays
  EXPECT_EQ(positron[6], muon[6]);               // when it decays
  // 1 m at 200 MeV/c: t = 1000 mm / (c p / E), E = sqrt(200^2 + 105.6583755^2) MeV.
  EXPECT_NEAR(positron[6].toDouble(), 3.7725086, 5e-7);
  // The positron, near the speed of light, covers the next 0.5 m in 1.6678695 ns.
  EXPECT_NEAR(lines[7].split(' ')[6].toDouble() - positron[6].toDouble(), 1.6678695, 5e-7);
}

TEST_F(MakeRunTest, bentBeamlineSaysWhatItHolds) {
  ASSERT_EQ(run({"run", "--particles", "1"}).status, 0);
  EXPECT_EQ(readFile(dir.path() + "/run/beamlineCoordinates.txt"),
            "# Reference path: a drift, a 30 degree bend on a 2 m radius, a 5 degree kink and "
            "a drift.\n%bcstart x=0m y=0m z=0m s=0m\n%bcbend radius=2m angle=30deg phi=0 "
            "s=2m\n%bcbend radius=0m angle=5deg phi=0 s=5m\n");
}

} // namespace

namespace {

TEST_F(MakeRunTest, bundledExampleIsWhatItWritesByDefault) {
  ASSERT_EQ(run({"run"}).status, 0);
  for (const char *name : {"beamlineCoordinates.txt", "sampleS.txt", "AllTracks.txt"})
    EXPECT_TRUE(readFile(dir.path() + "/run/" + name) ==
                readFile(QString(SOURCE_DIR "/examples/beamline/") + name))
        << name;
}

} // namespace
