//===- MacroExpandFuzz.cpp - Macro references in text ----------------------===//
//
// The macros defined here never refer to themselves, so every expansion ends.
//
//===----------------------------------------------------------------------------===//

#include "FuzzSupport.h"
#include "Macro.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  StateReset reset;
  Nexil::Macro::define("a", "5");
  Nexil::Macro::define("n", "9");
  Nexil::Macro::define("len", "2mm");
  Nexil::Macro::define("ref", "${a}");
  Nexil::Macro::globalHash.insert("g", "$len");
  Nexil::Macro::expand(inputText(data, size));
  return 0;
}
