//===- TestSupport.h - Helpers shared by the tests --------------*- C++ -*-===//
#ifndef TESTS_TESTSUPPORT_H
#define TESTS_TESTSUPPORT_H

#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <functional>
#include <ostream>
#include <string>

/// Runs the function and returns what it wrote to standard error.
std::string stderrOf(const std::function<void()> &body);

/// Runs the function and returns what it wrote to standard output.
std::string stdoutOf(const std::function<void()> &body);

/// What a run of the twiss binary left behind.
struct ToolRun {
  std::string out;
  std::string err;
  int status = -1; ///< exit status, or -1 when a signal ended the process
  int signal = 0;  ///< the signal that ended the process, or 0
};

/// Runs the built twiss binary in the directory with the arguments.
ToolRun runTool(const QString &directory, const QStringList &arguments);

/// Writes a text file (bytes as given).
void writeFile(const QString &path, const std::string &bytes);

/// Reads a whole file; empty when it does not exist.
std::string readFile(const QString &path);

/// Whether the file exists.
bool fileExists(const QString &path);

/// The messages of every error banner in the captured text, joined by "|".
std::string bannerMessages(const std::string &stderrText);

/// Lets GoogleTest print QString values as text.
inline void PrintTo(const QString &text, std::ostream *os) {
  *os << '"' << text.toStdString() << '"';
}

#endif // TESTS_TESTSUPPORT_H
