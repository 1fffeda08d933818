//===- CoordinatesFileFuzz.cpp - The beamline coordinates file -------------===//
//
// The input follows a valid start line, so that finishing never meets an empty list
// (that is a specified assertion). The specified internal errors are normal ends.
//
//===----------------------------------------------------------------------------===//

#include "BeamlineCoordinates.h"
#include "FuzzSupport.h"

#include <QFile>
#include <QTemporaryDir>

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  silenceLibraryOutput();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  StateReset reset;
  static QTemporaryDir dir;
  const QString path = dir.path() + "/beamlineCoordinates.txt";
  QFile file(path);
  if (!file.open(QIODevice::WriteOnly))
    return 0;
  file.write("%bcstart s=0m\n");
  file.write(reinterpret_cast<const char *>(data), qint64(size));
  file.close();
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
