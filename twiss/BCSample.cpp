//===- BCSample.cpp - A sampling plane across the reference path -----------===//

#include "BCSample.h"

#include "ArgHash.h"
#include "BeamlineCoordinates.h"
#include "Console.h"
#include "Units.h"

#include <climits>
#include <cmath>
#include <cstdio>
#include <utility>

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

BCSample::BCSample(QString planeText)
    : statistics(0), nCrossings(0), s(0), radiusCut(100.0), bothDirections(false),
      previousDistance(0.0) {
  Nexil::ArgHash args(planeText);
  s = roundedMillimetres(Nexil::Units::value(args["0"], "mm", nullptr));
  statistics = Twiss(s);
  radiusCut = Nexil::Units::value(args["1"], "mm", nullptr);
  // The coordinate system works in metres.
  placeAt(s / 1000.0);
  bothDirections = args["bothDirections"].toLower().startsWith("t");
  fprintf(stderr, "twiss: %%bcsample %dmm\n", s);
  if (Debug)
    fprintf(stderr,
            "            point=%.3fmm,%.3fmm,%.3fmm normal=%.4f,%.4f,%.4f\n"
            "            radiusCut=%.3fmm rotation=%s\n",
            point.x, point.y, point.z, normal.x, normal.y, normal.z, radiusCut,
            transform.rotationString().toLocal8Bit().constData());
  samples.append(this);
}

BCSample::BCSample(double sMillimetres, double radiusCut, bool bothDirections)
    : statistics(roundedMillimetres(sMillimetres)), nCrossings(0),
      s(roundedMillimetres(sMillimetres)), radiusCut(radiusCut), bothDirections(bothDirections),
      previousDistance(0.0) {
  placeAt(sMillimetres / 1000.0);
}

void BCSample::placeAt(double sMetres) {
  Nexil::Transform t = Nexil::BeamlineCoordinates::getTransform(sMetres);
  Nexil::Point origin = t.origin();
  point = Nexil::Point(origin.x * 1000, origin.y * 1000, origin.z * 1000);
  normal = t * Nexil::Vector(0, 0, 1);
  transform = t.inverse();
}

void BCSample::handleStep(Step &step) {
  double d = distanceOf(step.position);
  if (!firstStep && crosses(previousDistance, d, bothDirections)) {
    double f = crossingFraction(previousDistance, d);
    Step crossing = step;
    crossing.position = mix(step.position, previous.position, f);
    crossing.momentum = mix(step.momentum, previous.momentum, f);
    crossing.t = mix(step.t, previous.t, f);
    crossing.extraValue = mix(step.extraValue, previous.extraValue, f);
    Nexil::Vector r = crossing.position - point;
    if (withinCut(r, radiusCut)) {
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
  for (BCSample *sample : std::as_const(samples))
    sample->trackBegin(eventID, trackID);
}

void BCSample::trackStep(Step step) {
  for (BCSample *sample : std::as_const(samples))
    sample->handleStep(step);
  rememberStep(step);
}

void BCSample::endTrack(int eventID, int trackID) {
  if (Debug)
    fprintf(stderr, "BCSample::trackEnd EventID=%d TrackID=%d\n", eventID, trackID);
  for (BCSample *sample : std::as_const(samples))
    sample->trackEnd(eventID, trackID);
}
