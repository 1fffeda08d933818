//===- Estimate.cpp - Estimates made from moments, with their errors -------===//

#include "Estimate.h"

#include <algorithm>

namespace {

Moments::Exponents plus(const Moments::Exponents &a, const Moments::Exponents &b) {
  Moments::Exponents e{};
  for (size_t i = 0; i < e.size(); ++i)
    e[i] = a[i] + b[i];
  return e;
}

} // namespace

Matrix covarianceOf(const Moments &m) {
  Matrix c{};
  for (int i = 0; i < m.dimension(); ++i)
    for (int j = 0; j < m.dimension(); ++j)
      c[size_t(i)][size_t(j)] = m.covariance(i, j);
  return c;
}

double determinant(double a, double b, double c) {
  // The rounding error of c^2 is recovered with a fused multiply-add and added back.
  double cc = c * c;
  double error = std::fma(-c, c, cc);
  return std::fma(a, b, -cc) + error;
}

Complex determinant(Complex a, Complex b, Complex c) {
  return Complex(determinant(a.real(), b.real(), c.real()), (a * b - c * c).imag());
}

double positiveRoot(double x) {
  return x > 0 ? std::sqrt(x) : NoValue;
}

Complex positiveRoot(Complex x) {
  return x.real() > 0 ? std::sqrt(x) : Complex(NoValue, 0);
}

Moments::Exponents exponents(int i, int j) {
  Moments::Exponents e{};
  ++e[size_t(i)];
  if (j >= 0)
    ++e[size_t(j)];
  return e;
}

double errorOfInfluence(const Moments &m, double constant,
                        const std::vector<InfluenceTerm> &terms) {
  double variance = constant * constant * m.weight2();
  for (const InfluenceTerm &k : terms) {
    variance += 2 * constant * k.g * m.sum2(k.e);
    for (const InfluenceTerm &l : terms)
      variance += k.g * l.g * m.sum2(plus(k.e, l.e));
  }
  return std::sqrt(std::max(0.0, variance)) / m.weight();
}
