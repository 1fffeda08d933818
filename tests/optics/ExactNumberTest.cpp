//===- ExactNumberTest.cpp - Doubles written and read without loss ---------===//

#include "ExactNumber.h"

#include <cfloat>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace {

TEST(ExactNumberTest, hexadecimalFloatsAsPrintfWritesThem) {
  EXPECT_EQ(exactText(3), "0x1.8p+1");
  EXPECT_EQ(exactText(-0.1), "-0x1.999999999999ap-4");
  EXPECT_EQ(exactText(0), "0x0p+0");
}

TEST(ExactNumberTest, everyDoubleComesBackBitForBit) {
  const double values[] = {0.0,
                           -0.0,
                           1.0,
                           -0.1,
                           3.141592653589793,
                           1e300,
                           -1e-300,
                           DBL_MIN,
                           DBL_MIN / 4096,
                           DBL_TRUE_MIN,
                           DBL_MAX,
                           6.02e23,
                           -7.5,
                           std::numeric_limits<double>::infinity(),
                           -std::numeric_limits<double>::infinity()};
  QStringList texts;
  for (double v : values)
    texts << exactText(v);
  std::vector<double> back;
  ASSERT_TRUE(readExactList(texts.join(' '), back));
  ASSERT_EQ(back.size(), std::size(values));
  for (size_t i = 0; i < back.size(); ++i) {
    EXPECT_EQ(std::signbit(back[i]), std::signbit(values[i])) << texts[qsizetype(i)].toStdString();
    EXPECT_EQ(back[i], values[i]) << texts[qsizetype(i)].toStdString();
  }
  ASSERT_TRUE(readExactList(exactText(std::nan("")) + "  " + exactText(2), back));
  EXPECT_TRUE(std::isnan(back[0]));
  EXPECT_EQ(back[1], 2);
}

TEST(ExactNumberTest, otherSpellingsAndDamage) {
  std::vector<double> numbers;
  EXPECT_TRUE(readExactList("1.5 2e3 0x1p-1", numbers)); // decimals are read as strtod does
  EXPECT_EQ(numbers, (std::vector<double>{1.5, 2000, 0.5}));
  EXPECT_TRUE(readExactList("", numbers));
  EXPECT_TRUE(numbers.empty());
  for (const char *bad : {"0x1.8p+1x", "abc", "0x1.8p", "1.5.5", "0x2p+0q", "-"})
    EXPECT_FALSE(readExactList(bad, numbers)) << bad;
  double v = 0;
  EXPECT_TRUE(readExact(QString("0x1.8p+1"), v));
  EXPECT_EQ(v, 3);
  EXPECT_FALSE(readExact(QString(""), v));
  EXPECT_FALSE(readExact(QJsonValue(3.0), v));
}

} // namespace

TEST(ExactNumberTest, lengthsWithAMetricUnitAreTheNearestDoubleInMillimetres) {
  const std::pair<const char *, double> expected[] = {
      {"7250mm", 7250},    {"7.25m", 7250},    {"7250", 7250},
      {"0.1m", 100},       {"-1.5e3", -1500},  {"+2.5cm", 25},
      {".5m", 500},        {"3.m", 3000},      {"1500um", 1.5},
      {"1500micron", 1.5}, {"0.0072km", 7200}, {"7.25e-3km", 7250},
      {"1e-1m", 100},      {"0.3m", 300},      {"123456789.123mm", 123456789.123}};
  for (auto [text, millimetres] : expected) {
    double value = NAN;
    EXPECT_TRUE(readExactLength(text, value)) << text;
    EXPECT_EQ(value, millimetres) << text;
  }
}

TEST(ExactNumberTest, anythingButANumberWithAMetricLengthIsLeftToTheEvaluator) {
  for (const char *text : {"7250in", "2*3m", "1ft", "", "m", "1.2.3m", "e3m", "1e12345m", "1 m",
                           "7250MM", "0x10mm", "inf", "nan"}) {
    double value = 42;
    EXPECT_FALSE(readExactLength(text, value)) << text;
    EXPECT_EQ(value, 42) << text;
  }
}
