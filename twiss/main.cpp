//===- main.cpp - Entry point of the twiss analysis tool -------------------===//
//
// twiss runs in the directory that a tracking simulation left behind, samples the
// beam on planes across the reference path and writes twiss.calc.txt.
//
//===----------------------------------------------------------------------------===//

#include "CommandLine.h"

#include <csignal>

int main(int argc, char **argv) {
  // A write past the file size limit then fails and is reported like a full disk,
  // instead of ending the process without a word.
  signal(SIGXFSZ, SIG_IGN);
  return runTwiss(argc, argv);
}
