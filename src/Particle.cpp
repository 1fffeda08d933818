//===- Particle.cpp - The table of particle species ------------------------===//

#include "Particle.h"

#include "Constinit.h"

#include <algorithm>
#include <cstdlib>

namespace Nexil {

NEXIL_CONSTINIT QHash<QString, Particle *> Particle::name2particle;
NEXIL_CONSTINIT QHash<int, Particle *> Particle::pdgid2particle;

const char *const Particle::elementNames[112] = {
    "H",  "He", "Li", "Be", "B",  "C",  "N",  "O",  "F",  "Ne", "Na", "Mg", "Al", "Si", "P",  "S",
    "Cl", "Ar", "K",  "Ca", "Sc", "Ti", "V",  "Cr", "Mn", "Fe", "Co", "Ni", "Cu", "Zn", "Ga", "Ge",
    "As", "Se", "Br", "Kr", "Rb", "Sr", "Y",  "Zr", "Nb", "Mo", "Tc", "Ru", "Rh", "Pd", "Ag", "Cd",
    "In", "Sn", "Sb", "Te", "I",  "Xe", "Cs", "Ba", "La", "Ce", "Pr", "Nd", "Pm", "Sm", "Eu", "Gd",
    "Tb", "Dy", "Ho", "Er", "Tm", "Yb", "Lu", "Hf", "Ta", "W",  "Re", "Os", "Ir", "Pt", "Au", "Hg",
    "Tl", "Pb", "Bi", "Po", "At", "Rn", "Fr", "Ra", "Ac", "Th", "Pa", "U",  "Np", "Pu", "Am", "Cm",
    "Bk", "Cf", "Es", "Fm", "Md", "No", "Lr", "Rf", "Db", "Sg", "Bh", "Hs", "Mt", "Ds", "Rg", "Cn"};

Particle Particle::initialize(0);

namespace {

NEXIL_CONSTINIT bool tableFilled = false;

/// Frees the entries when the process ends.
struct TableRelease {
  ~TableRelease() {
    qDeleteAll(Particle::pdgid2particle);
    Particle::pdgid2particle.clear();
    Particle::name2particle.clear();
  }
} tableRelease;

struct Species {
  const char *name;
  int pdgid;
  double mass;
  int charge;
};

const Species CommonSpecies[] = {
    {"Unknown", 0, 0, 0},
    {"proton", 2212, 938.272046, 1},
    {"anti_proton", -2212, 938.272046, -1},
    {"neutron", 2112, 939.565379, 0},
    {"anti_neutron", -2112, 939.565379, 0},
    {"deuteron", 1000010020, 1875.613, 1},
    {"anti_deuteron", -1000010020, 1875.613, -1},
    {"triton", 1000010030, 2808.921, 1},
    {"anti_triton", -1000010030, 2808.921, -1},
    {"alpha", 1000020040, 3727.379, 2},
    {"anti_alpha", -1000020040, 3727.379, -2},
    {"lambda", 3122, 1115.683, 0},
    {"anti_lambda", -3122, 1115.683, 0},
    {"gamma", 22, 0, 0},
    {"e-", 11, 0.510998928, -1},
    {"e+", -11, 0.510998928, 1},
    {"mu-", 13, 105.6583715, -1},
    {"mu+", -13, 105.6583715, 1},
    {"tau-", 15, 1776.82, -1},
    {"tau+", -15, 1776.82, 1},
    {"pi+", 211, 139.57018, 1},
    {"pi-", -211, 139.5701, -1},
    {"pi0", 111, 134.9766, 0},
    {"kaon+", 321, 493.677, 1},
    {"kaon-", -321, 493.677, -1},
    {"kaon0", 311, 497.614, 0},
    {"kaon0L", 130, 497.614, 0},
    {"kaon0S", 310, 497.614, 0},
    {"anti_kaon0", -311, 497.614, 0},
    {"nu_e", 12, 0, 0},
    {"anti_nu_e", -12, 0, 0},
    {"nu_mu", 14, 0, 0},
    {"anti_nu_mu", -14, 0, 0},
    {"nu_tau", 16, 0, 0},
    {"anti_nu_tau", -16, 0, 0},
};

const char *colorOfCharge(int charge) {
  if (abs(charge) > 1)
    return "magenta";
  if (charge == 1)
    return "blue";
  if (charge == -1)
    return "red";
  return "green";
}

} // namespace

Particle::Particle(int) : charge(0), id(0), massMeV(0) {
  ensureTable();
}

void Particle::ensureTable() {
  if (tableFilled)
    return;
  tableFilled = true;
  for (const Species &species : CommonSpecies) {
    Particle *entry = create(species.name, species.pdgid, species.mass, species.charge);
    if (species.pdgid == 0)
      entry->setColor(Color("white"));
  }
}

Particle::Particle(QString name, int pdgid, double mass, int charge)
    : charge(charge), color(colorOfCharge(charge)), particleName(name), id(pdgid), massMeV(mass) {
  name2particle.insert(name, this);
  pdgid2particle.insert(pdgid, this);
}

Particle *Particle::create(QString name, int pdgid, double mass, int charge) {
  if (Particle *existing = pdgid2particle.value(pdgid, nullptr))
    return existing;
  return new Particle(name, pdgid, mass, charge);
}

Particle *Particle::get(QString name) {
  ensureTable();
  if (Particle *entry = name2particle.value(name, nullptr))
    return entry;
  bool ok = false;
  int pdgid = name.toInt(&ok, 10);
  return get(ok ? pdgid : 0);
}

Particle *Particle::get(int pdgid) {
  ensureTable();
  if (Particle *entry = pdgid2particle.value(pdgid, nullptr))
    return entry;
  if (qAbs(qint64(pdgid)) <= 1000000000)
    return create(QString::number(pdgid), pdgid, 0, 0);
  return createIon(pdgid);
}

Particle *Particle::createIon(int pdgid) {
  ensureTable();
  bool anti = pdgid < 0;
  qint64 code = qAbs(qint64(pdgid));
  int excitation = int(code % 10);
  int a = int((code / 10) % 1000);
  int z = int((code / 10000) % 1000);
  int strange = int((code / 10000000) % 10);
  QString name;
  // Beyond the periodic table, and for a code without protons, the name is the code.
  if (z >= 1 && z <= 112) {
    name = QString(anti ? "anti_" : "") + elementNames[z - 1] + "(" + QString::number(a) + ")";
    if (excitation > 0 || strange > 0)
      name += "*";
  } else {
    name = QString::number(code);
  }
  return create(name, int(code), a * 939.494, anti ? -z : z);
}

QString Particle::inspect() {
  ensureTable();
  QString text = QString::asprintf("%15.15s %11.11s  %s\n", "Particle Name", "PDGid", "Mass (MeV)");
  text += QString::asprintf("%15.15s %11.11s  %s\n", "-------------", "-----", "----------");
  QStringList names = name2particle.keys();
  std::sort(names.begin(), names.end());
  for (const QString &name : names) {
    const Particle *p = name2particle.value(name);
    text += QString::asprintf("%15.15s %11i  %.6fMeV\n", name.toLocal8Bit().constData(), p->id,
                              p->massMeV);
  }
  return text;
}

} // namespace Nexil
