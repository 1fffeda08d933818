//===- BCSample.h - A sampling plane across the reference path --*- C++ -*-===//
//
// A plane placed across the beamline at one s. It watches the steps of every track,
// detects where a track crosses it, interpolates the crossing between the steps on
// either side, takes it into the plane's local frame and hands it to its statistics.
//
//===----------------------------------------------------------------------------===//
#ifndef TWISS_BCSAMPLE_H
#define TWISS_BCSAMPLE_H

#include "Geometry.h"
#include "Step.h"
#include "Twiss.h"

#include <QList>
#include <QString>
#include <cmath>

/// One sampling plane; all planes are kept in the class-wide list. Planes are never
/// deleted by the tool (hence no virtual destructor), and no class derives from it.
class BCSample final {
public:
  /// The sums of the crossings counted at this plane.
  Twiss statistics;
  /// Crossings counted, as statistics.entries.
  int nCrossings;
  /// Position along the path, whole millimetres.
  int s;
  /// Crossings farther than this from the plane's centre are dropped (millimetres).
  double radiusCut;
  /// Centre of the plane, global millimetres.
  Nexil::Point point;
  /// Unit normal of the plane: the path's direction at s.
  Nexil::Vector normal;
  /// Global to local frame of the plane.
  Nexil::Transform transform;
  /// Whether crossings against the normal count too.
  bool bothDirections;
  /// Signed distance of the previous step of the track; never exactly 0.
  double previousDistance;

  /// Every plane, in the order of sampleS.txt.
  static QList<BCSample *> samples;
  /// Whether the next step is the first of a track.
  static bool firstStep;
  /// The step fed to the planes before the current one.
  static Step previous;

  /// Places the plane from one line of sampleS.txt ("1500mm 100mm [bothDirections=true]").
  explicit BCSample(QString planeText);
  /// A plane at exactly sMillimetres along the path, for a tool that keeps statistics
  /// of its own: nothing is printed and the plane is not added to the list; `s` holds
  /// the rounded position. Throws the coordinate system's message for an s off the path.
  BCSample(double sMillimetres, double radiusCut, bool bothDirections);

  /// Tests the step against the plane: a crossing since the previous step is
  /// interpolated, taken into the plane's frame and counted; with -d it is printed.
  virtual void handleStep(Step &step);
  /// Passes the start of a track to the statistics.
  virtual void trackBegin(int eventID, int trackID) { statistics.trackBegin(eventID, trackID); }
  /// Passes the end of a track to the statistics.
  virtual void trackEnd(int eventID, int trackID) { statistics.trackEnd(eventID, trackID); }

  /// Adds a crossing, already in the plane's frame (positions in mm), to the statistics.
  void calculate(Step &crossing);
  /// Signed distance of a global point from the plane, positive along the normal.
  double distanceOf(const Nexil::Point &p) const { return normal.dot(p - point); }
  /// The distance as previousDistance keeps it: exactly 0 becomes 1e-9.
  static double storedDistance(double d) { return d == 0 ? 1e-9 : d; }
  /// Whether a move from distance `before` to distance d counts as a crossing: a
  /// forward one, or landing on the plane from the negative side; backward ones only
  /// with bothDirections. A NaN distance fails every test.
  static bool crosses(double before, double d, bool bothDirections) {
    return d * before <= 0 && (bothDirections || d > 0 || (d == 0 && before < 0));
  }
  /// Where between the steps the plane lies, as the fraction of the way back from the
  /// current step to the previous one; the midpoint when the distances hardly differ.
  static double crossingFraction(double before, double d) {
    return fabs(d - before) > 1e-9 ? fabs(d / (d - before)) : 0.5;
  }
  /// The value at the crossing, a fraction f of the way back to the previous step.
  static double mix(double current, double before, double f) {
    return (1 - f) * current + f * before;
  }
  /// mix for each coordinate of a position.
  static Nexil::Point mix(const Nexil::Point &current, const Nexil::Point &before, double f) {
    return Nexil::Point(mix(current.x, before.x, f), mix(current.y, before.y, f),
                        mix(current.z, before.z, f));
  }
  /// mix for each component of a momentum.
  static Nexil::Vector mix(const Nexil::Vector &current, const Nexil::Vector &before, double f) {
    return Nexil::Vector(mix(current.x, before.x, f), mix(current.y, before.y, f),
                         mix(current.z, before.z, f));
  }
  /// Whether a crossing at r from the centre lies within the radius cut.
  static bool withinCut(const Nexil::Vector &r, double radiusCut) {
    return r.dot(r) <= radiusCut * radiusCut;
  }
  /// The plane's five lines of twiss.calc.txt.
  QString result();

  /// The planes in the list.
  static int nSamples();
  /// Starts a track on every plane: its first step only records where it is.
  static void beginTrack(int eventID, int trackID);
  /// Offers the step to every plane in list order, then records it as the previous step.
  static void trackStep(Step step);
  /// Records the step as the track's previous one, after it has been offered to the planes.
  static void rememberStep(const Step &step) {
    firstStep = false;
    previous = step;
  }
  /// Ends the track on every plane.
  static void endTrack(int eventID, int trackID);

private:
  /// Takes the centre, normal and global-to-local transform from the path at s.
  void placeAt(double sMetres);
};

/// s in millimetres plus 0.5, truncated toward zero; out of range or NaN gives INT_MIN.
int roundedMillimetres(double s);

#endif // TWISS_BCSAMPLE_H
