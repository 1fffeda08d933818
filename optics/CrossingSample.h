//===- CrossingSample.h - What a plane's crossings tell one by one -*- C++ -*-===//
//
// The distribution of the crossings of a plane in the normalised transverse phase
// space (x, u_x, y, u_y), u = P/(m c) in mrad: each crossing's amplitude, weighted
// quantiles, the emittance of the core of the beam, the halo parameters. A sample is a
// list of crossings of the plane: all of them, or the crossings of one subsample, whose
// spread gives the errors of what depends on the data through a chosen set.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_CROSSINGSAMPLE_H
#define OPTICS_CROSSINGSAMPLE_H

#include "KeptCrossings.h"
#include "KeySelection.h"

#include <array>
#include <functional>
#include <limits>
#include <utility>
#include <vector>

/// The coordinates of a kept crossing, in the order of its members.
enum PhaseCoordinate { PhaseX, PhaseUX, PhaseY, PhaseUY, PhaseT, PhaseEnergy, PhaseCoordinates };

/// The crossings of one sample, by their place in the plane's list.
using Sample = std::vector<size_t>;

/// The weighted mean and covariance of `dimension` coordinates from `first` on, `stride`
/// apart.
struct Ellipsoid {
  int first = 0, dimension = 0;
  int stride = 1;
  std::array<double, 4> mean{};
  std::array<std::array<double, 4>, 4> covariance{};
  /// det(covariance)^(1/dimension): the normalised emittance, mm mrad; none unless the
  /// covariance is positive definite.
  double emittance() const;
  /// Adds a crossing's w d d^T to the covariance, d its coordinates less the mean: the
  /// sums of the covariance, which divideBy() makes it.
  void addSpread(const KeptCrossing &c);
  /// Divides the covariance's sums by the weight of their crossings.
  void divideBy(double weight);
  /// For a core: the largest d^T C^-1 d of its crossings about the ellipsoid it was chosen
  /// with, the last one: its boundary is d^T C^-1 d = boundary.
  double boundary = std::numeric_limits<double>::quiet_NaN();
};

/// The samples of a crossing of a plane taken in passes, by their place: every
/// crossing's (0), then its subsample's (1 + its group).
inline std::array<size_t, 2> samplesOf(const KeptCrossing &c) {
  return {0, size_t(1 + c.group)};
}

/// The quarters of a plane's crossings: five subsamples each, those whose groups are alike
/// modulo 4. How a value of a chosen set moves from the subsamples to the quarters and to
/// every crossing tells its bias.
constexpr int SampleQuarters = 4;

/// The samples of the cores: every crossing, each subsample, each quarter.
constexpr size_t CoreSamples = 1 + SubsampleGroups + SampleQuarters;

/// The cores' samples of a crossing, by their place: every crossing's (0), its
/// subsample's (1 + its group), its quarter's (1 + SubsampleGroups + its group modulo 4).
inline std::array<size_t, 3> coreSamplesOf(const KeptCrossing &c) {
  return {0, size_t(1 + c.group), size_t(1 + SubsampleGroups + c.group % SampleQuarters)};
}

/// Every crossing of a plane of `count` crossings, in their order.
Sample wholeSample(size_t count);

/// The coordinate `i` of a crossing; inline, for the loops over every crossing of a
/// plane that the distances and ellipsoids are.
inline double coordinateOf(const KeptCrossing &crossing, int i) {
  switch (i) {
  case PhaseX:
    return crossing.x;
  case PhaseUX:
    return crossing.ux;
  case PhaseY:
    return crossing.y;
  case PhaseUY:
    return crossing.uy;
  case PhaseT:
    return crossing.t;
  default:
    return crossing.energy;
  }
}

/// The weighted mean and covariance of the sample's coordinates first, first + stride, ...
/// (`dimension` of them).
Ellipsoid ellipsoidOf(const std::vector<KeptCrossing> &crossings, const Sample &sample, int first,
                      int dimension, int stride = 1);

/// Each crossing's d^T C^-1 d about the ellipsoid's mean, d its coordinates less the mean;
/// false when the covariance is not positive definite.
bool squaredDistances(const std::vector<KeptCrossing> &crossings, const Sample &sample,
                      const Ellipsoid &ellipsoid, std::vector<double> &distances);

/// Each crossing's amplitude emitn_4d d^T Sigma4^-1 d (mm mrad), Sigma4 the covariance of
/// every crossing; returns emitn_4d, none (and no amplitudes) where Sigma4 is not positive
/// definite.
double amplitudesOf(const std::vector<KeptCrossing> &crossings, std::vector<double> &amplitudes);

/// Hands every value and its weight to `take`, in the same order on every call.
using ValuePass = std::function<void(const std::function<void(double, double)> &)>;

/// The ellipsoid of every crossing of the passes (two of them), as ellipsoidOf.
Ellipsoid ellipsoidOf(const CrossingPass &pass, int first, int dimension, int stride = 1);

/// Hands each crossing of the pass to `take` with its amplitude about `beam` (the
/// ellipsoid of every crossing, whose emittance is `emittance`) and its place in the order
/// the plane met them.
void forEachAmplitude(const CrossingPass &pass, const Ellipsoid &beam, double emittance,
                      const std::function<void(const KeptCrossing &, double, size_t)> &take);

/// Each crossing's amplitude about `beam` (the ellipsoid of every crossing, whose
/// emittance is `emittance`) and its weight, a pass at a time.
ValuePass amplitudesOf(const CrossingPass &pass, const Ellipsoid &beam, double emittance);

/// The lower quantiles (as lowerQuantile) at each fraction of values not below +0, in
/// passes over them within bounded memory: the values are narrowed down by the bits of
/// their binary form, 12 at a time, until few enough are left to be sorted.
std::vector<double> lowerQuantiles(const ValuePass &pass, const std::vector<double> &fractions);

/// Bins of amplitude: this many of half an emitn_4d each from 0, and one above them.
constexpr int AmplitudeBins = 40;
/// The width of the bins of amplitude of a beam of this emitn_4d: half of it.
double amplitudeBinWidth(double emittance);
/// The bin of an amplitude, in bins of amplitudeBinWidth(emittance) each.
int amplitudeBin(double amplitude, double emittance);

/// The smallest value whose weight and that of all values below it reach `fraction` of
/// the whole weight (no interpolation); pairs of (value, weight). Reorders the pairs.
double lowerQuantile(std::vector<std::pair<double, double>> &values, double fraction);

/// The ellipsoid of the fraction f of the sample's weight with the smallest distance,
/// chosen again with each new ellipsoid's own covariance until the set stops changing
/// (at most CoreIterations times); a crossing on the boundary is in the core.
Ellipsoid coreOf(const std::vector<KeptCrossing> &crossings, const Sample &sample, int first,
                 int dimension, double fraction, int stride = 1);
constexpr int CoreIterations = 100;

/// The cores of the sample at each fraction, as coreOf gives each: the ellipsoid of every
/// crossing of the sample and the distances about it, where each starts, taken once.
std::vector<Ellipsoid> coresOf(const std::vector<KeptCrossing> &crossings, const Sample &sample,
                               int first, int dimension, const std::vector<double> &fractions,
                               int stride = 1);

/// A core of a plane taken in passes: of the crossings of one subsample (its group), of
/// one quarter (SubsampleGroups + its number), or of every crossing (AnySample), in
/// `dimension` coordinates from `first` on, `stride` apart.
struct CoreAsked {
  int sample;
  int first, dimension;
  double fraction;
  int stride = 1;
};

/// The cores of a plane too large to be read back whole, all at once in passes over its
/// crossings: each the ellipsoid that coreOf gives of its sample read back whole, but for
/// the order in which its sums are added.
std::vector<Ellipsoid> coresOf(const CrossingPass &pass, const std::vector<CoreAsked> &asked);

/// A value and its error.
struct Measured {
  double value, error;
};

/// The halo parameters of a phase plane (u, v).
struct Halo {
  /// <u^4>/<u^2>^2 - 2: 1 for a Gaussian, 0 for the projection of a uniformly filled
  /// ellipse (a semicircle).
  Measured profile;
  /// sqrt(3 I4)/(2 I2) - 2, with I2 = <u^2><v^2> - <uv>^2 and I4 = <u^4><v^4> +
  /// 3<u^2v^2>^2 - 4<uv^3><u^3v>: 1 for a Gaussian, 0 for a uniformly filled ellipse.
  Measured phaseSpace;
};

/// The halo parameters of the phase plane (first, first + 1) of the crossings of the
/// pass, moments about the mean, in three passes: the means, the moments, and each
/// crossing's influence h on each parameter (its rate of change as the crossing's share
/// of the weight grows), whose spread gives the error sqrt(sum w^2 h^2) / sum w.
Halo haloOf(const CrossingPass &pass, int first);

/// Values of the whole sample and their errors from the spread of each value over the
/// subsamples: sqrt(sum (v_g - mean)^2 / (G (G - 1))) over the G subsamples; none when a
/// subsample has no value. Every sample gives as many values.
std::pair<std::vector<double>, std::vector<double>>
withSubsampleErrors(const std::vector<KeptCrossing> &crossings,
                    const std::function<std::vector<double>(const Sample &)> &estimate);
/// The errors of values from their spread over the subsamples, as withSubsampleErrors
/// gives them: each subsample's values (none where it has no crossing), in the order of
/// the subsamples.
std::vector<double> subsampleErrors(const std::vector<std::vector<double>> &ofGroups);

/// The cores' samples of a plane read back whole, by their place (coreSamplesOf).
std::vector<Sample> coreSamples(const std::vector<KeptCrossing> &crossings);

/// The error of a value of a chosen set, from its value of each of the cores' samples (by
/// their place): the spread over the subsamples (subsampleErrors) and, in quadrature, the
/// bias of the set beyond the noise of its estimate; none when a sample has no value.
/// A set that follows the sample's fluctuations is biased by c n^-p, n the number of
/// crossings: p, between 1/2 and 1, is the one for which the means over the subsamples
/// (n/20) and over the quarters (n/4) lie from the whole sample's value as 20^p - 1 to
/// 4^p - 1 (1/2 where they lie on opposite sides); the bias is b = (mean over the
/// subsamples - value) / (20^p - 1), its noise the spread's error over 20^p - 1.
double chosenSetError(const std::vector<double> &ofSamples);

#endif // OPTICS_CROSSINGSAMPLE_H
