//===- Pulls.h - Whether errors describe the spread of estimates -*- C++ -*-===//
//
// The pull of an estimate is (estimate - truth) / error. Over many seeds, honest errors
// give pulls of unit r.m.s. width and none far out.
//
//===----------------------------------------------------------------------------===//
#ifndef TESTS_PULLS_H
#define TESTS_PULLS_H

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <string>
#include <vector>

struct Pulls {
  std::vector<double> values;
  void add(double estimate, double truth, double error) {
    values.push_back((estimate - truth) / error);
  }
  double rms() const {
    double s = 0;
    for (double v : values)
      s += v * v;
    return std::sqrt(s / double(values.size()));
  }
  double mean() const {
    double s = 0;
    for (double v : values)
      s += v;
    return s / double(values.size());
  }
  double largest() const {
    double m = 0;
    for (double v : values)
      m = std::max(m, std::fabs(v));
    return m;
  }
};

/// Every set of pulls has an r.m.s. between `low` and `high` and none beyond `largest`,
/// but the sets named in `understated`: errors known to understate the scatter, whose
/// r.m.s. stays below the bound given there and none beyond 10. SHOW_PULLS in the
/// environment prints them.
inline void expectHonest(const std::map<std::string, Pulls> &pulls, double low, double high,
                         const std::map<std::string, double> &understated = {},
                         double largest = 5) {
  for (const auto &[name, p] : pulls) {
    if (getenv("SHOW_PULLS"))
      printf("%s rms %.3f mean %.3f max %.2f (%zu)\n", name.c_str(), p.rms(), p.mean(), p.largest(),
             p.values.size());
    const auto known = understated.find(name);
    EXPECT_GT(p.rms(), low) << name;
    EXPECT_LT(p.rms(), known == understated.end() ? high : known->second) << name;
    EXPECT_LT(p.largest(), known == understated.end() ? largest : 10) << name;
  }
}

/// Beams of three shapes whose errors must be honest alike.
enum class BeamShape { Gaussian, Uniform, Halo };

/// The factor of the covariance of the points drawUnit gives.
inline double covarianceFactor(BeamShape shape) {
  return shape == BeamShape::Halo ? 0.95 + 0.05 * 9 : 1;
}

/// n coordinates of unit covariance: Gaussian; uniform in the n-ball of radius
/// sqrt(n + 2); or Gaussian with 5 % of the points three times as wide (a covariance
/// covarianceFactor() times as large).
inline std::vector<double> drawUnit(BeamShape shape, size_t n, std::mt19937 &random) {
  std::normal_distribution<double> normal;
  std::uniform_real_distribution<double> uniform;
  std::vector<double> z(n);
  for (double &v : z)
    v = normal(random);
  if (shape == BeamShape::Uniform) {
    double length = 0;
    for (double v : z)
      length += v * v;
    const double radius = std::sqrt(n + 2.0) * std::pow(uniform(random), 1.0 / double(n));
    for (double &v : z)
      v *= radius / std::sqrt(length);
  }
  if (shape == BeamShape::Halo && uniform(random) < 0.05)
    for (double &v : z)
      v *= 3;
  return z;
}

/// The shapes' names, for the pulls' labels.
inline std::string nameOf(BeamShape shape) {
  const char *const names[] = {"gaussian ", "uniform ", "halo "};
  return names[int(shape)];
}

#endif // TESTS_PULLS_H
