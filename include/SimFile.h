//===- SimFile.h - The simulation input file, as the coordinate scan sees it --*- C++ -*-===//
//
// The simulation program derives its beamline coordinate system from its own input
// file. This tool never does; these classes hold just what the scan needs: the
// geometry command lines and one handler per pass over them, which the simulation
// (or a test) installs.
//
//===----------------------------------------------------------------------------===//
#ifndef NEXIL_SIMFILE_H
#define NEXIL_SIMFILE_H

#include "ArgHash.h"

#include <QHash>
#include <QList>
#include <QString>
#include <functional>

namespace Nexil {

/// One command line of a simulation file.
class Cmdline {
public:
  /// The command as written ("bcbend angle=30deg s=2m").
  QString text;
};

/// A simulation input file.
class SimFile {
public:
  /// The file's geometry command lines.
  QList<Cmdline> geometryLines;
  /// What each pass ("BCstart", "BeamlineCoordinates") does with the arguments.
  QHash<QString, std::function<void(ArgHash)>> passHandlers;

  /// Files of every kind are deleted through this base.
  virtual ~SimFile();
  /// Forgets the command lines read.
  virtual void clear();
  /// Writes the command lines to the file, for inspection.
  virtual void dump(QString filename);

  /// Loads the file's command lines if not yet loaded.
  void read();
  /// Reads the file and returns its geometry command lines.
  QList<Cmdline> geometry_bc();
  /// Resets the file's state for a new pass over its commands.
  void prepareScan(ArgHash &args);
  /// Runs the handler of the named pass, if one is installed.
  void parse(QString pass, ArgHash args);
};

/// The simulation's own input file; its scan starts from its "%bcstart" command.
class Simulation : public SimFile {};

} // namespace Nexil

#endif // NEXIL_SIMFILE_H
