//===- MacroTest.cpp - Macro definitions and counters ----------------------===//

#include "Macro.h"

#include "TestSupport.h"

#include <gtest/gtest.h>

using namespace Nexil;

namespace {

class MacroTest : public ::testing::Test {
protected:
  void SetUp() override {
    Macro::hash.clear();
    Macro::globalHash.clear();
    Macro::stack.clear();
  }
};

struct SuccessorRow {
  const char *in;
  const char *out;
};

TEST_F(MacroTest, successorIsAnOdometerOverDigitsAndLetters) {
  const SuccessorRow rows[] = {{"", ""},      {"0", "1"},   {"9", "10"},    {"19", "20"},
                               {"99", "100"}, {"a", "b"},   {"az", "ba"},   {"zz", "aaa"},
                               {"Z", "AA"},   {"A9", "B0"}, {"x-", "x."},   {"zZ9", "aaA0"},
                               {"8", "9"},    {"Az", "Ba"}, {"a9z", "b0a"}, {"10", "11"}};
  for (const SuccessorRow &row : rows)
    EXPECT_EQ(Macro::successor(row.in), row.out) << row.in;
}

TEST_F(MacroTest, defineValueAndDelete) {
  Macro::define("a", "1");
  EXPECT_TRUE(Macro::isDefined("a"));
  EXPECT_EQ(Macro::value("a"), "1");
  Macro::define("a", "2");
  EXPECT_EQ(Macro::value("a"), "2");
  Macro::deleteName("a");
  EXPECT_FALSE(Macro::isDefined("a"));
  EXPECT_EQ(Macro::value("a"), "");
}

TEST_F(MacroTest, valueOfUndefinedNameIsEmpty) {
  EXPECT_EQ(Macro::value("nowhere"), "");
}

TEST_F(MacroTest, currentDefinitionsHideGlobalOnes) {
  Macro::globalHash.insert("g", "global");
  EXPECT_TRUE(Macro::isDefined("g"));
  EXPECT_EQ(Macro::value("g"), "global");
  Macro::define("g", "local");
  EXPECT_EQ(Macro::value("g"), "local");
  Macro::deleteName("g");
  EXPECT_EQ(Macro::value("g"), "global"); // deleteName touches the current table only
}

TEST_F(MacroTest, pushAndPopScopes) {
  Macro::define("a", "1");
  Macro::pushDefinitions(false);
  EXPECT_EQ(Macro::value("a"), "1");
  Macro::define("a", "2");
  Macro::pushDefinitions(true);
  EXPECT_FALSE(Macro::isDefined("a"));
  Macro::popDefinitions();
  EXPECT_EQ(Macro::value("a"), "2");
  Macro::popDefinitions();
  EXPECT_EQ(Macro::value("a"), "1");
  EXPECT_TRUE(Macro::stack.isEmpty());
}

TEST_F(MacroTest, popWithEmptyStackChangesNothing) {
  Macro::define("a", "1");
  Macro::popDefinitions();
  EXPECT_EQ(Macro::value("a"), "1");
  EXPECT_EQ(Macro::hash.size(), 1);
}

TEST_F(MacroTest, pushAndDefineOpensAnEmptyScope) {
  Macro::define("outer", "1");
  Macro::pushAndDefine({{"x", "5"}, {"y", "6"}});
  EXPECT_FALSE(Macro::isDefined("outer"));
  EXPECT_EQ(Macro::value("x"), "5");
  EXPECT_EQ(Macro::value("y"), "6");
  Macro::popDefinitions();
  EXPECT_EQ(Macro::value("outer"), "1");
  EXPECT_FALSE(Macro::isDefined("x"));
}

TEST_F(MacroTest, inspectListsSortedWithoutGlobals) {
  Macro::define("b", "2");
  Macro::define("a", "1");
  Macro::define("B", "x y");
  EXPECT_EQ(Macro::inspect(), "{\n  B=>x y\n  a=>1\n  b=>2\n}\n");
}

TEST_F(MacroTest, inspectListsGlobals) {
  Macro::define("a", "1");
  Macro::globalHash.insert("z", "26");
  Macro::globalHash.insert("m", "13");
  EXPECT_EQ(Macro::inspect(), "{\n  a=>1\nGlobals:\n  m=>13\n  z=>26\n}\n");
}

TEST_F(MacroTest, inspectOfNothing) {
  EXPECT_EQ(Macro::inspect(), "{\n}\n");
}

} // namespace

namespace {

class MacroExpandTest : public MacroTest {
protected:
  std::string expand(const QString &text, std::string *messages = nullptr) {
    QString result;
    std::string err = stderrOf([&] { result = Macro::expand(text); });
    if (messages)
      *messages = bannerMessages(err);
    else
      EXPECT_EQ(err, "") << text.toStdString();
    return result.toStdString();
  }
};

TEST_F(MacroExpandTest, plainAndBracedReferences) {
  Macro::define("a", "5");
  EXPECT_EQ(expand("$a"), "5");
  EXPECT_EQ(expand("${a}"), "5");
  EXPECT_EQ(expand("${a}x"), "5x");
  EXPECT_EQ(expand("$a-$a"), "5-5");
  EXPECT_EQ(expand("no references"), "no references");
}

TEST_F(MacroExpandTest, undefinedMacroGivesAReportAndNothing) {
  std::string messages;
  EXPECT_EQ(expand("x $b y", &messages), "");
  EXPECT_EQ(messages, "Undefined macro 'b'");
  EXPECT_EQ(expand("${}", &messages), "");
  EXPECT_EQ(messages, "Undefined macro ''");
}

TEST_F(MacroExpandTest, globalDefinitionsExpandButDoNotCount) {
  Macro::globalHash.insert("g", "7");
  EXPECT_EQ(expand("$g ${g}"), "7 7");
  std::string messages;
  EXPECT_EQ(expand("${g++}", &messages), "");
  EXPECT_EQ(messages, "Undefined macro 'g'");
}

TEST_F(MacroExpandTest, postIncrement) {
  Macro::define("n", "9");
  EXPECT_EQ(expand("${n++}"), "9");
  EXPECT_EQ(Macro::value("n"), "10");
  Macro::define("n", "1");
  EXPECT_EQ(expand("${n++} ${n++}"), "1 2");
  EXPECT_EQ(Macro::value("n"), "3");
  Macro::define("id", "az");
  EXPECT_EQ(expand("${id++}"), "az");
  EXPECT_EQ(Macro::value("id"), "ba");
}

TEST_F(MacroExpandTest, chainedAndNestedReferences) {
  Macro::define("a", "$b");
  Macro::define("b", "${c}");
  Macro::define("c", "7");
  EXPECT_EQ(expand("$a"), "7");
  Macro::define("x", "c");
  EXPECT_EQ(expand("${${x}}"), "7");
  Macro::define("len", "2mm");
  EXPECT_EQ(expand("${$len*3}"), "6mm");
}

TEST_F(MacroExpandTest, expressions) {
  EXPECT_EQ(expand("${1+1}"), "2");
  EXPECT_EQ(expand("${%.3f;2mm*3;mm}"), "6.000");
  EXPECT_EQ(expand("${%.1f;1in;mm}"), "25.4");
  EXPECT_EQ(expand("${2in;mm}"), "50.8");
  std::string messages;
  // An empty unit is requested as it stands: a length is no unitless number.
  EXPECT_EQ(expand("x=${%g;1m;}", &messages), "x=1");
  EXPECT_EQ(messages, "Units Conversion Error from m to ");
  EXPECT_EQ(expand("${%.3f;2*3;mm}", &messages), "6.000");
  EXPECT_EQ(messages, "Units Conversion Error from (none) to mm");
}

TEST_F(MacroExpandTest, userFormatsOtherThanOneNumberAreReplaced) {
  std::string messages;
  EXPECT_EQ(expand("${%s;1mm;mm}", &messages), "1");
  EXPECT_EQ(messages, "Invalid number format '%s', using '%g'");
  EXPECT_EQ(expand("${%n %n;1mm;mm}", &messages), "1");
  EXPECT_EQ(messages, "Invalid number format '%n %n', using '%g'");
}

TEST_F(MacroExpandTest, unbalancedBraceGivesAReportAndNothing) {
  std::string messages;
  EXPECT_EQ(expand("text ${ no close", &messages), "");
  EXPECT_EQ(messages, "unbalanced ${ in 'text ${ no close'");
}

} // namespace
