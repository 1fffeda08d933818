//===- OpticsCrossings.cpp - Crossings with every column, per plane --------===//

#include "OpticsCrossings.h"

#include <cmath>

OpticsCrossings::OpticsCrossings(const QList<BCSample *> &planes, int first,
                                 PlaneStatistics *statistics, bool weighted,
                                 ParticleFile *particles, KeptCrossings *kept, int job)
    : planes(planes), first(first), statistics(statistics), weighted(weighted),
      particles(particles), kept(kept), job(job), selector(planes) {}

void OpticsCrossings::trackStep(Step &step, int64_t track) {
  if (!BCSample::firstStep)
    handleMove(move(BCSample::previous, step, track));
  BCSample::rememberStep(step);
}

void OpticsCrossings::handleMove(const Move &move) {
  selector.findCandidates(move.from.position, move.to.position, candidates);
  for (int i : candidates)
    testPlane(i, move);
}

void OpticsCrossings::testPlane(int index, const Move &move) {
  double f;
  Nexil::Vector r;
  switch (selector.geometryOf(index).passage(move.from.position, move.to.position, f, r)) {
  case PlaneGeometry::Passage::Outside:
    return;
  case PlaneGeometry::Passage::Backward:
    ++statistics[index].nBack;
    return;
  case PlaneGeometry::Passage::Counted:
    break;
  }
  auto known = masses.constFind(move.to.PDGid);
  if (known == masses.constEnd())
    known = masses.insert(move.to.PDGid, speciesFacts(move.to.PDGid));
  OpticsCrossing c = interpolate(*planes[index], move.from, move.to, f, r, *known);
  if (statistics[index].add(c) && kept && c.massKnown)
    kept->add(size_t(first + index),
              {c.x, c.qx, c.y, c.qy, c.weight, subsampleOf(move.to.EventID, move.to.TrackID), job,
               c.t, c.kinetic, move.to.EventID, move.to.TrackID});
  if (particles && particles->writes(first + index))
    particles->add(first + index, {c.x, c.y, c.px, c.py, c.pz, c.t, c.weight * ElementaryCharge,
                                   move.track, c.pdgid});
}

OpticsCrossing OpticsCrossings::interpolate(const BCSample &plane, const Step &from, const Step &to,
                                            double f, const Nexil::Vector &r,
                                            const SpeciesFacts &species) const {
  // The same arithmetic as twiss's crossing: the offset from the centre, rotated.
  Nexil::Vector local = plane.transform * r;
  Nexil::Vector p = plane.transform * BCSample::mix(to.momentum, from.momentum, f);
  OpticsCrossing c;
  c.x = local.x;
  c.y = local.y;
  c.xp = 1000 * p.x / p.z;
  c.yp = 1000 * p.y / p.z;
  c.p = p.norm();
  c.px = p.x;
  c.py = p.y;
  c.pz = p.z;
  c.massKnown = species.known && species.mass > 0;
  c.qx = c.massKnown ? 1000 * p.x / species.mass : 0;
  c.qy = c.massKnown ? 1000 * p.y / species.mass : 0;
  // p^2 / (E + m) instead of E - m: no cancellation for slow particles.
  double m = species.mass;
  c.kinetic = c.massKnown ? c.p * c.p / (std::sqrt(c.p * c.p + m * m) + m) : 0;
  c.t = BCSample::mix(to.t, from.t, f);
  c.weight = weighted ? BCSample::mix(to.extraValue, from.extraValue, f) : 1;
  c.pdgid = to.PDGid;
  c.charge = species.charge;
  return c;
}
