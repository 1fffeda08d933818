//===- ConsoleTest.cpp - Console text and the error banner -----------------===//

#include "Console.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

using namespace Nexil;

namespace {

std::string banner(const std::string &line) {
  return "***************************************************\n"
         "*                                                 *\n"
         "*                translator error                 *\n"
         "* " +
         line +
         "\n"
         "*                                                 *\n"
         "***************************************************\n";
}

TEST(ConsoleTest, printfFormatsWithIntegerAndPercentToStandardErrorOnly) {
  std::string out;
  std::string err = stderrOf([&] { out = stdoutOf([] { Console.printf("n=%d 50%%\n", 42); }); });
  EXPECT_EQ(err, "n=42 50%\n");
  EXPECT_EQ(out, "");
}

TEST(ConsoleTest, appendTextAddsNoNewline) {
  EXPECT_EQ(stderrOf([] { Console.appendText("abc"); }), "abc");
}

TEST(ConsoleTest, printfFormatsDoublesTheQtWay) {
  // Qt rounds a half-way case away from zero where the C library rounds to even.
  EXPECT_EQ(stderrOf([] { Console.printf("%.3f", 0.0625); }), "0.063");
}

TEST(ConsoleTest, messagePrintsTheSixLineBanner) {
  EXPECT_EQ(stderrOf([] { Error::message("Cannot read 'x'"); }), banner("Cannot read 'x'"));
}

TEST(ConsoleTest, emptyMessageLeavesStarAndBlank) {
  EXPECT_EQ(stderrOf([] { Error::message(""); }), banner(""));
}

TEST(ConsoleTest, messageWithNewlineIsPrintedAsItStands) {
  EXPECT_EQ(stderrOf([] { Error::message("first\nsecond"); }), banner("first\nsecond"));
}

TEST(ConsoleTest, longMessageIsNeitherPaddedNorWrapped) {
  std::string longText(120, 'x');
  EXPECT_EQ(stderrOf([&] { Error::message(QString::fromStdString(longText)); }), banner(longText));
}

TEST(ConsoleTest, syntaxPrintsTheSameBannerAsMessage) {
  std::string viaMessage = stderrOf([] { Error::message("X"); });
  std::string viaSyntax = stderrOf([] { Error::syntax("X", "anything", 42); });
  EXPECT_EQ(viaSyntax, viaMessage);
}

TEST(ConsoleTest, bannerGoesToStandardErrorOnly) {
  std::string out = stdoutOf([] { stderrOf([] { Error::message("m"); }); });
  EXPECT_EQ(out, "");
}

TEST(ConsoleTest, errorFlagIsSetAndStaysSet) {
  error = false;
  stderrOf([] { Error::message("first"); });
  EXPECT_TRUE(error);
  Console.printf("%s", "");
  EXPECT_TRUE(error);
  stderrOf([] { Error::syntax("second", "", -1); });
  EXPECT_TRUE(error);
}

TEST(ConsoleTest, debugFlagStartsFalse) {
  EXPECT_FALSE(Debug);
}

} // namespace
