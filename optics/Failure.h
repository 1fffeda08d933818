//===- Failure.h - A problem that ends the optics tool ---------*- C++ -*-===//
//
// Three kinds, each thrown as its own type with its exit status: the command line is
// wrong (a usage error), an input cannot be read or holds what it must not (an input
// error), an output cannot be written (an output error). The library's thrown texts
// and the HDF5 library's failures are turned into these where they are met.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_FAILURE_H
#define OPTICS_FAILURE_H

#include <QString>

/// Thrown where the tool cannot go on: the message (without the tool's prefix) and
/// the exit status.
struct Failure {
  QString message;
  int status;
};

/// The command line is wrong: status 2.
struct UsageError : Failure {
  explicit UsageError(const QString &message) : Failure{message, 2} {}
};

/// An input is missing, unreadable or wrong: status 1.
struct InputError : Failure {
  explicit InputError(const QString &message) : Failure{message, 1} {}
  /// A read of the file failed, for the system's reason ("Input/output error").
  static InputError unreadable(const QString &path, const QString &reason) {
    return InputError(path + ": cannot be read (" + reason + ")");
  }
};

/// An output cannot be written: status 1.
struct OutputError : Failure {
  explicit OutputError(const QString &message) : Failure{message, 1} {}
};

#endif // OPTICS_FAILURE_H
