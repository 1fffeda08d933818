//===- SimFile.cpp - The simulation input file, as the coordinate scan sees it ===//

#include "SimFile.h"

namespace Nexil {

SimFile::~SimFile() {}

void SimFile::clear() {}

void SimFile::dump(QString) {}

void SimFile::read() {}

QList<Cmdline> SimFile::geometry_bc() {
  read();
  return geometryLines;
}

void SimFile::prepareScan(ArgHash &) {}

void SimFile::parse(QString pass, ArgHash args) {
  auto handler = passHandlers.value(pass);
  if (handler)
    handler(args);
}

} // namespace Nexil
