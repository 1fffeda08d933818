//===- TransformCreate.cpp - Transforms from rotation texts and arguments --===//
//
// A rotation text is empty, an axis-angle term "Aax,ay,az,degrees" (the form that
// rotationString() writes), or a list of axis terms such as "X90,Z-45". A placement
// comes from the arguments "x", "y", "z" and "rotation", optionally inside a parent
// placement handed over as a printed pointer under "_PARENTXFORM".
//
//===----------------------------------------------------------------------------===//

#include "Geometry.h"

#include "ArgHash.h"
#include "Console.h"
#include "Units.h"

#include <QStringList>

namespace Nexil {

namespace {

/// The unit axis of one axis term's letter, or the zero vector for another letter.
Vector axisOfLetter(QChar letter) {
  switch (letter.unicode() & 0xFF) {
  case 'X':
  case 'x':
    return Vector(1, 0, 0);
  case 'Y':
  case 'y':
    return Vector(0, 1, 0);
  case 'Z':
  case 'z':
    return Vector(0, 0, 1);
  default:
    return Vector(0, 0, 0);
  }
}

} // namespace

Transform Transform::rotation(QString text) {
  if (text.length() == 0)
    return identity();
  Transform accumulated;
  Point origin;
  QStringList parts = text.split(",", Qt::SkipEmptyParts);
  if (parts.size() == 4 && parts[0][0].toUpper() == QChar('A')) {
    double ax = parts[0].mid(1).toDouble();
    double ay = parts[1].toDouble();
    double az = parts[2].toDouble();
    double angle = parts[3].toDouble() * Pi / 180;
    return Transform(origin, Vector(ax, ay, az), angle);
  }
  for (const QString &part : parts) {
    double angle = part.mid(1).toDouble() * Pi / 180;
    Vector axis = axisOfLetter(part[0]);
    // A bad letter is reported and the term still built about the zero axis, which
    // turns the whole result into NaN.
    if (axis.norm() == 0)
      Error::message(QString("Invalid rotation '%1'").arg(part));
    Transform step(origin, axis, angle);
    accumulated = step * accumulated;
  }
  return accumulated;
}

Transform Transform::create(const Point &p, QString rotationText) {
  return translate(p) * rotation(rotationText);
}

Transform Transform::create(const ArgHash &args, QString unit, bool useParent) {
  Transform parent;
  if (useParent && args.contains("_PARENTXFORM"))
    parent = getTransform(args.value("_PARENTXFORM"))->convert(unit);
  double x = Units::value(args.value("x"), unit, nullptr);
  double y = Units::value(args.value("y"), unit, nullptr);
  double z = Units::value(args.value("z"), unit, nullptr);
  Transform local = create(Point(x, y, z), args.value("rotation"));
  return parent * local;
}

Transform Transform::convert(QString unit) const {
  Transform converted(*this);
  for (int i = 12; i < 15; ++i)
    converted.m[i] *= Units::factor(unit, "m");
  return converted;
}

Transform *Transform::getTransform(QString tag) {
  if (tag.isEmpty())
    return &identityTransform;
  Transform *transform = dynamic_cast<Transform *>(Base::get(tag));
  if (!transform)
    throw QString("INTERNAL ERROR: Invalid Transform tag '%1'").arg(tag);
  return transform;
}

} // namespace Nexil
