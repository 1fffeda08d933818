//===- BeamOptics.cpp - The optics of the beam at one plane ----------------===//

#include "BeamOptics.h"

#include "Measure.h"
#include "Species.h"

#include <cmath>
#include <limits>
#include <map>
#include <memory>
#include <mutex>

namespace {

const double NoValue = std::numeric_limits<double>::quiet_NaN();

/// q Bz / (2 m c) in mrad per mm.
double canonicalShift(double bz, const SpeciesFacts &species) {
  return 1000 * (MomentumPerTeslaMillimetre * bz / 2) * species.charge / species.mass;
}

} // namespace

const QList<MeasureColumn> &countColumns() {
  static const QList<MeasureColumn> columns = {
      {"s_mm", false, "the plane's s, exactly as written in sampleS.txt"},
      {"n", false, "crossings counted"},
      {"n_back", false, "backward crossings within the cut, not counted"},
      {"weight", false, "sum of the weights W"},
      {"n_eff", false, "effective count W^2 / sum w^2"},
      {"transmission", true, "W relative to the first plane; binomial error"},
  };
  return columns;
}

const ColumnLayout &ColumnLayout::of(const QStringList &measures) {
  // Few lists of measures are asked for in a process; their layouts stay for its life.
  static std::mutex mutex;
  static std::map<QStringList, std::unique_ptr<ColumnLayout>> layouts;
  std::lock_guard<std::mutex> lock(mutex);
  std::unique_ptr<ColumnLayout> &layout = layouts[measures];
  if (!layout) {
    layout = std::make_unique<ColumnLayout>();
    layout->columns = tableColumns(measures);
    for (int i = 0; i < layout->columns.size(); ++i)
      layout->places.insert(layout->columns[i], i);
  }
  return *layout;
}

OpticsRow::OpticsRow(const QStringList &measures)
    : layout(&ColumnLayout::of(measures)), values(size_t(layout->columns.size()), NoValue) {}

double OpticsRow::value(const QString &column) const {
  int i = layout->places.value(column, -1);
  return i < 0 ? NoValue : values[size_t(i)];
}

void OpticsRow::set(const QString &column, double value) {
  values.at(size_t(layout->places.value(column, -1))) = value; // a name not in the row throws
}

OpticsRow beamOptics(double sMillimetres, const PlaneStatistics &plane,
                     const PlaneStatistics &first, const MomentumReference &reference) {
  return beamOptics(sMillimetres, plane, first, reference, {registeredMeasures().first()->name});
}

OpticsRow beamOptics(double sMillimetres, const PlaneStatistics &plane,
                     const PlaneStatistics &first, const MomentumReference &reference,
                     const QStringList &measures, double bz, const PlaneCrossings &crossings) {
  using P = PlaneStatistics;
  OpticsRow row(measures);
  const Moments h = plane.horizontal().centred();
  double weight = h.weight(), firstWeight = first.horizontal().weight();
  double firstCount = firstWeight * firstWeight / first.horizontal().weight2();
  row.set("s_mm", sMillimetres);
  row.set("n", double(plane.n));
  row.set("n_back", double(plane.nBack));
  row.set("weight", weight);
  if (firstWeight > 0) {
    // A binomial fraction of the first plane's beam, with its effective count.
    double fraction = weight / firstWeight;
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
  bool normalisable = !plane.mixedSpecies && !plane.unknownSpecies;
  const SpeciesFacts species = speciesFacts(plane.species);
  const PlaneContext context{plane,
                             meanMomentum,
                             pRef,
                             sigmaDelta,
                             std::fabs(sigmaDelta) > MinimumMomentumSpread,
                             normalisable,
                             normalisable ? species.mass : 0,
                             normalisable ? species.charge : 0,
                             bz,
                             normalisable ? canonicalShift(bz, species) : 0,
                             crossings,
                             firstWeight,
                             firstCount};
  for (const Measure *measure : registeredMeasures()) {
    if (!measures.contains(measure->name))
      continue;
    QStringList raised;
    measure->fill(context, row, raised);
    for (const QString &flag : raised)
      if (!flags.contains(flag))
        flags << flag;
  }
  row.status = flags.isEmpty() ? "ok" : flags.join(';');
  return row;
}
