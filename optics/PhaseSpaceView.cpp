//===- PhaseSpaceView.cpp - What the picture of a plane's crossings shows --===//

#include "PhaseSpaceView.h"

#include <cmath>

namespace {

const PhasePair Pairs[] = {{PhaseX, 1, "x [mm]", "u_x = Px/(m c) [mrad]"},
                           {PhaseY, 1, "y [mm]", "u_y = Py/(m c) [mrad]"},
                           {PhaseX, 2, "x [mm]", "y [mm]"},
                           {PhaseT, 1, "t [ns]", "kinetic energy [MeV]"}};

/// A panel's pair, r.m.s. ellipse and ranges, its density still empty.
PhasePanel framed(const PhasePair &pair, const Ellipsoid &rms) {
  double half[2];
  for (int i = 0; i < 2; ++i) {
    const double sigma = std::sqrt(rms.covariance[size_t(i)][size_t(i)]);
    half[i] = sigma > 0 ? 4 * sigma : 1;
  }
  return {pair,
          rms,
          {},
          rms.mean[0] - half[0],
          rms.mean[0] + half[0],
          rms.mean[1] - half[1],
          rms.mean[1] + half[1],
          std::vector<double>(PhaseBins * PhaseBins)};
}

/// Adds a crossing to the panel's density, where it falls within the ranges.
void addTo(PhasePanel &panel, const KeptCrossing &c) {
  const double u = (coordinateOf(c, panel.pair.first) - panel.xMin) / (panel.xMax - panel.xMin);
  const double v = (coordinateOf(c, panel.pair.first + panel.pair.stride) - panel.yMin) /
                   (panel.yMax - panel.yMin);
  if (u >= 0 && u < 1 && v >= 0 && v < 1)
    panel.weights[size_t(int(v * PhaseBins) * PhaseBins + int(u * PhaseBins))] += c.weight;
}

} // namespace

PhaseSpaceView phaseSpaceView(const std::vector<KeptCrossing> &crossings) {
  const Sample all = wholeSample(crossings.size());
  PhaseSpaceView view;
  for (size_t i = 0; i < view.size(); ++i) {
    const PhasePair &pair = Pairs[i];
    view[i] = framed(pair, ellipsoidOf(crossings, all, pair.first, 2, pair.stride));
    view[i].core = coreOf(crossings, all, pair.first, 2, PhaseCoreFraction, pair.stride);
    for (const KeptCrossing &c : crossings)
      addTo(view[i], c);
  }
  return view;
}

PhaseSpaceView phaseSpaceView(const CrossingPass &pass) {
  PhaseSpaceView view;
  std::vector<CoreAsked> cores;
  for (size_t i = 0; i < view.size(); ++i) {
    const PhasePair &pair = Pairs[i];
    view[i] = framed(pair, ellipsoidOf(pass, pair.first, 2, pair.stride));
    cores.push_back({AnySample, pair.first, 2, PhaseCoreFraction, pair.stride});
  }
  const std::vector<Ellipsoid> core = coresOf(pass, cores);
  for (size_t i = 0; i < view.size(); ++i)
    view[i].core = core[i];
  pass([&](const KeptCrossing *block, size_t count, size_t) {
    for (size_t k = 0; k < count; ++k)
      for (PhasePanel &panel : view)
        addTo(panel, block[k]);
  });
  return view;
}
