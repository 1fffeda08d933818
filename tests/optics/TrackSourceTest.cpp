//===- TrackSourceTest.cpp - Where the lines of a track file come from -----===//
//
// A compressed track file must give the reader the steps of the plain file, bit for
// bit, with the same counts of lines; a file that ends early must say so once the
// reader is done; a name that says one compression and bytes that hold another are
// refused before anything is read.
//
//===----------------------------------------------------------------------------===//

#include "TrackSource.h"
#include "Failure.h"
#include "TestSupport.h"

#include <QTemporaryDir>
#include <chrono>
#include <gtest/gtest.h>

namespace {

struct Kind {
  const char *tool;
  const char *extension;
  Compression compression;
};

const Kind Kinds[] = {{"zstd", ".zst", Compression::Zstd},
                      {"gzip", ".gz", Compression::Gzip},
                      {"xz", ".xz", Compression::Xz}};

/// Steps of every kind of line: plain numbers, a comment, a short line, a '+' sign.
std::string tracks(int steps) {
  std::string text = "# x y z Px Py Pz t PDGid EventID TrackID ParentID Weight\n";
  for (int i = 0; i < steps; ++i)
    text += std::to_string(i % 7) + ".5 -0.25 " + std::to_string(10 * i) +
            " 0.1 0.2 200 1e-3 -13 " + std::to_string(i / 50) + " 1 0 1\n";
  return text + "1 2 3\n+1 2 3 4 5 6 7 -13 99 1 0 1\n";
}

/// What the reader of the source gives, once the source has checked its end.
ReadLines readSource(const QString &path, int threads = 2) {
  TrackSource source(path);
  std::unique_ptr<TrackReader> reader = source.openReader(threads);
  EXPECT_TRUE(reader->isOpen());
  ReadLines read = readLines(*reader);
  source.checkEnd();
  EXPECT_EQ(reader->failure(), "");
  return read;
}

void expectSame(const ReadLines &actual, const ReadLines &expected, const std::string &what) {
  EXPECT_TRUE(actual.steps == expected.steps) << what;
  EXPECT_EQ(actual.counts.steps, expected.counts.steps) << what;
  EXPECT_EQ(actual.counts.comments, expected.counts.comments) << what;
  EXPECT_EQ(actual.counts.malformed, expected.counts.malformed) << what;
}

/// What thrown InputError says, or "" when nothing is thrown.
std::string refusal(const std::function<void()> &body) {
  try {
    body();
  } catch (const InputError &error) {
    return error.message.toStdString();
  }
  return "";
}

class TrackSourceTest : public ::testing::Test {
protected:
  QTemporaryDir dir;
  QString path(const QString &name) const { return dir.path() + "/" + name; }
  /// The text written plain and by each tool, beside each other.
  void writeAllKinds(const std::string &text) {
    writeFile(path("AllTracks.txt"), text);
    for (const Kind &kind : Kinds)
      writeFile(path(QString("AllTracks.txt") + kind.extension), compressedBy(kind.tool, text));
  }
  ReadLines plain() {
    TrackReader reader(path("AllTracks.txt"), TrackReader::Blocks, 1);
    return readLines(reader);
  }
};

TEST_F(TrackSourceTest, everyCompressionGivesTheStepsOfThePlainFile) {
  writeAllKinds(tracks(30000)); // 1.3 MB of text: many chunks of the reader
  const ReadLines expected = plain();
  ASSERT_EQ(expected.counts.steps, 30001);
  ASSERT_EQ(expected.counts.comments, 1);
  ASSERT_EQ(expected.counts.malformed, 1);
  for (const Kind &kind : Kinds)
    for (int threads : {1, 2, 5})
      expectSame(readSource(path(QString("AllTracks.txt") + kind.extension), threads), expected,
                 std::string(kind.tool) + " " + std::to_string(threads));
  expectSame(readSource(path("AllTracks.txt")), expected, "plain");
}

TEST_F(TrackSourceTest, theBytesTellTheCompressionOfAFileWithAnotherName) {
  writeAllKinds(tracks(100));
  ASSERT_TRUE(QFile::rename(path("AllTracks.txt.xz"), path("tracks.dat")));
  TrackSource source(path("tracks.dat"));
  EXPECT_EQ(source.compression(), Compression::Xz);
  EXPECT_EQ(TrackSource(path("AllTracks.txt")).compression(), Compression::None);
  expectSame(readSource(path("tracks.dat")), plain(), "xz named .dat");
}

TEST_F(TrackSourceTest, aNameAndBytesOfDifferentCompressionsAreRefused) {
  writeAllKinds(tracks(10));
  ASSERT_TRUE(QFile::copy(path("AllTracks.txt.gz"), path("g.zst")));
  ASSERT_TRUE(QFile::copy(path("AllTracks.txt.zst"), path("z.xz")));
  ASSERT_TRUE(QFile::copy(path("AllTracks.txt"), path("p.gz")));
  writeFile(path("short.xz"), "\xfd"
                              "7z");
  EXPECT_EQ(refusal([&] { TrackSource source(path("g.zst")); }),
            path("g.zst").toStdString() + ": not zstd data (it holds gzip data)");
  EXPECT_EQ(refusal([&] { TrackSource source(path("z.xz")); }),
            path("z.xz").toStdString() + ": not xz data (it holds zstd data)");
  EXPECT_EQ(refusal([&] { TrackSource source(path("p.gz")); }),
            path("p.gz").toStdString() + ": not gzip data (it does not begin as gzip data does)");
  EXPECT_EQ(refusal([&] { TrackSource source(path("short.xz")); }),
            path("short.xz").toStdString() + ": not xz data (it does not begin as xz data does)");
  EXPECT_EQ(refusal([&] { TrackSource source(path("missing.gz")); }),
            path("missing.gz").toStdString() + ": cannot be read");
}

TEST_F(TrackSourceTest, aTruncatedFileIsReportedOnceTheReaderIsDone) {
  writeAllKinds(tracks(30000)); // many blocks of each kind
  for (const Kind &kind : Kinds) {
    const std::string whole = readFile(path(QString("AllTracks.txt") + kind.extension));
    const QString cut = path(QString("cut") + kind.extension);
    writeFile(cut, whole.substr(0, whole.size() / 2));
    TrackSource source(cut);
    std::unique_ptr<TrackReader> reader = source.openReader(2);
    ReadLines read = readLines(*reader);
    EXPECT_GT(read.counts.steps, 0) << kind.tool; // what came before the cut is read
    EXPECT_LT(read.counts.steps, 30000) << kind.tool;
    EXPECT_EQ(refusal([&] { source.checkEnd(); }),
              cut.toStdString() + ": truncated " + kind.tool + " data (the file ends at byte " +
                  std::to_string(whole.size() / 2) + ", inside a compressed stream)");
    EXPECT_EQ(source.bytesTaken(), (long long)(whole.size() / 2)) << kind.tool;
  }
}

TEST_F(TrackSourceTest, theBytesTakenAreTheCompressedFilesOrNoneForAPlainFile) {
  writeAllKinds(tracks(200));
  TrackSource plainSource(path("AllTracks.txt"));
  EXPECT_TRUE(plainSource.readDirectly());
  EXPECT_EQ(plainSource.bytesTaken(), 0);
  const QString gz = path("AllTracks.txt.gz");
  TrackSource source(gz);
  std::unique_ptr<TrackReader> reader = source.openReader(1);
  readLines(*reader);
  source.checkEnd();
  EXPECT_FALSE(source.readDirectly());
  EXPECT_EQ(source.bytesTaken(), (long long)readFile(gz).size());
  EXPECT_EQ(reader->bytesRead(), (long long)tracks(200).size());
}

TEST_F(TrackSourceTest, aReaderThatLeavesEarlyStopsTheThread) {
  writeAllKinds(tracks(100000)); // 4.6 MB of text: more than the pipe and the reader hold
  for (const Kind &kind : Kinds) {
    auto start = std::chrono::steady_clock::now();
    {
      TrackSource source(path(QString("AllTracks.txt") + kind.extension));
      std::unique_ptr<TrackReader> reader = source.openReader(2);
      Step step;
      ASSERT_TRUE(reader->next(step));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10)) << kind.tool;
  }
}

TEST_F(TrackSourceTest, aByteOrderMarkIsHonouredInACompressedFile) {
  const std::string text = "\xEF\xBB\xBF"
                           "1 2 3 4 5 6 7 -13 1 1 0 1\r\n2 2 3 4 5 6 7 -13 1 1 0 1\n";
  writeAllKinds(text);
  TrackReader reader(path("AllTracks.txt"), TrackReader::TextStream);
  const ReadLines expected = readLines(reader);
  ASSERT_EQ(expected.counts.steps, 2);
  for (const Kind &kind : Kinds)
    expectSame(readSource(path(QString("AllTracks.txt") + kind.extension)), expected, kind.tool);
}

} // namespace
