//===- CompressedTracksTest.cpp - twiss-optics on compressed track files ---===//
//
// The example run with its track file compressed by each tool (zstd, gzip, xz), found
// in place of AllTracks.txt, named with --tracks or read from standard input, must give
// the table and record of the plain file byte for byte; damaged, cut or misnamed files
// end the run with the file's name and what is wrong, status 1, and leave the earlier
// outputs as they were.
//
//===----------------------------------------------------------------------------===//

#include "Decompression.h"
#include "RunDirectoryTest.h"

#include <QDir>
#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

struct Kind {
  const char *tool;
  const char *extension;
  Compression compression;
};

const Kind Kinds[] = {{"zstd", ".zst", Compression::Zstd},
                      {"gzip", ".gz", Compression::Gzip},
                      {"xz", ".xz", Compression::Xz}};

/// What the decoder, run here on the bytes in one piece, says is wrong with them.
std::string decoderMessage(Compression compression, const std::string &bytes) {
  bool given = false;
  try {
    decompress(
        compression,
        [&](const char *&data, size_t &size) {
          data = bytes.data();
          size = bytes.size();
          return !std::exchange(given, true);
        },
        [](const char *, size_t) { return true; });
  } catch (const DecodeError &error) {
    return error.message.toStdString();
  }
  return "";
}

const std::string Earlier = "the earlier file\n";

class CompressedTracksTest : public RunDirectoryTest {
protected:
  std::string tracks;
  void SetUp() override {
    copyExample();
    tracks = readFile(path("AllTracks.txt"));
    ASSERT_TRUE(QFile::remove(path("AllTracks.txt")));
  }
  void writeCompressed(const Kind &kind, const QString &name = "AllTracks.txt") {
    write(name + kind.extension, compressedBy(kind.tool, tracks));
  }
  ToolRun optics(const QStringList &arguments, const RunSettings &settings = RunSettings()) {
    return runOpticsTool(dir.path(), arguments, settings);
  }
  /// The run wrote the example's table and record, without a word.
  void expectExampleOutputs(const ToolRun &r, const std::string &what) {
    EXPECT_EQ(r.err, "") << what;
    EXPECT_EQ(r.status, 0) << what;
    EXPECT_EQ(readFile(path("out.csv")), readFile(SOURCE_DIR "/examples/beamline/twiss.optics.csv"))
        << what;
    EXPECT_EQ(readFile(path("out.json")),
              readFile(SOURCE_DIR "/examples/beamline/twiss.optics.json"))
        << what;
    QFile::remove(path("out.csv"));
    QFile::remove(path("out.json"));
  }
  /// The run ended with this message and status 1, the earlier outputs kept.
  void expectRefused(const QStringList &arguments, const std::string &message) {
    write("twiss.optics.csv", Earlier);
    write("twiss.optics.json", Earlier);
    ToolRun r = optics(arguments);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "twiss-optics: error: " + message + "\n");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(readFile(path("twiss.optics.csv")), Earlier);
    EXPECT_EQ(readFile(path("twiss.optics.json")), Earlier);
  }
};

TEST_F(CompressedTracksTest, eachCompressedFileInPlaceOfTheTracksGivesTheSameOutputs) {
  for (const Kind &kind : Kinds) {
    writeCompressed(kind);
    expectExampleOutputs(optics({"-q", "-o", "out.csv"}), kind.tool);
    ASSERT_TRUE(QFile::remove(path(QString("AllTracks.txt") + kind.extension)));
  }
}

TEST_F(CompressedTracksTest, thePlainFileComesFirstThenZstdGzipAndXz) {
  // Those that must not be read are damaged: reading one would end the run.
  const std::string damaged = "\x28\xb5\x2f\xfd\x08 not a frame";
  write("AllTracks.txt", tracks);
  for (const char *extension : {".zst", ".gz", ".xz"})
    write(QString("AllTracks.txt") + extension, damaged);
  expectExampleOutputs(optics({"-q", "-o", "out.csv"}), "plain");
  ASSERT_TRUE(QFile::remove(path("AllTracks.txt")));
  writeCompressed(Kinds[0]);
  expectExampleOutputs(optics({"-q", "-o", "out.csv"}), "zst");
  ASSERT_TRUE(QFile::remove(path("AllTracks.txt.zst")));
  writeCompressed(Kinds[1]);
  expectExampleOutputs(optics({"-q", "-o", "out.csv"}), "gz");
  ASSERT_TRUE(QFile::remove(path("AllTracks.txt.gz")));
  writeCompressed(Kinds[2]);
  expectExampleOutputs(optics({"-q", "-o", "out.csv"}), "xz");
}

TEST_F(CompressedTracksTest, withoutAnyTrackFileThePlainOneIsMissing) {
  expectRefused({}, "AllTracks.txt: no such file");
}

TEST_F(CompressedTracksTest, tracksNamesAnyFileAndTheDirectoryGivesTheRest) {
  QDir(dir.path()).mkdir("stored");
  writeCompressed(Kinds[2], "stored/run7");
  expectExampleOutputs(optics({"-q", "-o", "out.csv", "--tracks", "stored/run7.xz"}), "xz");
  write("stored/plain.dat", tracks);
  expectExampleOutputs(optics({"-q", "-o", "out.csv", "--tracks", "stored/plain.dat"}), "plain");
  // Its compression told by its bytes whatever its name.
  write("stored/tracks.bin", compressedBy("zstd", tracks));
  expectExampleOutputs(optics({"-q", "-o", "out.csv", "--tracks", "stored/tracks.bin"}), "bin");
  expectRefused({"--tracks", "stored/none.gz"}, "stored/none.gz: no such file");
}

TEST_F(CompressedTracksTest, standardInputFromAPipe) {
  signal(SIGPIPE, SIG_IGN);
  for (const std::string &bytes : {compressedBy("xz", tracks), tracks}) {
    ASSERT_EQ(mkfifo(QFile::encodeName(path("feed")).constData(), 0600), 0);
    std::thread feeder([&] {
      int pipe = ::open(QFile::encodeName(path("feed")).constData(), O_WRONLY);
      for (size_t done = 0; pipe >= 0 && done < bytes.size();) {
        ssize_t count =
            ::write(pipe, bytes.data() + done, std::min<size_t>(65536, bytes.size() - done));
        if (count <= 0)
          break;
        done += size_t(count);
      }
      ::close(pipe);
    });
    RunSettings settings;
    settings.standardInput = path("feed");
    expectExampleOutputs(optics({"-q", "-o", "out.csv", "--tracks", "-"}, settings),
                         bytes == tracks ? "plain" : "xz");
    feeder.join();
    ASSERT_TRUE(QFile::remove(path("feed")));
  }
  // Nothing at all on standard input.
  RunSettings settings;
  settings.standardInput = "/dev/null";
  ToolRun r = optics({"-q", "--tracks", "-"}, settings);
  EXPECT_EQ(r.err, "twiss-optics: error: standard input: no readable track line (twelve columns: "
                   "x y z Px Py Pz t PDGid EventID TrackID ParentID Weight)\n");
  EXPECT_EQ(r.status, 1);
}

TEST_F(CompressedTracksTest, damagedAndCutFilesAreErrors) {
  for (const Kind &kind : Kinds) {
    const QString name = QString("AllTracks.txt") + kind.extension;
    std::string bytes = compressedBy(kind.tool, tracks);
    write(name, bytes.substr(0, 100000));
    expectRefused({}, name.toStdString() + ": truncated " + kind.tool +
                          " data (the file ends at byte 100000, inside a compressed stream)");
    // Damage in the last bytes: those of the data's own check in each format.
    bytes[bytes.size() - 6] ^= 0x20;
    write(name, bytes);
    write("twiss.optics.csv", Earlier);
    ToolRun r = optics({});
    // The tool reads the file in other pieces, on a thread of its own, and names the
    // byte the decoder names.
    const std::string message = decoderMessage(kind.compression, bytes);
    EXPECT_EQ(message.substr(0, 8 + strlen(kind.tool) + 14),
              "corrupt " + std::string(kind.tool) + " data at byte ");
    EXPECT_EQ(r.err, "twiss-optics: error: " + name.toStdString() + ": " + message + "\n");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(readFile(path("twiss.optics.csv")), Earlier);
    ASSERT_TRUE(QFile::remove(path(name)));
  }
}

TEST_F(CompressedTracksTest, aFileOfAnotherKindOrNoneOrEmptyIsRefused) {
  write("AllTracks.txt.zst", compressedBy("gzip", tracks));
  expectRefused({}, "AllTracks.txt.zst: not zstd data (it holds gzip data)");
  ASSERT_TRUE(QFile::remove(path("AllTracks.txt.zst")));
  write("AllTracks.txt.gz", tracks);
  expectRefused({}, "AllTracks.txt.gz: not gzip data (it does not begin as gzip data does)");
  write("AllTracks.txt.gz", "");
  expectRefused({}, "AllTracks.txt.gz: empty file");
  // Compressed nothing is a file without a track line.
  write("AllTracks.txt.gz", compressedBy("gzip", ""));
  expectRefused({}, "AllTracks.txt.gz: no readable track line (twelve columns: x y z Px Py Pz "
                    "t PDGid EventID TrackID ParentID Weight)");
}

TEST_F(CompressedTracksTest, tracksGoesWithOneRunDirectoryAndNoMerge) {
  ToolRun r = optics({"--tracks", "t.gz", "a", "b"});
  EXPECT_EQ(r.err, "twiss-optics: error: --tracks names the track file of one run directory, "
                   "not of 2\nTry 'twiss-optics --help'.\n");
  EXPECT_EQ(r.status, 2);
  r = optics({"--merge", "m.json", "-o", "x.csv", "--tracks", "t.gz"});
  EXPECT_EQ(
      r.err,
      "twiss-optics: error: --merge takes the selection of its files: only -o, -q, -j, --plot, "
      "--phase-space with --at and --amplitude-change go with it\nTry "
      "'twiss-optics --help'.\n");
  EXPECT_EQ(r.status, 2);
}

TEST_F(CompressedTracksTest, twissReadsOnlyItsOwnFileName) {
  ToolRun none = run();
  const std::string noneReport = report();
  ASSERT_EQ(none.status, 1);
  writeCompressed(Kinds[1]);
  ToolRun r = run();
  EXPECT_EQ(r.out, none.out);
  EXPECT_EQ(r.err, none.err);
  EXPECT_EQ(r.status, none.status);
  EXPECT_EQ(report(), noneReport);
}

} // namespace
