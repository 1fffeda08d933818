//===- PlaneGeometry.h - What a plane's crossing test reads ----*- C++ -*-===//
//
// Without debug lines, the statistics need only the position of a crossing: the
// momentum, the time and the extra column are interpolated for the debug lines alone.
// The members of a plane that this test reads are copied here, about 100 bytes a
// plane instead of the whole plane object, so that thousands of planes stay in the
// processor's cache. The test is handleStep's arithmetic, piece by piece, so its
// crossings are bit for bit the same.
//
//===----------------------------------------------------------------------------===//
#ifndef TWISS_PLANEGEOMETRY_H
#define TWISS_PLANEGEOMETRY_H

#include "BCSample.h"

/// A packed copy of what the crossing test reads of a plane: centre, normal, the two
/// rows of its rotation that give local x and y, radius cut, bothDirections.
class PlaneGeometry {
public:
  /// Copies what the crossing test reads from the plane.
  explicit PlaneGeometry(const BCSample &plane);

  /// How a move passes the plane.
  enum class Passage {
    Outside,  ///< no crossing, or one beyond the radius cut
    Counted,  ///< a crossing that handleStep counts
    Backward, ///< a crossing against the normal, which a plane of one direction ignores
  };

  /// How the move from one position to the next passes the plane, as handleStep decides
  /// when the previous step was at `from`; for a crossing within the cut, the fraction f
  /// of the way back from `to` and the crossing's offset r from the centre.
  Passage passage(const Nexil::Point &from, const Nexil::Point &to, double &f,
                  Nexil::Vector &r) const {
    double before = BCSample::storedDistance(normal.dot(from - point)), d = normal.dot(to - point);
    if (!BCSample::crosses(before, d, true))
      return Passage::Outside;
    bool counted = BCSample::crosses(before, d, bothDirections);
    f = BCSample::crossingFraction(before, d);
    r = BCSample::mix(to, from, f) - point;
    if (!BCSample::withinCut(r, radiusCut))
      return Passage::Outside;
    return counted ? Passage::Counted : Passage::Backward;
  }

  /// Whether the move crosses the plane within its radius cut as handleStep counts it;
  /// if so, the local x and y of the crossing.
  bool crossing(const Nexil::Point &from, const Nexil::Point &to, double &x, double &y) const {
    double f;
    Nexil::Vector r;
    if (passage(from, to, f, r) != Passage::Counted)
      return false;
    x = rotationX.dot(r);
    y = rotationY.dot(r);
    return true;
  }

private:
  Nexil::Point point;
  Nexil::Vector normal;
  /// The rows of the plane's transform that give the local x and y of a vector.
  Nexil::Vector rotationX, rotationY;
  double radiusCut;
  bool bothDirections;
};

#endif // TWISS_PLANEGEOMETRY_H
