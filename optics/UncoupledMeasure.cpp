//===- UncoupledMeasure.cpp - Each transverse plane on its own, and time ---===//
//
// The default measure: means and widths, momentum spread, dispersion, the betatron,
// projected and normalised emittances and the Twiss parameters of x with x' and of y
// with y', and the time and kinetic energy.
//
//===----------------------------------------------------------------------------===//

#include "Estimate.h"
#include "Measure.h"

namespace {

using P = PlaneStatistics;

/// The betatron second moments <x_b^2>, <x_b'^2>, <x_b x_b'> with the momentum
/// correlation removed, or the projected ones without a momentum spread.
template <typename T> std::array<T, 3> betatron(const MatrixOf<T> &c, bool dispersion) {
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

void fill(const PlaneContext &context, OpticsRow &row, QStringList &flags) {
  const PlaneStatistics &plane = context.plane;
  row.set("mean_p_MeV", context.meanMomentum);
  row.set("sigma_delta", context.sigmaDelta);
  if (!context.dispersion)
    flags << "no-momentum-spread";
  if (plane.mixedSpecies)
    flags << "mixed-species";
  if (plane.unknownSpecies)
    flags << "unknown-species";
  bool regular =
      transverse(row, plane.horizontal().centred(), plane.horizontalCanonical().centred(), "x",
                 context.pRef, context.dispersion, context.normalisable);
  regular = transverse(row, plane.vertical().centred(), plane.verticalCanonical().centred(), "y",
                       context.pRef, context.dispersion, context.normalisable) &&
            regular;
  if (!regular)
    flags << "degenerate";
  const Moments &t = plane.time();
  row.set("mean_t_ns", t.mean(P::Time));
  row.set("sigma_t_ns", std::sqrt(t.covariance(P::Time, P::Time)));
  if (!plane.unknownSpecies)
    row.set("mean_ekin_MeV", t.mean(P::Kinetic));
}

QList<MeasureColumn> columns() {
  QList<MeasureColumn> c;
  for (QString p : {"x", "y"}) {
    c << MeasureColumn{"mean_" + p + "_mm", true, "mean position in " + p + ", mm"}
      << MeasureColumn{"sigma_" + p + "_mm", true, "r.m.s. width in " + p + ", mm"}
      << MeasureColumn{"mean_" + p + "p_mrad", true, "mean angle " + p + "' = P" + p + "/Pz, mrad"}
      << MeasureColumn{"sigma_" + p + "p_mrad", true, "r.m.s. angle in " + p + "', mrad"};
  }
  c << MeasureColumn{"mean_p_MeV", false, "mean momentum |P|, MeV/c"}
    << MeasureColumn{"sigma_delta", false, "relative momentum spread"}
    << MeasureColumn{"mean_ekin_MeV", false, "mean kinetic energy, MeV"}
    << MeasureColumn{"mean_t_ns", false, "mean time, ns"}
    << MeasureColumn{"sigma_t_ns", false, "r.m.s. time spread, ns"};
  for (QString p : {"x", "y"})
    c << MeasureColumn{"disp_" + p + "_m", true, "dispersion C(" + p + ",delta)/C(delta,delta), m"}
      << MeasureColumn{"disp_" + p + "p", true, "its derivative"};
  for (QString p : {"x", "y"})
    c << MeasureColumn{"emit_" + p + "_mm_mrad", true,
                       "betatron emittance (dispersion removed), mm mrad"}
      << MeasureColumn{"emit_proj_" + p + "_mm_mrad", false,
                       "projected emittance (not removed), mm mrad"}
      << MeasureColumn{"emitn_" + p + "_mm_mrad", true,
                       "normalised emittance sqrt(det C(" + p + ", P" + p + "/(m c))), mm mrad"}
      << MeasureColumn{"beta_" + p + "_m", true, "Twiss beta of the betatron motion, m"}
      << MeasureColumn{"alpha_" + p, true, "Twiss alpha"}
      << MeasureColumn{"gamma_" + p + "_per_m", true, "Twiss gamma, 1/m"};
  return c;
}

} // namespace

const Measure &uncoupledMeasure() {
  static const Measure measure{
      "2d",
      1,
      "x with x' and y with y', each on its own; momentum, time and energy",
      columns(),
      {{"delta", "delta = (|P| - p_ref) / p_ref"},
       {"dispersion", "D = C(x,delta)/C(delta,delta), D' = C(x',delta)/C(delta,delta)"},
       {"emittance", "sqrt(<xb^2><xb'^2> - <xb xb'>^2) of the betatron coordinates xb = x - D "
                     "delta, xb' = x' - D' delta; projected: of x and x' themselves"},
       {"normalised emittance", "sqrt(det C(x, Px/(m c))) with m from the particle table"},
       {"twiss", "beta = <xb^2>/eps, alpha = -<xb xb'>/eps, gamma = <xb'^2>/eps"}},
      PlaneStatistics::basicSets(),
      {"no-momentum-spread", "mixed-species", "unknown-species", "degenerate"},
      fill,
      false};
  return measure;
}
