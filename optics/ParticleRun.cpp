//===- ParticleRun.cpp - The run a particle file comes from, for merges ---===//

#include "ParticleRun.h"

#include "Failure.h"
#include "Hdf5.h"
#include "KeptCrossings.h"
#include "Measure.h"

#include <QFile>
#include <algorithm>
#include <cerrno>
#include <mutex>
#include <tuple>

using namespace Hdf5;

namespace {

const char *const MomentsData = "twissOptics/moments";
const char *const Crossings = "twissOptics/crossings";
/// The version of the run in a particle file.
const int64_t RunVersion = 1;
/// Crossings read from a file at a time.
const hsize_t ReadRows = 1 << 15;
/// Rows of a chunk of a deflated dataset of crossings.
const hsize_t ChunkRows = 4096;

/// The library is built for one thread at a time: a merge reads the next file while it
/// adds the last one's crossings.
std::mutex &libraryMutex() {
  static std::mutex mutex;
  return mutex;
}

/// The numbers of a kept crossing that the file holds (its subsample is made of its
/// event and track), in the layout of KeptCrossing.
void describeCrossing(hid_t type) {
  for (auto [name, offset] : {std::pair{"x", HOFFSET(KeptCrossing, x)},
                              {"ux", HOFFSET(KeptCrossing, ux)},
                              {"y", HOFFSET(KeptCrossing, y)},
                              {"uy", HOFFSET(KeptCrossing, uy)},
                              {"weight", HOFFSET(KeptCrossing, weight)},
                              {"t", HOFFSET(KeptCrossing, t)},
                              {"energy", HOFFSET(KeptCrossing, energy)}})
    check(H5Tinsert(type, name, offset, H5T_NATIVE_DOUBLE), "describe a crossing");
  check(H5Tinsert(type, "job", HOFFSET(KeptCrossing, job), H5T_NATIVE_INT), "describe a crossing");
  check(H5Tinsert(type, "event", HOFFSET(KeptCrossing, event), H5T_NATIVE_INT),
        "describe a crossing");
  check(H5Tinsert(type, "track", HOFFSET(KeptCrossing, track), H5T_NATIVE_INT),
        "describe a crossing");
}

void writeCrossings(hid_t section, const OpticsRun &run, int compression) {
  Handle crossings = group(section, "crossings");
  numberAttribute(crossings, "acceptance", run.choices.acceptance);
  integerAttribute(crossings, "slices", run.choices.slices);
  numberAttribute(crossings, "slice_width", run.choices.sliceWidth);
  Handle type(H5Tcreate(H5T_COMPOUND, sizeof(KeptCrossing)), H5Tclose, "make a crossing type");
  describeCrossing(type);
  Handle packed(H5Tcopy(type), H5Tclose, "make a crossing type");
  check(H5Tpack(packed), "pack a crossing type");
  for (size_t k = 0; k < run.kept->planeCount(); ++k) {
    hsize_t count = run.kept->count(k);
    Handle space(H5Screate_simple(1, &count, nullptr), H5Sclose, "make a space of crossings");
    Handle properties(H5Pcreate(H5P_DATASET_CREATE), H5Pclose, "make dataset properties");
    if (compression > 0 && count > 0) {
      hsize_t chunk = std::min(count, ChunkRows);
      check(H5Pset_chunk(properties, 1, &chunk), "chunk a dataset");
      check(H5Pset_deflate(properties, unsigned(compression)), "compress a dataset");
    }
    Handle set(H5Dcreate2(crossings, QByteArray::number(qulonglong(k)).constData(), packed, space,
                          H5P_DEFAULT, properties, H5P_DEFAULT),
               H5Dclose, "create a dataset");
    run.kept->forEachBlock(k, [&](const KeptCrossing *block, size_t n, size_t first) {
      hsize_t rows = n, at = first;
      Handle rowsInFile(H5Dget_space(set), H5Sclose, "read a dataset's size");
      check(H5Sselect_hyperslab(rowsInFile, H5S_SELECT_SET, &at, nullptr, &rows, nullptr),
            "select rows");
      Handle memory(H5Screate_simple(1, &rows, nullptr), H5Sclose, "make a row space");
      check(H5Dwrite(set, type, memory, rowsInFile, H5P_DEFAULT, block), "write rows");
    });
  }
}

bool exists(hid_t file, const char *path) {
  return H5Lexists(file, "twissOptics", H5P_DEFAULT) > 0 && H5Lexists(file, path, H5P_DEFAULT) > 0;
}

/// Runs `read`, whose failures of the library become the input error of `path`.
template <typename Read> auto reading(const QString &path, Read read) {
  errno = 0;
  try {
    return read();
  } catch (const OutputError &e) {
    throw InputError::unreadable(path, e.message);
  }
}

Handle openFile(const QString &path) {
  // A file the library failed to open leaves it objects it cannot close at exit.
  H5dont_atexit();
  H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr); // failures are reported as messages of ours
  return Handle(H5Fopen(QFile::encodeName(path).constData(), H5F_ACC_RDONLY, H5P_DEFAULT), H5Fclose,
                "open the file");
}

QByteArray momentsBytes(hid_t file) {
  Handle set(H5Dopen2(file, MomentsData, H5P_DEFAULT), H5Dclose, "open a dataset");
  Handle space(H5Dget_space(set), H5Sclose, "read a dataset's size");
  QByteArray bytes(qsizetype(check(H5Sget_simple_extent_npoints(space), "read a dataset's size")),
                   '\0');
  check(H5Dread(set, H5T_NATIVE_UCHAR, H5S_ALL, H5S_ALL, H5P_DEFAULT, bytes.data()),
        "read the moments");
  return bytes;
}

CrossingChoices choicesOf(hid_t file) {
  Handle crossings = openGroup(file, Crossings);
  CrossingChoices choices;
  int64_t slices = 0;
  readAttribute(crossings, "acceptance", H5T_NATIVE_DOUBLE, &choices.acceptance);
  readAttribute(crossings, "slices", H5T_NATIVE_INT64, &slices);
  readAttribute(crossings, "slice_width", H5T_NATIVE_DOUBLE, &choices.sliceWidth);
  choices.slices = int(slices);
  return choices;
}

} // namespace

void writeParticleRun(hid_t file, const OpticsRun &run, int compression) {
  Handle section = group(file, "twissOptics");
  const QByteArray moments = binaryMomentsBytes(run);
  integerAttribute(section, "format_version", RunVersion);
  hsize_t size = hsize_t(moments.size());
  Handle space(H5Screate_simple(1, &size, nullptr), H5Sclose, "make a space of bytes");
  Handle set(H5Dcreate2(section, "moments", H5T_NATIVE_UCHAR, space, H5P_DEFAULT, H5P_DEFAULT,
                        H5P_DEFAULT),
             H5Dclose, "create a dataset");
  check(H5Dwrite(set, H5T_NATIVE_UCHAR, H5S_ALL, H5S_ALL, H5P_DEFAULT, moments.constData()),
        "write the moments");
  if (run.kept && keepsCrossings(run.measures))
    writeCrossings(section, run, compression);
}

MomentsPart readParticleRun(const QString &path) {
  std::lock_guard<std::mutex> lock(libraryMutex());
  auto [bytes, crossings, choices] = reading(path, [&] {
    Handle file = openFile(path);
    if (!exists(file, MomentsData))
      throw notAMomentsFile(path, "an HDF5 file without the moments of a run");
    int64_t version = 0;
    readAttribute(openGroup(file, "twissOptics"), "format_version", H5T_NATIVE_INT64, &version);
    if (version != RunVersion)
      throw notAMomentsFile(path, "particle file run version " + QString::number(version));
    const bool kept = exists(file, Crossings);
    return std::tuple{momentsBytes(file), kept, kept ? choicesOf(file) : CrossingChoices()};
  });
  MomentsPart part = readMomentsPart(path, bytes);
  part.crossings = crossings;
  part.run.choices = choices;
  return part;
}

void addParticleCrossings(const QString &path, KeptCrossings &kept, int jobsBefore) {
  std::lock_guard<std::mutex> lock(libraryMutex());
  Handle file = reading(path, [&] { return openFile(path); });
  Handle type(reading(path,
                      [&] {
                        Handle made(H5Tcreate(H5T_COMPOUND, sizeof(KeptCrossing)), H5Tclose,
                                    "make a crossing type");
                        describeCrossing(made);
                        return check(H5Tcopy(made), "make a crossing type");
                      }),
              H5Tclose, "make a crossing type");
  Handle packed(H5Tcopy(type), H5Tclose, "make a crossing type");
  reading(path, [&] { check(H5Tpack(packed), "pack a crossing type"); });
  std::vector<KeptCrossing> rows;
  for (size_t k = 0; k < kept.planeCount(); ++k) {
    const QByteArray name = QByteArray(Crossings) + '/' + QByteArray::number(qulonglong(k));
    Handle set(reading(path,
                       [&] {
                         return check(H5Dopen2(file, name.constData(), H5P_DEFAULT),
                                      "open the crossings of a plane");
                       }),
               H5Dclose, "open the crossings of a plane");
    // Another layout would be read as this one where its names match: refused.
    if (reading(path, [&] {
          Handle stored(H5Dget_type(set), H5Tclose, "read the crossings' layout");
          return H5Tequal(stored, packed);
        }) <= 0)
      throw notAMomentsFile(path, QString("the crossings of plane %1 are not laid out as this "
                                          "version writes them")
                                      .arg(k));
    const hsize_t count = reading(path, [&] {
      Handle space(H5Dget_space(set), H5Sclose, "read a dataset's size");
      return hsize_t(check(H5Sget_simple_extent_npoints(space), "read a dataset's size"));
    });
    for (hsize_t at = 0; at < count; at += ReadRows) {
      hsize_t n = std::min(ReadRows, count - at);
      rows.resize(n);
      reading(path, [&] {
        Handle rowsInFile(H5Dget_space(set), H5Sclose, "read a dataset's size");
        check(H5Sselect_hyperslab(rowsInFile, H5S_SELECT_SET, &at, nullptr, &n, nullptr),
              "select rows");
        Handle memory(H5Screate_simple(1, &n, nullptr), H5Sclose, "make a row space");
        check(H5Dread(set, type, memory, rowsInFile, H5P_DEFAULT, rows.data()), "read crossings");
      });
      for (KeptCrossing &c : rows) {
        c.group = subsampleOf(c.event, c.track);
        c.job += jobsBefore;
        kept.add(k, c);
      }
    }
  }
}
