//===- BeamlineCoordinatesScan.cpp - Coordinates from a simulation file ----===//
//
// In the simulation program the coordinate system is derived from its input file:
// "%bcstart" places the start, "%bcbend" adds bends, and every element placed along
// the beamline moves the s at which the next element begins past its far end.
//
//===----------------------------------------------------------------------------===//

#include "BeamlineCoordinates.h"

#include "Console.h"
#include "Main.h"
#include "SimFile.h"
#include "Units.h"

#include <QStringList>
#include <cmath>
#include <functional>

namespace Nexil {

namespace {

const double Step15Degrees = 0.2617993877991494;

bool firstScan = true;
int sbendironReports = 0;

double metres(ArgHash &args, const char *key) {
  return Units::value(args[key], "m", nullptr);
}

/// Two rings of 24 points, at z = length and then at z = 0.
void cylinderPoints(double radius, double length, const std::function<void(Point)> &consider) {
  double a = 0;
  for (int i = 0; i < 48; ++i) {
    consider(Point(radius * cos(a), radius * sin(a), i < 24 ? length : 0));
    a += Step15Degrees;
  }
}

/// The far end of an element that cannot be rotated relative to the beamline.
void unrotatedEnd(const Transform &t, const char *command, const std::function<double()> &z,
                  const std::function<void(Point)> &consider) {
  // isRotation() is true for a transform that does NOT rotate: this reports the
  // unrotated placement and computes for a rotated one, deliberately.
  if (t.isRotation())
    Error::message(
        QString("%1 cannot be rotated relative to the Beamline Coordinates.").arg(command));
  else
    consider(Point(0, 0, z()));
}

} // namespace

void BeamlineCoordinates::initCmds() {}

void BeamlineCoordinates::scan(SimFile *file, ArgHash args) {
  if (firstScan) {
    firstScan = false;
    initCmds();
  }
  double expectedStart = 0;
  if (file) {
    clear();
    if (Main::simulation()->geometry_bc().isEmpty())
      return;
    if (!dynamic_cast<Simulation *>(file)) {
      StartBCSegment *start = new StartBCSegment(0, Transform::identity());
      addSegment(start);
      start->complete(1e6, Transform::identity());
    } else {
      file->prepareScan(args);
      file->parse("BCstart", args);
      if (segments.isEmpty())
        return;
      if (segments.size() > 1)
        Error::message("multiple %bcstart commands");
      nextS = initialS();
      expectedStart = nextS;
    }
    enableSampleS = true;
    args.remove("_PARENTXFORM");
    args.remove("_PARENT_S");
    file->prepareScan(args);
    file->parse("BeamlineCoordinates", args);
    enableSampleS = false;
  }
  finish(expectedStart);
}

void BeamlineCoordinates::updateNextS(ArgHash args) {
  if (!args.contains("_PARENT_S"))
    return;
  QString command = args["0"];
  Transform t = Transform::create(args, "m", false);
  double maxZ = 0;
  auto consider = [&](Point p) { maxZ = std::max(maxZ, (t * p).z); };

  if (command == "%box") {
    double width = metres(args, "width"), height = metres(args, "height");
    double length = metres(args, "length");
    for (int k = 0; k < 8; ++k)
      consider(Point(k & 1 ? -width / 2 : width / 2, k & 2 ? -height / 2 : height / 2,
                     k & 4 ? 0 : length));
  } else if (command == "%cylinder") {
    cylinderPoints(metres(args, "radius"), metres(args, "length"), consider);
  } else if (command == "%cone") {
    // Only the far face is sampled; the base at z = 0 is not.
    double radius = metres(args, "radius"), length = metres(args, "length");
    for (double a = 0; a <= 2 * Pi; a += Step15Degrees)
      consider(Point(radius * cos(a), radius * sin(a), length));
  } else if (command == "%sphere") {
    // The sphere lies between z = 0 and z = 2r.
    double r = metres(args, "radius");
    for (double theta = 0; theta <= Pi; theta += Step15Degrees)
      for (double phi = 0; phi <= 2 * Pi; phi += Step15Degrees)
        consider(Point(r * sin(theta) * cos(phi), r * sin(theta) * sin(phi), r + r * cos(theta)));
  } else if (command == "%tess") {
    Console.printf("UNIMPLEMENTED updateMaxLocalZ for %%tess\n");
  } else if (command == "%tube") {
    cylinderPoints(metres(args, "outerRadius"), metres(args, "length"), consider);
  } else if (command == "%rtube") {
    double w = metres(args, "outerWidth") / 2, h = metres(args, "outerHeight") / 2;
    double length = metres(args, "length");
    for (double z : {0.0, length})
      for (int k = 0; k < 4; ++k)
        consider(Point(k & 1 ? -w : w, k & 2 ? -h : h, z));
  } else if (command == "%extrusion") {
    unrotatedEnd(
        t, "%extrusion", [&] { return metres(args, "length"); }, consider);
  } else if (command == "%polycone") {
    unrotatedEnd(
        t, "%polycone",
        [&] {
          QStringList zs = Units::convertAll(args["zs"], "m").split(",", Qt::SkipEmptyParts);
          return zs.isEmpty() ? 0.0 : zs.last().toDouble();
        },
        consider);
  } else if (command == "%sbendiron") {
    if (sbendironReports++ == 0)
      Console.printf("UNIMPLEMENTED %%sbendiron assumed co-located with %%bcbend\n");
    double angle = Units::value(args["angle"], "rad", nullptr);
    double centerRadius = metres(args, "centerRadius");
    maxZ = std::max(maxZ, t.origin().z + centerRadius * angle);
  }
  nextS = Units::value(args["_PARENT_S"], "m", nullptr) + maxZ;
}

} // namespace Nexil
