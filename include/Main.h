//===- Main.h - The application object of a suite program --------*- C++ -*-===//
#ifndef NEXIL_MAIN_H
#define NEXIL_MAIN_H

namespace Nexil {

class SimFile;

/// The application: it knows the current simulation file.
class Main {
public:
  /// The current simulation file; null in this tool.
  static SimFile *currentSimulation;
  /// currentSimulation.
  static SimFile *simulation() { return currentSimulation; }
};

} // namespace Nexil

#endif // NEXIL_MAIN_H
