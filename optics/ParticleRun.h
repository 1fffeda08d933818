//===- ParticleRun.h - The run a particle file comes from, for merges -*- C++ -*-===//
//
// A particle file holds, beside its particle data, what a merge needs to give the
// values of one run over the tracks of many jobs: the run's moments (the moments file's
// binary form) and, where the run takes a measure of the crossings one by one, every
// plane's kept crossings in the order the plane met them. They live in the group
// /twissOptics/, outside the particle data that the field's readers look for under
// /data/:
//
//   moments          uint8, the moments file's binary form
//   crossings/       where the run keeps crossings; attributes acceptance (mm mrad),
//                    slices and slice_width (ns), NaN where not chosen
//   crossings/<k>    the crossings of plane k: x, ux, y, uy, weight, t, energy (float64)
//                    and job (the run directory of the run's list), event, track (int32)
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_PARTICLERUN_H
#define OPTICS_PARTICLERUN_H

#include "MomentsFile.h"

#include <hdf5.h>

class KeptCrossings;

/// Writes the run's moments, and its crossings where it keeps them for its measures,
/// into an open particle file; deflated at `compression` (0 to 9). Throws an
/// OutputError with the reason alone.
void writeParticleRun(hid_t file, const OpticsRun &run, int compression);

/// The run a particle file holds, checked and ready to be added to a merge, with the
/// choices of its crossing measures; throws an InputError naming the path.
MomentsPart readParticleRun(const QString &path);

/// Adds every crossing the particle file holds to `kept`, plane by plane, its run
/// directories counted after `jobsBefore` of the files before it; throws an InputError
/// naming the path.
void addParticleCrossings(const QString &path, KeptCrossings &kept, int jobsBefore);

#endif // OPTICS_PARTICLERUN_H
