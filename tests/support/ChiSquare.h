//===- ChiSquare.h - The chi-square law of an even number of degrees -*- C++ -*-===//
//
// The squared distance d^T C^-1 d of a Gaussian in k dimensions follows the chi-square
// law of k degrees; for even k its cumulative is a finite series, and its quantiles are
// found by halving: closed forms the tests of amplitudes and cores compare with.
//
//===----------------------------------------------------------------------------===//
#ifndef TESTS_CHISQUARE_H
#define TESTS_CHISQUARE_H

#include <cmath>

/// The chi-square law's cumulative for an even number of degrees (2, 4, 6, ...).
inline double chiSquareCumulative(int degrees, double q) {
  const double h = q / 2;
  double series = 1, term = 1;
  for (int k = 1; k < degrees / 2; ++k) {
    term *= h / k;
    series += term;
  }
  return 1 - std::exp(-h) * series;
}

/// The q where the increasing `cumulative` (of a law on [0, 200]) reaches f, by halving.
template <typename Cumulative> double quantileOf(Cumulative cumulative, double f) {
  double lo = 0, hi = 200;
  for (int i = 0; i < 200; ++i) {
    const double mid = (lo + hi) / 2;
    (cumulative(mid) < f ? lo : hi) = mid;
  }
  return lo;
}

/// The q where chiSquareCumulative(degrees, q) = f.
inline double chiSquareQuantile(int degrees, double f) {
  return quantileOf([degrees](double q) { return chiSquareCumulative(degrees, q); }, f);
}

#endif // TESTS_CHISQUARE_H
