//===- OpticsTool.h - The twiss-optics tool --------------------*- C++ -*-===//
#ifndef OPTICS_OPTICSTOOL_H
#define OPTICS_OPTICSTOOL_H

/// Runs twiss-optics with the command line; returns the exit status.
int runOptics(int argc, char **argv);

#endif // OPTICS_OPTICSTOOL_H
