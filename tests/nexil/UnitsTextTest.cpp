//===- UnitsTextTest.cpp - Units applied to whole strings ------------------===//

#include "Units.h"

#include "Macro.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

using namespace Nexil;

namespace {

std::string quiet(const std::function<QString()> &body) {
  QString result;
  std::string err = stderrOf([&] { result = body(); });
  EXPECT_EQ(err, "");
  return result.toStdString();
}

TEST(UnitsTextTest, evaluateFormatsInTheRequestedUnit) {
  EXPECT_EQ(quiet([] { return Units::evaluate("%.3f", "1in", "mm"); }), "25.400");
  EXPECT_EQ(quiet([] { return Units::evaluate("%g", "2mm*3", "-"); }), "6mm");
  EXPECT_EQ(quiet([] { return Units::evaluate("%g", "2*3", "-"); }), "6");
  EXPECT_EQ(quiet([] { return Units::evaluate("%.2e", "1km", "m"); }), "1.00e+03");
  EXPECT_EQ(quiet([] { return Units::evaluate("x=%5.1f%%", "0.0625*10", "-"); }), "x=  0.6%");
}

TEST(UnitsTextTest, evaluateOfAnEmptyExpressionFormatsZeroOnlyOnAnEmptyStack) {
  Units::val.clear();
  EXPECT_EQ(quiet([] { return Units::evaluate("%g", "", "mm"); }), "0");
  Units::value("5in", "-", nullptr);
  EXPECT_EQ(quiet([] { return Units::evaluate("%g", "", "mm"); }), "127");
}

TEST(UnitsTextTest, evaluateReportsWhatTheEvaluatorReports) {
  QString result;
  std::string err = stderrOf([&] { result = Units::evaluate("%g", "2#3", "-"); });
  EXPECT_EQ(bannerMessages(err), "D:Syntax Error in '2#3'");
  EXPECT_EQ(result, "2");
}

TEST(UnitsTextTest, formatsOtherThanOneFloatingConversionAreReplaced) {
  for (const char *format : {"%s", "%n", "%d", "%g %g", "no conversion", "%*g", "%Lf", "%.9999f"}) {
    QString result;
    std::string err = stderrOf([&] { result = Units::evaluate(format, "1.5", "-"); });
    EXPECT_EQ(result, "1.5") << format;
    EXPECT_EQ(bannerMessages(err),
              "Invalid number format '" + std::string(format) + "', using '%g'");
  }
  EXPECT_EQ(quiet([] { return Units::evaluate("%lf", "1.5", "-"); }), "1.500000");
  EXPECT_EQ(quiet([] { return Units::evaluate("%+08.2E!", "1.5", "-"); }), "+1.50E+00!");
  EXPECT_EQ(quiet([] { return Units::evaluate("%#G", "1.5", "-"); }), "1.50000");
}

TEST(UnitsTextTest, convertAllRewritesNumbersWithUnits) {
  struct Row {
    const char *text, *unit, *expected;
  } rows[] = {
      {"", "mm", ""},
      {"abc", "mm", "abc"},
      {"1.5mm", "mm", "1.5"},
      {"3", "mm", "3"},
      {"5kg", "*", "5kg"},
      {"x=25.4mm, angle=90deg", "in", "x=1, angle=90deg"},
      {"x=25.4mm, angle=90deg", "*", "x=25.4, angle=1.57079632679"},
      {"1m,2m,3m", "mm", "1000,2000,3000"},
      {"-2.5e3mm,+1m", "m", "-2.5,+1"},
      {"2abc", "mm", "2abc"},
      {"2abc", "*", "0"},
      {"1.e3mm", "m", "1.e0.003"},
      {"...5mm.", "mm", "..0.5."}, // ".5mm" is a number
      {"1.5E-3km", "m", "1.5"},
      {"10kmph 1hr", "*", "2.77778 3.6e+12"},
  };
  for (const Row &row : rows)
    EXPECT_EQ(quiet([&] { return Units::convertAll(row.text, row.unit); }), row.expected)
        << row.text;
}

TEST(UnitsTextTest, isFloatTellsWhetherTheTokenizerReadEverything) {
  Macro::define("x", "2");
  EXPECT_TRUE(Units::isFloat("1.5"));
  EXPECT_TRUE(Units::isFloat("2*x"));
  EXPECT_TRUE(Units::isFloat("3mm+1in"));
  EXPECT_FALSE(Units::isFloat(""));
  EXPECT_FALSE(Units::isFloat("1#"));
  Macro::deleteName("x");
  std::string err = stderrOf([] { EXPECT_TRUE(Units::isFloat("1,2")); });
  EXPECT_EQ(err, "");
}

TEST(UnitsTextTest, checkComparesTheExponentTexts) {
  for (auto pair :
       {std::make_pair("1e5", "2"), std::make_pair("1e5mm", "2e3deg"), std::make_pair("3mm", "4kg"),
        std::make_pair("1", "word"), std::make_pair("word", "1")}) {
    std::string err = stderrOf([&] { Units::check(pair.first, pair.second); });
    EXPECT_EQ(err, "") << pair.first << " " << pair.second;
  }
  EXPECT_TRUE(Units::typeHash.contains("e5"));
  EXPECT_EQ(Units::type("e5"), 0);
}

} // namespace
