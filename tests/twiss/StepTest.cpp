//===- StepTest.cpp - One point of one track ------------------------------===//

#include "Step.h"

#include <cmath>
#include <gtest/gtest.h>

namespace {

Step sample() {
  Step s;
  s.position = Nexil::Point(1.5, -2, 300);
  s.momentum = Nexil::Vector(0.1, 0.2, 200);
  s.t = 1.25;
  s.extraValue = 0.5;
  s.PDGid = -13;
  s.EventID = 7;
  s.TrackID = 3;
  s.extraID = 0;
  return s;
}

TEST(StepTest, equalWhenEveryColumnHoldsTheSameBits) {
  EXPECT_TRUE(sample() == sample());
  Step nan = sample(), otherNan = sample();
  nan.t = otherNan.t = std::nan("");
  EXPECT_TRUE(nan == otherNan); // the same NaN, unlike the comparison of numbers
  Step negativeZero = sample(), zero = sample();
  negativeZero.position.x = -0.0;
  zero.position.x = 0.0;
  EXPECT_FALSE(negativeZero == zero); // equal numbers, different bits
}

TEST(StepTest, everyColumnCounts) {
  const auto changes = {+[](Step &s) { s.position.x += 1; }, +[](Step &s) { s.position.y += 1; },
                        +[](Step &s) { s.position.z += 1; }, +[](Step &s) { s.momentum.x += 1; },
                        +[](Step &s) { s.momentum.y += 1; }, +[](Step &s) { s.momentum.z += 1; },
                        +[](Step &s) { s.t += 1; },          +[](Step &s) { s.extraValue += 1; },
                        +[](Step &s) { s.PDGid += 1; },      +[](Step &s) { s.EventID += 1; },
                        +[](Step &s) { s.TrackID += 1; },    +[](Step &s) { s.extraID += 1; }};
  int column = 0;
  for (auto change : changes) {
    Step changed = sample();
    change(changed);
    EXPECT_FALSE(changed == sample()) << "change " << column++;
  }
}

} // namespace
