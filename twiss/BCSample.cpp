//===- BCSample.cpp - A sampling plane across the reference path -----------===//

#include "BCSample.h"

#include "ArgHash.h"
#include "BeamlineCoordinates.h"
#include "Console.h"
#include "Units.h"

#include <climits>
#include <cmath>
#include <cstdio>

QList<BCSample *> BCSample::samples;
bool BCSample::firstStep = true;
Step BCSample::previous = Step();

int roundedMillimetres(double s) {
  double shifted = s + 0.5;
  // What the hardware's conversion gives for a value that does not fit an int.
  if (!(shifted > double(INT_MIN) - 1.0 && shifted < double(INT_MAX) + 1.0))
    return INT_MIN;
  return int(shifted);
}

BCSample::BCSample(QString spec)
    : statistics(0), nCrossings(0), s(0), radiusCut(100.0), bothDirections(false),
      previousDistance(0.0) {
  Nexil::ArgHash args(spec);
  s = roundedMillimetres(Nexil::Units::value(args["0"], "mm", nullptr));
  statistics = Twiss(s);
  radiusCut = Nexil::Units::value(args["1"], "mm", nullptr);
  // The coordinate system works in metres.
  Nexil::Transform t = Nexil::BeamlineCoordinates::getTransform(s / 1000.0);
  Nexil::Point origin = t.origin();
  point = Nexil::Point(origin.x * 1000, origin.y * 1000, origin.z * 1000);
  normal = t * Nexil::Vector(0, 0, 1);
  bothDirections = args["bothDirections"].toLower().startsWith("t");
  transform = t.inverse();
  fprintf(stderr, "twiss: %%bcsample %dmm\n", s);
  if (Debug)
    fprintf(stderr,
            "            point=%.3fmm,%.3fmm,%.3fmm normal=%.4f,%.4f,%.4f\n"
            "            radiusCut=%.3fmm rotation=%s\n",
            point.x, point.y, point.z, normal.x, normal.y, normal.z, radiusCut,
            transform.rotationString().toLocal8Bit().constData());
  samples.append(this);
}

void BCSample::handleStep(Step &step) {
  double d = distanceOf(step.position);
  // A forward crossing, or landing on the plane from the negative side; backwards
  // crossings count only with bothDirections. A NaN distance fails every test.
  if (!firstStep && d * previousDistance <= 0 &&
      (bothDirections || d > 0 || (d == 0 && previousDistance < 0))) {
    double f = fabs(d - previousDistance) > 1e-9 ? fabs(d / (d - previousDistance)) : 0.5;
    Step crossing = step;
    auto mix = [f](double current, double before) { return (1 - f) * current + f * before; };
    crossing.position = Nexil::Point(mix(step.position.x, previous.position.x),
                                     mix(step.position.y, previous.position.y),
                                     mix(step.position.z, previous.position.z));
    crossing.momentum = Nexil::Vector(mix(step.momentum.x, previous.momentum.x),
                                      mix(step.momentum.y, previous.momentum.y),
                                      mix(step.momentum.z, previous.momentum.z));
    crossing.t = mix(step.t, previous.t);
    crossing.extraValue = mix(step.extraValue, previous.extraValue);
    Nexil::Vector r = crossing.position - point;
    if (r.dot(r) <= radiusCut * radiusCut) {
      Nexil::Vector local = transform * r;
      crossing.position = Nexil::Point(local.x, local.y, local.z);
      crossing.momentum = transform * crossing.momentum;
      ++nCrossings;
      calculate(crossing);
    }
  }
  // A step exactly on the plane counts as just on its positive side for the next test.
  previousDistance = storedDistance(d);
}

void BCSample::trackBegin(int eventID, int trackID) {
  statistics.trackBegin(eventID, trackID);
}

void BCSample::trackEnd(int eventID, int trackID) {
  statistics.trackEnd(eventID, trackID);
}

void BCSample::calculate(Step &crossing) {
  statistics.calculate(crossing);
}

QString BCSample::result() {
  return statistics.result();
}

int BCSample::nSamples() {
  return int(samples.size());
}

void BCSample::beginTrack(int eventID, int trackID) {
  if (Debug)
    fprintf(stderr, "BCSample::trackBegin EventID=%d TrackID=%d\n", eventID, trackID);
  firstStep = true;
  for (BCSample *sample : samples)
    sample->trackBegin(eventID, trackID);
}

void BCSample::trackStep(Step step) {
  for (BCSample *sample : samples)
    sample->handleStep(step);
  firstStep = false;
  previous = step;
}

void BCSample::endTrack(int eventID, int trackID) {
  if (Debug)
    fprintf(stderr, "BCSample::trackEnd EventID=%d TrackID=%d\n", eventID, trackID);
  for (BCSample *sample : samples)
    sample->trackEnd(eventID, trackID);
}
