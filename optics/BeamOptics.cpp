//===- BeamOptics.cpp - The optics of the beam at one plane ----------------===//

#include "BeamOptics.h"

#include <QHash>

#include <array>
#include <cmath>
#include <complex>
#include <limits>

namespace {

const double NoValue = std::numeric_limits<double>::quiet_NaN();

/// Second moments of the coordinates; complex ones carry a derivative (below).
template <typename T> using MatrixOf = std::array<std::array<T, 4>, 4>;
using Matrix = MatrixOf<double>;
using Complex = std::complex<double>;

Matrix covarianceOf(const Moments &m) {
  Matrix c{};
  for (int i = 0; i < m.dimension(); ++i)
    for (int j = 0; j < m.dimension(); ++j)
      c[size_t(i)][size_t(j)] = m.covariance(i, j);
  return c;
}

/// a b - c^2 without the cancellation of the two products (Kahan): the rounding error
/// of c^2 is recovered with a fused multiply-add and added back.
double determinant(double a, double b, double c) {
  double cc = c * c;
  double error = std::fma(-c, c, cc);
  return std::fma(a, b, -cc) + error;
}

/// The same for a derivative carried in the imaginary part.
Complex determinant(Complex a, Complex b, Complex c) {
  return Complex(determinant(a.real(), b.real(), c.real()), (a * b - c * c).imag());
}

/// The square root of a positive number; none otherwise.
double positiveRoot(double x) {
  return x > 0 ? std::sqrt(x) : NoValue;
}
Complex positiveRoot(Complex x) {
  return x.real() > 0 ? std::sqrt(x) : Complex(NoValue, 0);
}

Moments::Exponents exponents(int i, int j = -1) {
  Moments::Exponents e{};
  ++e[size_t(i)];
  if (j >= 0)
    ++e[size_t(j)];
  return e;
}

Moments::Exponents plus(const Moments::Exponents &a, const Moments::Exponents &b) {
  Moments::Exponents e{};
  for (size_t i = 0; i < e.size(); ++i)
    e[i] = a[i] + b[i];
  return e;
}

/// dT/dC_ij of an estimate T made from the second moments, by a complex step: T(C + i h
/// E_ij) = T(C) + i h dT/dC_ij + O(h^2), with no difference taken, so exact to rounding.
template <typename Estimate> double derivative(const Matrix &c, int i, int j, Estimate estimate) {
  const double h = 1e-30 * std::sqrt(c[size_t(i)][size_t(i)] * c[size_t(j)][size_t(j)]);
  MatrixOf<Complex> z;
  for (size_t a = 0; a < 4; ++a)
    for (size_t b = 0; b < 4; ++b)
      z[a][b] = c[a][b];
  z[size_t(i)][size_t(j)] += Complex(0, h);
  if (i != j)
    z[size_t(j)][size_t(i)] += Complex(0, h);
  return estimate(z).imag() / h;
}

/// The standard error of an estimate made from the second moments, by the delta
/// method: each crossing's influence psi = sum over moments k of dT/dC_k (u_k - C_k),
/// u_k the crossing's product of centred coordinates, and sigma^2 = sum w^2 psi^2 / W^2,
/// expanded into the squared-weight moments up to the fourth order.
template <typename Estimate> double propagatedError(const Moments &m, Estimate estimate) {
  const Matrix c = covarianceOf(m);
  struct Term {
    Moments::Exponents e;
    double g;
  };
  std::vector<Term> terms;
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
  double variance = constant * constant * m.weight2();
  for (const Term &k : terms) {
    variance += 2 * constant * k.g * m.sum2(k.e);
    for (const Term &l : terms)
      variance += k.g * l.g * m.sum2(plus(k.e, l.e));
  }
  return std::sqrt(std::max(0.0, variance)) / m.weight();
}

/// Fills the columns of the estimate and its error, if the estimate has a value.
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
  void mean(const QString &column, int i) {
    set(column, m.mean(i));
    set(column + "_err", std::sqrt(m.sum2(exponents(i, i))) / m.weight());
  }
};

/// The betatron second moments <x_b^2>, <x_b'^2>, <x_b x_b'> with the momentum
/// correlation removed, or the projected ones without a momentum spread.
template <typename T> std::array<T, 3> betatron(const MatrixOf<T> &c, bool dispersion) {
  using P = PlaneStatistics;
  if (!dispersion)
    return {c[P::Position][P::Position], c[P::Angle][P::Angle], c[P::Position][P::Angle]};
  T pp = c[P::Momentum][P::Momentum];
  T xd = c[P::Position][P::Momentum], ad = c[P::Angle][P::Momentum];
  return {c[P::Position][P::Position] - xd * xd / pp, c[P::Angle][P::Angle] - ad * ad / pp,
          c[P::Position][P::Angle] - xd * ad / pp};
}

/// The square root of the determinant of the covariances of i and j; none unless positive.
template <typename T> T rootDeterminant(const MatrixOf<T> &c, size_t i, size_t j) {
  return positiveRoot(determinant(c[i][i], c[j][j], c[i][j]));
}

template <typename T> T emittance(const MatrixOf<T> &c, bool dispersion) {
  std::array<T, 3> b = betatron(c, dispersion);
  return positiveRoot(determinant(b[0], b[1], b[2]));
}

/// The columns of one transverse plane; returns false when its emittance is degenerate.
bool transverse(OpticsRow &row, const Moments &m, const Moments &canonical, const QString &p,
                double pRef, bool dispersion, bool normalisable) {
  using P = PlaneStatistics;
  RowWriter out{row, m};
  const QString pp = p + "p";
  out.mean("mean_" + p + "_mm", P::Position);
  out.estimate("sigma_" + p + "_mm",
               [](const auto &c) { return std::sqrt(c[P::Position][P::Position]); });
  out.mean("mean_" + pp + "_mrad", P::Angle);
  out.estimate("sigma_" + pp + "_mrad",
               [](const auto &c) { return std::sqrt(c[P::Angle][P::Angle]); });
  if (dispersion) {
    // D = C(x, delta) / C(delta, delta) = C(x, p) p_ref / C(p, p); mm -> m, mrad -> 1.
    out.estimate("disp_" + p + "_m", [pRef](const auto &c) {
      return c[P::Position][P::Momentum] * pRef / c[P::Momentum][P::Momentum] / 1000.0;
    });
    out.estimate("disp_" + pp, [pRef](const auto &c) {
      return c[P::Angle][P::Momentum] * pRef / c[P::Momentum][P::Momentum] / 1000.0;
    });
  }
  bool degenerate = std::isnan(emittance(covarianceOf(m), dispersion));
  if (!degenerate) {
    // mm mrad; beta = <x^2>/eps in mm/mrad = m, gamma = <x'^2>/eps in mrad/mm = 1/m.
    out.estimate("emit_" + p + "_mm_mrad",
                 [dispersion](const auto &c) { return emittance(c, dispersion); });
    out.estimate("beta_" + p + "_m", [dispersion](const auto &c) {
      return betatron(c, dispersion)[0] / emittance(c, dispersion);
    });
    out.estimate("alpha_" + p, [dispersion](const auto &c) {
      return -betatron(c, dispersion)[2] / emittance(c, dispersion);
    });
    out.estimate("gamma_" + p + "_per_m", [dispersion](const auto &c) {
      return betatron(c, dispersion)[1] / emittance(c, dispersion);
    });
  }
  out.estimate(
      "emit_proj_" + p + "_mm_mrad",
      [](const auto &c) { return rootDeterminant(c, P::Position, P::Angle); }, false);
  if (normalisable)
    RowWriter{row, canonical}.estimate("emitn_" + p + "_mm_mrad", [](const auto &c) {
      return rootDeterminant(c, P::Position, P::Canonical);
    });
  return !degenerate;
}

} // namespace

const QStringList &opticsColumns() {
  static const QStringList columns = [] {
    QStringList c = {"s_mm", "n", "n_back", "weight", "n_eff", "transmission", "transmission_err"};
    for (QString p : {"x", "y"})
      for (QString q : {p + "_mm", p + "p_mrad"})
        c << "mean_" + q << "mean_" + q + "_err"
          << "sigma_" + q << "sigma_" + q + "_err";
    c << "mean_p_MeV"
      << "sigma_delta"
      << "mean_ekin_MeV"
      << "mean_t_ns"
      << "sigma_t_ns";
    for (QString p : {"x", "y"})
      c << "disp_" + p + "_m"
        << "disp_" + p + "_m_err"
        << "disp_" + p + "p"
        << "disp_" + p + "p_err";
    for (QString p : {"x", "y"})
      c << "emit_" + p + "_mm_mrad"
        << "emit_" + p + "_mm_mrad_err"
        << "emit_proj_" + p + "_mm_mrad"
        << "emitn_" + p + "_mm_mrad"
        << "emitn_" + p + "_mm_mrad_err"
        << "beta_" + p + "_m"
        << "beta_" + p + "_m_err"
        << "alpha_" + p << "alpha_" + p + "_err"
        << "gamma_" + p + "_per_m"
        << "gamma_" + p + "_per_m_err";
    c << "status";
    return c;
  }();
  return columns;
}

namespace {

/// The place of each column in opticsColumns().
int columnIndex(const QString &column) {
  static const QHash<QString, int> index = [] {
    QHash<QString, int> places;
    const QStringList &columns = opticsColumns();
    for (int i = 0; i < columns.size(); ++i)
      places.insert(columns[i], i);
    return places;
  }();
  return index.value(column, -1);
}

} // namespace

OpticsRow::OpticsRow() : values(size_t(opticsColumns().size()), NoValue) {}

double OpticsRow::value(const QString &column) const {
  int i = columnIndex(column);
  return i < 0 ? NoValue : values[size_t(i)];
}

void OpticsRow::set(const QString &column, double value) {
  values.at(size_t(columnIndex(column))) = value; // a name not in the table throws
}

OpticsRow beamOptics(double sMillimetres, const PlaneStatistics &plane,
                     const PlaneStatistics &first, const MomentumReference &reference) {
  using P = PlaneStatistics;
  OpticsRow row;
  const Moments h = plane.horizontal().centred();
  double weight = h.weight(), firstWeight = first.horizontal().weight();
  row.set("s_mm", sMillimetres);
  row.set("n", double(plane.n));
  row.set("n_back", double(plane.nBack));
  row.set("weight", weight);
  if (firstWeight > 0) {
    // A binomial fraction of the first plane's beam, with its effective count.
    double fraction = weight / firstWeight;
    double firstCount = firstWeight * firstWeight / first.horizontal().weight2();
    row.set("transmission", fraction);
    row.set("transmission_err", std::sqrt(std::max(0.0, fraction * (1 - fraction)) / firstCount));
  }
  if (!(weight > 0)) {
    row.status = "empty";
    return row;
  }
  QStringList flags;
  double effective = weight * weight / h.weight2();
  row.set("n_eff", effective);
  if (effective < FewCrossings)
    flags << "few";
  double meanMomentum = h.mean(P::Momentum);
  double pRef = reference.fixed ? reference.momentum : meanMomentum;
  double sigmaDelta = std::sqrt(h.covariance(P::Momentum, P::Momentum)) / pRef;
  row.set("mean_p_MeV", meanMomentum);
  row.set("sigma_delta", sigmaDelta);
  bool dispersion = std::fabs(sigmaDelta) > MinimumMomentumSpread;
  if (!dispersion)
    flags << "no-momentum-spread";
  if (plane.mixedSpecies)
    flags << "mixed-species";
  if (plane.unknownSpecies)
    flags << "unknown-species";
  bool normalisable = !plane.mixedSpecies && !plane.unknownSpecies;
  bool regular = transverse(row, h, plane.horizontalCanonical().centred(), "x", pRef, dispersion,
                            normalisable);
  regular = transverse(row, plane.vertical().centred(), plane.verticalCanonical().centred(), "y",
                       pRef, dispersion, normalisable) &&
            regular;
  if (!regular)
    flags << "degenerate";
  const Moments &t = plane.time();
  row.set("mean_t_ns", t.mean(P::Time));
  row.set("sigma_t_ns", std::sqrt(t.covariance(P::Time, P::Time)));
  if (!plane.unknownSpecies)
    row.set("mean_ekin_MeV", t.mean(P::Kinetic));
  row.status = flags.isEmpty() ? "ok" : flags.join(';');
  return row;
}
