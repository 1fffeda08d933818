//===- FailedWriteTest.cpp - Every way a write can fail, in both tools ----===//
//
// A write that fails (a full device, the file size limit, an I/O error at the flush
// to the disk, at the close or at the rename, a folder the user may not write, a
// link into nothing) ends the run with the tool's write-failure message and status 1,
// and leaves the earlier file as it was and no temporary file behind.
//
//===----------------------------------------------------------------------------===//

#include "RunDirectoryTest.h"

#include <QDir>
#include <QFileInfo>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const std::string Planes = "twiss: 15 samples in s\n";
const std::string CannotWrite = "twiss error: Cannot write 'twiss.calc.txt'\n";
const std::string Earlier = "the earlier file\n";

/// What twiss says on standard error of the example's planes, at 250 mm to 7250 mm.
std::string planeLines() {
  std::string lines;
  for (int s = 250; s <= 7250; s += 500)
    lines += "twiss: %bcsample " + std::to_string(s) + "mm\n";
  return lines;
}

/// Settings under which the named call fails for the temporary file named `name`.
RunSettings failingCall(const QString &call, const QString &name) {
  RunSettings settings;
  settings.environment << "LD_PRELOAD=" FAILING_FILE_CALLS << "FAIL_CALL=" + call
                       << "FAIL_NAME=" + name
                       << "ASAN_OPTIONS=detect_leaks=0:verify_asan_link_order=0";
  return settings;
}

/// Whether every folder above the file lets other users through.
bool othersCanReach(const QString &file) {
  for (QString folder = QFileInfo(file).absolutePath(); folder != "/";
       folder = QFileInfo(folder).absolutePath()) {
    struct stat info;
    if (::stat(QFile::encodeName(folder).constData(), &info) != 0 || !(info.st_mode & S_IXOTH))
      return false;
  }
  return true;
}

class FailedWriteTest : public RunDirectoryTest {
protected:
  void SetUp() override { copyExample(); }
  /// The files of the run directory, temporary ones and links included.
  QStringList entries() const {
    return QDir(dir.path())
        .entryList(QDir::Files | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
  }
  /// twiss failed to write its report, and the earlier one is as it was.
  void expectReportRefused(const ToolRun &r) {
    EXPECT_EQ(r.out, Planes + CannotWrite);
    EXPECT_EQ(r.err, planeLines());
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(report(), Earlier);
    EXPECT_EQ(entries(), QStringList({"AllTracks.txt", "beamlineCoordinates.txt", "sampleS.txt",
                                      "twiss.calc.txt"}));
  }
};

TEST_F(FailedWriteTest, twissThroughALinkToAFullDevice) {
  QString full = fullDevice(dir.path());
  ASSERT_TRUE(QFile::link(full, path("twiss.calc.txt")));
  ToolRun r = run();
  EXPECT_EQ(r.out, Planes + CannotWrite);
  EXPECT_EQ(r.status, 1);
  EXPECT_FALSE(QFileInfo(full).isFile());
  EXPECT_TRUE(QFileInfo(path("twiss.calc.txt")).isSymLink());
}

TEST_F(FailedWriteTest, twissUnderAFileSizeLimit) {
  // The report (1.5 kB) goes past the limit only when it is flushed at the end; the
  // limit kills no process: the tool reports it like a full disk.
  write("twiss.calc.txt", Earlier);
  RunSettings limit;
  limit.fileSizeBytes = 1000;
  expectReportRefused(run({}, limit));
}

TEST_F(FailedWriteTest, twissWhenTheFlushToTheDiskFails) {
  write("twiss.calc.txt", Earlier);
  expectReportRefused(run({}, failingCall("fsync", "twiss.calc.txt")));
}

TEST_F(FailedWriteTest, twissWhenTheCloseFails) {
  write("twiss.calc.txt", Earlier);
  expectReportRefused(run({}, failingCall("close", "twiss.calc.txt")));
}

TEST_F(FailedWriteTest, twissWhenTheRenameFails) {
  write("twiss.calc.txt", Earlier);
  expectReportRefused(run({}, failingCall("rename", "twiss.calc.txt")));
}

TEST_F(FailedWriteTest, twissInAFolderTheUserMayNotWrite) {
  if (!othersCanReach(TWISS_BINARY) || !othersCanReach(dir.path()))
    GTEST_SKIP() << "the tool or the run directory cannot be reached by another user";
  write("twiss.calc.txt", Earlier);
  ASSERT_EQ(chmod(QFile::encodeName(dir.path()).constData(), 0555), 0);
  RunSettings settings;
  settings.unprivileged = true;
  ToolRun r = run({}, settings);
  chmod(QFile::encodeName(dir.path()).constData(), 0700);
  expectReportRefused(r);
}

TEST_F(FailedWriteTest, twissThroughALinkIntoNothing) {
  ASSERT_TRUE(QFile::link(path("missing/twiss.calc.txt"), path("twiss.calc.txt")));
  ToolRun r = run();
  EXPECT_EQ(r.out, Planes + CannotWrite);
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(QFileInfo(path("twiss.calc.txt")).isSymLink());
  EXPECT_FALSE(QFileInfo::exists(path("missing")));
}

TEST_F(FailedWriteTest, twissThroughALinkWritesWhereItPoints) {
  QDir(dir.path()).mkdir("reports");
  write("reports/run1.txt", Earlier);
  ASSERT_TRUE(QFile::link("reports/run1.txt", path("twiss.calc.txt")));
  ToolRun r = run();
  EXPECT_EQ(r.out, Planes);
  EXPECT_EQ(r.status, 0);
  EXPECT_TRUE(QFileInfo(path("twiss.calc.txt")).isSymLink());
  EXPECT_EQ(readFile(path("reports/run1.txt")),
            readFile(SOURCE_DIR "/examples/beamline/twiss.calc.txt"));
}

/// A file that twiss-optics writes, the options that make it write it, why a full
/// device refuses it, and a file size limit that it alone of the run's files exceeds.
struct OpticsFile {
  const char *name;
  QStringList options;
  const char *onAFullDevice;
  long sizeLimit;
};

class FailedOpticsWriteTest : public FailedWriteTest,
                              public ::testing::WithParamInterface<OpticsFile> {
protected:
  QString name() const { return GetParam().name; }
  /// Runs twiss-optics with the file in the folder (relative, with its slash); the
  /// record goes beside the table.
  ToolRun runOptics(const RunSettings &settings = RunSettings(), const QString &folder = "") {
    bool beside = name() == "out.csv" || name() == "out.json";
    QStringList arguments = {"-q", "-o", (beside ? folder : QString()) + "out.csv"};
    for (const QString &option : GetParam().options)
      arguments << (option == name() ? folder + option : option);
    return runOpticsTool(dir.path(), arguments, settings);
  }
  /// The file was refused for the reason given, and every file is as it was.
  void expectRefused(const ToolRun &r, const std::string &reason) {
    EXPECT_EQ(r.err, "twiss-optics: error: " + name().toStdString() + ": cannot be written (" +
                         reason + ")\n");
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(readFile(path(name())), Earlier);
    for (const QString &entry : entries())
      EXPECT_FALSE(entry.endsWith(".part")) << entry.toStdString();
  }
};

TEST_P(FailedOpticsWriteTest, throughALinkToAFullDevice) {
  QString full = fullDevice(dir.path());
  ASSERT_TRUE(QFile::link(full, path(name())));
  ToolRun r = runOptics();
  EXPECT_EQ(r.err, "twiss-optics: error: " + name().toStdString() + ": cannot be written (" +
                       GetParam().onAFullDevice + ")\n");
  EXPECT_EQ(r.status, 1);
  EXPECT_FALSE(QFileInfo(full).isFile());
  EXPECT_TRUE(QFileInfo(path(name())).isSymLink());
}

TEST_P(FailedOpticsWriteTest, whenTheFlushToTheDiskFails) {
  write(name(), Earlier);
  expectRefused(runOptics(failingCall("fsync", name())), "Input/output error");
}

TEST_P(FailedOpticsWriteTest, whenTheCloseFails) {
  write(name(), Earlier);
  expectRefused(runOptics(failingCall("close", name())), "Input/output error");
}

TEST_P(FailedOpticsWriteTest, whenTheRenameFails) {
  write(name(), Earlier);
  expectRefused(runOptics(failingCall("rename", name())), "Input/output error");
}

TEST_P(FailedOpticsWriteTest, underAFileSizeLimit) {
  write(name(), Earlier);
  RunSettings limit;
  limit.fileSizeBytes = GetParam().sizeLimit;
  expectRefused(runOptics(limit), "File too large");
}

TEST_P(FailedOpticsWriteTest, inAFolderTheUserMayNotWrite) {
  if (!othersCanReach(OPTICS_BINARY) || !othersCanReach(dir.path()))
    GTEST_SKIP() << "the tool or the run directory cannot be reached by another user";
  // The record goes beside the table, which is written first and refused first.
  const QString refused = "locked/" + (name() == "out.json" ? QString("out.csv") : name());
  QDir(dir.path()).mkdir("locked");
  write("locked/" + name(), Earlier);
  // The other files go where the user may write.
  ASSERT_EQ(chmod(QFile::encodeName(dir.path()).constData(), 0777), 0);
  ASSERT_EQ(chmod(QFile::encodeName(path("locked")).constData(), 0555), 0);
  RunSettings settings;
  settings.unprivileged = true;
  ToolRun r = runOptics(settings, "locked/");
  chmod(QFile::encodeName(path("locked")).constData(), 0755);
  EXPECT_EQ(r.err, "twiss-optics: error: " + refused.toStdString() +
                       ": cannot be written (Permission denied)\n");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(readFile(path("locked/" + name())), Earlier);
  EXPECT_EQ(QDir(path("locked")).entryList(QDir::Files), QStringList({name()}));
}

TEST_P(FailedOpticsWriteTest, throughALinkIntoNothing) {
  ASSERT_TRUE(QFile::link(path("missing/file"), path(name())));
  ToolRun r = runOptics();
  EXPECT_EQ(r.err, "twiss-optics: error: " + name().toStdString() +
                       ": cannot be written (No such file or directory)\n");
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(QFileInfo(path(name())).isSymLink());
}

INSTANTIATE_TEST_SUITE_P(
    EveryFile, FailedOpticsWriteTest,
    // Sizes of the example's files: table 11 kB, record 43 kB, moments 47 kB, PNG 87 kB,
    // SVG 46 kB, particles 2.9 MB. The plots are written first, then the table, the
    // record and the moments; the particle file grows during the run.
    ::testing::Values(
        OpticsFile{"out.csv", {}, "No space left on device", 5000},
        OpticsFile{"out.json", {}, "No space left on device", 20000},
        OpticsFile{
            "moments.txt", {"--save-moments", "moments.txt"}, "No space left on device", 45500},
        OpticsFile{"envelope.png", {"--plot", "envelope.png"}, "No space left on device", 20000},
        OpticsFile{"envelope.svg", {"--plot", "envelope.svg"}, "No space left on device", 20000},
        OpticsFile{"beam.h5", {"--particles", "beam.h5"}, "is not a regular file", 1000000}),
    [](const ::testing::TestParamInfo<OpticsFile> &info) {
      return QString(info.param.name).replace('.', '_').toStdString();
    });

TEST_F(FailedWriteTest, opticsInAFolderTheUserMayNotWrite) {
  if (!othersCanReach(OPTICS_BINARY) || !othersCanReach(dir.path()))
    GTEST_SKIP() << "the tool or the run directory cannot be reached by another user";
  ASSERT_EQ(chmod(QFile::encodeName(dir.path()).constData(), 0555), 0);
  RunSettings settings;
  settings.unprivileged = true;
  ToolRun r = runOpticsTool(dir.path(), {"-q"}, settings);
  chmod(QFile::encodeName(dir.path()).constData(), 0700);
  EXPECT_EQ(r.err, "twiss-optics: error: twiss.optics.csv: cannot be written (Permission "
                   "denied)\n");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(entries(), QStringList({"AllTracks.txt", "beamlineCoordinates.txt", "sampleS.txt"}));
}

} // namespace
