//===- Geometry.h - Points, vectors, lines and rigid transforms --*- C++ -*-===//
//
// Small value types of the library's geometry. Lengths are plain doubles in the
// caller's unit; angles are radians, and only the texts use degrees.
//
// A Transform is a 4x4 matrix in the row-vector convention: a point is a row vector,
// rows 0 to 2 hold the rotation and row 3 the translation. A * B applies B first.
//
//===----------------------------------------------------------------------------===//
#ifndef NEXIL_GEOMETRY_H
#define NEXIL_GEOMETRY_H

#include "Base.h"

#include <QList>
#include <QString>

namespace Nexil {

/// The ratio of a circle's circumference to its diameter, to the nearest double:
/// angles in the input files are degrees, and this converts them to radians.
constexpr double Pi = 3.141592653589793;

class ArgHash;

/// A position.
class Point {
public:
  /// The coordinates, in the unit its user works in (mm or m).
  double x, y, z;
  /// The origin.
  Point() : x(0), y(0), z(0) {}
  /// The point (x, y, z), in the unit its user works in (mm or m).
  Point(double x, double y, double z) : x(x), y(y), z(z) {}
  /// The distance to the point q.
  double distanceTo(const Point &q) const;
};

/// A displacement or direction.
class Vector {
public:
  /// The components, in the unit of the points or momenta it relates.
  double x, y, z;
  /// The zero vector.
  Vector() : x(0), y(0), z(0) {}
  /// The vector (x, y, z).
  Vector(double x, double y, double z) : x(x), y(y), z(z) {}
  /// Adds v component by component.
  Vector &operator+=(const Vector &v) {
    x += v.x;
    y += v.y;
    z += v.z;
    return *this;
  }
  /// The scalar product.
  double dot(const Vector &v) const { return x * v.x + y * v.y + z * v.z; }
  /// The vector product, this x v.
  Vector cross(const Vector &v) const {
    return Vector(y * v.z - z * v.y, z * v.x - x * v.z, x * v.y - y * v.x);
  }
  /// The length.
  double norm() const;
  /// Scales to unit length; a zero vector becomes NaN in every component.
  Vector &normalize();
};

/// The vector from b to a.
inline Vector operator-(const Point &a, const Point &b) {
  return Vector(a.x - b.x, a.y - b.y, a.z - b.z);
}

/// The sum, component by component.
inline Vector operator+(const Vector &a, const Vector &b) {
  Vector sum = a;
  sum += b;
  return sum;
}

/// The vector scaled by k.
inline Vector operator*(double k, const Vector &v) {
  return Vector(k * v.x, k * v.y, k * v.z);
}

/// A point and a direction: an infinite line.
class Line {
public:
  /// A point of the line.
  Point point;
  /// Its direction, not necessarily of unit length.
  Vector direction;
  /// The line through the origin with zero direction, to be assigned.
  Line() = default;
  /// The line through point along direction.
  Line(const Point &point, const Vector &direction) : point(point), direction(direction) {}
  /// Distance from p to the line; the direction must not be zero.
  double distanceToPoint(const Point &p) const;
};

/// A rigid placement: a rotation followed by a translation.
class Transform : public Base {
public:
  /// The matrix row by row: m[4 * r + c].
  double m[16];

  /// The identity matrix, row by row.
  static const double ident[16];
  /// The zero matrix.
  static const double zero[16];
  /// The identity, built before main runs.
  static Transform identityTransform;

  /// The identity.
  Transform();
  /// From 16 doubles, row by row.
  explicit Transform(const double values[16]);
  /// Rotation by angle (radians, right-hand rule) about axis, then translation to origin.
  Transform(const Point &origin, const Vector &axis, double angle);
  /// Copies the tag and the matrix.
  Transform(const Transform &other);
  /// Copies the tag and the matrix.
  Transform &operator=(const Transform &other);

  /// Composition: applies b first, then this transform.
  Transform operator*(const Transform &b) const;
  /// The transformed point (rotation and translation).
  Point operator*(const Point &p) const {
    return Point(p.x * m[0] + p.y * m[4] + p.z * m[8] + m[12],
                 p.x * m[1] + p.y * m[5] + p.z * m[9] + m[13],
                 p.x * m[2] + p.y * m[6] + p.z * m[10] + m[14]);
  }
  /// The rotated vector (no translation).
  Vector operator*(const Vector &v) const {
    return Vector(v.x * m[0] + v.y * m[4] + v.z * m[8], v.x * m[1] + v.y * m[5] + v.z * m[9],
                  v.x * m[2] + v.y * m[6] + v.z * m[10]);
  }
  /// The inverse of a rigid transform.
  Transform inverse() const;
  /// The translation.
  Point origin() const;

  /// A pure translation to p.
  static Transform translate(const Point &p);
  /// A pure translation by (x, y, z).
  static Transform translate(double x, double y, double z);
  /// The transform that changes nothing.
  static const Transform &identity();

  /// Whether all 16 elements are within 1e-9 of the identity.
  bool isIdentity() const;
  /// True when the rotation block is within 1e-9 of the identity, that is when the
  /// transform does NOT rotate. The inverted sense is what callers rely on.
  bool isRotation() const;

  /// "x=.. y=.. z=.." with " rotation=.." when the transform rotates.
  QString toString() const;
  /// The rotation as "Aax,ay,az,degrees", or empty for a near-identity rotation.
  QString rotationString() const;

  /// The rotation that a rotation text describes, about the origin.
  static Transform rotation(QString text);
  /// Rotation by the text, then translation to p.
  static Transform create(const Point &p, QString rotationText);
  /// The placement given by "x", "y", "z", "rotation" and optionally "_PARENTXFORM".
  static Transform create(const ArgHash &args, QString unit, bool useParent);
  /// A copy whose translation, taken as metres, is expressed in unit.
  Transform convert(QString unit) const;
  /// The transform a printed pointer designates, or the identity for an empty tag.
  static Transform *getTransform(QString tag);
};

/// Checks on tessellated solids.
class Geometry {
public:
  /// Whether the facets form a closed, consistently oriented surface in one piece.
  static bool isWatertight(QList<Point> points, QList<int> facets);
};

} // namespace Nexil

#endif // NEXIL_GEOMETRY_H
