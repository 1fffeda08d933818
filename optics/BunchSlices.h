//===- BunchSlices.h - The bunch cut along time ----------------*- C++ -*-===//
//
// The projected emittance of a bunch whose head and tail are kicked apart is larger
// than what each part of it has. The crossings of a plane are cut along time into
// slices, either of as many crossings each or of one duration each, and each slice gets
// its charge, current, means, emittances and energy spread.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_BUNCHSLICES_H
#define OPTICS_BUNCHSLICES_H

#include "BeamOptics.h"
#include "CrossingSample.h"

#include <QStringList>

/// The values of a slice, in their order: its number of crossings and duration, then
/// the values that have errors.
enum SliceValue {
  SliceCount,
  SliceDuration, ///< ns: the width of equal slices, or from the first crossing to the last
  SliceCharge,   ///< pC
  SliceCurrent,  ///< A
  SliceMeanT,
  SliceMeanX,
  SliceMeanUX,
  SliceMeanY,
  SliceMeanUY,
  SliceEmittanceX,
  SliceEmittanceY,
  SliceMeanEnergy,
  SliceEnergySpread,
  SliceValues
};

/// The first value that has an error.
constexpr int FirstSliceError = SliceCharge;

/// The columns of a slice in the slices file: the values, each from SliceCharge on
/// followed by its error.
QStringList sliceColumns();

/// At most this many slices of equal duration.
constexpr int MaximumSlices = 1000;

/// The slices of equal duration of a sample whose first crossing is at `origin` and its
/// last `end` (ns); 0 if more than MaximumSlices.
int sliceCount(const CrossingChoices &choices, double origin, double end);

/// The sample cut into `count` slices along time, earliest first: of as many crossings
/// each (equal times ordered by event, track and arrival; the last slice also holds what
/// is left over), or of the duration chosen from `origin` (a crossing on a boundary in the
/// later slice).
std::vector<Sample> slicesOf(const std::vector<KeptCrossing> &crossings, const Sample &sample,
                             const CrossingChoices &choices, double origin, int count);

/// The values of a slice of crossings of `charge` e each; a slice of a subsample holding
/// the share `share` of the plane's crossings gives its charge and current as of the
/// whole.
std::array<double, SliceValues> sliceValues(const std::vector<KeptCrossing> &crossings,
                                            const Sample &slice, const CrossingChoices &choices,
                                            int charge, double share);

/// The slices of each sample of a plane too large to be read back whole, in passes over
/// its crossings: the whole plane first, then each subsample (`sizes`: the crossings of
/// each). Each slice's values are those that slicesOf and sliceValues give of the plane
/// read back whole, but for the order in which their sums are added.
std::vector<std::vector<std::array<double, SliceValues>>>
slicesInPasses(const CrossingPass &pass, const std::vector<size_t> &sizes,
               const CrossingChoices &choices, double origin, int count, int charge);

#endif // OPTICS_BUNCHSLICES_H
