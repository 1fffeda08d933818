//===- BCSegment.h - Pieces of the beamline reference path -----*- C++ -*-===//
//
// The reference path is a chain of segments parametrised by the path length s: the
// start placement, straights (a zero-length straight carries a kink) and circular
// arcs. In a segment's local frame z runs along the path; an untilted arc bends in
// the local x-z plane, about local y.
//
//===----------------------------------------------------------------------------===//
#ifndef NEXIL_BCSEGMENT_H
#define NEXIL_BCSEGMENT_H

#include "Geometry.h"

#include <QString>

namespace Nexil {

/// One piece of the reference path.
class BCSegment {
public:
  /// Where the segment begins along the path, m.
  double s_min;
  /// Where it ends, m; the last segment reaches far beyond any plane.
  double s_max;
  /// The segment's placement, m: getTransform(s) derives the frame at s from it.
  Transform transform;
  /// The command line that the segment stands for; empty when read from a file.
  QString cmdline;
  /// Set for segments that are not written back as command lines.
  bool isSubdivide;
  /// Point and direction of the path at s_min.
  Line startLine;
  /// Point and direction of the path at s_max.
  Line endLine;

  /// A segment that begins at s_min (m); complete() ends it.
  explicit BCSegment(double s_min);
  /// Segments are owned by the coordinate system and deleted through this base.
  virtual ~BCSegment();
  /// The local frame at s; throws when s lies outside the segment.
  virtual Transform getTransform(double s) = 0;
  /// Ends the segment at s, continuing from prev; returns the frame at the end.
  virtual Transform complete(double s, Transform prev) = 0;

protected:
  /// Sets startLine and endLine from the frames at s_min and s_max; returns the latter.
  Transform setLines();
};

/// A straight piece, with an optional kink (angle, tilt) at its start.
class StraightBCSegment : public BCSegment {
public:
  /// The kink's turn, rad: positive turns +z towards +x.
  double angle;
  /// The turn's plane, rad about the path's direction.
  double tilt;

  /// A straight piece from s_min (m), kinked at its start by angle and tilt (rad).
  StraightBCSegment(double s_min, double angle, double tilt);
  /// The frame at s: the kinked start frame moved along its z axis.
  Transform getTransform(double s) override;
  /// Ends the piece at s (m) after the frame prev of the segment before.
  Transform complete(double s, Transform prev) override;
};

/// The start of the path, placed in global coordinates.
class StartBCSegment : public StraightBCSegment {
public:
  /// The start at s_min (m), placed in global coordinates (m) by placement.
  StartBCSegment(double s_min, Transform placement);
  /// Ends the first piece at s (m); prev is not used: the placement holds.
  Transform complete(double s, Transform prev) override;
};

/// A circular arc; the sign of angle chooses the side, its length is s_max - s_min.
class ArcBCSegment : public BCSegment {
public:
  /// The arc's total turn, rad: positive turns +z towards +x.
  double angle;
  /// The bend plane, rad about the path's direction.
  double tilt;
  /// The arc's radius, m.
  double radius;
  /// The rotation by tilt about the path's direction, and its inverse.
  Transform tiltTransform;
  Transform untiltTransform;

  /// An arc from s_min (m) turning by angle in the plane tilted by tilt (rad).
  ArcBCSegment(double s_min, double angle, double tilt, double radius);
  /// The frame at s, a fraction of the way round the arc.
  Transform getTransform(double s) override;
  /// Ends the arc at s (m) after the frame prev of the segment before.
  Transform complete(double s, Transform prev) override;
};

} // namespace Nexil

#endif // NEXIL_BCSEGMENT_H
