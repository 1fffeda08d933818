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
  double s_min;
  double s_max;
  Transform transform;
  /// The command line that the segment stands for; empty when read from a file.
  QString cmdline;
  /// Set for segments that are not written back as command lines.
  bool isSubdivide;
  /// Point and direction of the path at s_min.
  Line startLine;
  /// Point and direction of the path at s_max.
  Line endLine;

  explicit BCSegment(double s_min);
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
  double angle;
  double tilt;

  StraightBCSegment(double s_min, double angle, double tilt);
  Transform getTransform(double s) override;
  Transform complete(double s, Transform prev) override;
};

/// The start of the path, placed in global coordinates.
class StartBCSegment : public StraightBCSegment {
public:
  StartBCSegment(double s_min, Transform placement);
  Transform complete(double s, Transform prev) override;
};

/// A circular arc; the sign of angle chooses the side, its length is s_max - s_min.
class ArcBCSegment : public BCSegment {
public:
  double angle;
  double tilt;
  double radius;
  Transform tiltTransform;
  Transform untiltTransform;

  ArcBCSegment(double s_min, double angle, double tilt, double radius);
  Transform getTransform(double s) override;
  Transform complete(double s, Transform prev) override;
};

} // namespace Nexil

#endif // NEXIL_BCSEGMENT_H
