//===- BeamlineCoordinatesFile.cpp - The coordinates file and the sample list ===//
//
// beamlineCoordinates.txt hands the coordinate system from the simulation to the
// analysis tools: "%bcstart" places the start of the path, "%bcbend" adds an arc (or
// a kink when its radius is not positive). Values are expressions with units,
// lengths in metres, angles in radians, the tilt phi in plain degrees.
//
//===----------------------------------------------------------------------------===//

#include "BeamlineCoordinates.h"

#include "Console.h"
#include "Units.h"

#include <QFile>
#include <QTextStream>
#include <algorithm>

namespace Nexil {

namespace {

void readStart(ArgHash &args) {
  double s = Units::value(args["s"], "m", nullptr);
  Transform placement = Transform::create(args, "m", false);
  BeamlineCoordinates::addSegment(new StartBCSegment(s, placement));
  BeamlineCoordinates::nextS = s;
}

void readBend(ArgHash &args) {
  double s = Units::value(args["s"], "m", nullptr);
  double radius = Units::value(args["radius"], "m", nullptr);
  double angle = Units::value(args["angle"], "rad", nullptr);
  double tilt = Units::value(args["phi"], "", nullptr) * Pi / 180;
  if (radius <= 0) {
    // A kink: the finishing step folds its rotation into the path and removes it.
    BeamlineCoordinates::addSegment(new StraightBCSegment(s, angle, tilt));
    return;
  }
  BeamlineCoordinates::addSegment(new ArcBCSegment(s, angle, tilt, radius));
  // The signed angle places the straight; with a negative angle it starts before the
  // arc, and finishing reports the arc's overlap.
  BeamlineCoordinates::addSegment(new StraightBCSegment(s + angle * radius, 0, 0));
}

} // namespace

void BeamlineCoordinates::initFromFile(QString filename) {
  QFile file(filename);
  if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
    Error::message(QString("Cannot read '%1'").arg(filename));
    return;
  }
  // Every line is read before any is applied: a read that fails part way leaves the
  // system as it was, as a file that cannot be opened does.
  QTextStream in(&file);
  QStringList lines;
  while (!in.atEnd()) {
    lines << in.readLine();
    if (file.error() != QFileDevice::NoError) {
      Error::message(QString("Cannot read '%1' (%2)").arg(filename, file.errorString()));
      return;
    }
  }
  file.close();
  for (const QString &line : lines)
    readCommand(line);
  scan(nullptr, ArgHash());
}

void BeamlineCoordinates::readCommand(QString line) {
  line = line.simplified();
  if (line.isEmpty() || line.startsWith("#"))
    return;
  ArgHash args(line);
  QString command = args["0"];
  if (command == "%bcstart")
    readStart(args);
  else if (command == "%bcbend")
    readBend(args);
}

bool BeamlineCoordinates::read(QString) {
  return false;
}

void BeamlineCoordinates::write(QString filename) {
  if (segments.isEmpty())
    return;
  if (filename == "-") {
    dump();
    return;
  }
  QStringList lines = getCmdlines();
  QFile file(filename);
  if (!file.open(QIODevice::WriteOnly | QIODevice::Text)) {
    Error::message(QString("Cannot write '%1'").arg(filename));
    return;
  }
  QTextStream out(&file);
  for (const QString &line : lines)
    out << line << "\n";
  out.flush();
  file.close();
}

void BeamlineCoordinates::writeSampleS(QString filename) {
  if (sampleS.isEmpty())
    return;
  QFile file(filename);
  if (!file.open(QIODevice::WriteOnly | QIODevice::Text)) {
    Error::message(QString("Cannot write '%1'").arg(filename));
    return;
  }
  QTextStream out(&file);
  QList<int> keys = sampleS.keys();
  std::sort(keys.begin(), keys.end());
  for (int s : keys)
    out << s << "mm " << sampleS.value(s) << "mm\n";
  out.flush();
  file.close();
}

} // namespace Nexil
