//===- RegExpTest.cpp - Cached regular expressions -------------------------===//

#include "RegExp.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

using namespace Nexil;

namespace {

TEST(RegExpTest, matchReadsCapturesPositionAndLength) {
  EXPECT_TRUE(RE.match("^a(b+)", "abbb"));
  EXPECT_EQ(RE[1], "bbb");
  EXPECT_EQ(RE[2], "");
  EXPECT_EQ(RE[0], "abbb");
  EXPECT_EQ(RE.pos(), 0);
  EXPECT_EQ(RE.length(), 4);
}

TEST(RegExpTest, findReturnsPositionOfFirstMatch) {
  EXPECT_EQ(RE.find("b+", "aabbcbb"), 2);
  EXPECT_EQ(RE.pos(), 2);
  EXPECT_EQ(RE.length(), 2);
  EXPECT_EQ(RE.find("z", "aabb"), -1);
}

TEST(RegExpTest, failedMatchClearsPositionLengthAndCaptures) {
  EXPECT_TRUE(RE.match("(x)(y)", "xy"));
  EXPECT_FALSE(RE.match("(x)(y)", "ab"));
  EXPECT_EQ(RE.pos(), -1);
  EXPECT_EQ(RE.length(), 0);
  EXPECT_EQ(RE[0], "");
  EXPECT_EQ(RE[1], "");
  EXPECT_EQ(RE[2], "");
}

TEST(RegExpTest, patternsAreCaseSensitive) {
  EXPECT_FALSE(RE.match("^abc$", "ABC"));
  EXPECT_TRUE(RE.match("^abc$", "abc"));
}

TEST(RegExpTest, cacheKeepsOneCompiledPatternPerText) {
  RE.match("^cache(d)$", "cached");
  QRegExp *first = RegExp::prev;
  RE.match("other", "x");
  RE.match("^cache(d)$", "nothing");
  EXPECT_EQ(RegExp::prev, first);
  EXPECT_EQ(RegExp::hash.value("^cache(d)$"), first);
}

TEST(RegExpTest, replaceAllReplacesEveryMatch) {
  EXPECT_EQ(RE.replaceAll("a", "banana", "o"), "bonono");
}

TEST(RegExpTest, replaceAllWithEmptyPatternReturnsTextUnchanged) {
  EXPECT_EQ(RE.replaceAll("", "banana", "o"), "banana");
}

TEST(RegExpTest, replaceAllOfEmptyMatchStopsAfter10001Passes) {
  QString expected = QString(10001, 'y') + "ab";
  EXPECT_EQ(RE.replaceAll("x*", "ab", "y"), expected);
}

TEST(RegExpTest, replaceAllWithSelfMatchingReplacementStopsAtTheCap) {
  // "a" replaced by "aa" matches again at the front on every pass.
  QString result = RE.replaceAll("a", "a", "aa");
  EXPECT_EQ(result, QString(10002, 'a'));
}

TEST(RegExpTest, replaceAllRemovesWhiteSpace) {
  EXPECT_EQ(RE.replaceAll("\\s", " 1 +\t2 ", ""), "1+2");
}

TEST(RegExpTest, replaceIsLiteralAndOnlyFirst) {
  EXPECT_EQ(RE.replace("(a)", "banana", "\\1x"), "b\\1xnana");
}

TEST(RegExpTest, replaceWithoutMatchReturnsTextUnchanged) {
  EXPECT_EQ(RE.replace("z", "banana", "o"), "banana");
}

TEST(RegExpTest, substituteWithoutMatchLeavesTextAndReturnsFalse) {
  QString text = "banana";
  EXPECT_FALSE(RE.substitute("z", text, "o"));
  EXPECT_EQ(text, "banana");
}

TEST(RegExpTest, substituteReplacesFirstMatchInPlace) {
  QString text = "12abc";
  EXPECT_TRUE(RE.substitute("^[0-9]+", text, ""));
  EXPECT_EQ(text, "abc");
  EXPECT_EQ(RE[0], "12");
}

TEST(RegExpTest, invalidPatternFindsNoMatch) {
  EXPECT_FALSE(RE.match("(", "("));
}

} // namespace
