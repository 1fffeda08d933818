//===- DecompressionTest.cpp - Compressed track files, streamed -------------===//
//
// The data are written by the compression tools themselves (zstd, gzip, xz, at their
// default levels), as users' files are; the decoded bytes must be the original ones
// whatever the size of the pieces the input comes in.
//
//===----------------------------------------------------------------------------===//

#include "Decompression.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

namespace {

struct Kind {
  Compression compression;
  const char *tool;
};

const Kind Kinds[] = {
    {Compression::Zstd, "zstd"}, {Compression::Gzip, "gzip"}, {Compression::Xz, "xz"}};

/// Lines of numbers, different enough not to shrink to nothing: `lines` of them.
std::string trackText(int lines) {
  std::string text;
  unsigned state = 12345;
  for (int i = 0; i < lines; ++i) {
    state = state * 1103515245u + 12345u;
    text += std::to_string(i) + " " + std::to_string(state % 100000) + " 7.25 -13 1 " +
            std::to_string(i / 10) + " 0 1\n";
  }
  return text;
}

/// The input in pieces of `piece` bytes at the most.
CompressedInput inPieces(const std::string &bytes, size_t piece) {
  auto done = std::make_shared<size_t>(0);
  return [&bytes, piece, done](const char *&data, size_t &size) {
    if (*done >= bytes.size())
      return false;
    data = bytes.data() + *done;
    size = std::min(piece, bytes.size() - *done);
    *done += size;
    return true;
  };
}

/// Decodes everything; the error's message when there is one.
std::string decoded(Compression compression, const std::string &bytes, size_t piece,
                    std::string *error = nullptr) {
  std::string text;
  try {
    decompress(compression, inPieces(bytes, piece), [&](const char *data, size_t size) {
      text.append(data, size);
      return true;
    });
  } catch (const DecodeError &e) {
    if (!error)
      ADD_FAILURE() << e.message.toStdString();
    else
      *error = e.message.toStdString();
  }
  return text;
}

TEST(DecompressionTest, theFirstBytesTellTheCompression) {
  EXPECT_EQ(compressionOf("\x28\xb5\x2f\xfd\x00", 5), Compression::Zstd);
  EXPECT_EQ(compressionOf("\x1f\x8b", 2), Compression::Gzip);
  EXPECT_EQ(compressionOf("\xfd"
                          "7zXZ\0",
                          6),
            Compression::Xz);
  // Every byte of a magic number counts, and a shorter head is none.
  EXPECT_EQ(compressionOf("\x28\xb5\x2f", 3), Compression::None);
  EXPECT_EQ(compressionOf("\x28\xb5\x2f\xfe", 4), Compression::None);
  EXPECT_EQ(compressionOf("\x1f\x8c", 2), Compression::None);
  EXPECT_EQ(compressionOf("\x1f", 1), Compression::None);
  EXPECT_EQ(compressionOf("\xfd"
                          "7zXZ\1",
                          6),
            Compression::None);
  EXPECT_EQ(compressionOf("\xfd"
                          "7zXZ",
                          5),
            Compression::None);
  EXPECT_EQ(compressionOf("1 2 3 4", 7), Compression::None);
  EXPECT_EQ(compressionOf("", 0), Compression::None);
}

TEST(DecompressionTest, namesTellTheCompressionByTheirExtension) {
  EXPECT_EQ(compressionOfName("AllTracks.txt.zst"), Compression::Zstd);
  EXPECT_EQ(compressionOfName("run/AllTracks.txt.gz"), Compression::Gzip);
  EXPECT_EQ(compressionOfName("t.xz"), Compression::Xz);
  EXPECT_EQ(compressionOfName("AllTracks.txt"), Compression::None);
  EXPECT_EQ(compressionOfName("AllTracks.txt.zst.old"), Compression::None);
  EXPECT_EQ(compressionOfName("tracks.tgz"), Compression::None);
  EXPECT_EQ(compressionOfName("-"), Compression::None);
  EXPECT_EQ(compressionName(Compression::Zstd), "zstd");
  EXPECT_EQ(compressionName(Compression::Gzip), "gzip");
  EXPECT_EQ(compressionName(Compression::Xz), "xz");
  EXPECT_EQ(compressionName(Compression::None), "plain text");
}

TEST(DecompressionTest, everyKindGivesTheOriginalBytesWhateverThePieces) {
  // About 0.6 MB: several of the decoder's output buffers.
  const std::string text = trackText(20000);
  for (const Kind &kind : Kinds) {
    const std::string bytes = compressedBy(kind.tool, text);
    ASSERT_LT(bytes.size(), text.size() / 2) << kind.tool;
    for (size_t piece : {size_t(1), size_t(7), size_t(4096), bytes.size()})
      EXPECT_TRUE(decoded(kind.compression, bytes, piece) == text) << kind.tool << " " << piece;
  }
}

TEST(DecompressionTest, aTextMuchLargerThanItsDataComesWhole) {
  // A few kilobytes that fill the decoder's output many times over: the last piece of
  // input is taken in while decoded bytes still wait to be given out.
  std::string text;
  for (int i = 0; i < 100000; ++i)
    text += "0 0 0 0 0 0 0 -13 1 1 0 1\n";
  for (const Kind &kind : Kinds) {
    const std::string bytes = compressedBy(kind.tool, text);
    ASSERT_LT(bytes.size(), text.size() / 100) << kind.tool;
    for (size_t piece : {size_t(1), size_t(64), bytes.size()})
      EXPECT_TRUE(decoded(kind.compression, bytes, piece) == text) << kind.tool << " " << piece;
  }
}

TEST(DecompressionTest, concatenatedFilesAreDecodedWhole) {
  const std::string a = trackText(300), b = trackText(7);
  for (const Kind &kind : Kinds) {
    const std::string bytes = compressedBy(kind.tool, a) + compressedBy(kind.tool, b);
    for (size_t piece : {size_t(1), size_t(5), bytes.size()})
      EXPECT_TRUE(decoded(kind.compression, bytes, piece) == a + b) << kind.tool << " " << piece;
  }
}

TEST(DecompressionTest, anEmptyTextIsNoError) {
  for (const Kind &kind : Kinds)
    EXPECT_EQ(decoded(kind.compression, compressedBy(kind.tool, ""), 3), "") << kind.tool;
}

TEST(DecompressionTest, aFileCutAnywhereIsTruncated) {
  const std::string text = trackText(40);
  for (const Kind &kind : Kinds) {
    const std::string bytes = compressedBy(kind.tool, text);
    for (size_t cut = 1; cut < bytes.size(); ++cut) {
      std::string error;
      std::string text = decoded(kind.compression, bytes.substr(0, cut), 1, &error);
      EXPECT_EQ(error, "truncated " + std::string(kind.tool) + " data (the file ends at byte " +
                           std::to_string(cut) + ", inside a compressed stream)")
          << cut;
    }
  }
}

TEST(DecompressionTest, damagedDataIsNamedWithWhereItWasFound) {
  const std::string text = trackText(2000);
  std::string error;
  // A damaged check of the whole text, at the end of each file.
  std::string gzip = compressedBy("gzip", text);
  gzip[gzip.size() - 8] ^= 1; // the CRC-32 of the text
  decoded(Compression::Gzip, gzip, 4096, &error);
  EXPECT_EQ(error, "corrupt gzip data at byte " + std::to_string(gzip.size() - 4) +
                       " (incorrect data check)");
  // Something after the end of a gzip member that is not another member: its first
  // two bytes are no member's magic number.
  decoded(Compression::Gzip, compressedBy("gzip", text) + "garbage", 4096, &error);
  EXPECT_EQ(error, "corrupt gzip data at byte " + std::to_string(gzip.size() + 2) +
                       " (incorrect header check)");
  // A second zstd frame whose header sets the reserved bit of its descriptor: zstd
  // names the start of the frame or block it cannot decode.
  std::string zstd = compressedBy("zstd", text);
  decoded(Compression::Zstd, zstd + std::string("\x28\xb5\x2f\xfd\x08\0\0\0\0\0\0\0", 12), 4096,
          &error);
  EXPECT_EQ(error, "corrupt zstd data at byte " + std::to_string(zstd.size()) +
                       " (Unsupported frame parameter)");
  // An xz stream header (12 bytes) that fails its own check.
  std::string xz = compressedBy("xz", text);
  xz[8] ^= 1;
  decoded(Compression::Xz, xz, 4096, &error);
  EXPECT_EQ(error, "corrupt xz data at byte 12 (compressed data is corrupt)");
}

TEST(DecompressionTest, theByteNamedIsTheSameWhateverThePieces) {
  // Found by fuzzing: zstd names the start of what it was given when it fails, so the
  // decoders are given the same blocks however a file's reads fall.
  const std::string text = trackText(5000);
  for (const Kind &kind : Kinds) {
    std::string bytes = compressedBy(kind.tool, text);
    for (size_t at : {bytes.size() / 4, bytes.size() / 3, bytes.size() / 2}) {
      std::string damaged = bytes;
      damaged[at] = char(damaged[at] ^ 0x5a);
      std::string first;
      decoded(kind.compression, damaged, damaged.size(), &first);
      EXPECT_NE(first, "") << kind.tool << " " << at;
      for (size_t piece : {size_t(1), size_t(6), size_t(4095), size_t(20000)}) {
        std::string error;
        decoded(kind.compression, damaged, piece, &error);
        EXPECT_EQ(error, first) << kind.tool << " " << at << " " << piece;
      }
    }
  }
}

TEST(DecompressionTest, decodingStopsWhenTheOutputWantsNoMore) {
  const std::string text = trackText(20000);
  for (const Kind &kind : Kinds) {
    int calls = 0;
    decompress(kind.compression, inPieces(compressedBy(kind.tool, text), 4096),
               [&](const char *, size_t) { return ++calls < 2; });
    EXPECT_EQ(calls, 2) << kind.tool;
  }
}

TEST(DecompressionTest, plainTextIsNotDecoded) {
  std::string error;
  decoded(Compression::None, "1 2 3\n", 6, &error);
  EXPECT_EQ(error, "not compressed");
}

} // namespace
