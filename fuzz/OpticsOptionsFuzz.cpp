//===- OpticsOptionsFuzz.cpp - The command line of twiss-optics ------------===//

#include "Failure.h"
#include "FuzzSupport.h"
#include "OpticsOptions.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  StateReset reset;
  // One argument a line.
  QStringList arguments = inputText(data, size).split('\n');
  try {
    OpticsOptions options = parseOpticsOptions(arguments);
    if (options.directories.isEmpty() && options.action == OpticsOptions::Analyse)
      __builtin_trap(); // the current directory is the default
  } catch (const UsageError &failure) {
    // Every problem of a command line is a usage error with a message.
    if (failure.status != 2 || failure.message.isEmpty())
      __builtin_trap();
  }
  return 0;
}
