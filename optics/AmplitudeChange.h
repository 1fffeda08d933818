//===- AmplitudeChange.h - Each particle's amplitude from one plane to another -*- C++ -*-===//
//
// Cooling shows in the particles themselves: more of them at small amplitudes downstream
// than upstream, each particle's amplitude smaller. The tracks that cross both planes are
// matched by their event and track numbers, and the table gives, per bin of upstream
// amplitude, where its particles went (the migration) and the ratio of the weight below
// the bin's upper edge downstream to that upstream, with its error.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_AMPLITUDECHANGE_H
#define OPTICS_AMPLITUDECHANGE_H

#include "CrossingSample.h"

#include <QByteArray>
#include <vector>

/// The table of the change of amplitude from the crossings of one plane to those of
/// another, as CSV text; empty when either plane's Sigma4 is not positive definite.
QByteArray amplitudeChangeTable(const std::vector<KeptCrossing> &upstream,
                                const std::vector<KeptCrossing> &downstream);

/// Tracks are matched this many crossings of a plane at a time, at most, on average.
constexpr size_t PartCrossings = 65536;

/// The same of two planes in passes over their crossings, the larger of which has
/// `crossings`: the tracks matched a part at a time, in passes over both planes (two for
/// each part), but for the order of the sums the table of the planes read back whole.
QByteArray amplitudeChangeTable(const CrossingPass &upstream, const CrossingPass &downstream,
                                size_t crossings);

#endif // OPTICS_AMPLITUDECHANGE_H
