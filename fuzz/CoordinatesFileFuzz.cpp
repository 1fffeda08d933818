//===- CoordinatesFileFuzz.cpp - The beamline coordinates file -------------===//
//
// The input follows a valid start line, and inputs whose s, radius or angle is not a
// finite number are passed over: a NaN length removes every segment, and finishing an
// empty list stops the program by an assertion. The library's internal errors are
// normal ends.
//
//===----------------------------------------------------------------------------===//

#include "BeamlineCoordinates.h"
#include "FuzzSupport.h"

#include "Units.h"

#include <QFile>
#include <QTextStream>
#include <cmath>

namespace {

/// Whether every s, radius and angle of the commands is a finite number, with the
/// file's lines read as the coordinates reader reads them.
bool finiteCommands(const QString &path) {
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
    return false;
  QTextStream in(&file);
  while (!in.atEnd()) {
    Nexil::ArgHash args(in.readLine().simplified());
    if (args.value("0") != "%bcstart" && args.value("0") != "%bcbend")
      continue;
    const char *keys[][2] = {{"s", "m"}, {"radius", "m"}, {"angle", "rad"}};
    for (const auto &key : keys)
      if (!std::isfinite(Nexil::Units::value(args.value(key[0]), key[1], nullptr)))
        return false;
  }
  return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  StateReset reset;
  const QString path = writeInputFile("beamlineCoordinates.txt", "%bcstart s=0m\n", data, size);
  if (path.isEmpty() || !finiteCommands(path))
    return 0;
  try {
    Nexil::BeamlineCoordinates::initFromFile(path);
    Nexil::BeamlineCoordinates::write("-");
    Nexil::BeamlineCoordinates::global2BC(Nexil::Point(0.1, 0.2, 3));
    Nexil::BeamlineCoordinates::getClosestS(
        Nexil::Line(Nexil::Point(1, 0, 2), Nexil::Vector(1, 0.1, 0)));
  } catch (const QString &message) {
    if (!isInternalError(message))
      __builtin_trap();
  }
  return 0;
}
