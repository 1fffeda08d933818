//===- twiss-reference.cpp - twiss with the straightforward track loop -----===//
//
// The reference for the benchmarks and the differential tests: every line read
// through a text stream (simplified, sscanf), every step offered to every plane.
// Run in a run directory like twiss itself; writes the same twiss.calc.txt.
//
//===----------------------------------------------------------------------------===//

#include "Analysis.h"
#include "BeamlineCoordinates.h"

#include <cstdio>

int main() {
  Nexil::BeamlineCoordinates::initFromFile("beamlineCoordinates.txt");
  if (!readPlanes())
    return 1;
  TrackReader reader("AllTracks.txt", TrackReader::TextStream);
  if (!reader.isOpen()) {
    printf("twiss error: Cannot open 'AllTracks.txt'\n");
    return 1;
  }
  feedTracks(reader, [](Step &step) { BCSample::trackStep(step); });
  return writeReport() ? 0 : 1;
}
