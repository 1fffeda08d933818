//===- SliceMeasure.cpp - The bunch slice by slice -------------------------===//
//
// Along a linac or an injector the projected emittance of a bunch grows where its head
// and tail are kicked apart, while each slice keeps its own. This measure cuts the
// crossings of a plane into slices along time, writes each slice's values to the slices
// file and gives the charge-weighted mean of the slice emittances in the table. Which
// crossings make a slice depends on the data: the errors come from the spread over
// subsamples of the tracks, each cut into slices of its own.
//
//===----------------------------------------------------------------------------===//

#include "BunchSlices.h"
#include "Measure.h"

#include <cmath>
#include <limits>
#include <numeric>

namespace {

/// Every value of every slice of a sample, then the charge-weighted mean emittances of x
/// and y over the slices that have them.
std::vector<double> slicedValues(const std::vector<std::array<double, SliceValues>> &slices) {
  std::vector<double> values;
  double charges[2] = {}, weighted[2] = {};
  for (const std::array<double, SliceValues> &v : slices) {
    values.insert(values.end(), v.begin(), v.end());
    for (int plane = 0; plane < 2; ++plane) {
      const double emittance = v[size_t(plane == 0 ? SliceEmittanceX : SliceEmittanceY)];
      if (!std::isnan(emittance)) {
        charges[plane] += v[SliceCharge];
        weighted[plane] += v[SliceCharge] * emittance;
      }
    }
  }
  values.push_back(weighted[0] / charges[0]);
  values.push_back(weighted[1] / charges[1]);
  return values;
}

/// The slices file's rows of a plane and the table's mean slice emittances.
void setColumns(const std::vector<double> &values, const std::vector<double> &errors, int count,
                OpticsRow &row) {
  for (int s = 0; s < count; ++s) {
    std::vector<double> slice;
    for (int v = 0; v < SliceValues; ++v) {
      slice.push_back(values[size_t(s * SliceValues + v)]);
      if (v >= FirstSliceError)
        slice.push_back(errors[size_t(s * SliceValues + v)]);
    }
    row.slices.push_back(slice);
  }
  const size_t means = size_t(count * SliceValues);
  row.set("emitn_x_slice_mm_mrad", values[means]);
  row.set("emitn_x_slice_mm_mrad_err", errors[means]);
  row.set("emitn_y_slice_mm_mrad", values[means + 1]);
  row.set("emitn_y_slice_mm_mrad_err", errors[means + 1]);
}

/// A plane read back whole: each sample sorted and cut.
void fillFromCrossings(const PlaneContext &context, const std::vector<KeptCrossing> &crossings,
                       OpticsRow &row, QStringList &flags) {
  const CrossingChoices &choices = context.crossings.choices;
  const auto times =
      std::minmax_element(crossings.begin(), crossings.end(),
                          [](const KeptCrossing &a, const KeptCrossing &b) { return a.t < b.t; });
  const double origin = times.first->t;
  const int count = sliceCount(choices, origin, times.second->t);
  if (count == 0) {
    flags << "too-many-slices";
    return;
  }
  const auto [values, errors] = withSubsampleErrors(crossings, [&](const Sample &sample) {
    const double share = double(sample.size()) / double(crossings.size());
    std::vector<std::array<double, SliceValues>> slices;
    for (const Sample &slice : slicesOf(crossings, sample, choices, origin, count))
      slices.push_back(sliceValues(crossings, slice, choices, context.charge, share));
    return slicedValues(slices);
  });
  setColumns(values, errors, count, row);
}

/// A plane too large to be read back whole: its slices in passes over its crossings.
void fillFromPasses(const PlaneContext &context, const CrossingPass &pass, OpticsRow &row,
                    QStringList &flags) {
  const CrossingChoices &choices = context.crossings.choices;
  std::vector<size_t> sizes(1 + SubsampleGroups);
  double origin = std::numeric_limits<double>::infinity(), end = -origin;
  pass([&](const KeptCrossing *block, size_t n, size_t) {
    for (size_t k = 0; k < n; ++k) {
      for (size_t sample : samplesOf(block[k]))
        ++sizes[sample];
      origin = std::min(origin, block[k].t);
      end = std::max(end, block[k].t);
    }
  });
  const int count = sliceCount(choices, origin, end);
  if (count == 0) {
    flags << "too-many-slices";
    return;
  }
  const auto slices = slicesInPasses(pass, sizes, choices, origin, count, context.charge);
  const std::vector<double> values = slicedValues(slices[0]);
  // A subsample without crossings has slices without values: its values' errors are none.
  std::vector<std::vector<double>> ofGroups;
  for (size_t s = 1; s < slices.size(); ++s)
    ofGroups.push_back(slicedValues(slices[s]));
  setColumns(values, subsampleErrors(ofGroups), count, row);
}

void fill(const PlaneContext &context, OpticsRow &row, QStringList &flags) {
  takeCrossings(context, row, flags, fillFromCrossings, fillFromPasses);
}

QList<MeasureColumn> columns() {
  return {
      {"emitn_x_slice_mm_mrad", true,
       "charge-weighted mean of the slices' emittances of x, mm mrad"},
      {"emitn_y_slice_mm_mrad", true, "charge-weighted mean of the slices' emittances of y"},
  };
}

} // namespace

const Measure &sliceMeasure() {
  static const Measure measure{
      "slices",
      1,
      "the bunch cut along time (--slices, --slice-width): each slice in the slices file, the "
      "mean slice emittances here",
      columns(),
      {{"slices",
        "--slices N slices of as many crossings each, earliest first, equal times ordered by "
        "event, track and arrival, the last slice also holding what is left over; or "
        "--slice-width DT slices of DT from the earliest crossing, one on a boundary in the "
        "later slice (at most 1000); each slice's emittances sqrt(det C(x, u_x)), sqrt(det "
        "C(y, u_y)); the table's mean slice emittance weighs each slice that has one by its "
        "charge; errors from the subsamples, each cut into slices of its own"}},
      {},
      {"no-crossings", "too-many-slices"},
      fill,
      true};
  return measure;
}
