//===- ArgHashTest.cpp - Name=value argument sets --------------------------===//

#include "ArgHash.h"

#include "TestSupport.h"

#include <gtest/gtest.h>

using namespace Nexil;

namespace {

const std::string EmptyBanner = "***************************************************\n"
                                "*                                                 *\n"
                                "*                translator error                 *\n"
                                "* \n"
                                "*                                                 *\n"
                                "***************************************************\n";

ArgHash parse(const QString &text, std::string *err = nullptr) {
  ArgHash args;
  std::string printed = stderrOf([&] { args = ArgHash(text); });
  if (err)
    *err = printed;
  else
    EXPECT_EQ(printed, "") << text.toStdString();
  return args;
}

TEST(ArgHashTest, namedQuotedAndPositional) {
  ArgHash a = parse("a=1 b='x y' c='' word 'two words'");
  EXPECT_EQ(a.size(), 5);
  EXPECT_EQ(a["a"], "1");
  EXPECT_EQ(a["b"], "x y");
  EXPECT_TRUE(a.contains("c"));
  EXPECT_EQ(a["c"], "");
  EXPECT_EQ(a["0"], "word");
  EXPECT_EQ(a["1"], "two words");
}

TEST(ArgHashTest, doubleQuotesBehaveLikeSingleQuotes) {
  ArgHash a = parse("a=1 b=\"x y\" c=\"\" word \"two words\"");
  EXPECT_EQ(a.size(), 5);
  EXPECT_EQ(a["b"], "x y");
  EXPECT_EQ(a["c"], "");
  EXPECT_EQ(a["0"], "word");
  EXPECT_EQ(a["1"], "two words");
}

TEST(ArgHashTest, commentEndsTheArguments) {
  ArgHash a = parse("a=1 # b=2");
  EXPECT_EQ(a.size(), 1);
  EXPECT_EQ(a["a"], "1");
  EXPECT_EQ(parse("#a=1").size(), 0);
}

TEST(ArgHashTest, hashInsideAValueIsNoComment) {
  ArgHash a = parse("a=#1 b#=2");
  EXPECT_EQ(a["a"], "#1");
  EXPECT_EQ(a["0"], "b#=2");
}

TEST(ArgHashTest, emptyStringGivesEmptyHashWithoutReport) {
  EXPECT_TRUE(parse("").isEmpty());
}

TEST(ArgHashTest, whiteSpaceOnlyGivesOneEmptyReport) {
  std::string err;
  EXPECT_TRUE(parse("   ", &err).isEmpty());
  EXPECT_EQ(err, EmptyBanner);
}

TEST(ArgHashTest, twoTrailingBlanksGiveOneEmptyReport) {
  std::string err;
  ArgHash a = parse("a=1  ", &err);
  EXPECT_EQ(a.size(), 1);
  EXPECT_EQ(a["a"], "1");
  EXPECT_EQ(err, EmptyBanner);
}

TEST(ArgHashTest, oneTrailingBlankAfterABareWordIsConsumed) {
  EXPECT_EQ(parse("a=1 ")["a"], "1");
  EXPECT_EQ(parse("word ")["0"], "word");
}

TEST(ArgHashTest, anyTrailingBlankAfterAQuotedTokenReports) {
  std::string err;
  ArgHash a = parse("a='x' ", &err);
  EXPECT_EQ(a["a"], "x");
  EXPECT_EQ(err, EmptyBanner);
  parse("'two words' ", &err);
  EXPECT_EQ(err, EmptyBanner);
}

TEST(ArgHashTest, leadingBlanksAreSkipped) {
  ArgHash a = parse("   a=1   b=2");
  EXPECT_EQ(a["a"], "1");
  EXPECT_EQ(a["b"], "2");
}

TEST(ArgHashTest, elevenPositionalWordsAreNumberedInDecimal) {
  ArgHash a = parse("w0 w1 w2 w3 w4 w5 w6 w7 w8 w9 w10");
  EXPECT_EQ(a.size(), 11);
  EXPECT_EQ(a["9"], "w9");
  EXPECT_EQ(a["10"], "w10");
}

TEST(ArgHashTest, twoDoubleQuotesAloneArePositional) {
  ArgHash a = parse("\"\"");
  EXPECT_EQ(a.size(), 1);
  EXPECT_EQ(a["0"], "\"\"");
}

TEST(ArgHashTest, unclosedQuoteIsPartOfABareValue) {
  ArgHash a = parse("a='x y");
  EXPECT_EQ(a["a"], "'x");
  EXPECT_EQ(a["0"], "y");
}

TEST(ArgHashTest, bareValueMayHoldQuotes) {
  ArgHash a = parse("a=x'y\"z b=");
  EXPECT_EQ(a["a"], "x'y\"z");
  EXPECT_TRUE(a.contains("b"));
  EXPECT_EQ(a["b"], "");
}

TEST(ArgHashTest, laterValueReplacesEarlier) {
  EXPECT_EQ(parse("a=1 a=2")["a"], "2");
}

TEST(ArgHashTest, keysAreCaseSensitive) {
  ArgHash a = parse("A=1 a=2");
  EXPECT_EQ(a["A"], "1");
  EXPECT_EQ(a["a"], "2");
}

TEST(ArgHashTest, equalsWithoutNameIsPositional) {
  EXPECT_EQ(parse("=5")["0"], "=5");
}

TEST(ArgHashTest, missingKeyReadsEmptyWithoutInsert) {
  const ArgHash a = parse("a=1");
  EXPECT_EQ(a["nothing"], "");
  EXPECT_EQ(a.value("nothing"), "");
  EXPECT_EQ(a.size(), 1);
}

class ArgHashFileTest : public ::testing::Test {
protected:
  QTemporaryDir dir;
  ArgHash read(const std::string &text) {
    writeFile(dir.path() + "/params", text);
    QFile f(dir.path() + "/params");
    return ArgHash(f);
  }
};

TEST_F(ArgHashFileTest, spacesAroundEqualsDoNotMatch) {
  ArgHash a = read("x = 5\n");
  EXPECT_TRUE(a.isEmpty());
}

TEST_F(ArgHashFileTest, doubleQuotedValueKeepsInnerBlanks) {
  EXPECT_EQ(read("name=\"a b\"\n")["name"], "a b");
}

TEST_F(ArgHashFileTest, doubleQuotesInsideSingleQuotesAreKept) {
  EXPECT_EQ(read("v='\"q\"'\n")["v"], "\"q\"");
  EXPECT_EQ(read("v=\"'q'\"\n")["v"], "q");
}

TEST_F(ArgHashFileTest, commentsTrimmingAndUnanchoredNames) {
  ArgHash a = read("# c=1\n   b=2 3  \n--opt=x\nnot a pair\n\n  #d=4\n");
  EXPECT_EQ(a.size(), 2);
  EXPECT_EQ(a["b"], "2 3");
  EXPECT_EQ(a["opt"], "x");
}

TEST_F(ArgHashFileTest, unreadableFileGivesEmptyHashSilently) {
  QFile f(dir.path() + "/missing");
  std::string err = stderrOf([&] { EXPECT_TRUE(ArgHash(f).isEmpty()); });
  EXPECT_EQ(err, "");
}

TEST(ArgHashArgvTest, positionalAndNamedElements) {
  const char *argv[] = {"prog", "--summary", "a=b=c", "--opt=3", "'quoted'", "k='v'", "x"};
  ArgHash a(7, const_cast<char **>(argv));
  EXPECT_EQ(a["0"], "prog");
  EXPECT_EQ(a["1"], "--summary");
  EXPECT_EQ(a["a"], "b=c");
  EXPECT_EQ(a["opt"], "3");
  EXPECT_EQ(a["2"], "quoted");
  EXPECT_EQ(a["k"], "v");
  EXPECT_EQ(a["3"], "x");
  EXPECT_EQ(a.size(), 7);
}

} // namespace

namespace {

TEST(ArgHashLongTextTest, tenMegabytesOfArgumentsAreReadInTime) {
  // 760 000 tokens: read from the front, one copy of the rest per token, this took
  // hours; read from a moving offset it takes about a second (the test's time limit
  // is what bounds it).
  QString text;
  text.reserve(10'500'000);
  for (int i = 0; i < 380000; ++i)
    text += QString("name%1=\"v a l\" word%2 ").arg(i % 1000).arg(i);
  ASSERT_GT(text.size(), 10'000'000);
  ArgHash a = parse(text);
  EXPECT_EQ(a.size(), 1000 + 380000);
  EXPECT_EQ(a["name999"], "v a l");
  EXPECT_EQ(a["0"], "word0");
  EXPECT_EQ(a["379999"], "word379999");
}

} // namespace
