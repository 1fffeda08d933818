//===- Species.cpp - Particle species of the optics tool -------------------===//

#include "Species.h"

#include "Particle.h"

#include <mutex>

SpeciesFacts speciesFacts(int pdgid) {
  // The table adds unknown identifiers when asked: one thread at a time.
  static std::mutex mutex;
  std::lock_guard<std::mutex> lock(mutex);
  const Nexil::Particle *particle = Nexil::Particle::get(pdgid);
  // An identifier the table does not know is entered under its own number.
  bool known = particle->name() != QString::number(pdgid);
  return {known ? particle->mass() : 0.0, known ? particle->charge : 0, known};
}

bool parseSpeciesList(const QString &text, QList<int> &ids, QString &bad) {
  ids.clear();
  for (const QString &entry : text.split(',')) {
    QString name = entry.trimmed();
    bool isNumber = false;
    int id = name.toInt(&isNumber);
    if (!isNumber) {
      const Nexil::Particle *particle = Nexil::Particle::get(name);
      if (particle->pdgid() == 0) {
        bad = name;
        return false;
      }
      id = particle->pdgid();
    }
    ids.append(id);
  }
  return true;
}
