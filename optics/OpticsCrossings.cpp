//===- OpticsCrossings.cpp - Crossings with every column, per plane --------===//

#include "OpticsCrossings.h"

#include <cmath>

OpticsCrossings::OpticsCrossings(const QList<BCSample *> &planes, PlaneStatistics *statistics,
                                 bool weighted)
    : planes(planes), statistics(statistics), weighted(weighted), selector(planes) {}

void OpticsCrossings::trackStep(Step &step) {
  if (!BCSample::firstStep)
    handleMove({BCSample::previous, step});
  BCSample::rememberStep(step);
}

void OpticsCrossings::handleMove(const Move &move) {
  selector.findCandidates(move.from.position, move.to.position, candidates);
  for (int i : candidates)
    testPlane(i, move);
}

void OpticsCrossings::testPlane(int index, const Move &move) {
  // The crossing test of twiss, with the previous distance taken from the move.
  const BCSample &plane = *planes[index];
  double before = BCSample::storedDistance(plane.distanceOf(move.from.position));
  double d = plane.distanceOf(move.to.position);
  bool counted = BCSample::crosses(before, d, plane.bothDirections);
  if (!counted && !BCSample::crosses(before, d, true))
    return;
  double f = BCSample::crossingFraction(before, d);
  Nexil::Vector r = BCSample::mix(move.to.position, move.from.position, f) - plane.point;
  if (!BCSample::withinCut(r, plane.radiusCut))
    return;
  PlaneStatistics &counts = statistics[index];
  if (!counted) {
    ++counts.nBack;
    return;
  }
  auto known = masses.constFind(move.to.PDGid);
  if (known == masses.constEnd())
    known = masses.insert(move.to.PDGid, speciesMass(move.to.PDGid));
  counts.add(interpolate(plane, move.from, move.to, f, weighted, *known));
}

OpticsCrossing OpticsCrossings::interpolate(const BCSample &plane, const Step &from, const Step &to,
                                            double f, bool weighted, const SpeciesMass &species) {
  // The same arithmetic as twiss's crossing: mix, then rotate the offset from the centre.
  Nexil::Vector r = BCSample::mix(to.position, from.position, f) - plane.point;
  Nexil::Vector local = plane.transform * r;
  Nexil::Vector p = plane.transform * BCSample::mix(to.momentum, from.momentum, f);
  OpticsCrossing c;
  c.x = local.x;
  c.y = local.y;
  c.xp = 1000 * p.x / p.z;
  c.yp = 1000 * p.y / p.z;
  c.p = p.norm();
  c.massKnown = species.known && species.mass > 0;
  c.qx = c.massKnown ? 1000 * p.x / species.mass : 0;
  c.qy = c.massKnown ? 1000 * p.y / species.mass : 0;
  // p^2 / (E + m) instead of E - m: no cancellation for slow particles.
  double m = species.mass;
  c.kinetic = c.massKnown ? c.p * c.p / (std::sqrt(c.p * c.p + m * m) + m) : 0;
  c.t = BCSample::mix(to.t, from.t, f);
  c.weight = weighted ? BCSample::mix(to.extraValue, from.extraValue, f) : 1;
  c.pdgid = to.PDGid;
  return c;
}
