//===- SampleLineFuzz.cpp - One sampleS.txt line on a fixed beamline -------===//

#include "BCSample.h"
#include "BeamlineCoordinates.h"
#include "FuzzSupport.h"

namespace {

void buildBeamline() {
  using namespace Nexil;
  BeamlineCoordinates::addSegment(new StartBCSegment(0, Transform()));
  BeamlineCoordinates::addSegment(new ArcBCSegment(2, 0.5, 0.2, 2));
  BeamlineCoordinates::addSegment(new StraightBCSegment(3, 0, 0));
  BeamlineCoordinates::scan(nullptr, ArgHash());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  StateReset reset;
  buildBeamline();
  try {
    new BCSample(inputText(data, size).simplified());
    BCSample::samples.first()->result();
  } catch (const QString &message) {
    if (!isInternalError(message))
      __builtin_trap();
  }
  return 0;
}
