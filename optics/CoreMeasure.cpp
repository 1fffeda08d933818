//===- CoreMeasure.cpp - The beam's core and its halo ----------------------===//
//
// Two beams with the same r.m.s. emittance can differ in where their particles are: a
// Gaussian, a uniformly filled ellipse, a core with a few per cent in a wide halo. The
// core emittance at f is the emittance of the fraction f of the beam with the smallest
// amplitudes, chosen with the core's own covariance; the halo parameters compare fourth
// moments with squared second ones, 1 for a Gaussian and 0 for a uniformly filled
// ellipse. What a chosen set depends on has no simple propagated error: the cores'
// errors come from the spread over subsamples of the tracks, with the set's bias found
// from how the value moves with the sample's size; the halo parameters' errors are
// propagated from the moments.
//
//===----------------------------------------------------------------------------===//

#include "CrossingSample.h"
#include "Measure.h"

#include <cmath>

namespace {

struct CoreFraction {
  double fraction;
  const char *name;
};
const CoreFraction Fractions[] = {
    {0.5, "50"}, {0.6827, "68"}, {0.9, "90"}, {0.95, "95"}, {0.99, "99"}};

struct CoreSpace {
  const char *name; ///< in the column's name
  int first, dimension;
};
const CoreSpace Spaces[] = {{"4d", PhaseX, 4}, {"x", PhaseX, 2}, {"y", PhaseY, 2}};

QString coreColumn(const CoreSpace &space, const CoreFraction &f) {
  return QString("emitn_%1_core_%2_mm_mrad").arg(space.name, f.name);
}

void setMeasured(OpticsRow &row, const QString &column, double value, double error) {
  row.set(column, value);
  row.set(column + "_err", error);
}

/// The halo parameters of (x, u_x) and (y, u_y), with errors propagated from the moments.
void setHalos(const CrossingPass &pass, OpticsRow &row) {
  for (auto [first, profile, phaseSpace] :
       {std::tuple{PhaseX, "halo_profile_x", "halo_x"}, {PhaseY, "halo_profile_y", "halo_y"}}) {
    const Halo halo = haloOf(pass, first);
    setMeasured(row, profile, halo.profile.value, halo.profile.error);
    setMeasured(row, phaseSpace, halo.phaseSpace.value, halo.phaseSpace.error);
  }
}

void flagDegenerate(const OpticsRow &row, QStringList &flags) {
  if (std::isnan(row.value(coreColumn(Spaces[0], Fractions[4]))))
    flags << "degenerate";
}

/// A plane read back whole: each value of every sample at a time.
void fillFromCrossings(const PlaneContext &, const std::vector<KeptCrossing> &crossings,
                       OpticsRow &row, QStringList &flags) {
  const std::vector<Sample> samples = coreSamples(crossings);
  std::vector<double> fractions;
  for (const CoreFraction &f : Fractions)
    fractions.push_back(f.fraction);
  for (const CoreSpace &space : Spaces) {
    // Each fraction's emittance of each sample, in the samples' order.
    std::vector<std::vector<double>> values(fractions.size());
    for (const Sample &sample : samples) {
      const std::vector<Ellipsoid> cores =
          coresOf(crossings, sample, space.first, space.dimension, fractions);
      for (size_t f = 0; f < fractions.size(); ++f)
        values[f].push_back(cores[f].emittance()); // none of a sample without crossings
    }
    for (size_t f = 0; f < fractions.size(); ++f)
      setMeasured(row, coreColumn(space, Fractions[f]), values[f][0], chosenSetError(values[f]));
  }
  flagDegenerate(row, flags);
  setHalos(passOf(crossings), row);
}

/// A plane too large to be read back whole: every core of every sample at once, and the
/// halo parameters, in passes over its crossings.
void fillFromPasses(const PlaneContext &, const CrossingPass &pass, OpticsRow &row,
                    QStringList &flags) {
  std::vector<CoreAsked> asked;
  for (int sample = AnySample; sample < SubsampleGroups + SampleQuarters; ++sample)
    for (const CoreSpace &space : Spaces)
      for (const CoreFraction &f : Fractions)
        asked.push_back({sample, space.first, space.dimension, f.fraction});
  const std::vector<Ellipsoid> cores = coresOf(pass, asked);
  // The cores of each sample in the order of the columns: every crossing's, each
  // subsample's, each quarter's.
  const size_t columns = std::size(Spaces) * std::size(Fractions);
  size_t k = 0;
  for (const CoreSpace &space : Spaces)
    for (const CoreFraction &f : Fractions) {
      std::vector<double> values;
      for (size_t s = 0; s < CoreSamples; ++s)
        values.push_back(cores[s * columns + k].emittance());
      setMeasured(row, coreColumn(space, f), values[0], chosenSetError(values));
      ++k;
    }
  flagDegenerate(row, flags);
  setHalos(pass, row);
}

void fill(const PlaneContext &context, OpticsRow &row, QStringList &flags) {
  takeCrossings(context, row, flags, fillFromCrossings, fillFromPasses);
}

QList<MeasureColumn> columns() {
  QList<MeasureColumn> list;
  const char *const what[] = {"4D emittance of the", "emittance of x of the",
                              "emittance of y of the"};
  for (size_t s = 0; s < 3; ++s)
    for (const CoreFraction &f : Fractions)
      list.append({coreColumn(Spaces[s], f), true,
                   QString("%1 %2 % of the weight with the smallest amplitude, mm mrad")
                       .arg(what[s], QString::number(100 * f.fraction))});
  list.append({"halo_profile_x", true, "<x^4>/<x^2>^2 - 2: 1 Gaussian, 0 uniform ellipse"});
  list.append({"halo_profile_y", true, "<y^4>/<y^2>^2 - 2"});
  list.append({"halo_x", true, "halo parameter of (x, u_x): sqrt(3 I4)/(2 I2) - 2"});
  list.append({"halo_y", true, "halo parameter of (y, u_y)"});
  return list;
}

} // namespace

const Measure &coreMeasure() {
  static const Measure measure{
      "core",
      1,
      "of the crossings one by one: core emittances and halo parameters",
      columns(),
      {{"core",
        "the fraction f of the plane's weight with the smallest d^T C^-1 d (4D: (x, u_x, y, "
        "u_y); x: (x, u_x); y: (y, u_y)), C first the covariance of every crossing, then of "
        "the core, until the core stops changing (at most 100 times); a crossing on the "
        "boundary is in the core; the core's emittance is det(C)^(1/dimension)"},
       {"halo",
        "profile: <x^4>/<x^2>^2 - 2; phase space: sqrt(3 I4)/(2 I2) - 2, I2 = <x^2><u^2> - "
        "<xu>^2, I4 = <x^4><u^4> + 3<x^2u^2>^2 - 4<xu^3><x^3u>, moments about the mean: 1 for "
        "a Gaussian, 0 for a uniformly filled ellipse (the projection of a 4D shell)"},
       {"errors",
        "cores: the crossings in 20 subsamples by a hash of their event and track numbers, "
        "and in 4 quarters (the subsamples alike modulo 4); error = sqrt(s^2 + max(0, b^2 - "
        "(s/k)^2)), s = sqrt(sum (v_g - mean v_g)^2 / (20 * 19)), b = (mean v_g - v) / k the "
        "bias, k = 20^p - 1, p in [1/2, 1] with (mean v_g - v) / (mean v_q - v) = k / (4^p - "
        "1) (1/2 where they differ in sign); halo parameters: sqrt(sum w^2 h^2) / sum w, h a "
        "crossing's influence on the parameter, propagated from the moments"}},
      {},
      {"degenerate", "no-crossings"},
      fill,
      true};
  return measure;
}
