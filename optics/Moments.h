//===- Moments.h - Weighted centred moments up to a given order -*- C++ -*-===//
//
// The statistics of a beam at a plane are functions of the centred second moments of
// a few coordinates, and their errors need the moments up to twice that order, summed
// with the squared weights. Both are kept about a centre near the weighted mean,
// never as raw sums of powers, so a beam far off axis loses no digits.
//
// Points come in blocks. The first block's weighted mean becomes the centre; every
// block's moments are summed about it, and when the mean wanders more than half a
// standard deviation from the centre, the sums are moved exactly to the mean. Two sets
// of moments (two threads, two files, two run directories) combine exactly: the second
// set's sums moved to the first one's centre (Chan, Golub and LeVeque; Pebay et al. for
// higher orders), the centre moved on by the same rule.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_MOMENTS_H
#define OPTICS_MOMENTS_H

#include <array>
#include <cstddef>
#include <vector>

/// Sums of w u^a up to the second order and of w^2 u^a up to a maximum order, over the
/// monomials u^a of the coordinates u taken about a centre.
class Moments {
public:
  static constexpr int MaximumDimension = 6;
  using Exponents = std::array<int, MaximumDimension>;

  /// Moments of `dimension` coordinates; squared-weight sums up to `order` (2 to 4).
  Moments(int dimension, int order);

  /// Adds `count` points of positive weight: columns[i][p] is coordinate i of point p;
  /// no weights (nullptr) weigh every point 1.
  void addBlock(const double *const *columns, const double *weights, int count);
  /// Adds one point (dimension() values) of weight w > 0.
  void add(const double *values, double weight);
  /// Adds the moments of another set of the same shape.
  void merge(const Moments &other);
  /// The same moments, about the weighted mean.
  Moments centred() const;

  int dimension() const { return shape->dimension; }
  int order() const { return shape->order; }
  /// Sum of the weights.
  double weight() const { return sums()[0]; }
  /// Sum of the squared weights.
  double weight2() const { return sums2()[0]; }
  /// Weighted mean of coordinate i.
  double mean(int i) const;
  /// Population covariance of coordinates i and j.
  double covariance(int i, int j) const;
  /// The centre the sums are taken about, coordinate i.
  double centreOf(int i) const { return centre()[i]; }
  /// Sum of w u^a about the centre, for exponents a of order 2 at most.
  double sum(const Exponents &a) const;
  /// Sum of w^2 u^a about the centre, for exponents a up to the order.
  double sum2(const Exponents &a) const;

  /// The monomials in their storage order (graded: order 0, then 1, ...).
  const std::vector<Exponents> &monomials() const { return shape->monomials; }
  /// Every stored number about the mean: the means, then the sums, then the
  /// squared-weight sums.
  std::vector<double> state() const;
  /// Sets every stored number from state(); false if the count does not fit.
  bool setState(const std::vector<double> &state);

private:
  /// The monomials of one dimension and order, and how to shift their sums.
  struct Shape {
    int dimension, order;
    std::vector<Exponents> monomials;  ///< graded: order 0, then 1, ...
    size_t secondOrderCount;           ///< monomials of order 2 at most
    std::vector<int> parent, variable; ///< monomial = parent * u[variable]
    struct Term {
      int lower, rest;    ///< indices of b and a - b
      double coefficient; ///< product of the binomial coefficients C(a_i, b_i)
    };
    std::vector<std::vector<Term>> shiftTerms; ///< per monomial a, every b <= a
    std::vector<size_t> square;                ///< index of u_i^2, per coordinate i
    /// The index of each monomial at its key; -1 where there is none: the errors look
    /// sums up by exponents many times a plane.
    std::array<int, 15625> positions;
    int index(const Exponents &a) const;
    /// a0 + 5 a1 + 25 a2 + ... for powers up to 4; -1 for others.
    static int key(const Exponents &a);
  };
  static const Shape *shapeOf(int dimension, int order);

  /// Monomials of six coordinates up to the fourth order: C(10, 4).
  static constexpr size_t MaximumMonomials = 210;
  using Sums = std::array<double, MaximumMonomials>;

  const Shape *shape;
  /// The centre, the sums up to the second order and the squared-weight sums of every
  /// monomial, side by side: a plane of many keeps only these.
  std::vector<double> numbers;

  double *centre() { return numbers.data(); }
  const double *centre() const { return numbers.data(); }
  double *sums() { return numbers.data() + shape->dimension; }
  const double *sums() const { return numbers.data() + shape->dimension; }
  double *sums2() { return sums() + shape->secondOrderCount; }
  const double *sums2() const { return sums() + shape->secondOrderCount; }

  /// The points a block is taken in at most, so that its monomials stay in the cache.
  static constexpr int Block = 32;

  /// Puts the centre at the block's weighted mean (w as for addBlock).
  void centreOnMean(const double *const *columns, const double *w, int count);
  /// Adds a block of at most Block points about the centre.
  template <bool UnitWeights>
  void addCentred(const double *const *columns, const double *w, int count);
  /// Moves the centre to the weighted mean.
  void recentre();
  /// Moves the centre to the weighted mean when the mean is farther than half a
  /// standard deviation from it.
  void recentreIfWandered();
  /// Adds a set with these centre and sums to the moments.
  void combine(const double *otherCentre, const double *otherSums, const double *otherSums2);
  /// The first `count` sums about a centre moved by d from the one of `from`.
  Sums shift(const double *from, const double *d, size_t count) const;
};

#endif // OPTICS_MOMENTS_H
