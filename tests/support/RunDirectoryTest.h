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
  QTemporaryDir dir;

  QString path(const QString &name) const { return dir.path() + "/" + name; }
  void write(const QString &name, const std::string &text) { writeFile(path(name), text); }
  std::string report() const { return readFile(path("twiss.calc.txt")); }
  bool hasReport() const { return fileExists(path("twiss.calc.txt")); }
  ToolRun run(const QStringList &arguments = {}, const RunSettings &settings = RunSettings()) {
    return runTool(dir.path(), arguments, settings);
  }
  /// Copies the input files of the bundled example run.
  void copyExample() {
    for (const char *name : {"beamlineCoordinates.txt", "sampleS.txt", "AllTracks.txt"})
      ASSERT_TRUE(QFile::copy(QString(SOURCE_DIR "/examples/beamline/") + name, path(name)));
  }
};

#endif // TESTS_RUNDIRECTORYTEST_H
