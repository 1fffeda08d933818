//===- AngularMomentumMeasure.cpp - Angular momentum about the path --------===//
//
// In a solenoid the beam turns about the axis. Its kinetic angular momentum <x Py - y Px>
// jumps where the field begins and ends; the canonical one, with the vector potential
// A = (Bz/2) (-y, x, 0) of the field at the plane, L_can = L_kin + (q Bz / 2) <x^2 + y^2>,
// is what the field conserves, and so are the emittances of x and y taken with the
// canonical momenta P + q A. Taken about the beam line's axis, not about the beam's centre.
//
//===----------------------------------------------------------------------------===//

#include "Estimate.h"
#include "Measure.h"

namespace {

/// The coordinates of the measure's own moments, in their order.
enum Coordinate { Kinetic, ChargedRadius2 };
/// The positions of the shared transverse moments.
enum Transverse { X = 0, Y = 2 };

using V = CrossingValue;
const MomentSet AngularMoments{"angular_momentum", {V::AngularMomentum, V::ChargedRadius2}, 2};

/// The mean of a sum of coordinates a_i u_i and its error: each crossing's influence is
/// the sum of its centred coordinates, a_i u_i.
void linearMean(RowWriter &out, const QString &column, const std::vector<double> &factors) {
  double mean = 0;
  std::vector<InfluenceTerm> terms;
  for (size_t i = 0; i < factors.size(); ++i) {
    mean += factors[i] * out.m.mean(int(i));
    terms.push_back({exponents(int(i)), factors[i]});
  }
  out.set(column, mean);
  out.set(column + "_err", errorOfInfluence(out.m, 0, terms));
}

/// The 2D emittance of a position with its canonical momentum: x and u_x - kappa y, or
/// y and u_y + kappa x.
template <typename T> T canonicalEmittance(const MatrixOf<T> &c, size_t x, double kappa) {
  SquareOf<T, 4> s;
  for (size_t i = 0; i < 4; ++i)
    for (size_t j = 0; j < 4; ++j)
      s[i][j] = c[i][j];
  const SquareOf<T, 4> canonical = withCanonicalMomenta(s, kappa);
  return positiveRoot(determinant(canonical[x][x], canonical[x + 1][x + 1], canonical[x][x + 1]));
}

void fill(const PlaneContext &context, OpticsRow &row, QStringList &) {
  const Moments m = context.plane.momentsOf(AngularMoments).centred();
  RowWriter out{row, m};
  // (q Bz / 2) (x^2 + y^2) in mm MeV/c.
  const double field = MomentumPerTeslaMillimetre * context.bz / 2;
  linearMean(out, "L_kin_mm_MeV", {1, 0});
  linearMean(out, "L_can_mm_MeV", {1, field});
  if (!context.normalisable)
    return;
  linearMean(out, "L_kin_n_mm", {1 / context.mass, 0});
  linearMean(out, "L_can_n_mm", {1 / context.mass, field / context.mass});
  const double kappa = context.kappa;
  RowWriter canonical{row, context.plane.momentsOf(transverse4dMoments()).centred()};
  canonical.estimate("emitn_can_x_mm_mrad",
                     [kappa](const auto &c) { return canonicalEmittance(c, X, kappa); });
  canonical.estimate("emitn_can_y_mm_mrad",
                     [kappa](const auto &c) { return canonicalEmittance(c, Y, kappa); });
}

QList<MeasureColumn> columns() {
  return {
      {"L_kin_mm_MeV", true, "kinetic angular momentum <x Py - y Px> about the axis, mm MeV/c"},
      {"L_kin_n_mm", true, "the same per m c, mm"},
      {"L_can_mm_MeV", true, "canonical angular momentum L_kin + (q Bz / 2) <x^2 + y^2>, mm MeV/c"},
      {"L_can_n_mm", true, "the same per m c, mm"},
      {"emitn_can_x_mm_mrad", true,
       "emittance of x with (Px + q Ax)/(m c), A = (Bz/2)(-y, x), mm mrad"},
      {"emitn_can_y_mm_mrad", true, "emittance of y with (Py + q Ay)/(m c), mm mrad"},
  };
}

} // namespace

const Measure &angularMomentumMeasure() {
  static const Measure measure{
      "angular-momentum",
      1,
      "about the beam line's axis, kinetic and canonical in the solenoid field Bz of each plane",
      columns(),
      {{"angular momentum",
        "about the axis of the plane's frame, not centred: L_kin = <x Py - y Px>; L_can = L_kin "
        "+ (q Bz / 2) <x^2 + y^2> with A = (Bz/2)(-y, x, 0) and Bz from sampleS.txt (Bz=) or "
        "--bz; canonical emittances of x and (Px + q Ax)/(m c), y and (Py + q Ay)/(m c)"}},
      {&AngularMoments, &transverse4dMoments()},
      {},
      fill,
      false};
  return measure;
}
