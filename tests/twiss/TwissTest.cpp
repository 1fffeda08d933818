//===- TwissTest.cpp - Beam statistics and the report lines ----------------===//

#include "Twiss.h"

#include "Console.h"
#include "TestSupport.h"

#include <cmath>
#include <gtest/gtest.h>

namespace {

Step crossingAt(double x, double y) {
  Step step;
  step.position = Nexil::Point(x, y, 0);
  step.t = 0;
  step.extraValue = 0;
  step.PDGid = 0;
  step.EventID = 0;
  step.TrackID = 0;
  step.extraID = 0;
  return step;
}

TEST(TwissTest, defaultStepIsAtTheOrigin) {
  Step step;
  EXPECT_EQ(step.position.x, 0.0);
  EXPECT_EQ(step.position.z, 0.0);
  EXPECT_EQ(step.momentum.y, 0.0);
}

TEST(TwissTest, stepKeepsTheTwelfthColumnRightAfterT) {
  EXPECT_EQ(offsetof(Step, extraValue), offsetof(Step, t) + sizeof(double));
  EXPECT_LT(offsetof(Step, extraValue), offsetof(Step, PDGid));
  EXPECT_LT(offsetof(Step, TrackID), offsetof(Step, extraID));
}

TEST(TwissTest, planeWithoutEntriesReportsZeros) {
  Twiss twiss(1500);
  EXPECT_EQ(twiss.result(), "meanX_1500=0mm\n"
                            "sigmaX_1500=0mm\n"
                            "meanY_1500=0mm\n"
                            "sigmaY_1500=0mm\n"
                            "entries_1500=0\n");
}

TEST(TwissTest, singleCrossingGivesItsPositionAndZeroWidth) {
  Twiss twiss(10);
  Step c = crossingAt(0.5, -0.25);
  twiss.calculate(c);
  EXPECT_EQ(twiss.result(), "meanX_10=0.5mm\n"
                            "sigmaX_10=0mm\n"
                            "meanY_10=-0.25mm\n"
                            "sigmaY_10=0mm\n"
                            "entries_10=1\n");
}

TEST(TwissTest, widthIsThePopulationWidth) {
  Twiss twiss(7);
  Step a = crossingAt(1, 0), b = crossingAt(3, 0);
  twiss.calculate(a);
  twiss.calculate(b);
  EXPECT_EQ(twiss.result(), "meanX_7=2mm\n"
                            "sigmaX_7=1mm\n"
                            "meanY_7=0mm\n"
                            "sigmaY_7=0mm\n"
                            "entries_7=2\n");
  EXPECT_EQ(twiss.entries, 2);
  EXPECT_EQ(twiss.sumX, 4.0);
  EXPECT_EQ(twiss.sumX2, 10.0);
}

TEST(TwissTest, negativeSIsPrintedInsideTheNames) {
  Twiss twiss(-2);
  EXPECT_EQ(twiss.result().left(13), "meanX_-2=0mm\n");
  EXPECT_TRUE(twiss.result().endsWith("entries_-2=0\n"));
}

TEST(TwissTest, exponentNotationForTinyAndHugeValues) {
  Twiss twiss(1);
  Step a = crossingAt(1e-7, 1.5e8);
  twiss.calculate(a);
  EXPECT_EQ(twiss.result(), "meanX_1=1e-07mm\n"
                            "sigmaX_1=0mm\n"
                            "meanY_1=1.5e+08mm\n"
                            "sigmaY_1=0mm\n"
                            "entries_1=1\n");
}

TEST(TwissTest, sixSignificantDigits) {
  Twiss twiss(3);
  Step a = crossingAt(1.0 / 3, 2.0 / 3);
  twiss.calculate(a);
  EXPECT_TRUE(twiss.result().startsWith("meanX_3=0.333333mm\n"));
}

TEST(TwissTest, negativeRadicandGivesNaNWidth) {
  // Three equal values whose sums round so that the variance comes out below zero.
  Twiss twiss(5);
  for (int i = 0; i < 3; ++i) {
    Step c = crossingAt(0.1, 0.1);
    twiss.calculate(c);
  }
  double mean = twiss.sumX / 3;
  ASSERT_LT(twiss.sumX2 / 3 - mean * mean, 0.0);
  EXPECT_EQ(twiss.result(), "meanX_5=0.1mm\n"
                            "sigmaX_5=nanmm\n"
                            "meanY_5=0.1mm\n"
                            "sigmaY_5=nanmm\n"
                            "entries_5=3\n");
}

TEST(TwissTest, debugLineIsLabelledAsThePlane) {
  Debug = true;
  Twiss twiss(12);
  Step c = crossingAt(1.23456, -2);
  c.position.z = 0.0005;
  c.momentum = Nexil::Vector(0.1, 0.2, 100);
  std::string err = stderrOf([&] { twiss.calculate(c); });
  Debug = false;
  EXPECT_EQ(err, "BCSample::calculate s=12 pos=1.235,-2.000,0.001 mom=0.100,0.200,100.000\n");
}

TEST(TwissTest, noDebugLineWithoutDebug) {
  Twiss twiss(12);
  Step c = crossingAt(1, 2);
  EXPECT_EQ(stderrOf([&] { twiss.calculate(c); }), "");
}

TEST(TwissTest, trackEventsDoNothing) {
  Twiss twiss(4);
  twiss.trackBegin(1, 2);
  twiss.trackEnd(1, 2);
  EXPECT_EQ(twiss.entries, 0);
  EXPECT_EQ(twiss.sumY2, 0.0);
}

} // namespace
