//===- FieldTracker.h - Charged particles through the beamline -*- C++ -*-===//
//
// Moves a charged particle along the beamline of BeamlineCoordinates the way a
// uniform dipole field would: straight lines in the drifts; in each arc, a hard-edged
// sector field between the arc's entry and exit faces, in which the particle follows
// a helix whose radius is the arc's radius scaled by its transverse momentum over the
// reference momentum (a particle of the reference momentum on the reference path stays
// on it); at each kink, a thin kick of the kink's angle scaled by the reference
// momentum over the particle's. The field, its faces and the kicks all come from the
// frames of the beamline, so the path of the reference particle is the reference path.
//
//===----------------------------------------------------------------------------===//
#ifndef TOOLS_FIELDTRACKER_H
#define TOOLS_FIELDTRACKER_H

#include "Geometry.h"

#include <vector>

/// A position (mm) and momentum (MeV/c) of a particle.
struct Phase {
  Nexil::Point position;
  Nexil::Vector momentum;
};

/// The beamline's fields, read from the frames of BeamlineCoordinates.
class FieldTracker {
public:
  /// The fields of the beamline as it is now, for particles of charge like that of the
  /// reference particle of momentum `referenceMomentum` (MeV/c).
  explicit FieldTracker(double referenceMomentum);

  /// Moves the particle by `length` mm of its own path.
  void advance(Phase &phase, double length) const;

private:
  /// A sector field: the entry and exit faces (a point and the forward normal of each),
  /// the axis the reference path turns about and its radius (mm).
  struct Sector {
    Nexil::Point entry, exit;
    Nexil::Vector entryNormal, exitNormal, axis;
    double radius;
  };
  /// A thin kick at a plane: its point and forward normal, the axis and the angle the
  /// reference turns by.
  struct Kick {
    Nexil::Point at;
    Nexil::Vector normal, axis;
    double angle;
  };
  double referenceMomentum;
  std::vector<Sector> sectors;
  std::vector<Kick> kicks;

  const Sector *sectorAt(const Nexil::Point &p) const;
  void moveInField(Phase &phase, const Sector &sector, double length) const;
};

#endif // TOOLS_FIELDTRACKER_H
