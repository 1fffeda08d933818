//===- CommandLine.h - The twiss command line and its descriptor --*- C++ -*-===//
#ifndef TWISS_COMMANDLINE_H
#define TWISS_COMMANDLINE_H

/// Reads the command line and runs the analysis; returns the process exit status.
int runTwiss(int argc, char **argv);

#endif // TWISS_COMMANDLINE_H
