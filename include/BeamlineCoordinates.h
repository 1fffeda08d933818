//===- BeamlineCoordinates.h - The beamline coordinate system --*- C++ -*-===//
//
// The one reference path of the process: an ordered, contiguous list of segments
// covering s from the start to 1e6. It gives the frame at any s, maps global points
// to beamline coordinates (x, y, s) and finds where a line passes closest to the path.
// Lengths are those of the input (metres when read from beamlineCoordinates.txt).
//
//===----------------------------------------------------------------------------===//
#ifndef NEXIL_BEAMLINECOORDINATES_H
#define NEXIL_BEAMLINECOORDINATES_H

#include "ArgHash.h"
#include "BCSegment.h"
#include "Geometry.h"

#include <QHash>
#include <QList>
#include <QStringList>

namespace Nexil {

class SimFile;

/// The process-wide beamline coordinate system; all members are class-wide.
class BeamlineCoordinates {
public:
  /// The segments, owned; after finishing sorted by s_min and contiguous.
  static QList<BCSegment *> segments;
  /// The global origin, then the end point of each kept segment.
  static QList<Point> segmentPoints;
  /// Path length per chord length of each segment's chord; the last is 1.0.
  static QList<double> factors;
  /// The s at which the next element begins while a simulation file is scanned.
  static double nextS;
  /// True only while a scan's placement pass runs.
  static bool enableSampleS;
  /// Sampling planes to write to sampleS.txt: s in mm -> radius in mm.
  static QHash<int, double> sampleS;
  /// The one tolerance of the coordinate system, compared with differences of s.
  static double tolerance;

  /// Deletes every segment and empties every list; nextS 0, enableSampleS false.
  static void clear();
  /// Appends a segment; the list takes ownership.
  static void addSegment(BCSegment *seg);
  /// The sort order of the segments: ascending s_min.
  static bool lessthan(const BCSegment *a, const BCSegment *b);
  /// s at the start of the first segment.
  static double initialS();
  /// The segment that contains s (the earlier one at a shared boundary).
  static BCSegment *bcSegment(double s);
  /// The frame of the path at s.
  static Transform getTransform(double s);
  /// Beamline coordinates of a global point: (local x, local y, s).
  static Point global2BC(Point p);
  /// The s at which the line passes closest to the reference path.
  static double getClosestS(Line line);
  /// The command lines that describe the system.
  static QStringList getCmdlines();
  /// Writes the coordinates file; the name "-" prints the console dump instead.
  static void write(QString filename);
  /// Writes the sampling planes of sampleS as "<s>mm <radius>mm" lines.
  static void writeSampleS(QString filename);
  /// Reads a coordinates file and finishes the system.
  static void initFromFile(QString filename);
  /// Adds the segments of one line of a coordinates file; blank lines, comments and
  /// other commands add nothing. The system is finished by scan(nullptr, ArgHash()).
  static void readCommand(QString line);
  /// Reads nothing and returns false; reading is done by initFromFile.
  static bool read(QString filename);
  /// Rebuilds the system from a simulation file (none: only finishes the segment list).
  static void scan(SimFile *file, ArgHash args);
  /// Moves nextS past the far end of one placed element.
  static void updateNextS(ArgHash args);
  /// Registers the simulation's commands; nothing to register in this tool.
  static void initCmds();

private:
  static void finish(double expectedStart);
  static void dump();
};

} // namespace Nexil

#endif // NEXIL_BEAMLINECOORDINATES_H
