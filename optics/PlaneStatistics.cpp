//===- PlaneStatistics.cpp - What the optics tool keeps per plane ----------===//

#include "PlaneStatistics.h"

#include "ExactNumber.h"

#include <QJsonArray>
#include <cmath>

namespace {

QJsonArray exactNumbers(const std::vector<double> &numbers) {
  QJsonArray array;
  for (double v : numbers)
    array.append(exactText(v));
  return array;
}

bool readExactNumbers(const QJsonValue &value, std::vector<double> &numbers) {
  if (!value.isArray())
    return false;
  numbers.clear();
  for (const QJsonValue &item : value.toArray()) {
    double v;
    if (!readExact(item, v))
      return false;
    numbers.push_back(v);
  }
  return true;
}

bool readMoments(const QJsonObject &object, const char *name, Moments &moments) {
  std::vector<double> numbers;
  return readExactNumbers(object.value(name), numbers) && moments.setState(numbers);
}

} // namespace

void PlaneStatistics::add(const OpticsCrossing &c) {
  ++n;
  if (!anySpecies) {
    anySpecies = true;
    species = c.pdgid;
  }
  mixedSpecies = mixedSpecies || c.pdgid != species;
  unknownSpecies = unknownSpecies || !c.massKnown;
  const double h[] = {c.x, c.xp, c.p, c.qx}, v[] = {c.y, c.yp, c.p, c.qy}, tk[] = {c.t, c.kinetic};
  bool finite = std::isfinite(c.weight);
  for (double value : {c.x, c.xp, c.y, c.yp, c.p, c.qx, c.qy, c.t, c.kinetic})
    finite = finite && std::isfinite(value);
  if (!finite || !(c.weight > 0)) {
    ++leftOut;
    return;
  }
  horizontal.add(h, c.weight);
  vertical.add(v, c.weight);
  time.add(tk, c.weight);
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
  horizontal.merge(other.horizontal);
  vertical.merge(other.vertical);
  time.merge(other.time);
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
  object["horizontal"] = exactNumbers(horizontal.state());
  object["vertical"] = exactNumbers(vertical.state());
  object["time"] = exactNumbers(time.state());
  return object;
}

bool PlaneStatistics::fromJson(const QJsonObject &object) {
  for (const char *key : {"n", "n_back", "left_out"})
    if (!object.value(key).isDouble())
      return false;
  n = long(object.value("n").toDouble());
  nBack = long(object.value("n_back").toDouble());
  leftOut = long(object.value("left_out").toDouble());
  anySpecies = object.contains("species");
  species = object.value("species").toInt();
  mixedSpecies = object.value("mixed_species").toBool();
  unknownSpecies = object.value("unknown_species").toBool();
  return readMoments(object, "horizontal", horizontal) &&
         readMoments(object, "vertical", vertical) && readMoments(object, "time", time);
}
