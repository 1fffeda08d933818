//===- SpeciesListFuzz.cpp - Lists of particle species ---------------------===//

#include "FuzzSupport.h"
#include "Species.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  StateReset reset;
  QString text = inputText(data, size);
  QList<int> ids;
  QString bad;
  QStringList entries = text.split(',');
  if (parseSpeciesList(text, ids, bad)) {
    if (ids.size() != entries.size())
      __builtin_trap(); // one species an entry
  } else {
    bool named = false;
    for (const QString &entry : entries)
      named = named || entry.trimmed() == bad;
    if (!named)
      __builtin_trap(); // the rejected entry is one of the list's
  }
  return 0;
}
