//===- Moments.h - Weighted centred moments up to a given order -*- C++ -*-===//
//
// The statistics of a beam at a plane are functions of the centred moments of a few
// coordinates, and their errors need the same moments up to twice the order, summed
// with the squared weights. Both are kept about the weighted mean, never as raw sums
// of powers, so a beam far off axis loses no digits.
//
// Values are taken in small blocks: a block's mean is found first, its centred
// moments are summed about it, and the block is merged into the running moments with
// the exact combination of centred moments about two means (Chan, Golub and LeVeque;
// Pebay et al. for higher orders). The same combination merges the moments of two
// threads, two files or two run directories.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_MOMENTS_H
#define OPTICS_MOMENTS_H

#include <array>
#include <vector>

/// Sums of w u^a and w^2 u^a over every monomial u^a of the centred coordinates u up
/// to a maximum order; u is centred at the weighted mean.
class Moments {
public:
  static constexpr int MaximumDimension = 4;
  using Exponents = std::array<int, MaximumDimension>;

  /// Moments of `dimension` coordinates up to `order`.
  Moments(int dimension, int order);

  /// Adds one point (dimension() values) of weight w > 0.
  void add(const double *values, double weight);
  /// Adds the moments of another set of the same shape.
  void merge(const Moments &other);

  int dimension() const { return shape->dimension; }
  int order() const { return shape->order; }
  /// Sum of the weights.
  double weight() const;
  /// Sum of the squared weights.
  double weight2() const;
  /// Weighted mean of coordinate i.
  double mean(int i) const;
  /// Sum of w u^a about the weighted mean, for exponents a.
  double sum(const Exponents &a) const;
  /// Sum of w^2 u^a about the weighted mean, for exponents a.
  double sum2(const Exponents &a) const;
  /// Population covariance of coordinates i and j: sum(e_i + e_j) / weight().
  double covariance(int i, int j) const;

  /// The monomials in their storage order (exported and read back in this order).
  const std::vector<Exponents> &monomials() const { return shape->monomials; }
  /// Every stored number: the means, then the sums, then the squared-weight sums.
  std::vector<double> state() const;
  /// Sets every stored number from state(); false if the count does not fit.
  bool setState(const std::vector<double> &numbers);

private:
  /// The monomials of one dimension and order, and how to shift their sums.
  struct Shape {
    int dimension, order;
    std::vector<Exponents> monomials;  ///< graded: order 0, then 1, ...
    std::vector<int> parent, variable; ///< monomial = parent * u[variable]
    struct Term {
      int lower, rest;    ///< indices of b and a - b
      double coefficient; ///< product of the binomial coefficients C(a_i, b_i)
    };
    std::vector<std::vector<Term>> shiftTerms; ///< per monomial a, every b <= a
    int index(const Exponents &a) const;
  };
  static const Shape *shapeOf(int dimension, int order);

  static constexpr int BlockSize = 32;

  const Shape *shape;
  // A block of values not yet folded in is a cache of the moments: readers fold it
  // first, so the folded state is mutable.
  mutable std::array<double, MaximumDimension> centre{};
  mutable std::vector<double> sums, sums2;
  mutable std::vector<double> pending; ///< values then weight, per point
  mutable int pendingCount = 0;

  /// Folds the pending block into the moments.
  void fold() const;
  /// Adds a set with these centre and sums to the moments.
  void combine(const double *otherCentre, const std::vector<double> &otherSums,
               const std::vector<double> &otherSums2) const;
  /// `to` = the sums about a centre moved by d from the one of `from`.
  void shift(const std::vector<double> &from, const double *d, std::vector<double> &to) const;
};

#endif // OPTICS_MOMENTS_H
