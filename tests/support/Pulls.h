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
  double largest() const {
    double m = 0;
    for (double v : values)
      m = std::max(m, std::fabs(v));
    return m;
  }
};

/// Every set of pulls has an r.m.s. between `low` and `high` and none beyond 5;
/// SHOW_PULLS in the environment prints them.
inline void expectHonest(const std::map<std::string, Pulls> &pulls, double low, double high) {
  for (const auto &[name, p] : pulls) {
    if (getenv("SHOW_PULLS"))
      printf("%s rms %.3f max %.2f (%zu)\n", name.c_str(), p.rms(), p.largest(), p.values.size());
    EXPECT_GT(p.rms(), low) << name;
    EXPECT_LT(p.rms(), high) << name;
    EXPECT_LT(p.largest(), 5) << name;
  }
}

#endif // TESTS_PULLS_H
