//===- PlaneStatistics.cpp - What the optics tool keeps per plane ----------===//

#include "PlaneStatistics.h"

#include "ExactNumber.h"

#include <QStringList>
#include <algorithm>
#include <cmath>

namespace {

/// The numbers as one text of hexadecimal floats separated by blanks.
QString exactNumbers(const std::vector<double> &numbers) {
  QStringList texts;
  for (double v : numbers)
    texts << exactText(v);
  return texts.join(' ');
}

const char *const MomentNames[] = {"horizontal", "vertical", "horizontal_canonical",
                                   "vertical_canonical", "time"};

} // namespace

const char *PlaneStatistics::momentSetName(int set) {
  return MomentNames[set];
}

std::vector<double> PlaneStatistics::momentState(int set) const {
  flush();
  return moments[set].state();
}

bool PlaneStatistics::setMomentState(int set, const std::vector<double> &numbers) {
  pendingCount = 0;
  pending.clear();
  return moments[set].setState(numbers);
}

void PlaneStatistics::add(const OpticsCrossing &c) {
  ++n;
  if (!anySpecies) {
    anySpecies = true;
    species = c.pdgid;
  }
  mixedSpecies = mixedSpecies || c.pdgid != species;
  unknownSpecies = unknownSpecies || !c.massKnown;
  const double values[Columns] = {c.x, c.xp, c.y, c.yp, c.p, c.qx, c.qy, c.t, c.kinetic, c.weight};
  bool finite = true;
  for (double value : values)
    finite = finite && std::isfinite(value);
  if (!finite || !(c.weight > 0)) {
    ++leftOut;
    return;
  }
  if (pending.empty())
    pending.resize(Columns * Block);
  // Crossing after crossing: a crossing touches two cache lines of a plane, not ten.
  std::copy(values, values + Columns, pending.begin() + pendingCount * Columns);
  if (++pendingCount == Block)
    addPending();
}

void PlaneStatistics::flush() const {
  addPending();
  std::vector<double>().swap(pending);
}

void PlaneStatistics::addPending() const {
  if (pendingCount == 0)
    return;
  double columns[Columns][Block];
  for (int p = 0; p < pendingCount; ++p)
    for (int c = 0; c < Columns; ++c)
      columns[c][p] = pending[size_t(p * Columns + c)];
  auto column = [&columns](Column c) { return columns[c]; };
  const double *w = column(Weight);
  const double *const h[] = {column(X), column(XP), column(P)};
  const double *const v[] = {column(Y), column(YP), column(P)};
  const double *const hc[] = {column(X), column(QX)};
  const double *const vc[] = {column(Y), column(QY)};
  const double *const tk[] = {column(T), column(Energy)};
  const double *const *sets[] = {h, v, hc, vc, tk};
  for (int i = 0; i < 5; ++i)
    moments[i].addBlock(sets[i], w, pendingCount);
  pendingCount = 0;
}

void PlaneStatistics::merge(const PlaneStatistics &other) {
  n += other.n;
  nBack += other.nBack;
  leftOut += other.leftOut;
  if (other.anySpecies) {
    mixedSpecies = mixedSpecies || other.mixedSpecies || (anySpecies && other.species != species);
    if (!anySpecies)
      species = other.species;
    anySpecies = true;
  }
  unknownSpecies = unknownSpecies || other.unknownSpecies;
  flush();
  other.flush();
  for (int i = 0; i < 5; ++i)
    moments[i].merge(other.moments[i]);
}

QJsonObject PlaneStatistics::toJson() const {
  QJsonObject object;
  object["n"] = double(n);
  object["n_back"] = double(nBack);
  object["left_out"] = double(leftOut);
  if (anySpecies)
    object["species"] = species;
  object["mixed_species"] = mixedSpecies;
  object["unknown_species"] = unknownSpecies;
  for (int i = 0; i < MomentSets; ++i)
    object[MomentNames[i]] = exactNumbers(momentState(i));
  return object;
}

bool PlaneStatistics::fitsWith(const PlaneStatistics &other) const {
  return sumIsCount(n, other.n) && sumIsCount(nBack, other.nBack) &&
         sumIsCount(leftOut, other.leftOut);
}

bool PlaneStatistics::fromJson(const QJsonObject &object) {
  const char *const names[] = {"n", "n_back", "left_out"};
  long long counts[3];
  for (int i = 0; i < 3; ++i)
    if (!readCount(object.value(names[i]), counts[i]))
      return false;
  n = long(counts[0]);
  nBack = long(counts[1]);
  leftOut = long(counts[2]);
  anySpecies = object.contains("species");
  species = object.value("species").toInt();
  mixedSpecies = object.value("mixed_species").toBool();
  unknownSpecies = object.value("unknown_species").toBool();
  for (int i = 0; i < MomentSets; ++i) {
    std::vector<double> numbers;
    if (!readExactList(object.value(MomentNames[i]).toString(), numbers) ||
        !setMomentState(i, numbers))
      return false;
  }
  return true;
}
