//===- EvaluatorFuzz.cpp - Expressions in each requested unit form ---------===//
//
// The first byte picks the requested unit: "mm", "*" or "-". A few macros give the
// identifiers something to expand to; none refers to itself.
//
//===----------------------------------------------------------------------------===//

#include "FuzzSupport.h"
#include "Macro.h"
#include "Units.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0)
    return 0;
  StateReset reset;
  Nexil::Macro::define("w", "2mm");
  Nexil::Macro::define("a", "b+1");
  Nexil::Macro::define("b", "3");
  Nexil::Macro::define("f", "max(");
  const char *units[] = {"mm", "*", "-"};
  QString expression = inputText(data + 1, size - 1);
  bool ok = false;
  Nexil::Units::value(expression, units[data[0] % 3], nullptr);
  Nexil::Units::value(expression, units[(data[0] / 3) % 3], &ok);
  Nexil::Units::unit(expression);
  return 0;
}
