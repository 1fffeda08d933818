//===- BunchSlices.cpp - The bunch cut along time --------------------------===//

#include "BunchSlices.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr double None = std::numeric_limits<double>::quiet_NaN();
/// The elementary charge in pC.
constexpr double ElementaryChargePC = 1.602176634e-7;

} // namespace

QStringList sliceColumns() {
  const char *const names[] = {"n",
                               "duration_ns",
                               "charge_pC",
                               "current_A",
                               "mean_t_ns",
                               "mean_x_mm",
                               "mean_ux_mrad",
                               "mean_y_mm",
                               "mean_uy_mrad",
                               "emitn_x_mm_mrad",
                               "emitn_y_mm_mrad",
                               "mean_ekin_MeV",
                               "sigma_E_MeV"};
  QStringList columns;
  for (int v = 0; v < SliceValues; ++v) {
    columns << names[v];
    if (v >= FirstSliceError)
      columns << QString(names[v]) + "_err";
  }
  return columns;
}

int sliceCount(const CrossingChoices &choices, double origin, double end) {
  if (std::isnan(choices.sliceWidth))
    return choices.slices;
  const double count = std::floor((end - origin) / choices.sliceWidth) + 1;
  return count > MaximumSlices ? 0 : int(count);
}

std::vector<Sample> slicesOf(const std::vector<KeptCrossing> &crossings, const Sample &sample,
                             const CrossingChoices &choices, double origin, int count) {
  std::vector<Sample> slices(static_cast<size_t>(count));
  if (!std::isnan(choices.sliceWidth)) {
    for (size_t k : sample) {
      const double place = std::floor((crossings[k].t - origin) / choices.sliceWidth);
      slices[size_t(std::clamp(place, 0.0, double(count - 1)))].push_back(k);
    }
    return slices;
  }
  Sample ordered = sample;
  std::sort(ordered.begin(), ordered.end(), [&](size_t a, size_t b) {
    const KeptCrossing &p = crossings[a], &q = crossings[b];
    if (p.t != q.t)
      return p.t < q.t;
    if (p.event != q.event)
      return p.event < q.event;
    return p.track != q.track ? p.track < q.track : a < b;
  });
  const size_t each = ordered.size() / size_t(count);
  for (size_t i = 0; i < ordered.size(); ++i)
    slices[std::min(i / std::max<size_t>(each, 1), size_t(count - 1))].push_back(ordered[i]);
  return slices;
}

std::array<double, SliceValues> sliceValues(const std::vector<KeptCrossing> &crossings,
                                            const Sample &slice, const CrossingChoices &choices,
                                            int charge, double share) {
  std::array<double, SliceValues> v;
  v.fill(None);
  v[SliceCount] = double(slice.size());
  if (slice.empty())
    return v;
  double weight = 0, first = crossings[slice[0]].t, last = first;
  double sums[SliceValues] = {};
  for (size_t k : slice) {
    const KeptCrossing &c = crossings[k];
    weight += c.weight;
    first = std::min(first, c.t);
    last = std::max(last, c.t);
    sums[SliceMeanT] += c.weight * c.t;
    sums[SliceMeanX] += c.weight * c.x;
    sums[SliceMeanUX] += c.weight * c.ux;
    sums[SliceMeanY] += c.weight * c.y;
    sums[SliceMeanUY] += c.weight * c.uy;
    sums[SliceMeanEnergy] += c.weight * c.energy;
  }
  for (int m : {SliceMeanT, SliceMeanX, SliceMeanUX, SliceMeanY, SliceMeanUY, SliceMeanEnergy})
    v[size_t(m)] = sums[m] / weight;
  double spread = 0;
  for (size_t k : slice) {
    const double d = crossings[k].energy - v[SliceMeanEnergy];
    spread += crossings[k].weight * d * d;
  }
  v[SliceEnergySpread] = std::sqrt(spread / weight);
  v[SliceDuration] = std::isnan(choices.sliceWidth) ? last - first : choices.sliceWidth;
  v[SliceCharge] = weight * charge * ElementaryChargePC / share;
  // pC per ns is a thousandth of an ampere.
  v[SliceCurrent] = v[SliceDuration] > 0 ? v[SliceCharge] / v[SliceDuration] / 1000 : None;
  v[SliceEmittanceX] = ellipsoidOf(crossings, slice, PhaseX, 2).emittance();
  v[SliceEmittanceY] = ellipsoidOf(crossings, slice, PhaseY, 2).emittance();
  return v;
}
