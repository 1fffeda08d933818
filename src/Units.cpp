//===- Units.cpp - The table of known units --------------------------------===//
//
// Factors relate the units of one type only. The reference unit of a type (factor 1)
// is not always its standard unit: lengths are referred to the inch, while the
// standard length is the millimetre. Some factors are deliberately rounded
// ("kmph" is 0.277778, not 1/3.6): conversions rely on these exact values.
//
//===----------------------------------------------------------------------------===//

#include "Units.h"

#include "Constinit.h"

#include <algorithm>

namespace Nexil {

NEXIL_CONSTINIT QHash<QString, int> Units::typeHash;
NEXIL_CONSTINIT QHash<QString, double> Units::factorHash;
NEXIL_CONSTINIT QHash<QString, QStringList> Units::types;
NEXIL_CONSTINIT QStringList Units::standardUnits;
Units Units::initializer;

namespace {

NEXIL_CONSTINIT bool tableFilled = false;

struct UnitEntry {
  const char *name;
  double factor;
};

struct UnitType {
  const char *name;
  QList<UnitEntry> units;
};

QList<UnitType> unitTypes() {
  return {
      {"unitless", {{"", 1.0}}},
      {"length",
       {{"in", 1.0},
        {"ft", 12.0},
        {"yd", 36.0},
        {"mile", 63360.0},
        {"mm", 0.03937007874015748},
        {"cm", 0.3937007874015748},
        {"m", 39.37007874015748},
        {"micron", 3.9370078740157485e-05},
        {"um", 3.9370078740157485e-05},
        {"km", 39370.078740157485},
        {"meter", 39.37007874015748}}},
      {"speed",
       {{"mps", 1.0}, {"fps", 0.3048}, {"kmph", 0.277778}, {"MPH", 0.44704}, {"mph", 0.44704}}},
      {"angle", {{"rad", 1.0}, {"deg", 0.017453292519943295}, {"mr", 0.001}}},
      {"time",
       {{"sec", 1.0},
        {"s", 1.0},
        {"ms", 0.001},
        {"us", 1e-06},
        {"shakes", 1e-08},
        {"ns", 1e-09},
        {"ps", 1e-12},
        {"min", 60.0},
        {"hr", 3600.0}}},
      {"mass", {{"g", 1.0}, {"kg", 1000.0}, {"mg", 0.001}, {"ug", 1e-06}}},
      {"magneticField",
       {{"tesla", 1.0},
        {"T", 1.0},
        {"gauss", 0.0001},
        {"G", 0.0001},
        {"kilogauss", 0.1},
        {"kG", 0.1}}},
      {"voltage", {{"volt", 1.0}, {"V", 1.0}, {"kV", 1000.0}, {"MV", 1000000.0}}},
      {"electricField", {{"Vpm", 1.0}, {"MVpm", 1000000.0}, {"kVpm", 1000.0}, {"Vpmm", 1000.0}}},
      {"density", {{"gpcc", 1.0}}},
      {"magneticGradient", {{"Tpm", 1.0}, {"Gpm", 0.0001}}},
      {"energy",
       {{"MeV", 1.0},
        {"eV", 1e-06},
        {"keV", 0.001},
        {"GeV", 1000.0},
        {"TeV", 1000000.0},
        {"joule", 6241509340000.0},
        {"J", 6241509340000.0},
        {"amu", 931.494061}}},
      {"charge",
       {{"e", 1.0}, {"coulomb", 6.241509745e18}, {"uC", 6241509745000.0}, {"nC", 6241509745.0}}},
      {"current", {{"A", 1.0}, {"ma", 0.001}, {"ka", 1000.0}}},
  };
}

} // namespace

Units::Units() {
  ensureTable();
}

void Units::ensureTable() {
  if (tableFilled)
    return;
  tableFilled = true;
  standardUnits << ""
                << "mm"
                << "MeV"
                << "T"
                << "ns"
                << "MVpm"
                << "Tpm"
                << "rad"
                << "mps";
  int index = 0;
  for (const UnitType &unitType : unitTypes()) {
    QStringList names;
    for (const UnitEntry &unit : unitType.units) {
      names.append(unit.name);
      typeHash[unit.name] = index;
      factorHash[unit.name] = unit.factor;
    }
    types[unitType.name] = names;
    ++index;
  }
}

int Units::type(QString unit) {
  ensureTable();
  return typeHash[unit];
}

double Units::factor(QString unit) {
  ensureTable();
  return factorHash[unit];
}

QString Units::standardUnit(QString unit) {
  ensureTable();
  for (const QString &standard : standardUnits)
    if (typeHash[standard] == typeHash[unit])
      return standard;
  return unit;
}

QString Units::inspect() {
  ensureTable();
  QString text = "Known Units (note that p means 'per' except in 'ps'):\n";
  QStringList names = types.keys();
  std::sort(names.begin(), names.end());
  for (const QString &name : names) {
    text += name + ": ";
    for (const QString &unit : types.value(name))
      text += unit + ",";
    text[text.size() - 1] = '\n';
  }
  return text;
}

} // namespace Nexil
