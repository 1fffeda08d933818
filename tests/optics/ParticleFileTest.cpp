//===- ParticleFileTest.cpp - The crossings as openPMD particle data -------===//
//
// Known straight tracks through a straight beamline, split over two run directories:
// every crossing's position, momentum and time follow in closed form, and the file
// written by twiss-optics is read back through the HDF5 library and compared with
// them, record by record.
//
//===----------------------------------------------------------------------------===//

#include "ParticleFile.h"
#include "TestSupport.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <cmath>
#include <gtest/gtest.h>
#include <hdf5.h>
#include <map>
#include <set>

namespace {

const double ElectronCharge = 1.602176634e-19; // C

/// A straight track: position at z = 0, slopes, momentum, species, parent, weight.
struct Track {
  double x0, y0, xp, yp; ///< mm and mrad
  double p;              ///< MeV/c
  int pdgid, parent;
  double weight;
  /// The crossing of the plane at z = s (mm): position and momentum along the axes.
  double x(double s) const { return x0 + xp * s / 1000; }
  double y(double s) const { return y0 + yp * s / 1000; }
  double pz() const { return p / std::sqrt(1 + (xp * xp + yp * yp) * 1e-6); }
  double px() const { return pz() * xp / 1000; }
  double py() const { return pz() * yp / 1000; }
};

/// 40 tracks: every fourth an electron from a muon's decay, the others positive muons.
std::vector<Track> knownTracks() {
  std::vector<Track> tracks;
  for (int i = 0; i < 40; ++i) {
    bool electron = i % 4 == 3;
    tracks.push_back({i - 20.0, 0.5 * (i % 9) - 2, 0.25 * (i % 7) - 0.75, 0.5 - 0.125 * (i % 5),
                      200.0 + 3 * i, electron ? 11 : -13, electron ? 1 : 0, 1 + 0.1 * i});
  }
  return tracks;
}

const double PlaneS[] = {300, 1100, 2100}; // mm

/// Steps every 200 mm from z = -100 mm to 2300 mm; time z / 250 ns.
std::string trackLines(const std::vector<Track> &tracks, size_t first, size_t last) {
  std::string text;
  for (size_t i = first; i < last; ++i) {
    const Track &t = tracks[i];
    for (double z = -100; z <= 2300; z += 200)
      text += QString::asprintf("%.17g %.17g %.17g %.17g %.17g %.17g %.17g %d %zu 1 %d %.17g\n",
                                t.x(z), t.y(z), z, t.px(), t.py(), t.pz(), z / 250, t.pdgid, i,
                                t.parent, t.weight)
                  .toStdString();
  }
  return text;
}

/// Reads what the tests look at through the HDF5 library.
class Hdf5Reader {
public:
  explicit Hdf5Reader(const QString &path) {
    file = H5Fopen(path.toLocal8Bit().constData(), H5F_ACC_RDONLY, H5P_DEFAULT);
  }
  ~Hdf5Reader() {
    if (file >= 0)
      H5Fclose(file);
  }
  bool isOpen() const { return file >= 0; }
  bool exists(const std::string &path) const {
    return H5Lexists(file, path.c_str(), H5P_DEFAULT) > 0;
  }
  /// A fixed-length string attribute, or "(not a fixed-length string)".
  std::string text(const std::string &object, const char *name) const {
    hid_t a = H5Aopen_by_name(file, object.c_str(), name, H5P_DEFAULT, H5P_DEFAULT);
    hid_t type = H5Aget_type(a), space = H5Aget_space(a);
    std::string value = "(not a fixed-length string)";
    if (H5Tget_class(type) == H5T_STRING && H5Tis_variable_str(type) == 0 &&
        H5Sget_simple_extent_type(space) == H5S_SCALAR) {
      value.assign(H5Tget_size(type), '\0');
      H5Aread(a, type, value.data());
      value.erase(value.find_last_not_of('\0') + 1);
    }
    H5Sclose(space);
    H5Tclose(type);
    H5Aclose(a);
    return value;
  }
  std::vector<double> numbers(const std::string &object, const char *name) const {
    hid_t a = H5Aopen_by_name(file, object.c_str(), name, H5P_DEFAULT, H5P_DEFAULT);
    hid_t space = H5Aget_space(a);
    std::vector<double> values(size_t(std::max<hssize_t>(H5Sget_simple_extent_npoints(space), 0)));
    H5Aread(a, H5T_NATIVE_DOUBLE, values.data());
    H5Sclose(space);
    H5Aclose(a);
    return values;
  }
  double number(const std::string &object, const char *name) const {
    std::vector<double> v = numbers(object, name);
    return v.size() == 1 ? v[0] : NAN;
  }
  template <typename T> std::vector<T> dataset(const std::string &path, hid_t type) const {
    hid_t set = H5Dopen2(file, path.c_str(), H5P_DEFAULT);
    hid_t space = H5Dget_space(set);
    std::vector<T> values(size_t(std::max<hssize_t>(H5Sget_simple_extent_npoints(space), 0)));
    if (!values.empty())
      H5Dread(set, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data());
    H5Sclose(space);
    H5Dclose(set);
    return values;
  }
  std::vector<double> doubles(const std::string &path) const {
    return dataset<double>(path, H5T_NATIVE_DOUBLE);
  }
  std::vector<int64_t> integers(const std::string &path) const {
    return dataset<int64_t>(path, H5T_NATIVE_INT64);
  }
  bool has(const std::string &object, const char *name) const {
    return H5Aexists_by_name(file, object.c_str(), name, H5P_DEFAULT) > 0;
  }
  /// Whether a dataset is written through the deflate filter.
  bool deflated(const std::string &path) const {
    hid_t set = H5Dopen2(file, path.c_str(), H5P_DEFAULT);
    hid_t properties = H5Dget_create_plist(set);
    bool found = H5Pget_filter_by_id2(properties, H5Z_FILTER_DEFLATE, nullptr, nullptr, nullptr, 0,
                                      nullptr, nullptr) >= 0;
    H5Pclose(properties);
    H5Dclose(set);
    return found;
  }
  /// Whether the object at the path is a group (else a dataset, or nothing).
  bool isGroup(const std::string &path) const {
    H5O_info_t info;
    return H5Oget_info_by_name2(file, path.c_str(), &info, H5O_INFO_BASIC, H5P_DEFAULT) >= 0 &&
           info.type == H5O_TYPE_GROUP;
  }
  /// The stored type of an attribute and its number of values: "float64 x7", "int64 x1",
  /// "uint64 x1", "string x1" (fixed-length), or "other".
  std::string attributeType(const std::string &object, const char *name) const {
    hid_t a = H5Aopen_by_name(file, object.c_str(), name, H5P_DEFAULT, H5P_DEFAULT);
    if (a < 0)
      return "missing";
    hid_t type = H5Aget_type(a), space = H5Aget_space(a);
    std::string kind = "other";
    H5T_class_t typeClass = H5Tget_class(type);
    if (typeClass == H5T_FLOAT && H5Tget_size(type) == 8)
      kind = "float64";
    else if (typeClass == H5T_INTEGER && H5Tget_size(type) == 8)
      kind = H5Tget_sign(type) == H5T_SGN_NONE ? "uint64" : "int64";
    else if (typeClass == H5T_STRING && H5Tis_variable_str(type) == 0)
      kind = "string";
    kind += " x" + std::to_string(H5Sget_simple_extent_npoints(space));
    H5Sclose(space);
    H5Tclose(type);
    H5Aclose(a);
    return kind;
  }
  /// The number of values of a dataset, or -1 for a dataset that is not one-dimensional.
  long long length(const std::string &path) const {
    hid_t set = H5Dopen2(file, path.c_str(), H5P_DEFAULT);
    hid_t space = H5Dget_space(set);
    long long n = H5Sget_simple_extent_ndims(space) == 1 ? H5Sget_simple_extent_npoints(space) : -1;
    H5Sclose(space);
    H5Dclose(set);
    return n;
  }

  /// The names of a group's members, in the order the library lists them.
  std::vector<std::string> members(const std::string &group) const {
    std::vector<std::string> names;
    H5Literate_by_name(
        file, group.c_str(), H5_INDEX_NAME, H5_ITER_INC, nullptr,
        [](hid_t, const char *name, const H5L_info_t *, void *data) -> herr_t {
          static_cast<std::vector<std::string> *>(data)->push_back(name);
          return 0;
        },
        &names, H5P_DEFAULT);
    return names;
  }

private:
  hid_t file = -1;
};

class ParticleFileTest : public ::testing::Test {
protected:
  QTemporaryDir dir;
  std::vector<Track> tracks = knownTracks();

  void SetUp() override {
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    std::string planes;
    for (double s : PlaneS)
      planes += QString::asprintf("%gmm 1000mm\n", s).toStdString();
    for (const char *run : {"a", "b"}) {
      QDir(dir.path()).mkdir(run);
      writeFile(path(run) + "/beamlineCoordinates.txt", "%bcstart x=0m y=0m z=0m s=0m\n");
      writeFile(path(run) + "/sampleS.txt", planes);
    }
    // Tracks 0-24 in the first directory, 25-39 in the second.
    writeFile(path("a") + "/AllTracks.txt", trackLines(tracks, 0, 25));
    writeFile(path("b") + "/AllTracks.txt", trackLines(tracks, 25, 40));
  }
  QString path(const QString &name) const { return dir.path() + "/" + name; }
  ToolRun run(const QStringList &arguments) {
    return runOpticsTool(dir.path(), QStringList{"a", "b", "-q", "-o", "table.csv"} + arguments);
  }

  /// Compares the records of one species at one plane with the tracks that `take`
  /// accepts, in track order; the ids are the tracks' numbers from 1.
  void expectSpecies(const Hdf5Reader &h5, int row, const std::string &species,
                     const std::function<bool(const Track &)> &take, bool weighted) {
    const std::string g = "/data/" + std::to_string(row) + "/particles/" + species;
    const double s = PlaneS[row];
    std::vector<double> x = h5.doubles(g + "/position/x"), y = h5.doubles(g + "/position/y");
    std::vector<double> px = h5.doubles(g + "/momentum/x"), py = h5.doubles(g + "/momentum/y");
    std::vector<double> pz = h5.doubles(g + "/momentum/z"), t = h5.doubles(g + "/time");
    std::vector<double> w = h5.doubles(g + "/weight");
    std::vector<int64_t> id = h5.integers(g + "/id");
    size_t k = 0;
    double charge = 0;
    for (size_t i = 0; i < tracks.size(); ++i) {
      const Track &track = tracks[i];
      if (!take(track))
        continue;
      ASSERT_LT(k, x.size()) << g;
      EXPECT_NEAR(x[k], track.x(s), 1e-12) << g << " track " << i;
      EXPECT_NEAR(y[k], track.y(s), 1e-12) << g << " track " << i;
      EXPECT_NEAR(px[k], track.px(), 1e-12) << g << " track " << i;
      EXPECT_NEAR(py[k], track.py(), 1e-12) << g << " track " << i;
      EXPECT_NEAR(pz[k], track.pz(), 1e-11) << g << " track " << i;
      EXPECT_NEAR(t[k], s / 250, 1e-12) << g << " track " << i;
      double weight = (weighted ? track.weight : 1) * ElectronCharge;
      EXPECT_NEAR(w[k], weight, 1e-12 * weight) << g << " track " << i;
      EXPECT_EQ(id[k], int64_t(i + 1)) << g << " track " << i;
      charge += (track.pdgid == 11 ? -1 : 1) * weight; // an electron's charge is -e
      ++k;
    }
    EXPECT_EQ(x.size(), k) << g;
    for (const auto *v : {&y, &px, &py, &pz, &t, &w})
      EXPECT_EQ(v->size(), k) << g;
    EXPECT_EQ(id.size(), k) << g;
    EXPECT_EQ(h5.number(g, "numParticles"), double(k));
    EXPECT_NEAR(h5.number(g, "totalCharge"), charge, 1e-12 * std::fabs(charge));
    EXPECT_EQ(h5.number(g, "chargeUnitSI"), 1.0);
    EXPECT_EQ(h5.text(g, "speciesType"), species);
    // Constant records: the plane (z = 0), alive, at s.
    EXPECT_EQ(h5.number(g + "/position/z", "value"), 0.0);
    EXPECT_EQ(h5.number(g + "/particleStatus", "value"), 1.0);
    EXPECT_EQ(h5.number(g + "/sPosition", "value"), s / 1000);
    for (const char *axis : {"x", "y", "z"})
      EXPECT_EQ(h5.number(g + "/positionOffset/" + axis, "value"), 0.0) << axis;
    for (const char *constant : {"/position/z", "/positionOffset/x", "/positionOffset/y",
                                 "/positionOffset/z", "/particleStatus", "/sPosition"})
      EXPECT_EQ(h5.numbers(g + constant, "shape"), std::vector<double>{double(k)}) << constant;
  }
};

bool isMuon(const Track &t) {
  return t.pdgid == -13;
}
bool isElectron(const Track &t) {
  return t.pdgid == 11;
}

TEST_F(ParticleFileTest, everyCrossingOfEveryPlaneWithItsSpecies) {
  ToolRun r = run({"--particles", "beam.h5"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");
  Hdf5Reader h5(path("beam.h5"));
  ASSERT_TRUE(h5.isOpen());
  EXPECT_EQ(h5.members("/data"), (std::vector<std::string>{"0", "1", "2"}));
  for (int row = 0; row < 3; ++row) {
    std::string iteration = "/data/" + std::to_string(row);
    EXPECT_EQ(h5.members(iteration + "/particles"),
              (std::vector<std::string>{"anti-muon", "electron"}));
    expectSpecies(h5, row, "anti-muon", isMuon, true);
    expectSpecies(h5, row, "electron", isElectron, true);
    EXPECT_EQ(h5.number(iteration, "sPosition"), PlaneS[row] / 1000);
    EXPECT_EQ(h5.number(iteration, "time"), 0.0);
    EXPECT_EQ(h5.number(iteration, "dt"), 0.0);
    EXPECT_EQ(h5.number(iteration, "timeUnitSI"), 1e-9);
  }
}

TEST_F(ParticleFileTest, rootAttributesAreFixedLengthText) {
  ASSERT_EQ(run({"--particles", "beam.h5"}).status, 0);
  Hdf5Reader h5(path("beam.h5"));
  const std::pair<const char *, const char *> expected[] = {
      {"openPMD", "2.0.0"},
      {"openPMDextension", "BeamPhysics;SpeciesType"},
      {"dataType", "openPMD"},
      {"basePath", "/data/%T/"},
      {"particlesPath", "particles/"},
      {"iterationEncoding", "groupBased"},
      {"iterationFormat", "/data/%T/"},
      {"software", "twiss-optics"},
      {"softwareVersion", "1.1.0"}};
  for (auto [name, value] : expected)
    EXPECT_EQ(h5.text("/", name), value) << name;
  EXPECT_TRUE(QRegularExpression("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d [+-]\\d{4}$")
                  .match(QString::fromStdString(h5.text("/", "date")))
                  .hasMatch())
      << h5.text("/", "date");
}

TEST_F(ParticleFileTest, unitsOfEveryRecordAndComponent) {
  ASSERT_EQ(run({"--particles", "beam.h5"}).status, 0);
  Hdf5Reader h5(path("beam.h5"));
  const std::string g = "/data/1/particles/anti-muon";
  const std::vector<double> length = {1, 0, 0, 0, 0, 0, 0}, momentum = {1, 1, -1, 0, 0, 0, 0},
                            time = {0, 0, 1, 0, 0, 0, 0}, charge = {0, 0, 1, 1, 0, 0, 0},
                            none(7, 0.0);
  // 1 MeV/c = 1e6 e / c in kg m/s.
  const double MeV = 1e6 * ElectronCharge / 299792458;
  const struct {
    const char *path;
    std::vector<double> dimension;
    double unitSI;
  } expected[] = {{"/position/x", length, 1e-3},
                  {"/position/y", length, 1e-3},
                  {"/position/z", length, 1e-3},
                  {"/positionOffset/x", length, 1e-3},
                  {"/positionOffset/y", length, 1e-3},
                  {"/positionOffset/z", length, 1e-3},
                  {"/momentum/x", momentum, MeV},
                  {"/momentum/y", momentum, MeV},
                  {"/momentum/z", momentum, MeV},
                  {"/time", time, 1e-9},
                  {"/weight", charge, 1},
                  {"/id", none, 1},
                  {"/particleStatus", none, 1},
                  {"/sPosition", length, 1}};
  for (const auto &e : expected) {
    EXPECT_EQ(h5.numbers(g + e.path, "unitDimension"), e.dimension) << e.path;
    EXPECT_NEAR(h5.number(g + e.path, "unitSI"), e.unitSI, 1e-15 * e.unitSI) << e.path;
  }
  for (const char *record : {"/position", "/positionOffset", "/momentum"})
    EXPECT_EQ(h5.numbers(g + record, "unitDimension"), record[1] == 'p' ? length : momentum);
  for (const char *record : {"/position", "/positionOffset", "/momentum", "/time", "/weight", "/id",
                             "/particleStatus", "/sPosition"})
    EXPECT_EQ(h5.number(g + record, "timeOffset"), 0.0) << record;
  // A record with components leaves the factor to them; a component has no time offset.
  for (const char *record : {"/position", "/positionOffset", "/momentum"})
    EXPECT_FALSE(h5.has(g + record, "unitSI")) << record;
  for (const char *component : {"/position/x", "/position/z", "/momentum/y"})
    EXPECT_FALSE(h5.has(g + component, "timeOffset")) << component;
}

TEST_F(ParticleFileTest, selectionsAndWeights) {
  ASSERT_EQ(run({"--particles", "beam.h5", "--species", "e-", "--unweighted"}).status, 0);
  {
    Hdf5Reader h5(path("beam.h5"));
    EXPECT_EQ(h5.members("/data/0/particles"), std::vector<std::string>{"electron"});
    expectSpecies(h5, 2, "electron", isElectron, false);
  }
  ASSERT_EQ(run({"--particles", "beam.h5", "--primaries"}).status, 0);
  Hdf5Reader h5(path("beam.h5"));
  EXPECT_EQ(h5.members("/data/0/particles"), std::vector<std::string>{"anti-muon"});
  expectSpecies(h5, 0, "anti-muon", isMuon, true);
}

TEST_F(ParticleFileTest, onlyThePlanesAsked) {
  ASSERT_EQ(run({"--particles", "beam.h5", "--particles-at", "2.1m,1100mm"}).status, 0);
  Hdf5Reader h5(path("beam.h5"));
  EXPECT_EQ(h5.members("/data"), (std::vector<std::string>{"1", "2"}));
  expectSpecies(h5, 1, "anti-muon", isMuon, true);
  expectSpecies(h5, 2, "electron", isElectron, true);
}

TEST_F(ParticleFileTest, compressedFileHoldsTheSameValues) {
  ASSERT_EQ(run({"--particles", "plain.h5"}).status, 0);
  EXPECT_FALSE(Hdf5Reader(path("plain.h5")).deflated("/data/0/particles/anti-muon/position/x"));
  // Level 0, the lowest of the range, is the default: no compression.
  ASSERT_EQ(run({"--particles", "zero.h5", "--particles-compress", "0"}).status, 0);
  EXPECT_FALSE(Hdf5Reader(path("zero.h5")).deflated("/data/0/particles/anti-muon/position/x"));
  ASSERT_EQ(run({"--particles", "nine.h5", "--particles-compress", "9"}).status, 0);
  EXPECT_TRUE(Hdf5Reader(path("nine.h5")).deflated("/data/0/particles/anti-muon/position/x"));
  ASSERT_EQ(run({"--particles", "beam.h5", "--particles-compress", "6"}).status, 0);
  Hdf5Reader h5(path("beam.h5"));
  expectSpecies(h5, 0, "anti-muon", isMuon, true);
  EXPECT_TRUE(h5.deflated("/data/0/particles/anti-muon/position/x"));
  EXPECT_LT(QFileInfo(path("beam.h5")).size(), QFileInfo(path("plain.h5")).size() / 4);
}

TEST_F(ParticleFileTest, meanAndWidthOfTheFileAreThoseOfTheTable) {
  ASSERT_EQ(run({"--particles", "beam.h5"}).status, 0);
  QList<QHash<QString, QString>> rows = csvRows(readFile(path("table.csv")));
  ASSERT_EQ(rows.size(), 3);
  Hdf5Reader h5(path("beam.h5"));
  for (int row = 0; row < 3; ++row) {
    std::vector<double> x, w;
    for (const char *species : {"anti-muon", "electron"}) {
      std::string g = "/data/" + std::to_string(row) + "/particles/" + species;
      for (double v : h5.doubles(g + "/position/x"))
        x.push_back(v);
      for (double v : h5.doubles(g + "/weight"))
        w.push_back(v);
    }
    double sw = 0, swx = 0, swxx = 0;
    for (size_t i = 0; i < x.size(); ++i) {
      sw += w[i];
      swx += w[i] * x[i];
    }
    double mean = swx / sw;
    for (size_t i = 0; i < x.size(); ++i)
      swxx += w[i] * (x[i] - mean) * (x[i] - mean);
    double sigma = std::sqrt(swxx / sw);
    EXPECT_EQ(rows[row]["n"].toLong(), long(x.size()));
    EXPECT_NEAR(rows[row]["mean_x_mm"].toDouble(), mean, 1e-9 * std::fabs(mean));
    EXPECT_NEAR(rows[row]["sigma_x_mm"].toDouble(), sigma, 1e-9 * sigma);
  }
}

/// The names the field's species list spells out, and the form of every name.
const std::set<std::string> ListedSpecies = {
    "electron",    "positron",  "electron-neutrino", "anti-electron-neutrino",
    "muon",        "anti-muon", "muon-neutrino",     "anti-muon-neutrino",
    "tau",         "anti-tau",  "tau-neutrino",      "anti-tau-neutrino",
    "photon",      "proton",    "anti-proton",       "neutron",
    "anti-neutron"};
const QRegularExpression SpeciesPattern("^[a-zA-Z0-9\\-;:]+$");

bool isSpeciesName(const std::string &name) {
  return SpeciesPattern.match(QString::fromStdString(name)).hasMatch() &&
         (ListedSpecies.count(name) > 0 || (name.rfind("other:", 0) == 0 && name.size() > 6));
}

/// Checks one record of a particle group (a dataset, a constant, or a group of components)
/// against the rules for records and components; n is the group's number of particles.
void expectRecord(const Hdf5Reader &h5, const std::string &record, long long n) {
  SCOPED_TRACE(record);
  // Every record: its dimension as seven powers of the SI base units, and a time offset.
  EXPECT_EQ(h5.attributeType(record, "unitDimension"), "float64 x7");
  EXPECT_EQ(h5.attributeType(record, "timeOffset"), "float64 x1");
  bool hasComponents = h5.isGroup(record) && !h5.has(record, "value");
  std::vector<std::string> components = {""};
  if (hasComponents)
    components = h5.members(record);
  EXPECT_FALSE(components.empty());
  for (const std::string &name : components) {
    std::string component = hasComponents ? record + "/" + name : record;
    SCOPED_TRACE(component);
    // Every component: its factor to SI units.
    EXPECT_EQ(h5.attributeType(component, "unitSI"), "float64 x1");
    if (h5.isGroup(component)) {
      // A constant component: one value, and a shape of the number of particles.
      EXPECT_NE(h5.attributeType(component, "value"), "missing");
      EXPECT_EQ(h5.attributeType(component, "shape"), "uint64 x1");
      EXPECT_EQ(h5.numbers(component, "shape"), std::vector<double>{double(n)});
    } else {
      // A dataset: one value per particle, in particle order.
      EXPECT_EQ(h5.length(component), n);
    }
  }
}

TEST_F(ParticleFileTest, everyRuleOfTheStandardAndItsExtensions) {
  ASSERT_EQ(run({"--particles", "beam.h5"}).status, 0);
  Hdf5Reader h5(path("beam.h5"));
  // The root: the version as MAJOR.MINOR.REVISION; the base path of the iterations,
  // fixed by the standard; where the particles are; both extensions declared.
  EXPECT_TRUE(QRegularExpression("^\\d+\\.\\d+\\.\\d+$")
                  .match(QString::fromStdString(h5.text("/", "openPMD")))
                  .hasMatch());
  EXPECT_EQ(h5.text("/", "basePath"), "/data/%T/");
  EXPECT_EQ(h5.text("/", "particlesPath"), "particles/");
  EXPECT_EQ(h5.text("/", "openPMDextension"), "BeamPhysics;SpeciesType");
  EXPECT_EQ(h5.text("/", "iterationEncoding"), "groupBased");
  EXPECT_EQ(h5.text("/", "iterationFormat"), h5.text("/", "basePath"));
  for (const char *text : {"openPMD", "basePath", "particlesPath", "openPMDextension",
                           "iterationEncoding", "iterationFormat", "software", "date"})
    EXPECT_EQ(h5.attributeType("/", text), "string x1") << text;
  int groups = 0;
  for (const std::string &iteration : h5.members("/data")) {
    // Every iteration: an integer name, its time, time step and their factor to seconds,
    // and the particles path, which must exist once it is declared.
    const std::string base = "/data/" + iteration;
    EXPECT_EQ(std::to_string(std::stoll(iteration)), iteration);
    for (const char *time : {"time", "dt", "timeUnitSI"})
      EXPECT_EQ(h5.attributeType(base, time), "float64 x1") << base << " " << time;
    ASSERT_TRUE(h5.isGroup(base + "/particles"));
    for (const std::string &species : h5.members(base + "/particles")) {
      const std::string g = base + "/particles/" + species;
      SCOPED_TRACE(g);
      ++groups;
      // Every particle group: a species named as the list names it (or in its free-text
      // form), the group called by that name; the number of particles; the total charge
      // with its factor to coulombs.
      EXPECT_EQ(h5.text(g, "speciesType"), species);
      EXPECT_TRUE(isSpeciesName(species));
      EXPECT_EQ(h5.attributeType(g, "numParticles"), "int64 x1");
      EXPECT_EQ(h5.attributeType(g, "totalCharge"), "float64 x1");
      EXPECT_EQ(h5.attributeType(g, "chargeUnitSI"), "float64 x1");
      const long long n = (long long)h5.number(g, "numParticles");
      // The required records: position and positionOffset, each with x, y and z.
      for (const char *required : {"position", "positionOffset"})
        EXPECT_EQ(h5.members(g + "/" + required), (std::vector<std::string>{"x", "y", "z"}))
            << required;
      for (const std::string &record : h5.members(g))
        expectRecord(h5, g + "/" + record, n);
    }
  }
  EXPECT_EQ(groups, 6);
}

TEST(ParticleFileSpeciesTest, namesAreThoseOfTheSpeciesList) {
  const std::pair<int, const char *> expected[] = {{11, "electron"},
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
                                                   {-1000020040, "other:anti-alpha"},
                                                   {1000060120, "other:pdg1000060120"},
                                                   {-999, "other:pdg-999"}};
  for (auto [pdgid, name] : expected) {
    EXPECT_EQ(openPmdSpeciesName(pdgid).toStdString(), name) << pdgid;
    EXPECT_TRUE(isSpeciesName(name)) << name;
  }
  EXPECT_FALSE(isSpeciesName("antimuon"));
  EXPECT_FALSE(isSpeciesName("other:pi+"));
  EXPECT_FALSE(isSpeciesName("other:"));
}

/// Planes written with units that the library's conversion (by way of inches) rounds:
/// the record and the particle file hold the written value itself.
TEST_F(ParticleFileTest, planesStandExactlyWhereTheyAreWritten) {
  writeFile(path("a") + "/sampleS.txt", "110mm 1000mm\n0.215m 1000mm\n24cm 1000mm\n");
  ToolRun r = runOpticsTool(dir.path(), {"a", "-q", "-o", "table.csv", "--particles", "beam.h5"});
  ASSERT_EQ(r.status, 0) << r.err;
  std::string record = readFile(path("table.json"));
  for (const char *s : {"\"s_mm\": 110,", "\"s_mm\": 215,", "\"s_mm\": 240,"})
    EXPECT_NE(record.find(s), std::string::npos) << s;
  Hdf5Reader h5(path("beam.h5"));
  EXPECT_EQ(h5.number("/data/0", "sPosition"), 0.11);
  EXPECT_EQ(h5.number("/data/1", "sPosition"), 0.215);
  EXPECT_EQ(h5.number("/data/2", "sPosition"), 0.24);
  EXPECT_EQ(h5.number("/data/1/particles/anti-muon/sPosition", "value"), 0.215);
}

/// Charged, neutral and doubly charged species through one plane: the total charge is
/// the sum of charge times weight, the weight the particles times e for every species.
TEST_F(ParticleFileTest, totalChargeIsChargeTimesWeight) {
  std::vector<Track> mixed;
  const std::pair<int, double> species[] = {{22, 0},  {2112, 0},   {12, 0},  {1000020040, 2},
                                            {13, -1}, {-2212, -1}, {2212, 1}};
  for (size_t i = 0; i < std::size(species); ++i)
    for (int k = 0; k < 2; ++k)
      mixed.push_back({double(i), double(k), 0, 0, 200, species[i].first, 0, 1.5 + k});
  writeFile(path("a") + "/AllTracks.txt", trackLines(mixed, 0, mixed.size()));
  ToolRun r = runOpticsTool(dir.path(), {"a", "-q", "-o", "table.csv", "--particles", "beam.h5"});
  ASSERT_EQ(r.status, 0) << r.err;
  Hdf5Reader h5(path("beam.h5"));
  for (auto [pdgid, charge] : species) {
    std::string g = "/data/0/particles/" + openPmdSpeciesName(pdgid).toStdString();
    SCOPED_TRACE(g);
    EXPECT_EQ(h5.number(g, "numParticles"), 2.0);
    EXPECT_EQ(h5.doubles(g + "/weight"),
              (std::vector<double>{1.5 * ElectronCharge, 2.5 * ElectronCharge}));
    EXPECT_NEAR(h5.number(g, "totalCharge"), charge * 4 * ElectronCharge, 1e-30);
  }
}

class ParticleFileFailureTest : public ParticleFileTest {
protected:
  /// Runs with an earlier particle file and table in place: the run must fail with the
  /// status and message, and leave both as they were and nothing else behind.
  void expectFailure(const QStringList &arguments, int status, const std::string &error,
                     const RunSettings &settings = RunSettings()) {
    writeFile(path("beam.h5"), "earlier particles\n");
    writeFile(path("table.csv"), "earlier table\n");
    QStringList before = QDir(dir.path()).entryList(QDir::Files);
    ToolRun r = runOpticsTool(dir.path(),
                              QStringList{"a", "b", "-q", "-o", "table.csv"} + arguments, settings);
    EXPECT_EQ(r.status, status);
    EXPECT_EQ(r.err, error);
    EXPECT_EQ(readFile(path("beam.h5")), "earlier particles\n");
    EXPECT_EQ(readFile(path("table.csv")), "earlier table\n");
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), before);
  }
};

const char *const Hint = "Try 'twiss-optics --help'.\n";

TEST_F(ParticleFileFailureTest, usageErrors) {
  expectFailure({"--particles", "beam.h5", "--particles-at", "1100mm,1.5m"}, 2,
                "twiss-optics: error: --particles-at: '1.5m' matches no plane of sampleS.txt\n" +
                    std::string(Hint));
  expectFailure({"--particles", "beam.h5", "--particles-at", "1100mm,,2.1m"}, 2,
                "twiss-optics: error: --particles-at: '' is not a position along the beamline (a "
                "number with a length unit: 1100mm, 2.1m)\n" +
                    std::string(Hint));
  expectFailure({"--particles", "beam.h5", "--particles-at", "2MeV"}, 2,
                "twiss-optics: error: --particles-at: '2MeV' is not a position along the "
                "beamline (a number with a length unit: 1100mm, 2.1m)\n" +
                    std::string(Hint));
  expectFailure({"--particles-at", "1100mm"}, 2,
                "twiss-optics: error: --particles-at needs --particles FILE\n" + std::string(Hint));
  expectFailure({"--particles-compress", "3"}, 2,
                "twiss-optics: error: --particles-compress needs --particles FILE\n" +
                    std::string(Hint));
  for (const char *level : {"10", "-1", "x", ""})
    expectFailure({"--particles", "beam.h5", "--particles-compress", level}, 2,
                  "twiss-optics: error: --particles-compress: '" + std::string(level) +
                      "' is not a deflate level (0 to 9)\n" + Hint);
}

TEST_F(ParticleFileFailureTest, mergeTakesNoParticleFile) {
  ToolRun r =
      runOpticsTool(dir.path(), {"--merge", "m.json", "-o", "x.csv", "--particles", "p.h5"});
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(
      r.err,
      "twiss-optics: error: --merge takes the selection of its files: only -o, -q, -j, --plot, "
      "--phase-space with --at and --amplitude-change go with it\n" +
          std::string(Hint));
}

TEST_F(ParticleFileFailureTest, missingDirectory) {
  ToolRun r = run({"--particles", "nowhere/beam.h5"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "twiss-optics: error: nowhere/beam.h5: cannot be written (No such file or "
                   "directory)\n");
  EXPECT_FALSE(fileExists(path("table.csv")));
}

TEST_F(ParticleFileFailureTest, fullDisk) {
  RunSettings settings;
  settings.fileSizeBytes = 100000; // the file needs about a megabyte
  expectFailure({"--particles", "beam.h5"}, 1,
                "twiss-optics: error: beam.h5: cannot be written (File too large)\n", settings);
}

TEST_F(ParticleFileFailureTest, directoryInTheWay) {
  QDir(dir.path()).mkdir("beam.h5d");
  ToolRun r = run({"--particles", "beam.h5d"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "twiss-optics: error: beam.h5d: cannot be written (is a directory)\n");
  EXPECT_FALSE(fileExists(path("table.csv")));
}

TEST_F(ParticleFileFailureTest, tableThatCannotBeWrittenLeavesNoParticleFile) {
  writeFile(path("beam.h5"), "earlier particles\n");
  QStringList before = QDir(dir.path()).entryList(QDir::Files);
  ToolRun r =
      runOpticsTool(dir.path(), {"a", "b", "-q", "-o", "nowhere/t.csv", "--particles", "beam.h5"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(readFile(path("beam.h5")), "earlier particles\n");
  EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), before);
}

} // namespace
