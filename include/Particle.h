//===- Particle.h - The table of particle species --------------*- C++ -*-===//
//
// Names, PDG identifiers, masses (MeV) and charges of the common species, filled at
// start-up; unknown identifiers and nuclei (decoded from their PDG code 10LZZZAAAI)
// are added on demand. Entries live for the whole process.
//
//===----------------------------------------------------------------------------===//
#ifndef NEXIL_PARTICLE_H
#define NEXIL_PARTICLE_H

#include "Color.h"

#include <QHash>
#include <QString>

namespace Nexil {

/// One particle species.
class Particle {
public:
  /// Charge in units of the elementary charge.
  int charge;
  /// The colour the species is drawn in.
  Color color;

  /// Every species by its names (several names may share one species).
  static QHash<QString, Particle *> name2particle;
  /// Every species by its PDG identifier.
  static QHash<int, Particle *> pdgid2particle;
  /// Element symbols for Z = 1 ("H") to Z = 112 ("Cn").
  static const char *const elementNames[112];
  /// Built at start-up; its construction fills the table.
  static Particle initialize;

  /// Fills the table of common species (once).
  explicit Particle(int);
  /// Registers a new entry under its name and its identifier.
  Particle(QString name, int pdgid, double mass, int charge);

  /// The name in the table ("mu+", "e-", "proton", ...).
  QString name() const { return particleName; }
  /// The PDG identifier.
  int pdgid() const { return id; }
  /// Mass in MeV.
  double mass() const { return massMeV; }
  /// The colour the species is drawn in.
  void setColor(Color c) { color = c; }

  /// The entry with this identifier if there is one, else a new entry.
  static Particle *create(QString name, int pdgid, double mass, int charge);
  /// By name, else by decimal identifier, else "Unknown".
  static Particle *get(QString name);
  /// By identifier; unknown ones are added (nuclei decoded from their code).
  static Particle *get(int pdgid);
  /// The entry of a nucleus; an antinucleus is filed under the positive code.
  static Particle *createIon(int pdgid);
  /// The table as text, sorted by name.
  static QString inspect();

private:
  QString particleName;
  int id;
  double massMeV;

  static void ensureTable();
};

} // namespace Nexil

#endif // NEXIL_PARTICLE_H
