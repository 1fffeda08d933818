//===- TestSupport.h - Helpers shared by the tests --------------*- C++ -*-===//
#ifndef TESTS_TESTSUPPORT_H
#define TESTS_TESTSUPPORT_H

#include "TrackReader.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <functional>
#include <ostream>
#include <string>

/// What a reader made of a file: the accepted steps and the count of each kind of line.
struct ReadLines {
  std::vector<Step> steps;
  TrackLineCounts counts;
};

/// Reads every step of the reader, then its line counts.
ReadLines readLines(TrackReader &reader);

/// Runs the function and returns what it wrote to standard error.
std::string stderrOf(const std::function<void()> &body);

/// Runs the function and returns what it wrote to standard output.
std::string stdoutOf(const std::function<void()> &body);

/// What a run of the twiss binary left behind.
struct ToolRun {
  std::string out;
  std::string err;
  int status = -1;        ///< exit status, or -1 when a signal ended the process
  int signal = 0;         ///< the signal that ended the process, or 0
  long peakKilobytes = 0; ///< the largest resident set of the process
};

/// Limits and environment for a run of the tool.
struct RunSettings {
  long fileSizeBytes = -1;   ///< largest file it may write, or -1
  bool unprivileged = false; ///< run as the user nobody when the tests run as root
  QStringList environment;   ///< NAME=VALUE pairs set for the run
  QString standardInput;     ///< a file (or named pipe) to read as standard input
};

/// Runs the built twiss binary in the directory with the arguments. The environment
/// variable TWISS_WRAPPER, when set, is a command (such as valgrind) to run it under.
ToolRun runTool(const QString &directory, const QStringList &arguments,
                const RunSettings &settings = RunSettings());

/// Runs the built twiss-optics binary in the directory with the arguments, under
/// TWISS_WRAPPER like runTool.
ToolRun runOpticsTool(const QString &directory, const QStringList &arguments,
                      const RunSettings &settings = RunSettings());

/// Runs a command (program and arguments) in the directory.
ToolRun runCommand(const QString &directory, const QStringList &command,
                   const RunSettings &settings = RunSettings());

/// The bytes as a compression tool (zstd, gzip, xz) writes them with its default level.
std::string compressedBy(const QString &tool, const std::string &bytes);

/// Writes a text file (bytes as given).
void writeFile(const QString &path, const std::string &bytes);

/// Reads a whole file; empty when it does not exist.
std::string readFile(const QString &path);

/// A device in the directory that refuses every write for lack of space: a node of
/// its own when the tests may make one, so that a fault could never replace the
/// system's; /dev/full otherwise.
QString fullDevice(const QString &directory);

/// Whether the file exists.
bool fileExists(const QString &path);

/// The messages of every error banner in the captured text, joined by "|".
std::string bannerMessages(const std::string &stderrText);

/// The text of the QString that the function throws, or "(nothing thrown)".
std::string thrown(const std::function<void()> &body);

/// The report lines of a plane at s that nothing crossed.
std::string emptyReport(int s);

/// The rows of a CSV table (no quoting), each a map from column name to field.
QList<QHash<QString, QString>> csvRows(const std::string &text);

/// Lets GoogleTest print QString values as text.
inline void PrintTo(const QString &text, std::ostream *os) {
  *os << '"' << text.toStdString() << '"';
}

#endif // TESTS_TESTSUPPORT_H
