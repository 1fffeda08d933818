//===- BCSegment.cpp - Pieces of the beamline reference path ---------------===//
//
// The order of every product below is part of the coordinate system's definition:
// tilted kinks and arcs differ in how they undo their tilt, and the limits of the
// untilt (2 pi for a kink, the number 360 for an arc) differ on purpose.
//
//===----------------------------------------------------------------------------===//

#include "BCSegment.h"

#include "BeamlineCoordinates.h"
#include "Console.h"

#include <cmath>

namespace Nexil {

namespace {

Transform rotationAbout(const Vector &axis, double angle) {
  return Transform(Point(), axis, angle);
}

} // namespace

BCSegment::BCSegment(double s_min) : s_min(s_min), s_max(1e6), isSubdivide(false) {}

BCSegment::~BCSegment() {}

Transform BCSegment::setLines() {
  Transform a = getTransform(s_min);
  startLine = Line(a.origin(), a * Vector(0, 0, 1));
  Transform b = getTransform(s_max);
  endLine = Line(b.origin(), b * Vector(0, 0, 1));
  return b;
}

StraightBCSegment::StraightBCSegment(double s_min, double angle, double tilt)
    : BCSegment(s_min), angle(angle), tilt(tilt) {}

Transform StraightBCSegment::getTransform(double s) {
  if (s < s_min || s > s_max)
    throw QString("INTERNAL ERROR: StraightBCSegment invalid s");
  // complete() has folded -s_min into the transform already.
  return transform * Transform::translate(0, 0, s);
}

Transform StraightBCSegment::complete(double s, Transform prev) {
  s_max = s;
  Vector axis(0, 1, 0);
  Transform tiltT, untiltT;
  if (tilt != 0) {
    tiltT = rotationAbout(Vector(0, 0, 1), tilt);
    if (fabs(tilt) <= 2 * Pi)
      untiltT = rotationAbout(Vector(0, 0, 1), -tilt);
    axis = tiltT * axis;
  }
  transform = prev * rotationAbout(axis, angle) * untiltT * Transform::translate(0, 0, -s_min);
  return setLines();
}

StartBCSegment::StartBCSegment(double s_min, Transform placement) : StraightBCSegment(s_min, 0, 0) {
  transform = placement;
}

Transform StartBCSegment::complete(double s, Transform prev) {
  if (!prev.isIdentity())
    Error::message("Multiple %bcstart commands");
  // The start ignores prev and continues from its own placement.
  return StraightBCSegment::complete(s, Transform(transform));
}

ArcBCSegment::ArcBCSegment(double s_min, double angle, double tilt, double radius)
    : BCSegment(s_min), angle(angle), tilt(tilt), radius(radius) {
  if (radius < 0)
    Error::message("Invalid %bcbend command: radius < 0");
  if (tilt != 0) {
    tiltTransform = rotationAbout(Vector(0, 0, 1), tilt);
    if (fabs(tilt) <= 360)
      untiltTransform = tiltTransform.inverse();
  }
}

Transform ArcBCSegment::getTransform(double s) {
  double d = s - s_min;
  if (d < 0 || d > s_max - s_min)
    throw QString("INTERNAL ERROR: s out of bounds in ArcBCSegment");
  double theta = d / radius;
  double z = radius * sin(theta);
  double x = radius * (1 - cos(theta));
  if (angle < 0) {
    x = -x;
    theta = -theta;
  }
  return transform * tiltTransform * Transform::translate(x, 0, z) *
         rotationAbout(Vector(0, 1, 0), theta) * untiltTransform;
}

Transform ArcBCSegment::complete(double s, Transform prev) {
  s_max = s;
  double arcEnd = s_min + fabs(angle) * radius;
  if (fabs(s_max - arcEnd) <= BeamlineCoordinates::tolerance) {
    transform = prev;
    return setLines();
  }
  // The next segment does not begin where the arc ends.
  Console.printf("ArcBCSegment Invalid Overlap\n");
  Console.printf("s_min=%.6f s_max=%.5f s_min+angle*radius=%.6f\n", s_min, s_max, arcEnd);
  BeamlineCoordinates::write("-");
  throw QString("INTERNAL ERROR: Invalid overlap of Beamline Coordinate segments. radius=%1 "
                "angle=%2")
      .arg(radius)
      .arg(angle);
}

} // namespace Nexil
