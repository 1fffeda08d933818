//===- TrackReaderTest.cpp - The block reader against the text stream ------===//
//
// Every line is read twice, by the block reader and through a text stream (the
// straightforward reader), and the accepted steps must agree bit for bit.
//
//===----------------------------------------------------------------------------===//

#include "TrackReader.h"

#include "TestSupport.h"

#include <gtest/gtest.h>
#include <random>

namespace {

ReadLines readAll(const QString &path, TrackReader::Mode mode, int threads = 2) {
  TrackReader reader(path, mode, threads);
  EXPECT_TRUE(reader.isOpen());
  return readLines(reader);
}

std::string describe(const Step &s) {
  return QString::asprintf("%a %a %a %a %a %a %a %d %d %d %d %a", s.position.x, s.position.y,
                           s.position.z, s.momentum.x, s.momentum.y, s.momentum.z, s.t, s.PDGid,
                           s.EventID, s.TrackID, s.extraID, s.extraValue)
      .toStdString();
}

/// The bytes in hexadecimal: "fe ff".
std::string describeBytes(const std::string &bytes) {
  return QByteArray::fromStdString(bytes).toHex(' ').toStdString();
}

class TrackReaderTest : public ::testing::Test {
protected:
  QTemporaryDir dir;
  QString path() { return dir.path() + "/AllTracks.txt"; }
  /// The line counts of the text stream in the last comparison.
  TrackLineCounts counts;
  /// Reads the bytes both ways; returns the number of accepted steps.
  size_t compare(const std::string &bytes) {
    writeFile(path(), bytes);
    ReadLines reference = readAll(path(), TrackReader::TextStream);
    counts = reference.counts;
    // Converted by the caller alone, by two workers, by more workers than chunks.
    for (int threads : {1, 2, 5}) {
      ReadLines fast = readAll(path(), TrackReader::Blocks, threads);
      EXPECT_EQ(fast.steps.size(), reference.steps.size()) << bytes.substr(0, 200);
      EXPECT_EQ(fast.counts.comments, counts.comments) << threads << " threads";
      EXPECT_EQ(fast.counts.malformed, counts.malformed) << threads << " threads";
      size_t i = 0, common = std::min(fast.steps.size(), reference.steps.size());
      while (i < common && fast.steps[i] == reference.steps[i])
        ++i;
      if (i < common)
        ADD_FAILURE() << "line " << i << ", " << threads << " threads: " << describe(fast.steps[i])
                      << " vs " << describe(reference.steps[i]);
    }
    return reference.steps.size();
  }
};

const char *const Good = "1.5 -2.25 300 0.1 0.2 200 1.25 -13 7 3 0 0.5";

TEST_F(TrackReaderTest, awkwardLinesReadAsTheTextStreamReadsThem) {
  const std::string lines[] = {
      Good,
      std::string("  ") + Good + "  ",
      std::string("\t") + Good,
      "1\t2\t3\t4\t5\t6\t7\t8\t9\t10\t11\t12",
      "+1.5 2 3 4 5 6 7 8 9 10 11 12",
      "1 2 3 4 5 6 7 +8 9 10 11 12",
      "0x1p3 2 3 4 5 6 7 8 9 10 11 12",
      "inf -inf INF 4 5 6 7 8 9 10 11 12",
      "nan -nan NaN NAN(123) 5 6 7 8 9 10 11 nan",
      "infinity 2 3 4 5 6 7 8 9 10 11 12",
      "1e999 1e-400 -1e999 4 5 6 7 8 9 10 11 12",
      "4.9e-324 2.2250738585072014e-308 1e-310 4 5 6 7 8 9 10 11 12",
      "1 2 3 4 5 6 7 8 9 10 11 1e309",
      "1 2 3 4 5 6 7 2147483648 9 10 11 12",
      "1 2 3 4 5 6 7 -2147483649 9 10 11 12",
      "1 2 3 4 5 6 7 99999999999999999999 9 10 11 12",
      "1 2 3 4 5 6 7 11.0 9 10 11 12",
      "1 2 3 4 5 6 7 1e3 9 10 11 12",
      "1 2 3 4 5 6 7 8 9 10 11",
      "1 2 3 4 5 6 7 8 9 10 11 12 13 words after",
      "1 2 3 4 5 6 seven 8 9 10 11 12",
      "1.0\r2.0 3 4 5 6 7 8 9 10 11 12 13",
      std::string(Good) + "\r",
      "\r",
      "1 2 3 4 5 6 7 8 9 10 11 12\r\r\r",
      std::string("1 2 3\0 4 5 6 7 8 9 10 11 12", 27),
      std::string("1 2 3 4 5 6 7 8 9 10 11 12 \0 13", 31),
      "1 2 3 4 5 6 7 8 9 10 11 12 \xff\xfe",
      "1 2 \xff 4 5 6 7 8 9 10 11 12",
      "1\xc2\xa0"
      "2 3 4 5 6 7 8 9 10 11 12",
      "1\xe2\x80\x83"
      "2 3 4 5 6 7 8 9 10 11 12",
      "1\v2\f3 4 5 6 7 8 9 10 11 12",
      "#1 2 3 4 5 6 7 8 9 10 11 12",
      "   # comment",
      "1 2 3 4 5 6 7 8 9 10 11 12 # comment",
      "1. .5 -.5 -0 -0.0 5e+0 1E-2 8 9 10 11 12",
      "00012.500 2 3 4 5 6 7 008 -0 10 11 12",
      "1.5.3 2 3 4 5 6 7 8 9 10 11 12",
      "1e5.5 2 3 4 5 6 7 8 9 10 11 12",
      "1e 2 3 4 5 6 7 8 9 10 11 12",
      "1e+ 2 3 4 5 6 7 8 9 10 11 12",
      "- 2 3 4 5 6 7 8 9 10 11 12",
      "-- 2 3 4 5 6 7 8 9 10 11 12",
      ". 2 3 4 5 6 7 8 9 10 11 12",
      "12345678901234567890123 0.1234567890123456789012 1e22 1e23 9007199254740993 "
      "123456789012345678 7 8 9 10 11 1e-22",
      "0.1 0.2 0.3 1e-5 123.456e-7 98765.4321 3.14159265358979323846 8 9 10 11 2.5e-3",
      "1,2 3 4 5 6 7 8 9 10 11 12 13",
      "",
      "      ",
  };
  size_t accepted = 0;
  for (const std::string &line : lines)
    accepted += compare(line + "\n");
  EXPECT_GT(accepted, 20u);
}

TEST_F(TrackReaderTest, lastLineWithoutNewlineAndWindowsLineEndings) {
  EXPECT_EQ(compare(std::string(Good)), 1u);
  EXPECT_EQ(compare(std::string(Good) + "\r\n" + Good + "\r\n"), 2u);
  EXPECT_EQ(compare(""), 0u);
  EXPECT_EQ(compare("\n\n\n"), 0u);
}

TEST_F(TrackReaderTest, byteOrderMarksAreHonoured) {
  EXPECT_EQ(compare("\xEF\xBB\xBF" + std::string(Good) + "\n" + Good + "\n"), 2u);
  std::string utf16 = "\xFF\xFE";
  for (char c : std::string(Good) + "\n") {
    utf16 += c;
    utf16 += '\0';
  }
  EXPECT_EQ(compare(utf16), 1u);
  // UTF-16 and UTF-32 big-endian, each announced by its mark.
  std::string utf16be = "\xFE\xFF", utf32be = std::string("\0\0\xFE\xFF", 4);
  for (char c : std::string(Good) + "\n") {
    utf16be += '\0';
    utf16be += c;
    utf32be += std::string(3, '\0');
    utf32be += c;
  }
  EXPECT_EQ(compare(utf16be), 1u);
  EXPECT_EQ(compare(utf32be), 1u);
}

TEST_F(TrackReaderTest, aCharacterCutByTheEndOfItsLineIsInvalid) {
  // The text stream sees the newline after it: a replacement character, not a blank.
  EXPECT_EQ(compare(std::string(Good) + "\n\xE2\x82\n" + Good + "\n\xF0\r\n"), 2u);
  EXPECT_EQ(counts.malformed, 2);
  EXPECT_EQ(counts.comments, 0);
}

TEST_F(TrackReaderTest, thePartOfAMarkAloneIsNoMark) {
  // Read in blocks, whose bytes are counted (a text stream's are not), to the same steps.
  for (const std::string &first : {std::string("\xFE"), std::string("\xFF"),
                                   std::string("\xEF\xBB"), std::string("\0\0\xFE", 3)}) {
    SCOPED_TRACE(describeBytes(first));
    const std::string bytes = first + "\n" + Good + "\n";
    EXPECT_EQ(compare(bytes), 1u);
    TrackReader reader(path(), TrackReader::Blocks, 1);
    Step step;
    while (reader.next(step)) {
    }
    EXPECT_EQ(reader.bytesRead(), (long long)bytes.size()) << int(first.size());
  }
}

TEST_F(TrackReaderTest, byteOrderMarkInsideTheFileIsACharacter) {
  // Found by fuzzing: decoding a line on its own must not drop a mark at its start.
  EXPECT_EQ(compare(std::string(Good) + "\n\xEF\xBB\xBF" + Good + "\n"), 1u);
  EXPECT_EQ(compare(std::string(Good) + "\n\xEF\xBB\xBF\xEF\xBB\xBF" + Good + "\n"), 1u);
}

TEST_F(TrackReaderTest, veryLongLinesAndLinesAcrossBlocks) {
  std::string bytes;
  for (int i = 0; i < 30000; ++i)
    bytes += std::string(Good) + "\n";
  bytes += std::string(3 << 20, '7') + " 2 3 4 5 6 7 8 9 10 11 12\n";
  bytes += std::string(Good) + std::string(2 << 20, ' ') + "trailing\n";
  EXPECT_EQ(compare(bytes), 30002u);
}

/// Repeats the text until it takes at least the bytes given.
std::string repeated(const std::string &text, size_t bytes) {
  std::string all;
  while (all.size() < bytes)
    all += text;
  return all;
}

TEST_F(TrackReaderTest, overlongLinesAreReadFromTheirHead) {
  // A line that fills a megabyte and a chunk is kept only up to its twelfth field; each
  // must still be read as the whole line is, also where a character's bytes, a
  // carriage return or a run of white space straddles the pieces it is read in.
  const size_t Long = (2 << 20) + 1000;
  const std::string Eleven = "1 2 3 4 5 6 7 8 9 10 11";
  const std::string lines[] = {
      std::string(Good) + " " + repeated("junk ", Long),
      std::string(Long, ' ') + Good,
      repeated(" \t\v\f", Long) + Good + repeated("\t", Long),
      repeated("\xC2\xA0", Long) + "1\xC2\xA0" + repeated("\xE3\x80\x80", Long) +
          "2 3 4 5 6 7 8 9 10 11 12" + repeated("\xC2\xA0x", Long),
      "1\r.5 2 3 4 5 6 7 8 9 10 11\r2 " + repeated("\xC2\r\xA0\r", Long),
      Eleven + repeated("\xE2\x80\x83", Long) + " 12",
      Eleven + " " + repeated("x", Long),
      Eleven + repeated("\xFF\xC3", Long),
      std::string(Long, ' ') + "# a comment " + Good,
      std::string(Long, ' '),
      "1" + std::string(Long, '0') + " 2 3 4 5 6 7 8 9 10 11 12",
      "0." + std::string(Long, '0') + "1 2 3 4 5 6 7 8 9 10 11 12",
      std::string("1 2 3\0 4 5 6 7 8 9 10 11 12 ", 29) + std::string(Long, '9'),
      std::string(Long, ' ') + "\xE2\x82", // a character cut by the newline: not blank
  };
  std::string bytes;
  for (const std::string &line : lines)
    bytes += line + "\n" + Good + "\n";
  bytes += std::string(Good) + std::string(Long, ' ') + "1"; // the last, without a newline
  // Steps: lines 1-4, 6, 11 and 12, the fourteen good lines between and the last.
  EXPECT_EQ(compare(bytes), 22u);
  EXPECT_EQ(counts.comments, 2);
  // Malformed: line 5 (its carriage returns join "11" and "2"), 7, 8, 13 (the scan
  // stops at the NUL) and 14.
  EXPECT_EQ(counts.malformed, 5);
}

TEST_F(TrackReaderTest, hugeFieldsOfOverlongLines) {
  // A huge field of digits is kept in short form; any other huge field makes the line
  // be read whole. Both must read as the whole line does.
  const size_t Long = (2 << 20) + 1000;
  const std::string Zeros(Long, '0'), Rest = " 2 3 4 5 6 7 8 9 10 11 12";
  const std::string lines[] = {
      std::string(Long, '7') + Rest,                                // out of range: inf
      "-" + Zeros + "123456789012345678901234567890" + Rest,        // leading zeros
      "+" + Zeros + std::string(300, '9') + Rest,                   // large but finite
      "-" + Zeros + Rest,                                           // minus zero
      "1 2 3 4 5 6 7 8 " + std::string(Long, '9') + " 10 11 12",    // an integer field
      "1 2 3 4 5 6 7 8 " + Zeros + "42 10 11 12",                   // a small integer
      std::string(Long, '7') + "e-2098150" + Rest,                  // brought back by its exponent
      std::string(5000, '1') + "-" + std::string(Long, '2') + Rest, // two numbers in one field
      "0." + std::string(Long, '3') + Rest,                         // a long fraction
      std::string(Long, 'x') + Rest,                                // no number at all
  };
  std::string bytes;
  for (const std::string &line : lines)
    bytes += line + "\n" + Good + "\n";
  // Steps: all but the last line (eight through the head, two read whole) and the ten
  // good lines between.
  EXPECT_EQ(compare(bytes), 19u);
}

TEST_F(TrackReaderTest, randomLinesOfNumbersAndNoise) {
  std::mt19937 random(11);
  std::uniform_int_distribution<int> pick(0, 99);
  const char *noise[] = {"+",  "-", ".", "e",   "E",   "1",        "0",    "9",  " ",  "\t",
                         "\r", "#", "x", "inf", "nan", "\xc3\xa9", "\xff", "e+", "e-", "00"};
  std::string bytes;
  for (int line = 0; line < 3000; ++line) {
    for (int field = 0; field < 12; ++field) {
      if (pick(random) < 10) {
        bytes += noise[pick(random) % 20];
      } else if (field >= 7 && field < 11) {
        bytes += std::to_string(pick(random) * 12345 - 600000);
      } else {
        bytes +=
            QString::asprintf("%.*g", 1 + pick(random) % 17,
                              (pick(random) - 50) * std::pow(10.0, pick(random) % 40 - 20) / 7.0)
                .toStdString();
      }
      bytes += pick(random) < 5 ? "  " : " ";
    }
    bytes += "\n";
  }
  EXPECT_GT(compare(bytes), 1000u);
}

} // namespace
