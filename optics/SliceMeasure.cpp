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
#include <numeric>

namespace {

/// Every value of every slice of a sample, then the charge-weighted mean emittances of x
/// and y over the slices that have them.
std::vector<double> slicedValues(const std::vector<KeptCrossing> &crossings, const Sample &sample,
                                 const CrossingChoices &choices, double origin, int count,
                                 int charge) {
  const double share = double(sample.size()) / double(crossings.size());
  std::vector<double> values;
  double charges[2] = {}, weighted[2] = {};
  for (const Sample &slice : slicesOf(crossings, sample, choices, origin, count)) {
    const std::array<double, SliceValues> v = sliceValues(crossings, slice, choices, charge, share);
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

void fill(const PlaneContext &context, OpticsRow &row, QStringList &flags) {
  const std::vector<KeptCrossing> *kept = keptCrossingsOf(context, flags);
  if (!kept)
    return;
  const std::vector<KeptCrossing> &crossings = *kept;
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
    return slicedValues(crossings, sample, choices, origin, count, context.charge);
  });
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
      {"no-crossings", "too-many-crossings", "too-many-slices"},
      fill,
      true};
  return measure;
}
