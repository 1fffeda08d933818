//===- PlaneGeometry.cpp - What a plane's crossing test reads --------------===//

#include "PlaneGeometry.h"

PlaneGeometry::PlaneGeometry(const BCSample &plane)
    : point(plane.point), normal(plane.normal), radiusCut(plane.radiusCut),
      bothDirections(plane.bothDirections) {
  // A row dotted with r multiplies the same pairs and adds them in the same order as
  // the transform applied to r does, so the local x and y are the same to the bit.
  const double *m = plane.transform.m;
  rotationX = Nexil::Vector(m[0], m[4], m[8]);
  rotationY = Nexil::Vector(m[1], m[5], m[9]);
}
