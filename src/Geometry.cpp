//===- Geometry.cpp - Points, vectors, lines and rigid transforms ----------===//

#include "Geometry.h"

#include <cmath>
#include <cstring>

namespace Nexil {

double Point::distanceTo(const Point &q) const {
  double dx = q.x - x, dy = q.y - y, dz = q.z - z;
  return sqrt(dx * dx + dy * dy + dz * dz);
}

double Vector::norm() const {
  return sqrt(x * x + y * y + z * z);
}

Vector &Vector::normalize() {
  double n = norm();
  x /= n;
  y /= n;
  z /= n;
  return *this;
}

double Line::distanceToPoint(const Point &p) const {
  Vector a = p - point;
  Vector b = p - point;
  b.x -= direction.x;
  b.y -= direction.y;
  b.z -= direction.z;
  return a.cross(b).norm() / direction.norm();
}

const double Transform::ident[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
const double Transform::zero[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
Transform Transform::identityTransform;

Transform::Transform() {
  memcpy(m, ident, sizeof m);
}

Transform::Transform(const double values[16]) {
  memcpy(m, values, sizeof m);
}

Transform::Transform(const Point &origin, const Vector &axis, double angle) {
  Vector u = axis;
  u.normalize();
  // The row-vector convention stores the transpose of the usual rotation matrix, so
  // the angle is negated here and a point still turns by +angle about the axis.
  double theta = -angle;
  double c = cos(theta), s = sin(theta);
  double ux = u.x, uy = u.y, uz = u.z;
  m[0] = c + (1 - c) * ux * ux;
  m[1] = (1 - c) * ux * uy - s * uz;
  m[2] = (1 - c) * ux * uz + s * uy;
  m[3] = 0;
  m[4] = (1 - c) * uy * ux + s * uz;
  m[5] = c + (1 - c) * uy * uy;
  m[6] = (1 - c) * uy * uz - s * ux;
  m[7] = 0;
  m[8] = (1 - c) * uz * ux - s * uy;
  m[9] = (1 - c) * uz * uy + s * ux;
  m[10] = c + (1 - c) * uz * uz;
  m[11] = 0;
  m[12] = origin.x;
  m[13] = origin.y;
  m[14] = origin.z;
  m[15] = 1;
}

Transform::Transform(const Transform &other) : Base(other) {
  memcpy(m, other.m, sizeof m);
}

Transform &Transform::operator=(const Transform &other) {
  Base::operator=(other);
  memcpy(m, other.m, sizeof m);
  return *this;
}

Transform Transform::operator*(const Transform &b) const {
  Transform product(zero);
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j)
      for (int k = 0; k < 4; ++k)
        product.m[4 * i + j] += b.m[4 * i + k] * m[4 * k + j];
  return product;
}

Transform Transform::inverse() const {
  Transform t = translate(-m[12], -m[13], -m[14]);
  Transform r;
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      r.m[4 * i + j] = m[4 * j + i];
  return r * t;
}

Point Transform::origin() const {
  return Point(m[12], m[13], m[14]);
}

Transform Transform::translate(const Point &p) {
  return translate(p.x, p.y, p.z);
}

Transform Transform::translate(double x, double y, double z) {
  Transform t;
  t.m[12] = x;
  t.m[13] = y;
  t.m[14] = z;
  return t;
}

const Transform &Transform::identity() {
  return identityTransform;
}

bool Transform::isIdentity() const {
  for (int i = 0; i < 16; ++i)
    if (fabs(m[i] - ident[i]) > 1e-9)
      return false;
  return true;
}

bool Transform::isRotation() const {
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      if (fabs(m[4 * i + j] - ident[4 * i + j]) > 1e-9)
        return false;
  return true;
}

QString Transform::rotationString() const {
  double cosine = (m[0] + m[5] + m[10] - 1) / 2;
  if (cosine > 0.999999999)
    cosine = 1;
  if (cosine < -0.999999999)
    cosine = -1;
  double angle = acos(cosine);
  if (angle < 0.001)
    return QString();

  double ax = 0, ay = 0, az = 0;
  if (angle > 3.1405926535897932) {
    // Near a half turn the antisymmetric part vanishes; take the axis from the diagonal.
    if (m[0] >= m[5] && m[0] >= m[10]) {
      ax = sqrt(m[0] - m[5] - m[10] + 1) / 2;
      ay = m[4] / (2 * ax);
      az = m[8] / (2 * ax);
    } else if (m[5] >= m[0] && m[5] >= m[10]) {
      ay = sqrt(m[5] - m[0] - m[10] + 1) / 2;
      ax = m[4] / (2 * ay);
      az = m[9] / (2 * ay);
    } else if (m[10] >= m[0] && m[10] >= m[5]) {
      az = sqrt(m[10] - m[0] - m[5] + 1) / 2;
      ax = m[8] / (2 * az);
      ay = m[9] / (2 * az);
    }
  } else {
    ax = m[6] - m[9];
    ay = m[8] - m[2];
    az = m[1] - m[4];
  }
  Vector axis(ax, ay, az);
  axis.normalize();
  return QString::asprintf("A%.6f,%.6f,%.6f,%.6f", axis.x, axis.y, axis.z, angle * 180 / Pi);
}

QString Transform::toString() const {
  QString r = rotationString();
  if (r.isEmpty())
    return QString::asprintf("x=%.12g y=%.12g z=%.12g", m[12], m[13], m[14]);
  return QString::asprintf("x=%.12g y=%.12g z=%.12g rotation=%s", m[12], m[13], m[14],
                           r.toLocal8Bit().constData());
}

} // namespace Nexil
