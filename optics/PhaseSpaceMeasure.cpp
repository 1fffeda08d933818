//===- PhaseSpaceMeasure.cpp - The whole phase space at once ---------------===//
//
// Where the transverse and the longitudinal motion mix (dispersion in a bend, a tilted
// cavity), only the six-dimensional phase space keeps its volume. This measure takes the
// covariance Sigma6 of (x, u_x, y, u_y, -c t, E/(m c^2)), the last pair canonical so that
// the eigenvalues of J Sigma6 mean what they should when x and t are correlated, and
// gives its determinant's sixth root and its three eigen-emittances.
//
//===----------------------------------------------------------------------------===//

#include "Estimate.h"
#include "Measure.h"

namespace {

using V = CrossingValue;
const MomentSet PhaseSpace{"phase_space_6d", {V::X, V::QX, V::Y, V::QY, V::T, V::Energy}, 4};

template <typename T> using Matrix6 = SquareOf<T, 6>;

/// Sigma6 in mm and mrad: -c t in mm from t in ns, 1000 E/(m c^2) from E in MeV.
template <typename T> Matrix6<T> sigma6(const MatrixOf<T> &c, double mass) {
  const double scale[6] = {1, 1, 1, 1, -LightSpeed, 1000 / mass};
  Matrix6<T> s;
  for (size_t i = 0; i < 6; ++i)
    for (size_t j = 0; j < 6; ++j)
      s[i][j] = scale[i] * scale[j] * c[i][j];
  return s;
}

/// det(Sigma6)^(1/6); none unless the determinant is positive.
template <typename T> T emittance6(const MatrixOf<T> &c, double mass) {
  const T det = determinantOf(sigma6(c, mass));
  return realPart(det) > 0 ? std::pow(det, 1.0 / 6) : T(NoValue);
}

/// Eigen-emittance k (0 the largest, 2 the smallest). Their squares are the roots of
/// e^6 - a e^4 + b e^2 - d, with a = -tr(M^2)/2, b = (a^2 - tr(M^4)/2)/2 and d = det Sigma6,
/// M = J Sigma6: the three real roots of a cubic, by the trigonometric form. In a solenoid's
/// field, of the canonical momenta.
template <typename T> T eigenEmittance6(const MatrixOf<T> &c, double mass, double kappa, int k) {
  const Matrix6<T> s = withCanonicalMomenta(sigma6(c, mass), kappa), m = symplecticProduct(s);
  const T a = -traceOfSquare(m) / 2.0, b = (a * a - traceOfFourthPower(m) / 2.0) / 2.0;
  const T d = determinantOf(s);
  if (!(realPart(d) > 0))
    return T(NoValue);
  // e^2 = t + a/3 with t^3 + p t + q = 0.
  const T p = b - a * a / 3.0, q = -2.0 * a * a * a / 27.0 + a * b / 3.0 - d;
  if (!(realPart(p) < 0)) // three equal eigen-emittances
    return std::sqrt(a / 3.0);
  T cosine = 3.0 * q / (2.0 * p) * std::sqrt(-3.0 / p);
  if (realPart(cosine) > 1)
    cosine = T(1);
  if (realPart(cosine) < -1)
    cosine = T(-1);
  const T angle = std::acos(cosine) / 3.0;
  // The angle's third lies in [0, pi/3]: k = 0, 1, 2 give the roots from the largest down.
  auto root = [&](int j) {
    return 2.0 * std::sqrt(-p / 3.0) * std::cos(angle - 2 * M_PI * j / 3) + a / 3.0;
  };
  // The smallest root of the form is a difference of nearly equal numbers; the
  // determinant, the product of the three, gives it without that loss.
  return std::sqrt(k < 2 ? root(k) : d / (root(0) * root(1)));
}

void fill(const PlaneContext &context, OpticsRow &row, QStringList &flags) {
  if (!context.normalisable)
    return;
  const Moments m = context.plane.momentsOf(PhaseSpace).centred();
  const double mass = context.mass;
  if (std::isnan(emittance6(covarianceOf(m), mass))) {
    flags << "degenerate";
    return;
  }
  RowWriter out{row, m};
  out.estimate("emitn_6d_mm_mrad", [mass](const auto &c) { return emittance6(c, mass); });
  const char *const eigen[3] = {"emitn_6d_1_mm_mrad", "emitn_6d_2_mm_mrad", "emitn_6d_3_mm_mrad"};
  const double kappa = context.kappa;
  for (int k = 0; k < 3; ++k)
    out.estimate(eigen[k],
                 [mass, kappa, k](const auto &c) { return eigenEmittance6(c, mass, kappa, k); });
}

QList<MeasureColumn> columns() {
  return {
      {"emitn_6d_mm_mrad", true, "6D normalised emittance det(Sigma6)^(1/6), mm mrad"},
      {"emitn_6d_1_mm_mrad", true, "the largest eigen-emittance of Sigma6, mm mrad"},
      {"emitn_6d_2_mm_mrad", true, "the middle eigen-emittance of Sigma6, mm mrad"},
      {"emitn_6d_3_mm_mrad", true, "the smallest eigen-emittance of Sigma6, mm mrad"},
  };
}

} // namespace

const Measure &phaseSpaceMeasure() {
  static const Measure measure{
      "6d",
      1,
      "the whole phase space: the 6D and eigen-emittances",
      columns(),
      {{"6d emittance",
        "Sigma6 = C of (x, u_x, y, u_y, -c t, E/(m c^2)), u in mrad, c t in mm, E/(m c^2) in "
        "thousandths; emitn_6d = det(Sigma6)^(1/6); eigen-emittances: the moduli of the "
        "eigenvalues of J Sigma6, largest first, their product emitn_6d^3"}},
      {&PhaseSpace},
      {"degenerate"},
      fill,
      false};
  return measure;
}
