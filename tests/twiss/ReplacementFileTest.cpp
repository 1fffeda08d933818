//===- ReplacementFileTest.cpp - Files that replace their target whole ----===//

#include "ReplacementFile.h"

#include "TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

class ReplacementFileTest : public ::testing::Test {
protected:
  QTemporaryDir dir;
  mode_t previousMask = umask(022);

  void TearDown() override { umask(previousMask); }
  QString path(const QString &name) const { return dir.path() + "/" + name; }
  QStringList entries(const QString &folder = QString()) const {
    return QDir(folder.isEmpty() ? dir.path() : folder)
        .entryList(QDir::Files | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
  }
  static mode_t modeOf(const QString &name) {
    struct stat info;
    return ::stat(QFile::encodeName(name).constData(), &info) == 0 ? info.st_mode : 0;
  }
};

TEST_F(ReplacementFileTest, aNewFileGetsTheBytesAndTheMasksPermissions) {
  EXPECT_EQ(writeWholeFile(path("report.txt"), "two\nlines\n"), "");
  EXPECT_EQ(readFile(path("report.txt")), "two\nlines\n");
  EXPECT_EQ(modeOf(path("report.txt")) & 07777, mode_t(0644));
  EXPECT_EQ(entries(), QStringList({"report.txt"}));
}

TEST_F(ReplacementFileTest, aRunWithoutStandardInputWritesItsFiles) {
  // A batch system may start a run with its standard input closed: the temporary
  // file then gets descriptor 0, which is a file like any other.
  int savedInput = dup(0);
  ASSERT_GE(savedInput, 0);
  close(0);
  QString written = writeWholeFile(path("report.txt"), "report\n");
  dup2(savedInput, 0);
  close(savedInput);
  EXPECT_EQ(written, "");
  EXPECT_EQ(readFile(path("report.txt")), "report\n");
}

TEST_F(ReplacementFileTest, anExistingFileIsReplacedAndKeepsItsPermissions) {
  writeFile(path("report.txt"), "the earlier report, which is longer\n");
  chmod(QFile::encodeName(path("report.txt")).constData(), 0640);
  EXPECT_EQ(writeWholeFile(path("report.txt"), "new\n"), "");
  EXPECT_EQ(readFile(path("report.txt")), "new\n");
  EXPECT_EQ(modeOf(path("report.txt")) & 07777, mode_t(0640));
  EXPECT_EQ(writeWholeFile(path("report.txt"), ""), "");
  EXPECT_EQ(readFile(path("report.txt")), "");
  EXPECT_TRUE(QFileInfo(path("report.txt")).isFile());
}

TEST_F(ReplacementFileTest, linksAreFollowedAndStayLinks) {
  QDir(dir.path()).mkdir("elsewhere");
  writeFile(path("elsewhere/report.txt"), "earlier\n");
  ASSERT_TRUE(QFile::link(path("elsewhere/report.txt"), path("middle")));
  ASSERT_TRUE(QFile::link("middle", path("report.txt"))); // relative, two links deep
  EXPECT_EQ(writeWholeFile(path("report.txt"), "through two links\n"), "");
  EXPECT_TRUE(QFileInfo(path("report.txt")).isSymLink());
  EXPECT_TRUE(QFileInfo(path("middle")).isSymLink());
  EXPECT_EQ(readFile(path("elsewhere/report.txt")), "through two links\n");
  EXPECT_EQ(entries(path("elsewhere")), QStringList({"report.txt"}));
  // A link to a file not yet made creates it.
  ASSERT_TRUE(QFile::link(path("elsewhere/new.txt"), path("new.txt")));
  EXPECT_EQ(writeWholeFile(path("new.txt"), "made\n"), "");
  EXPECT_EQ(readFile(path("elsewhere/new.txt")), "made\n");
}

TEST_F(ReplacementFileTest, aLinkIntoNothingOrInALoopIsAnError) {
  ASSERT_TRUE(QFile::link(path("missing/report.txt"), path("dangling.txt")));
  EXPECT_EQ(writeWholeFile(path("dangling.txt"), "x"), "No such file or directory");
  ASSERT_TRUE(QFile::link(path("loop-b"), path("loop-a")));
  ASSERT_TRUE(QFile::link(path("loop-a"), path("loop-b")));
  EXPECT_EQ(writeWholeFile(path("loop-a"), "x"), "Too many levels of symbolic links");
  EXPECT_TRUE(QFileInfo(path("loop-a")).isSymLink());
  EXPECT_EQ(entries().size(), 3);
}

TEST_F(ReplacementFileTest, aDirectoryIsNeverReplaced) {
  QDir(dir.path()).mkdir("report.txt");
  EXPECT_EQ(writeWholeFile(path("report.txt"), "x"), "is a directory");
  EXPECT_TRUE(QFileInfo(path("report.txt")).isDir());
  ReplacementFile file(path("report.txt"));
  EXPECT_FALSE(file.isOpen());
  EXPECT_EQ(file.errorString(), "is a directory");
  EXPECT_FALSE(file.write("x"));
  EXPECT_FALSE(file.commit());
}

TEST_F(ReplacementFileTest, devicesAreWrittenInPlaceAndStayDevices) {
  QString full = fullDevice(dir.path());
  ASSERT_TRUE(QFile::link(full, path("full.txt")));
  EXPECT_EQ(writeWholeFile(path("full.txt"), "x"), "No space left on device");
  EXPECT_FALSE(QFileInfo(full).isFile());
  EXPECT_EQ(writeWholeFile(full, ""), ""); // nothing to write, nothing refused
  EXPECT_EQ(writeWholeFile("/dev/null", "discarded"), "");
  EXPECT_FALSE(QFileInfo("/dev/null").isFile());
  // A device is no place for a file written beside it and renamed.
  ReplacementFile file(path("full.txt"));
  EXPECT_FALSE(file.isOpen());
  EXPECT_EQ(file.errorString(), "is not a regular file");
}

TEST_F(ReplacementFileTest, aPipeIsWrittenInPlace) {
  QString pipe = path("pipe");
  ASSERT_EQ(mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
  std::string received;
  std::thread reader([&] { received = readFile(pipe); });
  EXPECT_EQ(writeWholeFile(pipe, "through the pipe\n"), "");
  reader.join();
  EXPECT_EQ(received, "through the pipe\n");
}

TEST_F(ReplacementFileTest, anUncommittedFileLeavesTheTargetAsItWas) {
  writeFile(path("report.txt"), "earlier\n");
  {
    ReplacementFile file(path("report.txt"));
    ASSERT_TRUE(file.isOpen());
    EXPECT_TRUE(file.temporaryPath().startsWith(path("report.txt.")));
    EXPECT_TRUE(file.temporaryPath().endsWith(".part"));
    EXPECT_TRUE(file.write("half of a new rep"));
    EXPECT_EQ(entries().size(), 2);
  }
  EXPECT_EQ(readFile(path("report.txt")), "earlier\n");
  EXPECT_EQ(entries(), QStringList({"report.txt"}));
}

TEST_F(ReplacementFileTest, writesAppendAndCommitRenames) {
  ReplacementFile file(path("report.txt"));
  ASSERT_TRUE(file.isOpen());
  EXPECT_TRUE(file.write("one "));
  EXPECT_TRUE(file.write("two"));
  EXPECT_FALSE(fileExists(path("report.txt")));
  EXPECT_TRUE(file.commit());
  EXPECT_EQ(readFile(path("report.txt")), "one two");
  EXPECT_FALSE(fileExists(file.temporaryPath()));
  EXPECT_FALSE(file.commit()); // once only
  EXPECT_EQ(entries(), QStringList({"report.txt"}));
}

TEST_F(ReplacementFileTest, aFolderThatCannotBeFoundIsAnError) {
  EXPECT_EQ(writeWholeFile(path("missing/report.txt"), "x"), "No such file or directory");
}

} // namespace

TEST_F(ReplacementFileTest, piecesAreWrittenOneAfterAnother) {
  writeFile(path("report.txt"), "earlier\n");
  EXPECT_EQ(writeWholeFile(path("report.txt"), QByteArrayList{"one ", "", "two\n", "three\n"}), "");
  EXPECT_EQ(readFile(path("report.txt")), "one two\nthree\n");
  // A device or a pipe gets them in place; a piece it refuses is the error.
  EXPECT_EQ(writeWholeFile(fullDevice(dir.path()), QByteArrayList{"", "x", "y"}),
            "No space left on device");
  QString pipe = path("pipe");
  ASSERT_EQ(mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
  std::string received;
  std::thread reader([&] { received = readFile(pipe); });
  EXPECT_EQ(writeWholeFile(pipe, QByteArrayList{"through ", "the pipe\n"}), "");
  reader.join();
  EXPECT_EQ(received, "through the pipe\n");
}
