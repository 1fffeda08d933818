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

using V = CrossingValue;
const MomentSet Horizontal{"horizontal", {V::X, V::XP, V::P}, 4};
const MomentSet Vertical{"vertical", {V::Y, V::YP, V::P}, 4};
const MomentSet HorizontalCanonical{"horizontal_canonical", {V::X, V::QX}, 4};
const MomentSet VerticalCanonical{"vertical_canonical", {V::Y, V::QY}, 4};
const MomentSet TimeAndEnergy{"time", {V::T, V::Energy}, 2};

} // namespace

const std::vector<const MomentSet *> &PlaneStatistics::basicSets() {
  static const std::vector<const MomentSet *> sets = {&Horizontal, &Vertical, &HorizontalCanonical,
                                                      &VerticalCanonical, &TimeAndEnergy};
  return sets;
}

PlaneStatistics::PlaneStatistics() : PlaneStatistics(basicSets()) {}

PlaneStatistics::PlaneStatistics(const std::vector<const MomentSet *> &sets)
    : momentSets(sets), width(OwnColumns) {
  moments.reserve(sets.size());
  for (const MomentSet *set : sets) {
    moments.emplace_back(int(set->coordinates.size()), set->order);
    for (CrossingValue v : set->coordinates)
      width = std::max(width, int(v) + 1);
  }
}

void PlaneStatistics::keepOnly(const std::vector<const MomentSet *> &sets) {
  flush();
  std::vector<const MomentSet *> kept;
  std::vector<Moments> keptMoments;
  for (size_t i = 0; i < momentSets.size(); ++i)
    if (std::find(sets.begin(), sets.end(), momentSets[i]) != sets.end()) {
      kept.push_back(momentSets[i]);
      keptMoments.push_back(moments[i]);
    }
  momentSets = kept;
  moments = keptMoments;
}

std::vector<double> PlaneStatistics::momentState(size_t set) const {
  flush();
  return moments[set].state();
}

bool PlaneStatistics::setMomentState(size_t set, const std::vector<double> &numbers) {
  pendingCount = 0;
  pending.clear();
  pendingWeights.clear();
  return moments[set].setState(numbers);
}

const Moments &PlaneStatistics::momentsOf(const MomentSet &set) const {
  const size_t i =
      size_t(std::find(momentSets.begin(), momentSets.end(), &set) - momentSets.begin());
  return settled(moments.at(i)); // a set the plane does not keep throws
}

bool PlaneStatistics::add(const OpticsCrossing &c) {
  ++n;
  if (!anySpecies) {
    anySpecies = true;
    species = c.pdgid;
  }
  mixedSpecies = mixedSpecies || c.pdgid != species;
  unknownSpecies = unknownSpecies || !c.massKnown;
  // The values to the energy, then the values made of the others, where the plane
  // keeps them.
  double values[Columns] = {c.x, c.xp, c.y, c.yp, c.p, c.qx, c.qy, c.t, c.kinetic};
  if (width > OwnColumns) {
    values[int(CrossingValue::AngularMomentum)] = c.x * c.py - c.y * c.px;
    values[int(CrossingValue::ChargedRadius2)] = c.charge * (c.x * c.x + c.y * c.y);
  }
  bool finite = std::isfinite(c.weight);
  for (int i = 0; i < width; ++i)
    finite = finite && std::isfinite(values[i]);
  if (!finite || !(c.weight > 0)) {
    ++leftOut;
    return false;
  }
  if (pending.empty())
    pending.resize(size_t(width * Block));
  // Crossing after crossing: a crossing touches two cache lines of a plane, not ten.
  std::copy(values, values + width, pending.begin() + pendingCount * width);
  if (c.weight != 1 && pendingWeights.empty())
    pendingWeights.assign(Block, 1);
  if (!pendingWeights.empty())
    pendingWeights[size_t(pendingCount)] = c.weight;
  if (++pendingCount == Block)
    addPending();
  return true;
}

void PlaneStatistics::flush() const {
  // Settled moments are only read, so that threads may read them at once.
  if (pending.empty())
    return;
  addPending();
  std::vector<double>().swap(pending);
  std::vector<double>().swap(pendingWeights);
}

void PlaneStatistics::addPending() const {
  if (pendingCount == 0)
    return;
  const double *weights = pendingWeights.empty() ? nullptr : pendingWeights.data();
  double columns[Columns][Block];
  for (int p = 0; p < pendingCount; ++p)
    for (int c = 0; c < width; ++c)
      columns[c][p] = pending[size_t(p * width + c)];
  for (size_t i = 0; i < momentSets.size(); ++i) {
    const double *coordinates[Moments::MaximumDimension];
    for (size_t k = 0; k < momentSets[i]->coordinates.size(); ++k)
      coordinates[k] = columns[int(momentSets[i]->coordinates[k])];
    moments[i].addBlock(coordinates, weights, pendingCount);
  }
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
  for (size_t i = 0; i < moments.size(); ++i)
    moments[i].merge(other.momentsOf(*momentSets[i]));
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
  for (size_t i = 0; i < momentSets.size(); ++i)
    object[momentSets[i]->name] = exactNumbers(momentState(i));
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
  for (size_t i = 0; i < momentSets.size(); ++i) {
    std::vector<double> numbers;
    if (!readExactList(object.value(momentSets[i]->name).toString(), numbers) ||
        !setMomentState(i, numbers))
      return false;
  }
  return true;
}
