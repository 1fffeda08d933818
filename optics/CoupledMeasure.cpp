//===- CoupledMeasure.cpp - Both transverse planes at once -----------------===//
//
// Where x and y mix (a solenoid, a bend tilted about the path, a skew element) the 2D
// emittances of x and y trade with each other while the beam's transverse phase-space
// volume stays. This measure takes the covariance Sigma4 of (x, u_x, y, u_y), u = P/(m c)
// the normalised momenta, and gives what stays: its determinant's fourth root and its
// eigen-emittances, with the transverse beta and alpha of a round beam.
//
//===----------------------------------------------------------------------------===//

#include "Estimate.h"
#include "Measure.h"

namespace {

/// The coordinates of the measure's moments, in their order.
enum Coordinate { X, UX, Y, UY, Momentum };

template <typename T> using Matrix4 = SquareOf<T, 4>;

/// Sigma4, less the correlations with the momentum where `betatron` is set.
template <typename T> Matrix4<T> sigma4(const MatrixOf<T> &c, bool betatron = false) {
  Matrix4<T> s;
  for (size_t i = 0; i < 4; ++i)
    for (size_t j = 0; j < 4; ++j)
      s[i][j] =
          betatron ? c[i][j] - c[i][Momentum] * c[j][Momentum] / c[Momentum][Momentum] : c[i][j];
  return s;
}

/// det(Sigma4)^(1/4); none unless the determinant is positive.
template <typename T> T emittance4(const MatrixOf<T> &c, bool betatron = false) {
  return positiveRoot(positiveRoot(determinantOf(sigma4(c, betatron))));
}

/// The larger (`first`) or smaller eigen-emittance: e1^2 and e2^2 are the roots of
/// e^4 - (e1^2 + e2^2) e^2 + det Sigma4, e1^2 + e2^2 = -tr((J Sigma4)^2) / 2; the smaller
/// is taken as det / e1^2. In a solenoid's field, of the canonical momenta.
template <typename T> T eigenEmittance(const MatrixOf<T> &c, bool first, double kappa) {
  const Matrix4<T> s = withCanonicalMomenta(sigma4(c), kappa);
  const T sum = -traceOfSquare(symplecticProduct(s)) / 2.0, product = determinantOf(s);
  // Equal eigen-emittances make the discriminant zero, or a rounding below it.
  const T discriminant = sum * sum - 4.0 * product;
  const T larger = (sum + (realPart(discriminant) > 0 ? std::sqrt(discriminant) : T(0))) / 2.0;
  if (!(realPart(product) > 0))
    return T(NoValue);
  return std::sqrt(first ? larger : product / larger);
}

void fill(const PlaneContext &context, OpticsRow &row, QStringList &flags) {
  if (!context.normalisable)
    return;
  const Moments m = context.plane.momentsOf(transverse4dMoments()).centred();
  RowWriter out{row, m};
  if (std::isnan(emittance4(covarianceOf(m)))) {
    flags << "degenerate";
    return;
  }
  // Sigma4 in mm and mrad: emittances in mm mrad, sigma^2 / emittance in mm/mrad = m.
  out.estimate("emitn_4d_mm_mrad", [](const auto &c) { return emittance4(c); });
  // The field's vector potential leaves the determinant as it is, not the eigenvalues.
  const double kappa = context.kappa;
  out.estimate("emitn_4d_1_mm_mrad",
               [kappa](const auto &c) { return eigenEmittance(c, true, kappa); });
  out.estimate("emitn_4d_2_mm_mrad",
               [kappa](const auto &c) { return eigenEmittance(c, false, kappa); });
  const double momentum = context.meanMomentum / context.mass; // <|P|> / (m c)
  out.estimate("beta_perp_m", [momentum](const auto &c) {
    return momentum * (c[X][X] + c[Y][Y]) / (2.0 * emittance4(c));
  });
  out.estimate("alpha_perp",
               [](const auto &c) { return -(c[X][UX] + c[Y][UY]) / (2.0 * emittance4(c)); });
  if (context.dispersion)
    out.estimate("emitn_4d_betatron_mm_mrad", [](const auto &c) { return emittance4(c, true); });
}

QList<MeasureColumn> columns() {
  return {
      {"emitn_4d_mm_mrad", true, "4D normalised emittance det(Sigma4)^(1/4), mm mrad"},
      {"emitn_4d_1_mm_mrad", true, "the larger eigen-emittance of Sigma4, mm mrad"},
      {"emitn_4d_2_mm_mrad", true, "the smaller eigen-emittance of Sigma4, mm mrad"},
      {"beta_perp_m", true, "<|P|> (sigma_x^2 + sigma_y^2) / (2 m c emitn_4d), m"},
      {"alpha_perp", true, "-(C(x,u_x) + C(y,u_y)) / (2 emitn_4d)"},
      {"emitn_4d_betatron_mm_mrad", true,
       "4D normalised emittance less the correlations with the momentum, mm mrad"},
  };
}

} // namespace

const MomentSet &transverse4dMoments() {
  using V = CrossingValue;
  static const MomentSet set{"transverse_4d", {V::X, V::QX, V::Y, V::QY, V::P}, 4};
  return set;
}

const Measure &coupledMeasure() {
  static const Measure measure{
      "4d",
      1,
      "x and y together: the 4D and eigen-emittances, beta and alpha of the whole beam",
      columns(),
      {{"4d emittance",
        "Sigma4 = C of (x, u_x, y, u_y), u = P/(m c) in mrad; emitn_4d = det(Sigma4)^(1/4); "
        "eigen-emittances: the moduli of the eigenvalues of J Sigma4, e1 >= e2, e1 e2 = "
        "emitn_4d^2; betatron: Sigma4 less C(., |P|) C(., |P|) / C(|P|, |P|)"},
       {"4d twiss", "beta_perp = <|P|> (sigma_x^2 + sigma_y^2) / (2 m c emitn_4d), alpha_perp = "
                    "-(C(x,u_x) + C(y,u_y)) / (2 emitn_4d)"}},
      {&transverse4dMoments()},
      {"degenerate"},
      fill,
      false};
  return measure;
}
