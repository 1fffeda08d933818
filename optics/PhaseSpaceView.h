//===- PhaseSpaceView.h - What the picture of a plane's crossings shows -*- C++ -*-===//
//
// The picture of one plane's crossings has four panels, (x, u_x), (y, u_y), (x, y) and
// (t, kinetic energy): each the density of the crossings over four r.m.s. widths either
// side of the mean, the r.m.s. ellipse and the 90 % core. They are made from the
// crossings read back whole, or in passes over a plane too large for that.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_PHASESPACEVIEW_H
#define OPTICS_PHASESPACEVIEW_H

#include "CrossingSample.h"

#include <array>
#include <vector>

/// A pair of coordinates drawn against each other: first and first + stride.
struct PhasePair {
  int first, stride;
  const char *xLabel, *yLabel;
};

/// Bins of the density along each axis.
constexpr int PhaseBins = 100;
/// The fraction of the core whose contour is drawn.
constexpr double PhaseCoreFraction = 0.9;

/// One panel of the picture.
struct PhasePanel {
  PhasePair pair;
  Ellipsoid rms, core; ///< the core with its boundary
  /// Four r.m.s. widths either side of the mean (one unit where there is no spread).
  double xMin, xMax, yMin, yMax;
  /// The weight of the crossings in each bin, PhaseBins by PhaseBins, row by row from
  /// yMin, each row from xMin.
  std::vector<double> weights;
};

using PhaseSpaceView = std::array<PhasePanel, 4>;

/// The panels of the crossings of a plane read back whole.
PhaseSpaceView phaseSpaceView(const std::vector<KeptCrossing> &crossings);
/// The same in passes over the crossings of a plane, but for the order of the sums.
PhaseSpaceView phaseSpaceView(const CrossingPass &pass);

#endif // OPTICS_PHASESPACEVIEW_H
