//===- LongitudinalMeasure.cpp - Time against energy -----------------------===//
//
// The bunch along the path: its energy spread, the area of its time-energy phase space
// (normalised as the transverse ones are: c t in mm against E / (m c^2) in thousandths)
// and the chirp, the slope of energy against time.
//
//===----------------------------------------------------------------------------===//

#include "Estimate.h"
#include "Measure.h"

namespace {

/// The coordinates of the measure's moments, in their order.
enum Coordinate { Time, Energy };

using V = CrossingValue;
const MomentSet TimeAndEnergy{"longitudinal", {V::T, V::Energy}, 4};

void fill(const PlaneContext &context, OpticsRow &row, QStringList &flags) {
  if (context.plane.unknownSpecies)
    return;
  // The kinetic energy's spread and correlations are those of the total energy.
  const Moments m = context.plane.momentsOf(TimeAndEnergy).centred();
  RowWriter out{row, m};
  out.estimate("sigma_E_MeV", [](const auto &c) { return std::sqrt(c[Energy][Energy]); });
  out.estimate("chirp_MeV_per_ns", [](const auto &c) { return c[Time][Energy] / c[Time][Time]; });
  if (!context.normalisable)
    return;
  const Matrix c = covarianceOf(m);
  if (!(determinant(c[Time][Time], c[Energy][Energy], c[Time][Energy]) > 0)) {
    flags << "degenerate";
    return;
  }
  // sqrt(det C(c t, 1000 E / (m c^2))) in mm mrad, from t in ns and E in MeV.
  const double scale = LightSpeed * 1000 / context.mass;
  out.estimate("emitn_l_mm_mrad", [scale](const auto &c) {
    return scale * positiveRoot(determinant(c[Time][Time], c[Energy][Energy], c[Time][Energy]));
  });
}

QList<MeasureColumn> columns() {
  return {
      {"sigma_E_MeV", true, "r.m.s. energy spread, MeV"},
      {"emitn_l_mm_mrad", true, "longitudinal emittance sqrt(det C(c t, E/(m c^2))), mm mrad"},
      {"chirp_MeV_per_ns", true, "energy against time C(t,E)/C(t,t), MeV/ns"},
  };
}

} // namespace

const Measure &longitudinalMeasure() {
  static const Measure measure{
      "longitudinal",
      1,
      "time against energy: energy spread, longitudinal emittance and chirp",
      columns(),
      {{"longitudinal emittance", "sqrt(det C(c t, E/(m c^2))) with c t in mm and E/(m c^2) in "
                                  "thousandths, so in mm mrad; chirp = C(t,E)/C(t,t)"}},
      {&TimeAndEnergy},
      {"degenerate"},
      fill,
      false};
  return measure;
}
