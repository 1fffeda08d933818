//===- ParticleModule.cpp - The entry of the particle files' module --------===//

#include "Modules.h"
#include "ParticleFile.h"
#include "ParticleRun.h"

namespace {

std::unique_ptr<ParticleFile> createParticleFile(const QString &path, const QList<double> &planeS,
                                                 const QList<int> &written, int compression) {
  return std::make_unique<ParticleFile>(path, planeS, written, compression);
}

} // namespace

extern "C" const ParticleModule *twissOpticsParticleModule() {
  static const ParticleModule module{createParticleFile, readParticleRun, addParticleCrossings};
  return &module;
}
