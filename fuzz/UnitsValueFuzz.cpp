//===- UnitsValueFuzz.cpp - Numbers with units -----------------------------===//

#include "FuzzSupport.h"
#include "Units.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  StateReset reset;
  Nexil::Units::Value value(inputText(data, size));
  bool ok = false;
  value.convert("mm", &ok);
  value.convert(value.unit(), nullptr);
  value.to_s("%g", true);
  return 0;
}
