//===- Twiss.h - Beam statistics of one sampling plane ---------*- C++ -*-===//
#ifndef TWISS_TWISS_H
#define TWISS_TWISS_H

#include "Step.h"

#include <QString>

/// Running sums of the local transverse positions of the crossings of one plane.
class Twiss {
public:
  int s;        ///< position of the plane in whole millimetres; names the report lines
  int entries;  ///< crossings accumulated
  double sumX;  ///< of the local x of the crossings, mm
  double sumX2; ///< of their squares, mm^2
  double sumY;  ///< of the local y, mm
  double sumY2; ///< of their squares, mm^2

  /// Empty statistics of the plane at s, whole millimetres.
  explicit Twiss(int s);
  /// Track events change nothing in the statistics; the plane forwards them anyway.
  void trackBegin(int, int) {}
  /// As trackBegin: nothing to do at the end of a track.
  void trackEnd(int, int) {}
  /// Adds one crossing, already in the plane's local frame.
  void calculate(Step &crossing);
  /// Adds the local transverse position of one crossing.
  void add(double x, double y) {
    entries += 1;
    sumX += x;
    sumX2 += x * x;
    sumY += y;
    sumY2 += y * y;
  }
  /// The five report lines: means and population r.m.s. widths of x and y, entries.
  QString result();
};

#endif // TWISS_TWISS_H
