//===- Estimate.h - Estimates made from moments, with their errors -*- C++ -*-===//
//
// An estimate is a function of the centred second moments of a plane's coordinates,
// written once as a template so that it can be evaluated on numbers and on complex
// numbers: a complex step gives its derivatives exactly to rounding, and the delta
// method turns them into its statistical error (the influence of each crossing on the
// estimate, summed with the squared weights).
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_ESTIMATE_H
#define OPTICS_ESTIMATE_H

#include "BeamOptics.h"
#include "Moments.h"

#include <array>
#include <cmath>
#include <complex>
#include <limits>
#include <vector>

constexpr double NoValue = std::numeric_limits<double>::quiet_NaN();
constexpr size_t Size = Moments::MaximumDimension;

/// Second moments of the coordinates; complex ones carry a derivative (below).
template <typename T> using MatrixOf = std::array<std::array<T, Size>, Size>;
using Matrix = MatrixOf<double>;
using Complex = std::complex<double>;

Matrix covarianceOf(const Moments &m);

/// a b - c^2 without the cancellation of the two products (Kahan).
double determinant(double a, double b, double c);
/// The same for a derivative carried in the imaginary part.
Complex determinant(Complex a, Complex b, Complex c);

/// The square root of a positive number; none otherwise.
double positiveRoot(double x);
Complex positiveRoot(Complex x);

/// Square matrices of any size, of numbers or of numbers with a derivative.
template <typename T, size_t N> using SquareOf = std::array<std::array<T, N>, N>;

/// The real part of a number that may carry a derivative.
inline double realPart(double x) {
  return x;
}
inline double realPart(Complex x) {
  return x.real();
}

/// The determinant by elimination without exchanges, which a covariance (positive
/// definite) needs none of; a zero pivot gives no finite value.
template <typename T, size_t N> T determinantOf(SquareOf<T, N> a) {
  T product = 1;
  for (size_t k = 0; k < N; ++k) {
    product *= a[k][k];
    for (size_t i = k + 1; i < N; ++i) {
      T factor = a[i][k] / a[k][k];
      for (size_t j = k + 1; j < N; ++j)
        a[i][j] -= factor * a[k][j];
    }
  }
  return product;
}

/// T S T^T for the covariance S of (x, u_x, y, u_y, ...) and T the change to the canonical
/// momenta of a solenoid's field, u_x - kappa y and u_y + kappa x, kappa = q Bz / (2 m c)
/// (mrad per mm for u in mrad). T keeps phase-space volume: the determinant stays.
template <typename T, size_t N>
SquareOf<T, N> withCanonicalMomenta(const SquareOf<T, N> &s, double kappa) {
  SquareOf<double, N> t{};
  for (size_t i = 0; i < N; ++i)
    t[i][i] = 1;
  t[1][2] = -kappa;
  t[3][0] = kappa;
  SquareOf<T, N> ts{}, tst{};
  for (size_t i = 0; i < N; ++i)
    for (size_t j = 0; j < N; ++j)
      for (size_t k = 0; k < N; ++k)
        ts[i][j] += t[i][k] * s[k][j];
  for (size_t i = 0; i < N; ++i)
    for (size_t j = 0; j < N; ++j)
      for (size_t k = 0; k < N; ++k)
        tst[i][j] += ts[i][k] * t[j][k];
  return tst;
}

/// J S, J the symplectic unit of the pairs (0, 1), (2, 3), ...: row i of J S is row i+1
/// of S for even i, minus row i-1 for odd i.
template <typename T, size_t N> SquareOf<T, N> symplecticProduct(const SquareOf<T, N> &s) {
  SquareOf<T, N> m;
  for (size_t i = 0; i < N; ++i)
    for (size_t j = 0; j < N; ++j)
      m[i][j] = i % 2 == 0 ? s[i + 1][j] : -s[i - 1][j];
  return m;
}

/// tr(M^2), as the sum of m_ij m_ji.
template <typename T, size_t N> T traceOfSquare(const SquareOf<T, N> &m) {
  T trace = 0;
  for (size_t i = 0; i < N; ++i)
    for (size_t j = 0; j < N; ++j)
      trace += m[i][j] * m[j][i];
  return trace;
}

/// tr(M^4), as tr(M^2 M^2).
template <typename T, size_t N> T traceOfFourthPower(const SquareOf<T, N> &m) {
  SquareOf<T, N> square{};
  for (size_t i = 0; i < N; ++i)
    for (size_t j = 0; j < N; ++j)
      for (size_t k = 0; k < N; ++k)
        square[i][j] += m[i][k] * m[k][j];
  return traceOfSquare(square);
}

/// The exponents of u_i, or of u_i u_j.
Moments::Exponents exponents(int i, int j = -1);

/// dT/dC_ij of an estimate T made from the second moments, by a complex step: T(C + i h
/// E_ij) = T(C) + i h dT/dC_ij + O(h^2), with no difference taken, so exact to rounding.
template <typename Estimate> double derivative(const Matrix &c, int i, int j, Estimate estimate) {
  const double h = 1e-30 * std::sqrt(c[size_t(i)][size_t(i)] * c[size_t(j)][size_t(j)]);
  MatrixOf<Complex> z;
  for (size_t a = 0; a < Size; ++a)
    for (size_t b = 0; b < Size; ++b)
      z[a][b] = c[a][b];
  z[size_t(i)][size_t(j)] += Complex(0, h);
  if (i != j)
    z[size_t(j)][size_t(i)] += Complex(0, h);
  return estimate(z).imag() / h;
}

/// A term g (u^e - C_e) of a crossing's influence on an estimate.
struct InfluenceTerm {
  Moments::Exponents e;
  double g;
};

/// The standard error of an estimate whose influence is `constant` plus the terms, from
/// the squared-weight moments up to the fourth order.
double errorOfInfluence(const Moments &m, double constant, const std::vector<InfluenceTerm> &terms);

/// The standard error of an estimate made from the second moments, by the delta
/// method: each crossing's influence psi = sum over moments k of dT/dC_k (u_k - C_k),
/// u_k the crossing's product of centred coordinates, and sigma^2 = sum w^2 psi^2 / W^2,
/// expanded into the squared-weight moments up to the fourth order.
template <typename Estimate> double propagatedError(const Moments &m, Estimate estimate) {
  const Matrix c = covarianceOf(m);
  std::vector<InfluenceTerm> terms;
  double constant = 0;
  for (int i = 0; i < m.dimension(); ++i)
    for (int j = i; j < m.dimension(); ++j) {
      if (!(c[size_t(i)][size_t(i)] > 0 && c[size_t(j)][size_t(j)] > 0))
        continue;
      double g = derivative(c, i, j, estimate);
      if (!std::isfinite(g))
        return NoValue;
      if (g != 0) {
        terms.push_back({exponents(i, j), g});
        constant -= g * c[size_t(i)][size_t(j)];
      }
    }
  return errorOfInfluence(m, constant, terms);
}

/// Fills the columns of estimates and their errors, where an estimate has a value.
struct RowWriter {
  OpticsRow &row;
  const Moments &m;

  void set(const QString &column, double value) { row.set(column, value); }
  template <typename Estimate>
  void estimate(const QString &column, Estimate estimate, bool withError = true) {
    double value = estimate(covarianceOf(m));
    if (!std::isfinite(value))
      return;
    set(column, value);
    if (withError)
      set(column + "_err", propagatedError(m, estimate));
  }
  /// The weighted mean of coordinate i and its error.
  void mean(const QString &column, int i) {
    set(column, m.mean(i));
    set(column + "_err", std::sqrt(m.sum2(exponents(i, i))) / m.weight());
  }
};

#endif // OPTICS_ESTIMATE_H
