//===- RotationFuzz.cpp - Rotation texts -----------------------------------===//

#include "FuzzSupport.h"
#include "Geometry.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  StateReset reset;
  Nexil::Transform t = Nexil::Transform::rotation(inputText(data, size));
  t.rotationString();
  t.toString();
  t.inverse();
  return 0;
}
