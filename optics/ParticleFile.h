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

#include "ReplacementFile.h"

#include <QList>
#include <QString>
#include <cstdint>
#include <mutex>
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
/// particles' module (Modules.h): the tool calls it through its virtual functions.
class ParticleFile {
public:
  /// Creates the file beside `path` for the planes of the table whose s (mm) are
  /// given; only the planes listed in `written` (row indices, ascending) get crossings
  /// and an iteration. `compression` is the deflate level, 0 for none. Throws a
  /// Failure naming `path` when it cannot be created.
  ParticleFile(const QString &path, const QList<double> &planeS, const QList<int> &written,
               int compression);
  /// Removes the file unless it was committed.
  virtual ~ParticleFile();
  ParticleFile(const ParticleFile &) = delete;
  ParticleFile &operator=(const ParticleFile &) = delete;

  /// Whether the crossings of plane `row` are written.
  bool writes(int row) const { return buffers[size_t(row)].wanted; }
  /// Adds a crossing of plane `row`; from one thread at a time per plane.
  virtual void add(int row, const ParticleCrossing &crossing);
  /// Adds what a merge of particle files takes of the run: its moments and the crossings
  /// its measures keep (see ParticleRun.h); after the last crossing.
  virtual void addRun(const OpticsRun &run);
  /// Writes what is buffered and the counts, and closes the file; throws a Failure
  /// with the first error met since the file was created.
  virtual void finish();
  /// Puts the finished file in the place of `path`; throws a Failure when it cannot.
  virtual void commit();

private:
  /// What a plane has buffered and written, per species in order of appearance.
  struct SpeciesTotals {
    int pdgid;
    int chargeNumber; ///< the charge of one particle in units of e
    int64_t count = 0;
    double charge = 0; ///< C: the weights times the charge number
  };
  struct PlaneBuffer {
    bool wanted = false;
    std::vector<ParticleCrossing> pending;
    std::vector<SpeciesTotals> species;
  };

  QString path;
  ReplacementFile replacement;
  QList<double> planeS;
  int compression;
  size_t bufferRows;
  std::vector<PlaneBuffer> buffers;
  int64_t file = -1; ///< the HDF5 file, under the mutex
  std::mutex mutex;
  QString error; ///< the first error, under the mutex

  void flush(int row, PlaneBuffer &buffer);
  void appendSpecies(int row, PlaneBuffer &buffer, int pdgid);
  void writeTotals(int row, const PlaneBuffer &buffer);
  [[noreturn]] void fail(const QString &what) const;
};

/// The name of a species in the field's species list (electron, anti-muon, photon,
/// anti-proton, ...), or in its free-text form (other:pion-plus, other:alpha, ...;
/// other:pdg<id> for an identifier without a name).
QString openPmdSpeciesName(int pdgid);

#endif // OPTICS_PARTICLEFILE_H
