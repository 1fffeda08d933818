//===- OpticsJobsTest.h - Jobs of one beam, analysed by the optics tool -*- C++ -*-===//
#ifndef TESTS_OPTICSJOBSTEST_H
#define TESTS_OPTICSJOBSTEST_H

#include "OpticsBeam.h"
#include "TestSupport.h"

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <gtest/gtest.h>

/// Run directories of a beam in a temporary directory, and runs of twiss-optics there.
class OpticsJobsTest : public ::testing::Test {
protected:
  QTemporaryDir dir;
  QString path(const QString &name) const { return dir.path() + "/" + name; }
  /// A job of the beam, seeded, with planes at 100, 700 and 1300 mm.
  void writeJob(const QString &name, unsigned seed) {
    QDir(dir.path()).mkdir(name);
    OpticsBeam beam = OpticsBeam::job(seed);
    beam.sigmaT = 0.1;
    beam.write(path(name), {100, 700, 1300});
  }
  ToolRun run(const QStringList &arguments) { return runOpticsTool(dir.path(), arguments); }
  /// Runs the tool quietly, which must succeed without a word.
  void expectRun(const QStringList &arguments) {
    ToolRun r = run(arguments + QStringList{"-q"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
  }
  std::string header(const QString &table) const {
    std::string text = readFile(path(table));
    return text.substr(0, text.find('\n'));
  }
  QJsonObject jsonOf(const QString &name) const {
    return QJsonDocument::fromJson(QByteArray::fromStdString(readFile(path(name)))).object();
  }
};

#endif // TESTS_OPTICSJOBSTEST_H
