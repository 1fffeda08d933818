//===- BunchSlicesTest.cpp - The bunch cut along time ----------------------===//

#include "BunchSlices.h"

#include <cmath>
#include <gtest/gtest.h>

namespace {

KeptCrossing at(double t, int event = 1, int track = 1) {
  KeptCrossing c{0, 0, 0, 0, 1, 0};
  c.t = t;
  c.event = event;
  c.track = track;
  return c;
}

/// The times of each slice's crossings, in the slice's order.
std::vector<std::vector<double>> timesOf(const std::vector<KeptCrossing> &c,
                                         const std::vector<Sample> &slices) {
  std::vector<std::vector<double>> times;
  for (const Sample &slice : slices) {
    times.emplace_back();
    for (size_t k : slice)
      times.back().push_back(c[k].t);
  }
  return times;
}

const CrossingChoices Equal = {};

} // namespace

TEST(BunchSlicesTest, equalSlicesHoldAsManyCrossingsTheLastWhatIsLeft) {
  std::vector<KeptCrossing> c;
  for (double t : {9.0, 3.0, 7.0, 1.0, 5.0, 2.0, 8.0, 4.0, 6.0, 0.0})
    c.push_back(at(t));
  CrossingChoices three;
  three.slices = 3;
  EXPECT_EQ(timesOf(c, slicesOf(c, wholeSample(10), three, 0, 3)),
            (std::vector<std::vector<double>>{{0, 1, 2}, {3, 4, 5}, {6, 7, 8, 9}}));
  // More slices than crossings: one each, the rest empty.
  CrossingChoices many;
  many.slices = 4;
  EXPECT_EQ(timesOf(c, slicesOf(c, {0, 3}, many, 0, 4)),
            (std::vector<std::vector<double>>{{1}, {9}, {}, {}}));
}

TEST(BunchSlicesTest, equalTimesAreOrderedByEventTrackAndArrival) {
  std::vector<KeptCrossing> c = {at(1, 2, 1), at(1, 1, 5), at(1, 1, 2), at(0, 9, 9), at(1, 1, 2)};
  CrossingChoices five;
  five.slices = 5;
  const std::vector<Sample> slices = slicesOf(c, wholeSample(5), five, 0, 5);
  EXPECT_EQ(slices, (std::vector<Sample>{{3}, {2}, {4}, {1}, {0}}));
}

TEST(BunchSlicesTest, slicesOfADurationStartAtTheOriginACrossingOnABoundaryInTheLater) {
  std::vector<KeptCrossing> c = {at(2.9), at(1.0), at(0.5), at(0)};
  CrossingChoices width;
  width.sliceWidth = 1;
  EXPECT_EQ(sliceCount(width, 0, 2.9), 3);
  EXPECT_EQ(sliceCount(width, 0, 3.0), 4);
  EXPECT_EQ(timesOf(c, slicesOf(c, wholeSample(4), width, 0, 3)),
            (std::vector<std::vector<double>>{{0.5, 0}, {1.0}, {2.9}}));
  EXPECT_EQ(sliceCount(width, 0, MaximumSlices - 1), MaximumSlices);
  EXPECT_EQ(sliceCount(width, 0, MaximumSlices), 0);
  EXPECT_EQ(sliceCount(Equal, 0, 1e9), 10);
}

TEST(BunchSlicesTest, theValuesOfASliceByHand) {
  // Four crossings of weight 1 at the corners (+-1, +-1) of (x, u_x), (y, u_y) at
  // (+-2, +-1) uncorrelated, times 1 to 4 ns, energies 10, 12, 11, 14, of charge -1.
  std::vector<KeptCrossing> c = {
      {1, 1, 0, 0, 1, 0}, {-1, 1, 0, 0, 1, 0}, {1, -1, 0, 0, 1, 0}, {-1, -1, 0, 0, 1, 0}};
  const double t[] = {1, 2, 3, 4}, e[] = {10, 12, 11, 14};
  for (size_t k = 0; k < 4; ++k) {
    c[k].t = t[k];
    c[k].energy = e[k];
    c[k].y = k < 2 ? 2 : -2;
    c[k].uy = k % 2 ? 1 : -1;
  }
  const std::array<double, SliceValues> v = sliceValues(c, wholeSample(4), Equal, -1, 0.5);
  EXPECT_EQ(v[SliceCount], 4);
  EXPECT_EQ(v[SliceDuration], 3);
  EXPECT_DOUBLE_EQ(v[SliceCharge], -4 * 1.602176634e-7 / 0.5);
  EXPECT_DOUBLE_EQ(v[SliceCurrent], v[SliceCharge] / 3 / 1000);
  EXPECT_EQ(v[SliceMeanT], 2.5);
  EXPECT_EQ(v[SliceMeanX], 0);
  EXPECT_EQ(v[SliceMeanY], 0);
  EXPECT_EQ(v[SliceMeanEnergy], 11.75);
  EXPECT_DOUBLE_EQ(v[SliceEnergySpread],
                   std::sqrt((1.75 * 1.75 + 0.25 * 0.25 + 0.75 * 0.75 + 2.25 * 2.25) / 4));
  EXPECT_EQ(v[SliceEmittanceX], 1);
  EXPECT_EQ(v[SliceEmittanceY], 2);
  // Slices of a duration have that duration; an empty slice has only its count.
  CrossingChoices width;
  width.sliceWidth = 0.5;
  EXPECT_EQ(sliceValues(c, wholeSample(4), width, 1, 1)[SliceDuration], 0.5);
  const std::array<double, SliceValues> empty = sliceValues(c, {}, Equal, 1, 1);
  EXPECT_EQ(empty[SliceCount], 0);
  for (int i = SliceDuration; i < SliceValues; ++i)
    EXPECT_TRUE(std::isnan(empty[size_t(i)])) << i;
  // One crossing lasts nothing: no current, no emittance.
  const std::array<double, SliceValues> one = sliceValues(c, {2}, Equal, 1, 1);
  EXPECT_EQ(one[SliceDuration], 0);
  EXPECT_TRUE(std::isnan(one[SliceCurrent]));
  EXPECT_TRUE(std::isnan(one[SliceEmittanceX]));
}

TEST(BunchSlicesTest, theColumnsOfTheSlicesFile) {
  EXPECT_EQ(sliceColumns().join(',').toStdString(),
            "n,duration_ns,charge_pC,charge_pC_err,current_A,current_A_err,mean_t_ns,mean_t_ns_err,"
            "mean_x_mm,mean_x_mm_err,mean_ux_mrad,mean_ux_mrad_err,mean_y_mm,mean_y_mm_err,"
            "mean_uy_mrad,mean_uy_mrad_err,emitn_x_mm_mrad,emitn_x_mm_mrad_err,emitn_y_mm_mrad,"
            "emitn_y_mm_mrad_err,mean_ekin_MeV,mean_ekin_MeV_err,sigma_E_MeV,sigma_E_MeV_err");
}
