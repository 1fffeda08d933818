//===- main.cpp - Entry point of the twiss-optics tool ---------------------===//
//
// twiss-optics runs where twiss runs and writes the beam's optics at every plane.
//
//===----------------------------------------------------------------------------===//

#include "OpticsTool.h"

#include <csignal>

int main(int argc, char **argv) {
  // A write past the file size limit then fails and is reported like a full disk,
  // instead of ending the process without a word.
  signal(SIGXFSZ, SIG_IGN);
  return runOptics(argc, argv);
}
