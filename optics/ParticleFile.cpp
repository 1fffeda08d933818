//===- ParticleFile.cpp - The crossings as openPMD particle data -----------===//

#include "ParticleFile.h"

#include "Failure.h"
#include "Hdf5.h"
#include "OpticsReport.h"
#include "ParticleRun.h"
#include "ReplacementFile.h"
#include "Species.h"

#include <QDateTime>
#include <QFile>
#include <QHash>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <mutex>

using namespace Hdf5;

namespace {

/// The crossings buffered for all planes together, at the most.
const size_t BufferBudgetRows = size_t(1) << 18;
const size_t LargestBuffer = 8192, SmallestBuffer = 256;
/// Values in a chunk of a dataset (16 kB of doubles): a plane with few crossings
/// takes little room, one with many is written in chunks large enough to be fast.
const size_t ChunkValues = 2048;

/// 1 MeV/c in kg m/s.
const double MeVPerC = 1e6 * ElementaryCharge / 299792458.0;

const double Zero = 0;

/// Powers of length, mass, time, current, temperature, amount and luminous intensity.
using Dimension = std::vector<double>;
const Dimension Length = {1, 0, 0, 0, 0, 0, 0};
const Dimension Momentum = {1, 1, -1, 0, 0, 0, 0};
const Dimension Time = {0, 0, 1, 0, 0, 0, 0};
const Dimension Charge = {0, 0, 1, 1, 0, 0, 0};
const Dimension None = {0, 0, 0, 0, 0, 0, 0};

/// What a record and what a component say of their units: a record its dimension and
/// time offset, a component its dimension and its factor to SI units; a record
/// without components (time, weight, ...) is both.
enum class Holds { Record, Component, Both };

void units(hid_t object, const Dimension &dimension, double unitSI, Holds holds) {
  arrayAttribute(object, "unitDimension", H5T_NATIVE_DOUBLE, dimension);
  if (holds != Holds::Record)
    numberAttribute(object, "unitSI", unitSI);
  if (holds != Holds::Component)
    numberAttribute(object, "timeOffset", 0.0);
}

/// An empty dataset that grows along its one axis, in chunks of `chunk` values.
void growingDataset(hid_t parent, const char *name, hid_t type, size_t chunk, int compression,
                    const Dimension &dimension, double unitSI, Holds holds) {
  hsize_t none = 0, unlimited = H5S_UNLIMITED, rows = chunk;
  Handle space(H5Screate_simple(1, &none, &unlimited), H5Sclose, "make a growing space");
  Handle properties(H5Pcreate(H5P_DATASET_CREATE), H5Pclose, "make dataset properties");
  check(H5Pset_chunk(properties, 1, &rows), "chunk a dataset");
  if (compression > 0)
    check(H5Pset_deflate(properties, unsigned(compression)), "compress a dataset");
  Handle set(H5Dcreate2(parent, name, type, space, H5P_DEFAULT, properties, H5P_DEFAULT), H5Dclose,
             "create a dataset");
  units(set, dimension, unitSI, holds);
}

/// Appends values to a growing dataset.
void append(hid_t parent, const char *name, hid_t type, const void *values, hsize_t count) {
  Handle set(H5Dopen2(parent, name, H5P_DEFAULT), H5Dclose, "open a dataset");
  hsize_t before;
  {
    Handle space(H5Dget_space(set), H5Sclose, "read a dataset's size");
    check(H5Sget_simple_extent_dims(space, &before, nullptr), "read a dataset's size");
  }
  hsize_t after = before + count;
  check(H5Dset_extent(set, &after), "extend a dataset");
  Handle file(H5Dget_space(set), H5Sclose, "read a dataset's size");
  check(H5Sselect_hyperslab(file, H5S_SELECT_SET, &before, nullptr, &count, nullptr),
        "select rows");
  Handle memory(H5Screate_simple(1, &count, nullptr), H5Sclose, "make a row space");
  check(H5Dwrite(set, type, memory, file, H5P_DEFAULT, values), "write rows");
}

/// A record or component whose value is the same for every particle.
void constant(hid_t parent, const char *name, hid_t type, const void *value,
              const Dimension &dimension, double unitSI, Holds holds) {
  Handle g = group(parent, name);
  Handle space(H5Screate(H5S_SCALAR), H5Sclose, "make a scalar space");
  attribute(g, "value", type, space, value);
  arrayAttribute(g, "shape", H5T_NATIVE_UINT64, std::vector<uint64_t>{0});
  units(g, dimension, unitSI, holds);
}

/// Writes a new value into an attribute made earlier.
void rewrite(hid_t object, const char *name, hid_t type, const void *value) {
  Handle a(H5Aopen(object, name, H5P_DEFAULT), H5Aclose, "open an attribute");
  check(H5Awrite(a, type, value), "write an attribute");
}

/// Gives a constant record the number of particles it stands for.
void setShape(hid_t parent, const char *name, int64_t count) {
  uint64_t shape = uint64_t(count);
  rewrite(openGroup(parent, name), "shape", H5T_NATIVE_UINT64, &shape);
}

QByteArray iterationPath(int row) {
  return "/data/" + QByteArray::number(row);
}

QByteArray speciesPath(int row, int pdgid) {
  return iterationPath(row) + "/particles/" + openPmdSpeciesName(pdgid).toLatin1();
}

/// The offset of the computer's clock from UTC, as openPMD writes it: +0100.
QString utcOffset(const QDateTime &now) {
  int minutes = now.offsetFromUtc() / 60;
  return QString::asprintf("%c%02d%02d", minutes < 0 ? '-' : '+', std::abs(minutes) / 60,
                           std::abs(minutes) % 60);
}

void writeRoot(hid_t file) {
  QDateTime now = QDateTime::currentDateTime();
  textAttribute(file, "openPMD", "2.0.0");
  textAttribute(file, "openPMDextension", "BeamPhysics;SpeciesType");
  textAttribute(file, "dataType", "openPMD");
  textAttribute(file, "basePath", "/data/%T/");
  textAttribute(file, "particlesPath", "particles/");
  textAttribute(file, "iterationEncoding", "groupBased");
  textAttribute(file, "iterationFormat", "/data/%T/");
  textAttribute(file, "software", "twiss-optics");
  textAttribute(file, "softwareVersion", OpticsVersion);
  textAttribute(file, "date", now.toString("yyyy-MM-dd HH:mm:ss ") + utcOffset(now));
}

void writeIteration(hid_t data, int row, double sMillimetres) {
  Handle iteration = group(data, QByteArray::number(row));
  numberAttribute(iteration, "time", 0.0);
  numberAttribute(iteration, "dt", 0.0);
  numberAttribute(iteration, "timeUnitSI", 1e-9);
  numberAttribute(iteration, "sPosition", sMillimetres / 1000);
  Handle particles = group(iteration, "particles");
}

/// The groups and empty datasets of a species at a plane.
void createSpecies(hid_t particles, int pdgid, double sMetres, size_t chunk, int compression) {
  QString name = openPmdSpeciesName(pdgid);
  Handle species = group(particles, name.toLatin1());
  textAttribute(species, "speciesType", name);
  integerAttribute(species, "numParticles", 0);
  numberAttribute(species, "totalCharge", 0.0);
  numberAttribute(species, "chargeUnitSI", 1.0);
  {
    Handle position = group(species, "position");
    units(position, Length, 1.0, Holds::Record);
    growingDataset(position, "x", H5T_NATIVE_DOUBLE, chunk, compression, Length, 1e-3,
                   Holds::Component);
    growingDataset(position, "y", H5T_NATIVE_DOUBLE, chunk, compression, Length, 1e-3,
                   Holds::Component);
    constant(position, "z", H5T_NATIVE_DOUBLE, &Zero, Length, 1e-3, Holds::Component);
  }
  {
    // The positions are the plane's own, from its centre: no offset.
    Handle offset = group(species, "positionOffset");
    units(offset, Length, 1.0, Holds::Record);
    for (const char *axis : {"x", "y", "z"})
      constant(offset, axis, H5T_NATIVE_DOUBLE, &Zero, Length, 1e-3, Holds::Component);
  }
  {
    Handle momentum = group(species, "momentum");
    units(momentum, Momentum, 1.0, Holds::Record);
    for (const char *axis : {"x", "y", "z"})
      growingDataset(momentum, axis, H5T_NATIVE_DOUBLE, chunk, compression, Momentum, MeVPerC,
                     Holds::Component);
  }
  growingDataset(species, "time", H5T_NATIVE_DOUBLE, chunk, compression, Time, 1e-9, Holds::Both);
  growingDataset(species, "weight", H5T_NATIVE_DOUBLE, chunk, compression, Charge, 1.0,
                 Holds::Both);
  growingDataset(species, "id", H5T_NATIVE_INT64, chunk, compression, None, 1.0, Holds::Both);
  int64_t alive = 1;
  constant(species, "particleStatus", H5T_NATIVE_INT64, &alive, None, 1.0, Holds::Both);
  constant(species, "sPosition", H5T_NATIVE_DOUBLE, &sMetres, Length, 1.0, Holds::Both);
}

template <typename Field>
std::vector<double> column(const std::vector<const ParticleCrossing *> &rows, Field field) {
  std::vector<double> values;
  values.reserve(rows.size());
  for (const ParticleCrossing *c : rows)
    values.push_back(c->*field);
  return values;
}

/// The particle file in the field's interchange format.
class OpenPmdFile final : public ParticleFile {
public:
  OpenPmdFile(const QString &path, const QList<double> &planeS, const QList<int> &written,
              int compression);
  ~OpenPmdFile() override;
  OpenPmdFile(const OpenPmdFile &) = delete;
  OpenPmdFile &operator=(const OpenPmdFile &) = delete;

  void add(int row, const ParticleCrossing &crossing) override;
  void addRun(const OpticsRun &run) override;
  void finish() override;
  void commit() override;

private:
  /// What a plane has buffered and written, per species in order of appearance.
  struct SpeciesTotals {
    int pdgid;
    int chargeNumber; ///< the charge of one particle in units of e
    int64_t count = 0;
    double charge = 0; ///< C: the weights times the charge number
  };
  struct PlaneBuffer {
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

} // namespace

QString openPmdSpeciesName(int pdgid) {
  // The leptons, the photon and the nucleons as the species list spells them; the
  // other hadrons and the light nuclei, which it leaves to free text, in its "other:"
  // form with names that keep to its characters (letters, digits, '-', ';', ':').
  static const QHash<int, QString> names = {{11, "electron"},
                                            {-11, "positron"},
                                            {12, "electron-neutrino"},
                                            {-12, "anti-electron-neutrino"},
                                            {13, "muon"},
                                            {-13, "anti-muon"},
                                            {14, "muon-neutrino"},
                                            {-14, "anti-muon-neutrino"},
                                            {15, "tau"},
                                            {-15, "anti-tau"},
                                            {16, "tau-neutrino"},
                                            {-16, "anti-tau-neutrino"},
                                            {22, "photon"},
                                            {2212, "proton"},
                                            {-2212, "anti-proton"},
                                            {2112, "neutron"},
                                            {-2112, "anti-neutron"},
                                            {211, "other:pion-plus"},
                                            {-211, "other:pion-minus"},
                                            {111, "other:pion-zero"},
                                            {321, "other:kaon-plus"},
                                            {-321, "other:kaon-minus"},
                                            {311, "other:kaon-zero"},
                                            {-311, "other:anti-kaon-zero"},
                                            {130, "other:kaon-zero-long"},
                                            {310, "other:kaon-zero-short"},
                                            {3122, "other:lambda"},
                                            {-3122, "other:anti-lambda"},
                                            {1000010020, "other:deuteron"},
                                            {-1000010020, "other:anti-deuteron"},
                                            {1000010030, "other:triton"},
                                            {-1000010030, "other:anti-triton"},
                                            {1000020030, "other:helion"},
                                            {1000020040, "other:alpha"},
                                            {-1000020040, "other:anti-alpha"}};
  return names.value(pdgid, "other:pdg" + QString::number(pdgid));
}

std::unique_ptr<ParticleFile> createParticleFile(const QString &path, const QList<double> &planeS,
                                                 const QList<int> &written, int compression) {
  return std::make_unique<OpenPmdFile>(path, planeS, written, compression);
}

OpenPmdFile::OpenPmdFile(const QString &path, const QList<double> &planeS,
                         const QList<int> &written, int compression)
    : ParticleFile(size_t(planeS.size()), written), path(path), replacement(path), planeS(planeS),
      compression(compression),
      bufferRows(std::clamp(BufferBudgetRows / std::max<size_t>(size_t(written.size()), 1),
                            SmallestBuffer, LargestBuffer)),
      buffers(size_t(planeS.size())) {
  if (!replacement.isOpen())
    fail(replacement.errorString());
  // A file whose writing failed stays open inside the library, which would fail again,
  // and crash, flushing it at exit: the library is left to the end of the process.
  H5dont_atexit();
  H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr); // failures are reported as messages of ours
  try {
    errno = 0;
    file = check(H5Fcreate(QFile::encodeName(replacement.temporaryPath()).constData(),
                           H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT),
                 "create the file");
    writeRoot(file);
    Handle data = group(file, "data");
    for (int row : written) {
      buffers[size_t(row)].pending.reserve(bufferRows);
      writeIteration(data, row, planeS[row]);
    }
  } catch (const OutputError &e) {
    fail(e.message);
  }
}

OpenPmdFile::~OpenPmdFile() {
  if (file >= 0)
    H5Fclose(file);
}

void OpenPmdFile::fail(const QString &what) const {
  throw OutputError(path + ": cannot be written (" + what + ")");
}

void OpenPmdFile::add(int row, const ParticleCrossing &crossing) {
  PlaneBuffer &buffer = buffers[size_t(row)];
  buffer.pending.push_back(crossing);
  if (buffer.pending.size() == bufferRows)
    flush(row, buffer);
}

void OpenPmdFile::flush(int row, PlaneBuffer &buffer) {
  std::lock_guard<std::mutex> lock(mutex);
  errno = 0;
  try {
    if (error.isEmpty()) {
      // The species of the buffer, in the order they first appear.
      std::vector<int> kinds;
      for (const ParticleCrossing &c : buffer.pending)
        if (std::find(kinds.begin(), kinds.end(), c.pdgid) == kinds.end())
          kinds.push_back(c.pdgid);
      for (int pdgid : kinds)
        appendSpecies(row, buffer, pdgid);
    }
  } catch (const OutputError &e) {
    error = e.message;
  }
  buffer.pending.clear();
}

void OpenPmdFile::appendSpecies(int row, PlaneBuffer &buffer, int pdgid) {
  auto totals = std::find_if(buffer.species.begin(), buffer.species.end(),
                             [&](const SpeciesTotals &s) { return s.pdgid == pdgid; });
  if (totals == buffer.species.end()) {
    Handle particles = openGroup(file, iterationPath(row) + "/particles");
    createSpecies(particles, pdgid, planeS[row] / 1000, ChunkValues, compression);
    buffer.species.push_back({pdgid, speciesFacts(pdgid).charge});
    totals = buffer.species.end() - 1;
  }
  std::vector<const ParticleCrossing *> rows;
  for (const ParticleCrossing &c : buffer.pending)
    if (c.pdgid == pdgid)
      rows.push_back(&c);
  std::vector<int64_t> ids;
  for (const ParticleCrossing *c : rows) {
    ids.push_back(c->id);
    totals->charge += totals->chargeNumber * c->weight;
  }
  totals->count += int64_t(rows.size());
  hsize_t count = rows.size();
  Handle species = openGroup(file, speciesPath(row, pdgid));
  {
    Handle position = openGroup(species, "position");
    append(position, "x", H5T_NATIVE_DOUBLE, column(rows, &ParticleCrossing::x).data(), count);
    append(position, "y", H5T_NATIVE_DOUBLE, column(rows, &ParticleCrossing::y).data(), count);
  }
  {
    Handle momentum = openGroup(species, "momentum");
    append(momentum, "x", H5T_NATIVE_DOUBLE, column(rows, &ParticleCrossing::px).data(), count);
    append(momentum, "y", H5T_NATIVE_DOUBLE, column(rows, &ParticleCrossing::py).data(), count);
    append(momentum, "z", H5T_NATIVE_DOUBLE, column(rows, &ParticleCrossing::pz).data(), count);
  }
  append(species, "time", H5T_NATIVE_DOUBLE, column(rows, &ParticleCrossing::t).data(), count);
  append(species, "weight", H5T_NATIVE_DOUBLE, column(rows, &ParticleCrossing::weight).data(),
         count);
  append(species, "id", H5T_NATIVE_INT64, ids.data(), count);
}

void OpenPmdFile::addRun(const OpticsRun &run) {
  std::lock_guard<std::mutex> lock(mutex);
  errno = 0;
  try {
    if (error.isEmpty())
      writeParticleRun(file, run, compression);
  } catch (const OutputError &e) {
    error = e.message;
  }
}

void OpenPmdFile::writeTotals(int row, const PlaneBuffer &buffer) {
  for (const SpeciesTotals &totals : buffer.species) {
    Handle species = openGroup(file, speciesPath(row, totals.pdgid));
    rewrite(species, "numParticles", H5T_NATIVE_INT64, &totals.count);
    rewrite(species, "totalCharge", H5T_NATIVE_DOUBLE, &totals.charge);
    Handle position = openGroup(species, "position");
    setShape(position, "z", totals.count);
    Handle offset = openGroup(species, "positionOffset");
    for (const char *axis : {"x", "y", "z"})
      setShape(offset, axis, totals.count);
    setShape(species, "particleStatus", totals.count);
    setShape(species, "sPosition", totals.count);
  }
}

void OpenPmdFile::finish() {
  for (size_t row = 0; row < buffers.size(); ++row)
    if (writes(int(row)) && !buffers[row].pending.empty())
      flush(int(row), buffers[row]);
  try {
    if (error.isEmpty())
      for (size_t row = 0; row < buffers.size(); ++row)
        writeTotals(int(row), buffers[row]);
    errno = 0;
    check(H5Fflush(file, H5F_SCOPE_GLOBAL), "write the file");
    hid_t closing = file;
    file = -1;
    check(H5Fclose(closing), "close the file");
  } catch (const OutputError &e) {
    if (error.isEmpty())
      error = e.message;
  }
  if (!error.isEmpty())
    fail(error);
}

void OpenPmdFile::commit() {
  if (!replacement.commit())
    fail(replacement.errorString());
}
