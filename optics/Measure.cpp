//===- Measure.cpp - What the optics table measures at a plane -------------===//

#include "Measure.h"

#include <algorithm>

const QList<const Measure *> &registeredMeasures() {
  static const QList<const Measure *> measures = {
      &uncoupledMeasure(),       &coupledMeasure(),   &phaseSpaceMeasure(), &longitudinalMeasure(),
      &angularMomentumMeasure(), &amplitudeMeasure(), &coreMeasure(),       &sliceMeasure(),
  };
  return measures;
}

void takeCrossings(const PlaneContext &context, OpticsRow &row, QStringList &flags,
                   WholePlaneFill *whole, PlanePassesFill *inPasses) {
  if (!context.normalisable)
    return;
  if (context.crossings.passes)
    inPasses(context, context.crossings.passes, row, flags);
  else if (context.crossings.crossings)
    whole(context, *context.crossings.crossings, row, flags);
  else
    flags << "no-crossings";
}

bool keepsCrossings(const QStringList &measures) {
  return std::any_of(measures.begin(), measures.end(),
                     [](const QString &name) { return measureNamed(name)->particles; });
}

const Measure *measureNamed(const QString &name) {
  for (const Measure *measure : registeredMeasures())
    if (measure->name == name)
      return measure;
  return nullptr;
}

bool parseMeasureList(const QString &text, QStringList &names, QString &bad) {
  QStringList chosen = {registeredMeasures().first()->name};
  for (const QString &entry : text.split(',')) {
    QString name = entry.trimmed();
    if (name == "all") {
      for (const Measure *measure : registeredMeasures())
        chosen << measure->name;
    } else if (measureNamed(name)) {
      chosen << name;
    } else {
      bad = entry;
      return false;
    }
  }
  names.clear();
  for (const Measure *measure : registeredMeasures())
    if (chosen.contains(measure->name))
      names << measure->name;
  return true;
}

namespace {

/// The names of the columns, each followed by its error's where it has one.
QStringList namesOf(const QList<MeasureColumn> &columns) {
  QStringList names;
  for (const MeasureColumn &column : columns) {
    names << column.name;
    if (column.error)
      names << column.name + "_err";
  }
  return names;
}

} // namespace

QStringList tableColumns(const QStringList &measures) {
  QStringList columns = namesOf(countColumns());
  for (const Measure *measure : registeredMeasures())
    if (measures.contains(measure->name))
      columns << namesOf(measure->columns);
  return columns << "status";
}

std::vector<const MomentSet *> momentSetsOf(const QStringList &measures) {
  std::vector<const MomentSet *> sets;
  for (const Measure *measure : registeredMeasures())
    if (measures.contains(measure->name))
      for (const MomentSet *set : measure->sets)
        if (std::find(sets.begin(), sets.end(), set) == sets.end())
          sets.push_back(set);
  return sets;
}
