//===- MomentsTest.cpp - Weighted centred moments --------------------------===//

#include "Moments.h"
#include "PlaneStatistics.h"

#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace {

using E = Moments::Exponents;

Moments oneDimensional(const std::vector<double> &values, const std::vector<double> &weights) {
  Moments m(1, 4);
  for (size_t i = 0; i < values.size(); ++i)
    m.add(&values[i], weights[i]);
  return m;
}

TEST(MomentsTest, weightedSumsAboutTheWeightedMean) {
  // Values 1, 2, 3, 4 with weights 1, 2, 3, 4: W = 10, sum w^2 = 30,
  // mean = (1 + 4 + 9 + 16) / 10 = 3, centred u = -2, -1, 0, 1.
  Moments m = oneDimensional({1, 2, 3, 4}, {1, 2, 3, 4}).centred();
  EXPECT_DOUBLE_EQ(m.centreOf(0), 3);
  EXPECT_DOUBLE_EQ(m.weight(), 10);
  EXPECT_DOUBLE_EQ(m.weight2(), 30);
  EXPECT_DOUBLE_EQ(m.mean(0), 3);
  EXPECT_NEAR(m.sum({1}), 0, 1e-14);
  EXPECT_DOUBLE_EQ(m.sum({2}), 10);  // 1*4 + 2*1 + 0 + 4*1
  EXPECT_DOUBLE_EQ(m.sum2({1}), 10); // 1*-2 + 4*-1 + 0 + 16*1
  EXPECT_DOUBLE_EQ(m.sum2({2}), 24); // 1*4 + 4*1 + 0 + 16*1
  EXPECT_DOUBLE_EQ(m.sum2({3}), 4);  // 1*-8 + 4*-1 + 0 + 16*1
  EXPECT_DOUBLE_EQ(m.sum2({4}), 36); // 1*16 + 4*1 + 0 + 16*1
  EXPECT_DOUBLE_EQ(m.covariance(0, 0), 1);
}

TEST(MomentsTest, monomialsOfEveryOrderUpToTheMaximum) {
  EXPECT_EQ(Moments(1, 4).monomials().size(), 5u);
  EXPECT_EQ(Moments(2, 2).monomials().size(), 6u);
  EXPECT_EQ(Moments(4, 4).monomials().size(), 70u); // C(8, 4)
  EXPECT_EQ(Moments(4, 4).monomials()[0], (E{0, 0, 0, 0}));
}

/// Two-pass moments in long double, the independent method.
struct Reference {
  long double mean[4] = {}, w = 0;
  long double sum(const std::vector<std::array<double, 4>> &v, const std::vector<double> &w8,
                  const E &a, bool squared) const {
    long double s = 0;
    for (size_t p = 0; p < v.size(); ++p) {
      long double term = squared ? (long double)w8[p] * w8[p] : w8[p];
      for (int i = 0; i < 4; ++i)
        for (int k = 0; k < a[size_t(i)]; ++k)
          term *= v[p][size_t(i)] - mean[i];
      s += term;
    }
    return s;
  }
};

class MomentsSample : public ::testing::Test {
protected:
  std::vector<std::array<double, 4>> values;
  std::vector<double> weights;
  Reference reference;

  void make(size_t count, double offset, double width) {
    std::mt19937_64 random(7);
    std::normal_distribution<double> gauss(0, 1);
    std::uniform_real_distribution<double> uniform(0.5, 2);
    for (size_t p = 0; p < count; ++p) {
      double a = gauss(random), b = gauss(random);
      values.push_back({offset + width * a, -offset + width * (0.3 * a + b), 200 + gauss(random),
                        width * gauss(random)});
      weights.push_back(uniform(random));
    }
    for (size_t p = 0; p < count; ++p) {
      reference.w += weights[p];
      for (int i = 0; i < 4; ++i)
        reference.mean[i] += (long double)weights[p] * values[p][size_t(i)];
    }
    for (int i = 0; i < 4; ++i)
      reference.mean[i] /= reference.w;
  }
  /// Adds the points one by one.
  Moments add(size_t first, size_t last) const {
    Moments m(4, 4);
    for (size_t p = first; p < last; ++p)
      m.add(values[p].data(), weights[p]);
    return m;
  }
  /// Adds the points as one block of columns.
  Moments addBlock(size_t first, size_t last) const {
    std::vector<double> columns[4];
    for (size_t p = first; p < last; ++p)
      for (size_t i = 0; i < 4; ++i)
        columns[i].push_back(values[p][i]);
    const double *pointers[] = {columns[0].data(), columns[1].data(), columns[2].data(),
                                columns[3].data()};
    Moments m(4, 4);
    m.addBlock(pointers, weights.data() + first, int(last - first));
    return m;
  }
  void expectMatchesReference(const Moments &moments, double tolerance) const {
    const Moments m = moments.centred();
    for (const E &a : m.monomials()) {
      int order = a[0] + a[1] + a[2] + a[3];
      if (order == 1)
        continue; // zero about the mean; compared through the means
      for (bool squared : {false, true}) {
        if (!squared && order > 2)
          continue; // weighted sums are kept to the second order
        double expected = double(reference.sum(values, weights, a, squared));
        double actual = squared ? m.sum2(a) : m.sum(a);
        // Odd moments of a symmetric sample are small: compare with the scale of the even ones.
        double scale = 0;
        for (int i = 0; i < 4; ++i) {
          E even{};
          even[size_t(i)] = 2;
          double s = double(reference.sum(values, weights, even, squared) / reference.w);
          scale += a[size_t(i)] * 0.5 * std::log(s);
        }
        double size = std::exp(scale) * double(reference.w);
        EXPECT_NEAR(actual, expected, tolerance * size)
            << "order " << a[0] << a[1] << a[2] << a[3] << (squared ? " w^2" : " w");
      }
    }
    for (int i = 0; i < 4; ++i)
      EXPECT_NEAR(m.mean(i), double(reference.mean[i]),
                  1e-14 * std::fabs(double(reference.mean[i])) + 1e-18);
  }
};

TEST_F(MomentsSample, blocksAndMergesGiveTheTwoPassMoments) {
  make(1000, 3, 2);
  expectMatchesReference(add(0, 1000), 1e-12);
  expectMatchesReference(addBlock(0, 1000), 1e-12);
  Moments merged = add(0, 333);
  merged.merge(addBlock(333, 1000));
  expectMatchesReference(merged, 1e-12);
}

TEST_F(MomentsSample, partialBlocksAndEmptyParts) {
  // 31, 32 and 33 points: a block short of full, one full, one over.
  for (size_t count : {31u, 32u, 33u}) {
    values.clear();
    weights.clear();
    reference = Reference();
    make(count, 1, 1);
    Moments m(4, 4);
    m.merge(add(0, 0)); // an empty set changes nothing
    m.merge(addBlock(0, count));
    m.merge(add(0, 0));
    expectMatchesReference(m, 1e-12);
  }
}

TEST_F(MomentsSample, aBeamFarOffAxisKeepsItsWidth) {
  // 10 m off axis, 1 micrometre wide: raw sums of squares would lose every digit.
  // The inputs carry the width to about 1e-9 of itself (an ulp of 1e4 is 2e-12): the
  // odd moments, which nearly cancel, are compared at 1e-8 of the even ones' scale.
  make(2000, 10000, 1e-3);
  Moments m = add(0, 2000);
  expectMatchesReference(m, 1e-8);
  expectMatchesReference(addBlock(0, 2000), 1e-8);
  double expected = double(reference.sum(values, weights, E{2, 0, 0, 0}, false) / reference.w);
  EXPECT_NEAR(m.covariance(0, 0), expected, 1e-9 * expected);
}

TEST_F(MomentsSample, noWeightsAreWeightsOfOneBitForBit) {
  // Points far off axis, so that the centre and every sum carry rounding of their own.
  make(100, 1000, 3);
  std::vector<double> columns[4];
  for (const std::array<double, 4> &point : values)
    for (size_t i = 0; i < 4; ++i)
      columns[i].push_back(point[i]);
  const std::vector<double> ones(values.size(), 1.0);
  for (int count : {1, 3, 31, 32, 33, 100}) {
    const double *pointers[] = {columns[0].data(), columns[1].data(), columns[2].data(),
                                columns[3].data()};
    Moments weighed(4, 4), unweighed(4, 4);
    weighed.addBlock(pointers, ones.data(), count);
    unweighed.addBlock(pointers, nullptr, count);
    EXPECT_EQ(unweighed.state(), weighed.state()) << count << " points";
  }
}

TEST_F(MomentsSample, stateRoundTripsExactly) {
  make(100, 1, 1);
  Moments m = add(0, 100), copy(4, 4);
  ASSERT_TRUE(copy.setState(m.state()));
  EXPECT_EQ(copy.state(), m.state());
  EXPECT_FALSE(copy.setState({1, 2, 3}));
  // One number more or one fewer than the set holds is no state of it, and leaves it.
  std::vector<double> longer = m.state(), shorter = m.state();
  longer.push_back(0);
  shorter.pop_back();
  EXPECT_FALSE(copy.setState(longer));
  EXPECT_FALSE(copy.setState(shorter));
  EXPECT_EQ(copy.state(), m.state());
}

} // namespace

/// A plane's moments are those of its crossings added 32 at a time, with their weights,
/// whether every weight is 1, or ones give way to other weights within a block.
TEST(PlaneStatisticsTest, blocksOfThirtyTwoCrossingsWithTheirWeights) {
  std::mt19937 random(3);
  std::normal_distribution<double> gauss;
  const std::vector<std::vector<double>> weightings = {
      std::vector<double>(80, 1.0),
      [] {
        std::vector<double> w(80, 1.0);
        w[40] = 2.5; // ones, then another weight, then ones again, in the second block
        w[45] = 0.25;
        return w;
      }(),
      [] {
        std::vector<double> w(80, 1.0);
        w[79] = 3; // the last crossing of the short last block
        return w;
      }()};
  for (const std::vector<double> &weights : weightings) {
    PlaneStatistics plane;
    Moments expected(3, 4);
    std::vector<double> x, xp, p;
    for (size_t k = 0; k < weights.size(); ++k) {
      OpticsCrossing c{};
      c.x = 1 + gauss(random);
      c.xp = gauss(random);
      c.y = gauss(random);
      c.yp = gauss(random);
      c.p = 200 + gauss(random);
      c.weight = weights[k];
      c.massKnown = true;
      ASSERT_TRUE(plane.add(c));
      x.push_back(c.x);
      xp.push_back(c.xp);
      p.push_back(c.p);
    }
    for (size_t first = 0; first < x.size(); first += 32) {
      const double *columns[] = {&x[first], &xp[first], &p[first]};
      expected.addBlock(columns, &weights[first], int(std::min<size_t>(32, x.size() - first)));
    }
    EXPECT_EQ(plane.horizontal().state(), expected.state());
  }
}
