//===- BeamOptics.cpp - The optics of the beam at one plane ----------------===//

#include "BeamOptics.h"

#include "Measure.h"
#include "Species.h"

#include <QHash>

#include <cmath>
#include <limits>

namespace {

const double NoValue = std::numeric_limits<double>::quiet_NaN();

/// Every column a row may have: those of every measure.
const QStringList &everyColumn() {
  static const QStringList columns = [] {
    QStringList names;
    for (const Measure *measure : registeredMeasures())
      names << measure->name;
    return tableColumns(names);
  }();
  return columns;
}

/// The place of each column in everyColumn().
int columnIndex(const QString &column) {
  static const QHash<QString, int> index = [] {
    QHash<QString, int> places;
    const QStringList &columns = everyColumn();
    for (int i = 0; i < columns.size(); ++i)
      places.insert(columns[i], i);
    return places;
  }();
  return index.value(column, -1);
}

/// q Bz / (2 m c) in mrad per mm: q B r = 0.299792458 MeV/c for q = e, B = 1 T, r = 1 mm.
double canonicalShift(double bz, const SpeciesFacts &species) {
  return 1000 * (0.299792458 * bz / 2) * species.charge / species.mass;
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

OpticsRow::OpticsRow() : values(size_t(everyColumn().size()), NoValue) {}

double OpticsRow::value(const QString &column) const {
  int i = columnIndex(column);
  return i < 0 ? NoValue : values[size_t(i)];
}

void OpticsRow::set(const QString &column, double value) {
  values.at(size_t(columnIndex(column))) = value; // a name not in the table throws
}

OpticsRow beamOptics(double sMillimetres, const PlaneStatistics &plane,
                     const PlaneStatistics &first, const MomentumReference &reference) {
  return beamOptics(sMillimetres, plane, first, reference, {registeredMeasures().first()->name});
}

OpticsRow beamOptics(double sMillimetres, const PlaneStatistics &plane,
                     const PlaneStatistics &first, const MomentumReference &reference,
                     const QStringList &measures, double bz) {
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
                             normalisable ? canonicalShift(bz, species) : 0};
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
