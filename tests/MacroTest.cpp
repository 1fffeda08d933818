//===- MacroTest.cpp - Macro definitions and counters ----------------------===//

#include "Macro.h"

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
  const SuccessorRow rows[] = {{"", ""},     {"0", "1"},   {"9", "10"},     {"19", "20"},
                               {"99", "100"}, {"a", "b"},   {"az", "ba"},    {"zz", "aaa"},
                               {"Z", "AA"},  {"A9", "B0"}, {"x-", "x."},    {"zZ9", "aaA0"},
                               {"8", "9"},   {"Az", "Ba"}, {"a9z", "b0a"}, {"10", "11"}};
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

TEST_F(MacroTest, valueOfUndefinedNameIsEmpty) { EXPECT_EQ(Macro::value("nowhere"), ""); }

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

TEST_F(MacroTest, inspectOfNothing) { EXPECT_EQ(Macro::inspect(), "{\n}\n"); }

} // namespace
