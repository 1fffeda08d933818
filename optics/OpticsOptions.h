//===- OpticsOptions.h - The command line of twiss-optics ------*- C++ -*-===//
#ifndef OPTICS_OPTICSOPTIONS_H
#define OPTICS_OPTICSOPTIONS_H

#include "BeamOptics.h"
#include "TrackAnalysis.h"

#include <QString>
#include <QStringList>
#include <limits>

/// What the command line asks for.
struct OpticsOptions {
  enum Action { Analyse, Merge, Help, Version };
  Action action = Analyse;
  QStringList directories; ///< run directories, or moment files to merge
  QString output;          ///< the table; empty for the default, "-" for standard output
  QString saveMoments;     ///< empty for none
  QString tracks;          ///< the track file ("-": standard input); empty for the run's own
  Selection selection;
  MomentumReference reference;
  QStringList measures = {"2d"}; ///< the names of the measures taken, in the registry's order
  double bz = 0;                 ///< the solenoid field at planes that give none, T
  CrossingChoices choices;
  QList<double> amplitudeChange;   ///< s (mm) of the two planes compared; empty for none
  QStringList amplitudeChangeText; ///< those positions as given
  bool quiet = false;
  bool lenient = false;
  int threads = 1;              ///< threads for reading and testing crossings
  QString particles;            ///< the particle file; empty for none
  QList<double> particlesAt;    ///< s (mm) of the planes it holds; empty for every plane
  QStringList particlesAtText;  ///< those positions as given
  int particlesCompression = 0; ///< deflate level, 0 for none
  QStringList plots;            ///< envelope plots to draw, .png or .svg
  QString phaseSpace;           ///< the phase-space picture, .png or .svg; empty for none
  QList<double> phaseSpaceAt;   ///< s (mm) of its plane
  QStringList phaseSpaceAtText; ///< that position as given
};

/// Reads the arguments after the program's name; throws a usage Failure.
OpticsOptions parseOpticsOptions(const QStringList &arguments);

/// The text of --help.
QString opticsUsage();

#endif // OPTICS_OPTICSOPTIONS_H
