//===- FieldTracker.cpp - Charged particles through the beamline -----------===//

#include "FieldTracker.h"

#include "BCSegment.h"
#include "BeamlineCoordinates.h"

#include <cmath>

using namespace Nexil;

namespace {

Point operator+(const Point &p, const Vector &v) {
  return Point(p.x + v.x, p.y + v.y, p.z + v.z);
}

Vector unit(Vector v) {
  return v.normalize();
}

/// v turned by `angle` (radians, right-hand rule) about the unit axis k.
Vector rotated(const Vector &v, const Vector &k, double angle) {
  double c = std::cos(angle), s = std::sin(angle);
  return c * v + s * k.cross(v) + ((1 - c) * k.dot(v)) * k;
}

/// The point (mm) and forward direction of the reference path at s (m).
Point pointAt(double s) {
  return BeamlineCoordinates::getTransform(s).convert("mm") * Point(0, 0, 0);
}
Vector directionAt(double s) {
  return BeamlineCoordinates::getTransform(s) * Vector(0, 0, 1);
}

/// Signed distance (mm) of p in front of the plane through `at` with normal n.
double ahead(const Point &p, const Point &at, const Vector &n) {
  return (p - at).dot(n);
}

/// Below this, positions are the same (mm).
const double Tolerance = 1e-9;

} // namespace

FieldTracker::FieldTracker(double referenceMomentum) : referenceMomentum(referenceMomentum) {
  const double Nudge = 1e-3; // m: before and after a kink, on the straights beside it
  for (BCSegment *segment : BeamlineCoordinates::segments) {
    if (auto *arc = dynamic_cast<ArcBCSegment *>(segment)) {
      Sector sector{pointAt(arc->s_min),
                    pointAt(arc->s_max),
                    directionAt(arc->s_min),
                    directionAt(arc->s_max),
                    Vector(),
                    0,
                    0,
                    0};
      double turn = std::acos(std::min(1.0, sector.entryNormal.dot(sector.exitNormal)));
      sector.axis = unit(sector.entryNormal.cross(sector.exitNormal));
      sector.radius = 1000 * (arc->s_max - arc->s_min) / turn;
      sector.reach = 2 * sector.radius;
      sectors.push_back(sector);
    } else if (auto *straight = dynamic_cast<StraightBCSegment *>(segment);
               straight && straight->angle != 0 && !dynamic_cast<StartBCSegment *>(segment)) {
      Vector before = directionAt(straight->s_min - Nudge),
             after = directionAt(straight->s_min + Nudge);
      kicks.push_back({pointAt(straight->s_min), before, unit(before.cross(after)),
                       std::acos(std::min(1.0, before.dot(after)))});
    }
  }
}

void FieldTracker::addSolenoid(double sFrom, double sTo, double tesla) {
  // q B r = 0.299792458 MeV/c for q = e, B = 1 T, r = 1 mm: the reference momentum turns
  // on a circle of p / (0.299792458 B) mm, clockwise about the field for a positive charge.
  const Vector along = directionAt(sFrom);
  const double MomentumPerTeslaMillimetre = 0.299792458;
  sectors.push_back({pointAt(sFrom), pointAt(sTo), along, along, tesla > 0 ? -1.0 * along : along,
                     referenceMomentum / (MomentumPerTeslaMillimetre * std::fabs(tesla)),
                     1000 * (sTo - sFrom) + 1000, MomentumPerTeslaMillimetre * tesla / 2});
}

const FieldTracker::Sector *FieldTracker::sectorAt(const Point &p) const {
  for (const Sector &s : sectors)
    if (ahead(p, s.entry, s.entryNormal) >= 0 && ahead(p, s.exit, s.exitNormal) < 0 &&
        (p - s.entry).norm() < s.reach)
      return &s;
  return nullptr;
}

void FieldTracker::fringeKick(Phase &phase, const Sector &sector, double sign) {
  if (sector.fringe == 0) // a sector dipole's faces kick nothing
    return;
  // The kick turns the momentum across the path; a magnetic field does no work, so the
  // momentum along the path gives what the kick adds across it.
  const Vector n = sector.entryNormal, offset = phase.position - sector.entry;
  const Vector across = offset + (-offset.dot(n)) * n;
  const double p = phase.momentum.norm();
  const Vector transverse =
      phase.momentum + (-phase.momentum.dot(n)) * n + (sign * sector.fringe) * n.cross(across);
  phase.momentum = transverse + std::sqrt(p * p - transverse.dot(transverse)) * n;
}

void FieldTracker::advance(Phase &phase, double length) const {
  while (length > Tolerance) {
    if (const Sector *sector = sectorAt(phase.position)) {
      moveInField(phase, *sector, length);
      return;
    }
    // A straight line to the next kick or sector face ahead, or the whole length.
    Vector d = unit(phase.momentum);
    double step = length;
    const Kick *kick = nullptr;
    for (const Kick &k : kicks) {
      double towards = d.dot(k.normal), before = -ahead(phase.position, k.at, k.normal);
      if (towards > 0 && before > Tolerance && before / towards < step &&
          (phase.position + (before / towards) * d - k.at).norm() < 1000) {
        step = before / towards;
        kick = &k;
      }
    }
    const Sector *entering = nullptr;
    for (const Sector &s : sectors) {
      double towards = d.dot(s.entryNormal),
             before = -ahead(phase.position, s.entry, s.entryNormal);
      if (towards > 0 && before > -Tolerance && before / towards < step &&
          sectorAt(phase.position + (before / towards + Tolerance) * d)) {
        step = before / towards + Tolerance;
        kick = nullptr;
        entering = &s;
      }
    }
    phase.position = phase.position + step * d;
    length -= step;
    if (entering)
      fringeKick(phase, *entering, -1);
    if (kick) {
      double p = phase.momentum.norm();
      phase.momentum = rotated(phase.momentum, kick->axis, kick->angle * referenceMomentum / p);
      phase.position = phase.position + Tolerance * d; // past the kick's plane
      length -= Tolerance;
    }
  }
}

void FieldTracker::moveInField(Phase &phase, const Sector &sector, double length) const {
  // A helix about the field's axis: the momentum across the axis turns at the rate the
  // reference direction turns, scaled by the reference momentum over the particle's.
  const Phase start = phase;
  const double p = start.momentum.norm();
  const Vector along = start.momentum.dot(sector.axis) * (1 / p) * sector.axis;
  const double turnPerMM = referenceMomentum / (p * sector.radius);
  // The direction's part across the axis; the circle's centre lies where that part
  // turns towards, at the circle's radius |across| / turnPerMM.
  const Vector across = (1 / p) * start.momentum + (-1.0) * along;
  const Point centre = start.position + (1 / turnPerMM) * sector.axis.cross(across);
  auto at = [&](double lambda, Phase &out) {
    double phi = lambda * turnPerMM;
    out.position = centre + rotated(start.position - centre, sector.axis, phi) + lambda * along;
    out.momentum = rotated(start.momentum, sector.axis, phi);
  };
  auto inside = [&](const Point &q) {
    return ahead(q, sector.entry, sector.entryNormal) >= 0 &&
           ahead(q, sector.exit, sector.exitNormal) < 0;
  };
  // Walk the helix in short pieces; where it leaves the field, find the face by halving.
  const double Piece = 5;
  double inField = 0;
  Phase probe = start;
  while (inField < length) {
    double next = std::min(inField + Piece, length);
    at(next, probe);
    if (!inside(probe.position)) {
      double low = inField, high = next;
      while (high - low > Tolerance) {
        double middle = (low + high) / 2;
        at(middle, probe);
        (inside(probe.position) ? low : high) = middle;
      }
      at(high, phase);
      if (ahead(phase.position, sector.exit, sector.exitNormal) >= 0)
        fringeKick(phase, sector, 1);
      advance(phase, length - high);
      return;
    }
    inField = next;
  }
  at(length, phase);
}
