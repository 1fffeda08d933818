//===- FailedReadTest.cpp - Every input that fails to read, in both tools --===//
//
// A read that fails with an I/O error (at the first byte, in the middle of the file,
// inside an overlong line, from a pipe) or a file cut short while it is read ends the
// run with a message naming the file and the reason, status 1, and leaves the earlier
// outputs as they were: a failed read never passes for the end of the file.
//
//===----------------------------------------------------------------------------===//

#include "RunDirectoryTest.h"

#include <QDir>
#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

const std::string Planes = "twiss: 15 samples in s\n";
const std::string Earlier = "the earlier file\n";
const std::string IoError = "Input/output error";
const std::string Shrank = "File shrank while it was read";
/// Offsets in the example's track file (2.27 MB): the first read and a later one.
const long MidFile = 1000000;

std::string twissCannotRead(const std::string &name, const std::string &reason) {
  return "twiss error: Cannot read '" + name + "' (" + reason + ")\n";
}

std::string opticsCannotRead(const std::string &name, const std::string &reason) {
  return "twiss-optics: error: " + name + ": cannot be read (" + reason + ")\n";
}

/// Settings under which reads of the file named `name` fail from byte `offset` on:
/// with an I/O error ("read") or by the file being cut there ("shrink").
RunSettings failingRead(const QString &name, long offset, const QString &call = "read",
                        const QString &threads = "1") {
  RunSettings settings;
  settings.environment << "LD_PRELOAD=" FAILING_FILE_CALLS << "FAIL_CALL=" + call
                       << "FAIL_NAME=" + name << "FAIL_OFFSET=" + QString::number(offset)
                       << "TWISS_THREADS=" + threads
                       << "ASAN_OPTIONS=detect_leaks=0:verify_asan_link_order=0";
  return settings;
}

class FailedReadTest : public RunDirectoryTest {
protected:
  void SetUp() override {
    copyExample();
    for (const char *name : {"twiss.calc.txt", "twiss.optics.csv", "twiss.optics.json"})
      write(name, Earlier);
  }
  /// The earlier outputs are as they were, and nothing else was written.
  void expectOutputsKept() {
    for (const char *name : {"twiss.calc.txt", "twiss.optics.csv", "twiss.optics.json"})
      EXPECT_EQ(readFile(path(name)), Earlier) << name;
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::System).size(), 6);
  }
  void expectTwissRefused(const ToolRun &r, const std::string &name, const std::string &reason,
                          const std::string &before = Planes) {
    EXPECT_EQ(r.out, before + twissCannotRead(name, reason));
    EXPECT_EQ(r.status, 1);
    expectOutputsKept();
  }
  void expectOpticsRefused(const ToolRun &r, const std::string &name, const std::string &reason) {
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, opticsCannotRead(name, reason));
    EXPECT_EQ(r.status, 1);
    expectOutputsKept();
  }
  /// Puts a line of more than a megabyte (a step, then blanks) after the first
  /// `before` bytes of the track file; returns where the line starts.
  long insertOverlongLine(long before) {
    std::string tracks = readFile(path("AllTracks.txt"));
    size_t start = tracks.find('\n', size_t(before)) + 1;
    std::string line = "0 0 100 0 0 200 1 -13 1 1 0 1" + std::string(3 << 20, ' ') + "\n";
    write("AllTracks.txt", tracks.substr(0, start) + line + tracks.substr(start));
    return long(start);
  }
};

TEST_F(FailedReadTest, twissTracksFailingAtTheFirstRead) {
  expectTwissRefused(run({}, failingRead("AllTracks.txt", 0)), "AllTracks.txt", IoError);
}

TEST_F(FailedReadTest, twissTracksFailingInTheMiddle) {
  expectTwissRefused(run({}, failingRead("AllTracks.txt", MidFile)), "AllTracks.txt", IoError);
}

TEST_F(FailedReadTest, twissTracksFailingInTheMiddleOnTwoThreads) {
  expectTwissRefused(run({}, failingRead("AllTracks.txt", MidFile, "read", "2")), "AllTracks.txt",
                     IoError);
}

TEST_F(FailedReadTest, twissTracksFailingAtTheLastByte) {
  long size = long(readFile(path("AllTracks.txt")).size());
  expectTwissRefused(run({}, failingRead("AllTracks.txt", size - 1)), "AllTracks.txt", IoError);
}

TEST_F(FailedReadTest, twissTracksFailingInsideAnOverlongLine) {
  long start = insertOverlongLine(MidFile);
  expectTwissRefused(run({}, failingRead("AllTracks.txt", start + (2 << 20))), "AllTracks.txt",
                     IoError);
}

TEST_F(FailedReadTest, twissTracksThatShrinkWhileRead) {
  expectTwissRefused(run({}, failingRead("AllTracks.txt", MidFile, "shrink")), "AllTracks.txt",
                     Shrank);
}

TEST_F(FailedReadTest, twissTracksWithAByteOrderMarkFailingInTheMiddle) {
  write("AllTracks.txt", "\xEF\xBB\xBF" + readFile(path("AllTracks.txt")));
  expectTwissRefused(run({}, failingRead("AllTracks.txt", MidFile)), "AllTracks.txt", IoError);
}

TEST_F(FailedReadTest, twissTracksWithAByteOrderMarkThatShrinkWhileRead) {
  write("AllTracks.txt", "\xEF\xBB\xBF" + readFile(path("AllTracks.txt")));
  expectTwissRefused(run({}, failingRead("AllTracks.txt", MidFile, "shrink")), "AllTracks.txt",
                     Shrank);
}

TEST_F(FailedReadTest, twissPlanesFailingAfterTheFirstLine) {
  ToolRun r = run({}, failingRead("sampleS.txt", 10));
  EXPECT_EQ(r.err, ""); // no plane is made of a line the failure cut
  expectTwissRefused(r, "sampleS.txt", IoError, "");
}

TEST_F(FailedReadTest, twissPlanesThatShrinkWhileRead) {
  expectTwissRefused(run({}, failingRead("sampleS.txt", 10, "shrink")), "sampleS.txt", Shrank, "");
}

TEST_F(FailedReadTest, twissCoordinatesFailingEndTheRunAsWhenTheyCannotBeOpened) {
  ToolRun r = run({}, failingRead("beamlineCoordinates.txt", 10));
  EXPECT_EQ(bannerMessages(r.err), "Cannot read 'beamlineCoordinates.txt' (" + IoError + ")");
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.signal, SIGABRT);
  expectOutputsKept();
}

TEST_F(FailedReadTest, twissReadsEveryByteWhenNoReadFails) {
  // The preload is there, but the file ends before the failing offset.
  ToolRun r = run({}, failingRead("AllTracks.txt", 100000000));
  EXPECT_EQ(r.out, Planes);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(report(), readFile(SOURCE_DIR "/examples/beamline/twiss.calc.txt"));
}

TEST_F(FailedReadTest, opticsTracksFailingAtTheFirstRead) {
  expectOpticsRefused(runOpticsTool(dir.path(), {}, failingRead("AllTracks.txt", 0)),
                      "AllTracks.txt", IoError);
}

TEST_F(FailedReadTest, opticsTracksFailingInTheMiddleOnTwoThreads) {
  expectOpticsRefused(
      runOpticsTool(dir.path(), {"-j", "2"}, failingRead("AllTracks.txt", MidFile, "read", "2")),
      "AllTracks.txt", IoError);
}

TEST_F(FailedReadTest, opticsTracksFailingInsideAnOverlongLine) {
  long start = insertOverlongLine(MidFile);
  expectOpticsRefused(
      runOpticsTool(dir.path(), {}, failingRead("AllTracks.txt", start + (2 << 20))),
      "AllTracks.txt", IoError);
}

TEST_F(FailedReadTest, opticsTracksThatShrinkWhileRead) {
  expectOpticsRefused(
      runOpticsTool(dir.path(), {}, failingRead("AllTracks.txt", MidFile, "shrink")),
      "AllTracks.txt", Shrank);
}

TEST_F(FailedReadTest, opticsPlanesAndCoordinatesFailing) {
  for (const char *name : {"sampleS.txt", "beamlineCoordinates.txt"}) {
    SCOPED_TRACE(name);
    expectOpticsRefused(runOpticsTool(dir.path(), {}, failingRead(name, 10)), name, IoError);
  }
}

TEST_F(FailedReadTest, opticsMomentsFailingInAMerge) {
  ASSERT_EQ(runOpticsTool(dir.path(), {"-q", "--save-moments", "m.json", "-o", "one.csv"}).status,
            0);
  ASSERT_TRUE(QFile::remove(path("one.csv")) && QFile::remove(path("one.json")));
  QStringList merge = {"--merge", "m.json", "m.json", "-o", "twiss.optics.csv"};
  ToolRun r = runOpticsTool(dir.path(), merge, failingRead("m.json", 1000));
  EXPECT_EQ(r.err, opticsCannotRead("m.json", IoError));
  EXPECT_EQ(r.status, 1);
  r = runOpticsTool(dir.path(), merge, failingRead("m.json", 1000, "shrink"));
  EXPECT_EQ(r.err, opticsCannotRead("m.json", Shrank));
  EXPECT_EQ(r.status, 1);
  ASSERT_TRUE(QFile::remove(path("m.json")));
  expectOutputsKept();
}

/// A compressed track file in place of the plain one: the thread that decodes it reads
/// it, and its failures end the run as the reader's would.
class FailedCompressedReadTest : public FailedReadTest {
protected:
  void SetUp() override {
    FailedReadTest::SetUp();
    write("AllTracks.txt.gz", compressedBy("gzip", readFile(path("AllTracks.txt"))));
    ASSERT_TRUE(QFile::remove(path("AllTracks.txt")));
  }
};

TEST_F(FailedCompressedReadTest, opticsCompressedTracksFailingInTheMiddle) {
  expectOpticsRefused(runOpticsTool(dir.path(), {}, failingRead("AllTracks.txt.gz", 200000)),
                      "AllTracks.txt.gz", IoError);
}

TEST_F(FailedCompressedReadTest, opticsCompressedTracksFailingAtTheFirstRead) {
  expectOpticsRefused(runOpticsTool(dir.path(), {}, failingRead("AllTracks.txt.gz", 0)),
                      "AllTracks.txt.gz", IoError);
}

TEST_F(FailedCompressedReadTest, opticsCompressedTracksThatShrinkWhileRead) {
  expectOpticsRefused(
      runOpticsTool(dir.path(), {}, failingRead("AllTracks.txt.gz", 200000, "shrink", "2")),
      "AllTracks.txt.gz", Shrank);
}

/// The track file as a named pipe, fed by a thread of the test.
class FailedPipeReadTest : public FailedReadTest {
protected:
  std::thread feeder;
  void SetUp() override {
    FailedReadTest::SetUp();
    signal(SIGPIPE, SIG_IGN); // the tool stops reading before the feeder stops writing
    std::string tracks = readFile(path("AllTracks.txt"));
    ASSERT_TRUE(QFile::remove(path("AllTracks.txt")));
    ASSERT_EQ(mkfifo(QFile::encodeName(path("AllTracks.txt")).constData(), 0600), 0);
    feeder = std::thread([this, tracks] {
      int pipe = ::open(QFile::encodeName(path("AllTracks.txt")).constData(), O_WRONLY);
      for (size_t done = 0; pipe >= 0 && done < tracks.size();) {
        ssize_t count = ::write(pipe, tracks.data() + done, tracks.size() - done);
        if (count <= 0)
          break;
        done += size_t(count);
      }
      ::close(pipe);
    });
  }
  void TearDown() override { feeder.join(); }
};

TEST_F(FailedPipeReadTest, twissTracksFromAPipeFailingInTheMiddle) {
  expectTwissRefused(run({}, failingRead("AllTracks.txt", MidFile)), "AllTracks.txt", IoError);
}

TEST_F(FailedPipeReadTest, opticsTracksFromAPipeFailingInTheMiddle) {
  expectOpticsRefused(runOpticsTool(dir.path(), {}, failingRead("AllTracks.txt", MidFile)),
                      "AllTracks.txt", IoError);
}

TEST_F(FailedPipeReadTest, opticsReadsTracksFromAPipeAsFromTheFile) {
  ToolRun r = runOpticsTool(dir.path(), {"-q", "-o", "piped.csv"});
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(readFile(path("piped.csv")),
            readFile(SOURCE_DIR "/examples/beamline/twiss.optics.csv"));
  // The record counts the bytes read from the pipe, as the file's size for the file.
  EXPECT_EQ(readFile(path("piped.json")),
            readFile(SOURCE_DIR "/examples/beamline/twiss.optics.json"));
}

} // namespace
