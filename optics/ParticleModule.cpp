//===- ParticleModule.cpp - The entry of the particle files' module --------===//

#include "Modules.h"
#include "ParticleFile.h"
#include "ParticleRun.h"

extern "C" const ParticleModule *twissOpticsParticleModule() {
  static const ParticleModule module{createParticleFile, readParticleRun, addParticleCrossings};
  return &module;
}
