//===- main.cpp - Entry point of the twiss analysis tool -------------------===//
//
// twiss runs in the directory that a tracking simulation left behind, samples the
// beam on planes across the reference path and writes twiss.calc.txt.
//
//===----------------------------------------------------------------------------===//

#include "CommandLine.h"

int main(int argc, char **argv) {
  return runTwiss(argc, argv);
}
