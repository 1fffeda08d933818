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
// A solenoid on a straight part is a uniform field along the path between two faces
// across it: a helix about the path inside, and at each face the thin kick of its
// fringe field, Delta P = -(q Bz / 2) (n x r) entering and the opposite leaving (n the
// path's direction, r the offset from the path), which keeps the canonical momentum.
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

  /// Adds a solenoid of `tesla` along the path from sFrom to sTo (m), on a straight part.
  void addSolenoid(double sFrom, double sTo, double tesla);

  /// Moves the particle by `length` mm of its own path.
  void advance(Phase &phase, double length) const;

private:
  /// A uniform field between two faces (a point and the forward normal of each): the
  /// axis a particle's momentum turns about (right-hand rule), the radius (mm) of the
  /// reference momentum's circle in it, how far from the entry point it reaches (mm),
  /// and for a solenoid the fringe kick per mm of offset, q Bz / 2 (MeV/c per mm).
  struct Sector {
    Nexil::Point entry, exit;
    Nexil::Vector entryNormal, exitNormal, axis;
    double radius, reach, fringe;
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
  /// The fringe kick of a solenoid's face at the particle's offset from the path: `sign`
  /// -1 entering, +1 leaving.
  static void fringeKick(Phase &phase, const Sector &sector, double sign);
};

#endif // TOOLS_FIELDTRACKER_H
