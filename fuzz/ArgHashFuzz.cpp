//===- ArgHashFuzz.cpp - Argument strings ----------------------------------===//

#include "ArgHash.h"
#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  StateReset reset;
  Nexil::ArgHash args(inputText(data, size));
  for (auto it = args.cbegin(); it != args.cend(); ++it)
    if (it.key().isEmpty())
      __builtin_trap(); // every key is a name or a positional number
  return 0;
}
