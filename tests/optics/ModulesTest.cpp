//===- ModulesTest.cpp - The parts of the optics tool loaded when asked for -===//
//
// The tool loads Qt's painting and HDF5 only for a run that draws or writes or reads a
// particle file; the dynamic linker's own account (LD_DEBUG=files) lists every library
// a run opens. A tool whose modules are missing says what it cannot do before it reads
// any track.
//
//===----------------------------------------------------------------------------===//

#include "Modules.h"
#include "TestSupport.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

class ModulesTest : public ::testing::Test {
protected:
  QTemporaryDir dir;
  QString path(const QString &name) const { return dir.path() + "/" + name; }
  void SetUp() override {
    const QString example = QString(SOURCE_DIR) + "/examples/beamline/";
    for (const char *name : {"beamlineCoordinates.txt", "sampleS.txt", "AllTracks.txt"})
      ASSERT_TRUE(QFile::copy(example + name, path(name)));
  }
  /// A run of the built tool, with what the dynamic linker opened on its standard error.
  ToolRun opening(const QStringList &arguments) {
    RunSettings settings;
    settings.environment << "LD_DEBUG=files";
    return runOpticsTool(dir.path(), arguments, settings);
  }
  static bool opened(const ToolRun &r, const std::string &library) {
    return r.err.find("file=" + library) != std::string::npos;
  }
  /// A run of a copy of the tool in a folder of its own, without its modules.
  ToolRun alone(const QStringList &arguments) {
    EXPECT_TRUE(QDir(dir.path()).mkdir("bin"));
    EXPECT_TRUE(QFile::copy(OPTICS_BINARY, path("bin/twiss-optics")));
    return runCommand(dir.path(), QStringList{path("bin/twiss-optics")} + arguments);
  }
  /// The error of a copy alone that needs the module `file` to do `what`.
  std::string missing(const std::string &what, const std::string &file) const {
    return "twiss-optics: error: " + what + ": their module cannot be loaded (" +
           path("bin/").toStdString() + OPTICS_MODULE_DIR "/" + file +
           ": cannot open shared object file: No such file or directory)\n";
  }
};

} // namespace

TEST_F(ModulesTest, aRunThatDrawsNothingOpensNeitherPaintingNorHdf5) {
  const ToolRun plain = opening({"-q"});
  EXPECT_EQ(plain.status, 0);
  EXPECT_TRUE(opened(plain, "libQt6Core.so.6"));
  EXPECT_FALSE(opened(plain, "libQt6Gui.so.6"));
  EXPECT_FALSE(opened(plain, "libhdf5"));
  EXPECT_FALSE(opened(plain, "twiss-optics-"));

  const ToolRun drawn = opening({"-q", "--plot", "envelope.svg"});
  EXPECT_EQ(drawn.status, 0);
  EXPECT_TRUE(opened(drawn, "libQt6Gui.so.6"));
  EXPECT_TRUE(opened(drawn, "libQt6Svg.so.6"));
  EXPECT_FALSE(opened(drawn, "libhdf5"));

  const ToolRun particles = opening({"-q", "--particles", "p.h5"});
  EXPECT_EQ(particles.status, 0);
  EXPECT_TRUE(opened(particles, "libhdf5"));
  EXPECT_FALSE(opened(particles, "libQt6Gui.so.6"));
  EXPECT_TRUE(isHdf5File(path("p.h5")));

  const ToolRun merged = opening({"--merge", "p.h5", "-o", "m.csv", "-q"});
  EXPECT_EQ(merged.status, 0);
  EXPECT_TRUE(opened(merged, "libhdf5"));
  EXPECT_EQ(readFile(path("m.csv")), readFile(path("twiss.optics.csv")));
}

TEST_F(ModulesTest, aToolWithoutItsModulesSaysWhatItCannotDoBeforeReadingTracks) {
  QFile::remove(path("AllTracks.txt"));
  for (const QStringList &arguments : {QStringList{"--plot", "envelope.png"},
                                       QStringList{"--phase-space", "p.svg", "--at", "250mm"}}) {
    const ToolRun r = alone(arguments);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, missing("pictures cannot be drawn", "twiss-optics-pictures.so"));
    EXPECT_FALSE(fileExists(path("twiss.optics.csv")));
    QDir(path("bin")).removeRecursively();
  }
}

TEST_F(ModulesTest, aToolWithoutItsModulesWritesAndReadsNoParticleFile) {
  writeFile(path("p.h5"), "\x89HDF\r\n\x1a\n");
  for (const QStringList &arguments :
       {QStringList{"--particles", "q.h5"}, QStringList{"--merge", "p.h5", "-o", "m.csv"}}) {
    const ToolRun r = alone(arguments);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err,
              missing("particle files cannot be written or read", "twiss-optics-particles.so"));
    EXPECT_FALSE(fileExists(path("q.h5")));
    EXPECT_FALSE(fileExists(path("m.csv")));
    EXPECT_FALSE(fileExists(path("twiss.optics.csv")));
    QDir(path("bin")).removeRecursively();
  }
}

TEST(Hdf5SignatureTest, aFileIsHdf5WhenItBeginsAsHdf5FilesDo) {
  QTemporaryDir dir;
  writeFile(dir.path() + "/a", std::string("\x89HDF\r\n\x1a\n", 8) + "rest");
  writeFile(dir.path() + "/b", std::string("\x89HDF\r\n\x1a", 7));
  writeFile(dir.path() + "/c", "{\"moments\": 1}");
  EXPECT_TRUE(isHdf5File(dir.path() + "/a"));
  EXPECT_FALSE(isHdf5File(dir.path() + "/b"));
  EXPECT_FALSE(isHdf5File(dir.path() + "/c"));
  EXPECT_FALSE(isHdf5File(dir.path() + "/missing"));
}
