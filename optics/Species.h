//===- Species.h - Particle species of the optics tool ---------*- C++ -*-===//
//
// The species selection given on the command line, and the masses that turn momenta
// into canonical ones and the charges of the particle file, all from the library's
// particle table.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_SPECIES_H
#define OPTICS_SPECIES_H

#include <QList>
#include <QString>

/// What the particle table says of one PDG identifier.
struct SpeciesFacts {
  double mass; ///< MeV/c^2; 0 when unknown
  int charge;  ///< in units of e; 0 when unknown
  bool known;  ///< the table names it (a common species or a nucleus)
};

/// The mass and charge of a species; may be called from any thread.
SpeciesFacts speciesFacts(int pdgid);

/// Reads a comma-separated list of particle names and PDG identifiers ("mu+,e-,-13");
/// false with the offending entry in `bad` when one is neither.
bool parseSpeciesList(const QString &text, QList<int> &ids, QString &bad);

#endif // OPTICS_SPECIES_H
