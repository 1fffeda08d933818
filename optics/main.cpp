//===- main.cpp - Entry point of the twiss-optics tool ---------------------===//
//
// twiss-optics runs where twiss runs and writes the beam's optics at every plane.
//
//===----------------------------------------------------------------------------===//

#include "OpticsTool.h"

int main(int argc, char **argv) {
  return runOptics(argc, argv);
}
