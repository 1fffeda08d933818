//===- BunchSlices.cpp - The bunch cut along time --------------------------===//

#include "BunchSlices.h"

#include "KeySelection.h"

#include <algorithm>
#include <cmath>
#include <cstring>
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

namespace {

/// The sums of a slice's crossings in two rounds: the first gives the means, the second
/// the spreads about them. The crossings come in the same order to both.
class SliceSums {
public:
  void addFirst(const KeptCrossing &c) {
    ++count;
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
  /// The means, once every crossing is in the first round.
  double mean(int value) const { return sums[value] / weight; }
  void addSecond(const KeptCrossing &c) {
    const double d = c.energy - mean(SliceMeanEnergy);
    spread += c.weight * d * d;
    for (Ellipsoid *e : {&phaseX, &phaseY}) {
      for (int i = 0; i < 2; ++i)
        e->mean[size_t(i)] = mean(e->first == PhaseX ? SliceMeanX + i : SliceMeanY + i);
      e->addSpread(c);
    }
  }
  /// The slice's values, as sliceValues gives them, once every crossing is in both rounds.
  std::array<double, SliceValues> values(const CrossingChoices &choices, int charge,
                                         double share) const;

  size_t count = 0;

private:
  double weight = 0;
  double first = std::numeric_limits<double>::infinity();
  double last = -std::numeric_limits<double>::infinity();
  double sums[SliceValues] = {};
  double spread = 0;
  Ellipsoid phaseX = planeEllipsoid(PhaseX), phaseY = planeEllipsoid(PhaseY);

  static Ellipsoid planeEllipsoid(int first) {
    Ellipsoid e;
    e.first = first;
    e.dimension = 2;
    return e;
  }
};

std::array<double, SliceValues> SliceSums::values(const CrossingChoices &choices, int charge,
                                                  double share) const {
  std::array<double, SliceValues> v;
  v.fill(None);
  v[SliceCount] = double(count);
  if (count == 0)
    return v;
  for (int m : {SliceMeanT, SliceMeanX, SliceMeanUX, SliceMeanY, SliceMeanUY, SliceMeanEnergy})
    v[size_t(m)] = mean(m);
  v[SliceEnergySpread] = std::sqrt(spread / weight);
  v[SliceDuration] = std::isnan(choices.sliceWidth) ? last - first : choices.sliceWidth;
  v[SliceCharge] = weight * charge * ElementaryChargePC / share;
  // pC per ns is a thousandth of an ampere.
  v[SliceCurrent] = v[SliceDuration] > 0 ? v[SliceCharge] / v[SliceDuration] / 1000 : None;
  int value = SliceEmittanceX;
  for (Ellipsoid e : {phaseX, phaseY}) {
    e.divideBy(weight);
    v[size_t(value++)] = e.emittance();
  }
  return v;
}

/// A crossing's place in the order of equal-count slices, (t, event, track, arrival), as
/// one key whose binary form orders as the place does.
SelectionKey orderKey(const KeptCrossing &c, size_t arrival) {
  const double t = c.t == 0 ? 0.0 : c.t; // -0 and +0 are one time
  uint64_t bits;
  memcpy(&bits, &t, sizeof bits);
  const uint64_t sign = uint64_t(1) << 63, half = uint32_t(1) << 31;
  const uint64_t event = uint32_t(c.event) ^ half, track = uint32_t(c.track) ^ half;
  return {bits & sign ? ~bits : bits | sign, event << 32 | track, arrival};
}

} // namespace

std::array<double, SliceValues> sliceValues(const std::vector<KeptCrossing> &crossings,
                                            const Sample &slice, const CrossingChoices &choices,
                                            int charge, double share) {
  SliceSums sums;
  for (size_t k : slice)
    sums.addFirst(crossings[k]);
  for (size_t k : slice)
    sums.addSecond(crossings[k]);
  return sums.values(choices, charge, share);
}

std::vector<std::vector<std::array<double, SliceValues>>>
slicesInPasses(const CrossingPass &pass, const std::vector<size_t> &sizes,
               const CrossingChoices &choices, double origin, int count, int charge) {
  // Equal-count slices: each sample's boundaries, the first crossing of each slice but
  // the first, by rank.
  std::vector<std::vector<SelectionKey>> boundaries(sizes.size());
  if (std::isnan(choices.sliceWidth)) {
    std::vector<KeySearch> searches;
    std::vector<size_t> ofSample;
    for (size_t s = 0; s < sizes.size(); ++s) {
      const size_t each = std::max<size_t>(sizes[s] / size_t(count), 1);
      for (size_t rank = each; rank < sizes[s] && rank / each < size_t(count); rank += each) {
        searches.push_back({s == 0 ? AnySample : int(s - 1), double(rank + 1), sizes[s]});
        ofSample.push_back(s);
      }
    }
    const KeyPass keys = [&pass](const auto &take) {
      pass([&](const KeptCrossing *block, size_t n, size_t first) {
        for (size_t k = 0; k < n; ++k)
          take(orderKey(block[k], first + k), 1.0, block[k].group);
      });
    };
    const std::vector<std::optional<SelectionKey>> found = selectKeys(keys, searches, 192);
    for (size_t j = 0; j < found.size(); ++j)
      boundaries[ofSample[j]].push_back(*found[j]);
  }
  auto sliceOf = [&](const KeptCrossing &c, size_t arrival, size_t sample) {
    if (!std::isnan(choices.sliceWidth))
      return size_t(
          std::clamp(std::floor((c.t - origin) / choices.sliceWidth), 0.0, double(count - 1)));
    const std::vector<SelectionKey> &b = boundaries[sample];
    return size_t(std::upper_bound(b.begin(), b.end(), orderKey(c, arrival)) - b.begin());
  };
  std::vector<std::vector<SliceSums>> sums(sizes.size(), std::vector<SliceSums>(size_t(count)));
  for (const auto round : {&SliceSums::addFirst, &SliceSums::addSecond})
    pass([&](const KeptCrossing *block, size_t n, size_t first) {
      for (size_t k = 0; k < n; ++k)
        for (size_t s : samplesOf(block[k]))
          (sums[s][sliceOf(block[k], first + k, s)].*round)(block[k]);
    });
  std::vector<std::vector<std::array<double, SliceValues>>> slices(sizes.size());
  for (size_t s = 0; s < sizes.size(); ++s)
    for (const SliceSums &slice : sums[s])
      slices[s].push_back(slice.values(choices, charge, double(sizes[s]) / double(sizes[0])));
  return slices;
}
