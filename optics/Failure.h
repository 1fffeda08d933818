//===- Failure.h - A problem that ends the optics tool ---------*- C++ -*-===//
#ifndef OPTICS_FAILURE_H
#define OPTICS_FAILURE_H

#include <QString>

/// Thrown where the tool cannot go on: the message (without the tool's prefix) and
/// the exit status, UsageError or InputError.
struct Failure {
  static constexpr int InputError = 1; ///< a file is missing, unreadable or wrong
  static constexpr int UsageError = 2; ///< the command line is wrong
  int status;
  QString message;
};

#endif // OPTICS_FAILURE_H
