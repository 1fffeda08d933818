//===- LineHeadTest.cpp - The part of an overlong line that is read -------===//

#include "LineHead.h"

#include <gtest/gtest.h>
#include <string>

namespace {

/// The head of the line fed in pieces of the given size.
LineHead headOf(const std::string &line, size_t piece = 7) {
  LineHead head;
  for (size_t at = 0; at < line.size(); at += piece)
    head.append(line.data() + at, std::min(piece, line.size() - at));
  return head;
}

std::string textOf(const std::string &line, size_t piece = 7) {
  LineHead head = headOf(line, piece);
  head.end();
  return head.text().toStdString();
}

TEST(LineHeadTest, whiteSpaceRunsBecomeSingleBlanks) {
  EXPECT_EQ(textOf("  a \t\v b\f\fc"), "a b c");
  EXPECT_EQ(textOf("a b "), "a b ");
  EXPECT_EQ(textOf(""), "");
  EXPECT_EQ(textOf("   "), "");
}

TEST(LineHeadTest, nothingAfterTheTwelfthFieldIsKept) {
  EXPECT_EQ(textOf("1 2 3 4 5 6 7 8 9 10 11 12 13 14"), "1 2 3 4 5 6 7 8 9 10 11 12 ");
  EXPECT_EQ(textOf("1 2 3 4 5 6 7 8 9 10 11 12"), "1 2 3 4 5 6 7 8 9 10 11 12");
}

TEST(LineHeadTest, carriageReturnsAreDeletedEvenInsideACharacter) {
  EXPECT_EQ(textOf("1\r2 \r3"), "12 3");
  // A no-break space (C2 A0) split by a carriage return, and across pieces of one byte.
  EXPECT_EQ(textOf("a\xC2\r\xA0"
                   "b",
                   1),
            "a b");
  EXPECT_EQ(textOf("a\xE3\x80\x80"
                   "b",
                   2),
            "a b"); // an ideographic space
}

TEST(LineHeadTest, aCharacterCutByTheEndOfTheLineIsInvalid) {
  EXPECT_EQ(textOf(" \xDD"), "\xEF\xBF\xBD");
  // Each byte of a cut character is one invalid character, as for the whole line.
  EXPECT_EQ(textOf("a \xE3\x80", 1), "a \xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(textOf("a \xF0\x90\x80", 2), "a \xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
  // Complete characters are not touched by the end.
  EXPECT_EQ(textOf("a \xE3\x80\x80"), "a ");
}

TEST(LineHeadTest, longDigitFieldsKeepTheirNumber) {
  EXPECT_EQ(textOf("-" + std::string(5000, '0') + "12 x"), "-12 x");
  EXPECT_EQ(textOf("+" + std::string(5000, '0')), "+0");
  EXPECT_EQ(textOf(std::string(5000, '0') + std::string(400, '9') + " x"),
            std::string(400, '9') + " x");
  // Past 400 significant digits only "out of range" is kept.
  EXPECT_EQ(textOf(std::string(5000, '8') + " x"), "1" + std::string(400, '0') + " x");
  EXPECT_FALSE(headOf(std::string(5000, '8')).needsWholeLine());
}

TEST(LineHeadTest, shortFieldsAreKeptAsTheyAre) {
  const std::string field(4096, '5');
  EXPECT_EQ(textOf("0." + std::string(4094, '3') + " x"), "0." + std::string(4094, '3') + " x");
  EXPECT_EQ(textOf(field + " " + field), field + " " + field);
}

TEST(LineHeadTest, otherLongFieldsNeedTheWholeLine) {
  EXPECT_TRUE(headOf("0." + std::string(5000, '3')).needsWholeLine());
  EXPECT_TRUE(headOf(std::string(5000, '1') + "e5").needsWholeLine());
  EXPECT_TRUE(headOf(std::string(5000, 'x')).needsWholeLine());
  EXPECT_TRUE(headOf("1 2 " + std::string(4097, '-')).needsWholeLine());
  // After the twelfth field nothing matters.
  EXPECT_FALSE(headOf("1 2 3 4 5 6 7 8 9 10 11 12 " + std::string(5000, 'x')).needsWholeLine());
}

} // namespace
