//===- RunDirectoryTest.h - A run directory for each test -------*- C++ -*-===//
#ifndef TESTS_RUNDIRECTORYTEST_H
#define TESTS_RUNDIRECTORYTEST_H

#include "TestSupport.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

/// A temporary run directory, the files a run reads and writes there, and runs of
/// twiss in it.
class RunDirectoryTest : public ::testing::Test {
protected:
  /// A beamline that starts at the origin and goes straight along z.
  static constexpr const char *Straight = "%bcstart s=0m\n";

  QTemporaryDir dir;

  QString path(const QString &name) const { return dir.path() + "/" + name; }
  void write(const QString &name, const std::string &text) { writeFile(path(name), text); }
  std::string report() const { return readFile(path("twiss.calc.txt")); }
  bool hasReport() const { return fileExists(path("twiss.calc.txt")); }
  ToolRun run(const QStringList &arguments = {}, const RunSettings &settings = RunSettings()) {
    return runTool(dir.path(), arguments, settings);
  }
  /// Runs twiss and compares its standard output, standard error and exit status.
  void expectRun(const std::string &out, const std::string &err, int status,
                 const QStringList &arguments = {}) {
    ToolRun r = run(arguments);
    EXPECT_EQ(r.out, out);
    EXPECT_EQ(r.err, err);
    EXPECT_EQ(r.status, status);
  }
  /// Runs twiss, which must end with status 0, and compares the report it wrote.
  ToolRun expectReport(const std::string &expected) {
    ToolRun r = run();
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(report(), expected);
    return r;
  }
  /// Writes a straight beamline along z and the planes of sampleS.txt.
  void writeStraightRun(const std::string &planes) {
    write("beamlineCoordinates.txt", Straight);
    write("sampleS.txt", planes);
  }
  /// Copies the input files of the bundled example run.
  void copyExample() {
    for (const char *name : {"beamlineCoordinates.txt", "sampleS.txt", "AllTracks.txt"})
      ASSERT_TRUE(QFile::copy(QString(SOURCE_DIR "/examples/beamline/") + name, path(name)));
  }
};

#endif // TESTS_RUNDIRECTORYTEST_H
