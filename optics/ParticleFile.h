//===- ParticleFile.h - The crossings as openPMD particle data --*- C++ -*-===//
//
// Every counted crossing of the chosen planes, written as particle data in the
// field's interchange format: openPMD 2.0.0 with its BeamPhysics and SpeciesType
// extensions, in one HDF5 file. Plane k of the optics table is iteration /data/k/;
// under particles/ one group per species with the records position, momentum (in
// the plane's frame), positionOffset (zero), time, weight, particleStatus, sPosition
// and id.
//
// Each plane collects its crossings in a buffer of its own (a plane is tested by one
// thread at a time) and appends them to extendible datasets when the buffer is full,
// so the memory does not grow with the run. The file is written beside its target and
// renamed onto it only by commit(): a failed run leaves no file and an existing one
// unchanged.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_PARTICLEFILE_H
#define OPTICS_PARTICLEFILE_H

#include <QList>
#include <QString>
#include <cstdint>
#include <memory>
#include <vector>

struct OpticsRun;

/// The elementary charge, C: a particle file's weights are numbers of particles times e.
constexpr double ElementaryCharge = 1.602176634e-19;

/// One crossing as the particle file holds it.
struct ParticleCrossing {
  double x, y;       ///< mm, in the plane's frame
  double px, py, pz; ///< MeV/c, in the plane's frame
  double t;          ///< ns
  double weight;     ///< C: the track's weight (real particles) times e, for every species
  int64_t id;        ///< the track's number, counted from 1 over all track files
  int pdgid;
};

/// The particle file of a run, open while the tracks are read. Made and written by the
/// particles' module (Modules.h): the tool sees it through this interface alone.
class ParticleFile {
public:
  /// Removes the file unless it was committed.
  virtual ~ParticleFile() = default;

  /// Whether the crossings of plane `row` are written.
  bool writes(int row) const { return written[size_t(row)]; }
  /// Adds a crossing of plane `row`; from one thread at a time per plane.
  virtual void add(int row, const ParticleCrossing &crossing) = 0;
  /// Adds what a merge of particle files takes of the run: its moments and the crossings
  /// its measures keep (see ParticleRun.h); after the last crossing.
  virtual void addRun(const OpticsRun &run) = 0;
  /// Writes what is buffered and the counts, and closes the file; throws a Failure
  /// with the first error met since the file was created.
  virtual void finish() = 0;
  /// Puts the finished file in the place of `path`; throws a Failure when it cannot.
  virtual void commit() = 0;

protected:
  /// A file of `planes` planes, of which those listed in `rows` are written.
  ParticleFile(size_t planes, const QList<int> &rows) : written(planes) {
    for (int row : rows)
      written[size_t(row)] = 1;
  }

private:
  std::vector<char> written; ///< per plane
};

/// Creates the file beside `path` for the planes of the table whose s (mm) are given;
/// only the planes listed in `written` (row indices, ascending) get crossings and an
/// iteration. `compression` is the deflate level, 0 for none. Throws a Failure naming
/// `path` when it cannot be created.
std::unique_ptr<ParticleFile> createParticleFile(const QString &path, const QList<double> &planeS,
                                                 const QList<int> &written, int compression);

/// The name of a species in the field's species list (electron, anti-muon, photon,
/// anti-proton, ...), or in its free-text form (other:pion-plus, other:alpha, ...;
/// other:pdg<id> for an identifier without a name).
QString openPmdSpeciesName(int pdgid);

#endif // OPTICS_PARTICLEFILE_H
