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

/// A file that twiss-optics writes, the options that make it write it, and why a
/// full device refuses it.
struct OpticsFile {
  const char *name;
  QStringList options;
  const char *onAFullDevice;
};

class FailedOpticsWriteTest : public FailedWriteTest,
                              public ::testing::WithParamInterface<OpticsFile> {
protected:
  QString name() const { return GetParam().name; }
  ToolRun runOptics(const RunSettings &settings = RunSettings()) {
    return runOpticsTool(dir.path(), QStringList{"-q", "-o", "out.csv"} + GetParam().options,
                         settings);
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
    ::testing::Values(
        OpticsFile{"out.csv", {}, "No space left on device"},
        OpticsFile{"out.json", {}, "No space left on device"},
        OpticsFile{"moments.txt", {"--save-moments", "moments.txt"}, "No space left on device"},
        OpticsFile{"envelope.png", {"--plot", "envelope.png"}, "No space left on device"},
        OpticsFile{"envelope.svg", {"--plot", "envelope.svg"}, "No space left on device"},
        OpticsFile{"beam.h5", {"--particles", "beam.h5"}, "is not a regular file"}),
    [](const ::testing::TestParamInfo<OpticsFile> &info) {
      return QString(info.param.name).replace('.', '_').toStdString();
    });

TEST_F(FailedWriteTest, opticsTableUnderAFileSizeLimit) {
  write("out.csv", Earlier);
  RunSettings limit;
  limit.fileSizeBytes = 1000;
  ToolRun r = runOpticsTool(dir.path(), {"-q", "-o", "out.csv"}, limit);
  EXPECT_EQ(r.err, "twiss-optics: error: out.csv: cannot be written (File too large)\n");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(readFile(path("out.csv")), Earlier);
}

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
