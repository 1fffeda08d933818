//===- CrossingSample.cpp - What a plane's crossings tell one by one -------===//

#include "CrossingSample.h"
#include "VectorState.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <numeric>
#include <type_traits>

namespace {

constexpr double None = std::numeric_limits<double>::quiet_NaN();

/// The sample's weight and the weighted means of `dimension` coordinates from `first`
/// on, `stride` apart.
struct SampleMeans {
  std::array<double, 4> mean{};
  double weight = 0;

  /// Adds a crossing: its weight, and its weighted coordinates. The dimension is an int
  /// or, for loops the compiler unrolls, a std::integral_constant.
  template <typename Count>
  void add(const KeptCrossing &c, int first, Count dimension, int stride) {
    weight += c.weight;
    for (int i = 0; i < dimension; ++i)
      mean[size_t(i)] += c.weight * coordinateOf(c, first + i * stride);
  }
  /// Makes the sums of the coordinates their means, once every crossing is added.
  void settle(int dimension) {
    for (int i = 0; i < dimension; ++i)
      mean[size_t(i)] /= weight;
  }
};

/// The same of every crossing that `each` hands over (each(f) calls f(crossing) for each
/// crossing, in an order of its own).
template <typename Each>
SampleMeans meansOver(const Each &each, int first, int dimension, int stride = 1) {
  SampleMeans m;
  each([&](const KeptCrossing &c) { m.add(c, first, dimension, stride); });
  m.settle(dimension);
  return m;
}

/// The crossings of a sample, for meansOver and ellipsoidOver.
auto eachOf(const std::vector<KeptCrossing> &crossings, const Sample &sample) {
  return [&crossings, &sample](const auto &take) {
    for (size_t k : sample)
      take(crossings[k]);
  };
}

/// Adds a crossing's w d d^T to `sums`, d its coordinates (`dimension` of them from
/// `first` on, `stride` apart) less `mean`; the dimension an int, or a
/// std::integral_constant for unrolled loops.
template <typename Sums, typename Count>
inline void addSpreadTo(Sums &sums, const std::array<double, 4> &mean, const KeptCrossing &c,
                        int first, Count dimension, int stride) {
  double d[4];
  for (int i = 0; i < dimension; ++i)
    d[i] = coordinateOf(c, first + i * stride) - mean[size_t(i)];
  for (int i = 0; i < dimension; ++i)
    for (int j = 0; j < dimension; ++j)
      sums[size_t(i)][size_t(j)] += c.weight * d[i] * d[j];
}

/// The ellipsoid of the crossings that `each` hands over, twice: once for the means,
/// once for the covariance about them. Its sums are local: with the dimension known to
/// the compiler they stay in registers.
template <typename Each, typename Count>
Ellipsoid ellipsoidWith(const Each &each, int first, Count dimension, int stride) {
  Ellipsoid e;
  e.first = first;
  e.dimension = dimension;
  e.stride = stride;
  SampleMeans m;
  each([&](const KeptCrossing &c) { m.add(c, first, dimension, stride); });
  m.settle(dimension);
  e.mean = m.mean;
  std::array<std::array<double, 4>, 4> sums{};
  each([&](const KeptCrossing &c) { addSpreadTo(sums, m.mean, c, first, dimension, stride); });
  e.covariance = sums;
  e.divideBy(m.weight);
  return e;
}

template <typename Each>
Ellipsoid ellipsoidOver(const Each &each, int first, int dimension, int stride) {
  switch (dimension) {
  case 2:
    return ellipsoidWith(each, first, std::integral_constant<int, 2>(), stride);
  case 4:
    return ellipsoidWith(each, first, std::integral_constant<int, 4>(), stride);
  default:
    return ellipsoidWith(each, first, dimension, stride);
  }
}

/// d^T C^-1 d of crossings about an ellipsoid, through C = L L^T: |L^-1 d|^2.
struct Whitening {
  const Ellipsoid &e;
  double l[4][4] = {};
  double inverseDiagonal[4] = {}; ///< 1 / l[i][i]: a product a coordinate, not a quotient
  bool valid = true;              ///< false where C is not positive definite

  explicit Whitening(const Ellipsoid &ellipsoid) : e(ellipsoid) {
    for (int i = 0; i < e.dimension && valid; ++i)
      for (int j = 0; j <= i; ++j) {
        double s = e.covariance[size_t(i)][size_t(j)];
        for (int k = 0; k < j; ++k)
          s -= l[i][k] * l[j][k];
        if (i == j) {
          valid = s > 0;
          l[i][i] = std::sqrt(s);
          inverseDiagonal[i] = 1 / l[i][i];
        } else {
          l[i][j] = s / l[j][j];
        }
      }
  }
  double squaredDistance(const KeptCrossing &c) const {
    double z[4], sum = 0;
    for (int i = 0; i < e.dimension; ++i) {
      z[i] = coordinateOf(c, e.first + i * e.stride) - e.mean[size_t(i)];
      for (int k = 0; k < i; ++k)
        z[i] -= l[i][k] * z[k];
      z[i] *= inverseDiagonal[i];
      sum += z[i] * z[i];
    }
    return sum;
  }
};

} // namespace

Sample wholeSample(size_t count) {
  Sample sample(count);
  std::iota(sample.begin(), sample.end(), 0);
  return sample;
}

void Ellipsoid::addSpread(const KeptCrossing &c) {
  addSpreadTo(covariance, mean, c, first, dimension, stride);
}

void Ellipsoid::divideBy(double weight) {
  for (auto &row : covariance)
    for (double &v : row)
      v /= weight;
}

double Ellipsoid::emittance() const {
  // The determinant by elimination; a pivot not positive is a covariance that is not
  // positive definite.
  auto a = covariance;
  double determinant = 1;
  for (int i = 0; i < dimension; ++i) {
    if (!(a[size_t(i)][size_t(i)] > 0))
      return None;
    determinant *= a[size_t(i)][size_t(i)];
    for (int r = i + 1; r < dimension; ++r) {
      const double factor = a[size_t(r)][size_t(i)] / a[size_t(i)][size_t(i)];
      for (int c = i; c < dimension; ++c)
        a[size_t(r)][size_t(c)] -= factor * a[size_t(i)][size_t(c)];
    }
  }
  return std::pow(determinant, 1.0 / dimension);
}

Ellipsoid ellipsoidOf(const std::vector<KeptCrossing> &crossings, const Sample &sample, int first,
                      int dimension, int stride) {
  return ellipsoidOver(eachOf(crossings, sample), first, dimension, stride);
}

bool squaredDistances(const std::vector<KeptCrossing> &crossings, const Sample &sample,
                      const Ellipsoid &e, std::vector<double> &distances) {
  const Whitening whitening(e);
  if (!whitening.valid)
    return false;
  distances.resize(sample.size());
  for (size_t s = 0; s < sample.size(); ++s)
    distances[s] = whitening.squaredDistance(crossings[sample[s]]);
  return true;
}

double amplitudesOf(const std::vector<KeptCrossing> &crossings, std::vector<double> &amplitudes) {
  const Sample all = wholeSample(crossings.size());
  const Ellipsoid beam = ellipsoidOf(crossings, all, PhaseX, 4);
  const double emittance = beam.emittance();
  amplitudes.clear();
  if (std::isnan(emittance) || !squaredDistances(crossings, all, beam, amplitudes))
    return None;
  for (double &a : amplitudes)
    a *= emittance;
  return emittance;
}

Ellipsoid ellipsoidOf(const CrossingPass &pass, int first, int dimension, int stride) {
  auto each = [&pass](const auto &take) {
    pass([&](const KeptCrossing *block, size_t count, size_t) {
      for (size_t k = 0; k < count; ++k)
        take(block[k]);
    });
  };
  return ellipsoidOver(each, first, dimension, stride);
}

void forEachAmplitude(const CrossingPass &pass, const Ellipsoid &beam, double emittance,
                      const std::function<void(const KeptCrossing &, double, size_t)> &take) {
  const Whitening whitening(beam);
  pass([&](const KeptCrossing *block, size_t count, size_t first) {
    for (size_t k = 0; k < count; ++k)
      take(block[k], whitening.squaredDistance(block[k]) * emittance, first + k);
  });
}

ValuePass amplitudesOf(const CrossingPass &pass, const Ellipsoid &beam, double emittance) {
  return [pass, beam, emittance](const std::function<void(double, double)> &take) {
    forEachAmplitude(pass, beam, emittance, [&](const KeptCrossing &c, double amplitude, size_t) {
      take(amplitude, c.weight);
    });
  };
}

std::vector<double> lowerQuantiles(const ValuePass &pass, const std::vector<double> &fractions) {
  // The binary form of a value not below +0 orders as the value does.
  const KeyPass keys = [&pass](const auto &take) {
    pass([&](double v, double w) {
      SelectionKey key{};
      memcpy(&key[0], &v, sizeof v);
      take(key, w, 0);
    });
  };
  double total = 0;
  size_t count = 0;
  pass([&](double, double w) {
    total += w;
    ++count;
  });
  std::vector<KeySearch> searches;
  for (double f : fractions)
    searches.push_back({AnySample, f * total, count});
  std::vector<double> quantiles;
  for (const std::optional<SelectionKey> &key : selectKeys(keys, searches, 64)) {
    double v = None;
    if (key)
      memcpy(&v, &(*key)[0], sizeof v);
    quantiles.push_back(v);
  }
  return quantiles;
}

double amplitudeBinWidth(double emittance) {
  return emittance / 2;
}

int amplitudeBin(double amplitude, double emittance) {
  return int(std::min(std::floor(amplitude / amplitudeBinWidth(emittance)), double(AmplitudeBins)));
}

namespace {

/// The rank at which equal weights reach `fraction` of the whole weight of `count` values.
ptrdiff_t equalWeightsRank(double fraction, size_t count) {
  return std::min<ptrdiff_t>(
      std::max<ptrdiff_t>(ptrdiff_t(std::ceil(fraction * double(count))) - 1, 0),
      ptrdiff_t(count) - 1);
}

/// The value at `rank` among `values` (from 0, the smallest): among the values within
/// `width` of `near` where the rank falls among them (counting those below), else among
/// all; `scratch` holds the values looked at. Successive boundaries of a core lie close:
/// the values near the last one are few.
double valueAtRank(const std::vector<double> &values, size_t rank, double near, double width,
                   std::vector<double> &scratch) {
  scratch.clear();
  size_t below = 0;
  const double low = near - width, high = near + width;
  for (double v : values)
    if (v < low)
      ++below;
    else if (v <= high)
      scratch.push_back(v);
  if (rank < below || rank - below >= scratch.size()) {
    scratch = values;
    below = 0;
  }
  const auto pick = scratch.begin() + ptrdiff_t(rank - below);
  std::nth_element(scratch.begin(), pick, scratch.end());
  return *pick;
}

} // namespace

double lowerQuantile(std::vector<std::pair<double, double>> &values, double fraction) {
  if (values.empty())
    return None;
  double total = 0;
  for (const auto &v : values)
    total += v.second;
  const double target = fraction * total;
  // The value at a rank splits the others: those before it are no larger, those after it
  // no smaller, so the weight up to it tells on which side the quantile lies. The first
  // rank tried is where equal weights put the quantile; then the side is halved.
  auto lo = values.begin(), hi = values.end();
  auto pick = lo + equalWeightsRank(fraction, values.size());
  double below = 0;
  for (;;) {
    std::nth_element(lo, pick, hi);
    double left = 0;
    for (auto v = lo; v != pick; ++v)
      left += v->second;
    if (below + left >= target && pick != lo) {
      hi = pick;
    } else if (below + left + pick->second >= target || pick + 1 == hi) {
      return pick->first;
    } else {
      below += left + pick->second;
      lo = pick + 1;
    }
    pick = lo + (hi - lo) / 2;
  }
}

namespace {

/// coreOf, from the ellipsoid `e` of every crossing of the sample and their `distances`
/// about it.
Ellipsoid coreFrom(const std::vector<KeptCrossing> &crossings, const Sample &sample, Ellipsoid e,
                   std::vector<double> distances, double fraction, bool unitWeights) {
  std::vector<char> in, chosen;
  std::vector<double> ranked;
  std::vector<std::pair<double, double>> weighted;
  double boundary = None, step = 0;
  for (int iteration = 0; iteration < CoreIterations; ++iteration) {
    if (iteration > 0 && !squaredDistances(crossings, sample, e, distances))
      return Ellipsoid{e.first, e.dimension, e.stride, {}, {}};
    const double last = boundary;
    if (unitWeights) {
      // Near the last boundary: within four of its last steps, at least a hundredth of it.
      boundary = valueAtRank(distances, size_t(equalWeightsRank(fraction, distances.size())), last,
                             std::max(4 * step, 0.01 * last), ranked);
    } else {
      weighted.clear();
      for (size_t s = 0; s < sample.size(); ++s)
        weighted.emplace_back(distances[s], crossings[sample[s]].weight);
      boundary = lowerQuantile(weighted, fraction);
    }
    if (!std::isnan(last))
      step = std::fabs(boundary - last);
    e.boundary = boundary;
    chosen.assign(sample.size(), 0);
    Sample core;
    for (size_t s = 0; s < sample.size(); ++s)
      if (distances[s] <= boundary) {
        chosen[s] = 1;
        core.push_back(sample[s]);
      }
    if (chosen == in)
      break;
    in.swap(chosen);
    e = ellipsoidOf(crossings, core, e.first, e.dimension, e.stride);
  }
  return e;
}

} // namespace

std::vector<Ellipsoid> coresOf(const std::vector<KeptCrossing> &crossings, const Sample &sample,
                               int first, int dimension, const std::vector<double> &fractions,
                               int stride) {
  clearUpperVectorState();
  const Ellipsoid whole = ellipsoidOf(crossings, sample, first, dimension, stride);
  std::vector<double> distances;
  if (!squaredDistances(crossings, sample, whole, distances))
    return std::vector<Ellipsoid>(fractions.size(), Ellipsoid{first, dimension, stride, {}, {}});
  // Weights of 1 let the boundary be a rank among the distances alone: the same value.
  const bool unitWeights =
      std::all_of(sample.begin(), sample.end(), [&](size_t k) { return crossings[k].weight == 1; });
  std::vector<Ellipsoid> cores;
  for (double fraction : fractions)
    cores.push_back(coreFrom(crossings, sample, whole, distances, fraction, unitWeights));
  return cores;
}

Ellipsoid coreOf(const std::vector<KeptCrossing> &crossings, const Sample &sample, int first,
                 int dimension, double fraction, int stride) {
  return coresOf(crossings, sample, first, dimension, {fraction}, stride)[0];
}

namespace {

/// Hands every crossing of a pass to take(crossing, sample) for each of its cores' samples.
template <typename Take> void eachOfSamples(const CrossingPass &pass, const Take &take) {
  pass([&](const KeptCrossing *block, size_t count, size_t) {
    for (size_t k = 0; k < count; ++k)
      for (size_t s : coreSamplesOf(block[k]))
        take(block[k], s);
  });
}

/// The cores of each sample in passes, one iteration of coreOf after another for all of
/// them at once.
class CoresInPasses {
public:
  CoresInPasses(const CrossingPass &pass, const std::vector<CoreAsked> &asked)
      : pass(pass), asked(asked), cores(asked.size()), ofSample(CoreSamples) {
    for (size_t j = 0; j < asked.size(); ++j)
      ofSample[size_t(asked[j].sample + 1)].push_back(j);
  }

  std::vector<Ellipsoid> run() {
    clearUpperVectorState();
    std::vector<char> done(asked.size(), 0);
    ellipsoids([](size_t, const KeptCrossing &) { return true; }, done);
    // Each core's last set was chosen about this ellipsoid, below its boundary, which moved
    // by `step` from the one before.
    std::vector<Ellipsoid> chosenWith(asked.size());
    std::vector<double> step(asked.size(), 0);
    for (int iteration = 0; iteration < CoreIterations; ++iteration) {
      const std::vector<Ellipsoid> current = cores;
      std::vector<Whitening> whitening, previous;
      for (size_t j = 0; j < asked.size(); ++j) {
        whitening.emplace_back(current[j]);
        previous.emplace_back(chosenWith[j]);
        if (!done[j] && !whitening[j].valid) {
          cores[j] = Ellipsoid{asked[j].first, asked[j].dimension, asked[j].stride, {}, {}};
          done[j] = 1;
        }
      }
      if (std::count(done.begin(), done.end(), 0) == 0)
        break;
      std::vector<double> last;
      for (const Ellipsoid &e : chosenWith)
        last.push_back(e.boundary);
      const std::vector<double> boundary = boundaries(whitening, done, last, step);
      auto in = [&](size_t j, const KeptCrossing &c) {
        return whitening[j].squaredDistance(c) <= boundary[j];
      };
      // A core whose set is the one it was chosen from last is done.
      std::vector<char> changed(asked.size(), iteration == 0);
      if (iteration > 0)
        forEachActive(done, [&](size_t j, const KeptCrossing &c) {
          changed[j] =
              changed[j] || in(j, c) != (previous[j].squaredDistance(c) <= chosenWith[j].boundary);
        });
      for (size_t j = 0; j < asked.size(); ++j)
        if (!done[j]) {
          if (!std::isnan(last[j]))
            step[j] = std::fabs(boundary[j] - last[j]);
          cores[j].boundary = boundary[j];
          chosenWith[j] = cores[j];
          done[j] = !changed[j];
        }
      ellipsoids(in, done);
    }
    return cores;
  }

private:
  const CrossingPass &pass;
  const std::vector<CoreAsked> &asked;
  std::vector<Ellipsoid> cores;
  std::vector<std::vector<size_t>> ofSample; ///< the cores of each sample, by its place

  /// Calls take(j, crossing) for every crossing of each core not done.
  template <typename Take> void forEachActive(const std::vector<char> &done, const Take &take) {
    eachOfSamples(pass, [&](const KeptCrossing &c, size_t s) {
      for (size_t j : ofSample[s])
        if (!done[j])
          take(j, c);
    });
  }

  /// The ellipsoid of the crossings of each core not done for which in(j, c) holds, as
  /// ellipsoidOver takes it: the means, then the covariance about them.
  template <typename In> void ellipsoids(const In &in, const std::vector<char> &done) {
    std::vector<SampleMeans> means(asked.size());
    forEachActive(done, [&](size_t j, const KeptCrossing &c) {
      if (in(j, c))
        means[j].add(c, asked[j].first, asked[j].dimension, asked[j].stride);
    });
    std::vector<Ellipsoid> next(asked.size());
    for (size_t j = 0; j < asked.size(); ++j) {
      next[j].first = asked[j].first;
      next[j].dimension = asked[j].dimension;
      next[j].stride = asked[j].stride;
      means[j].settle(asked[j].dimension);
      next[j].mean = means[j].mean;
    }
    forEachActive(done, [&](size_t j, const KeptCrossing &c) {
      if (in(j, c))
        next[j].addSpread(c);
    });
    for (size_t j = 0; j < asked.size(); ++j)
      if (!done[j]) {
        next[j].divideBy(means[j].weight);
        cores[j] = next[j];
      }
  }

  /// The squared distance below which each core not done holds its fraction of the
  /// weight of its sample, about its ellipsoid: the lower quantile, as coreOf takes it.
  /// A core with a last boundary looks among the distances near it first (within four of
  /// its last steps, at least a hundredth of it), the weight below them counted, in the
  /// pass that weighs the samples; a selection in passes finds the others.
  std::vector<double> boundaries(const std::vector<Whitening> &whitening,
                                 const std::vector<char> &done, const std::vector<double> &last,
                                 const std::vector<double> &step) {
    const size_t n = asked.size();
    std::vector<double> weight(n), below(n), low(n), high(n);
    std::vector<size_t> count(n);
    std::vector<char> near(n);
    for (size_t j = 0; j < n; ++j) {
      near[j] = !done[j] && !std::isnan(last[j]);
      const double width = std::max(4 * step[j], 0.01 * last[j]);
      low[j] = last[j] - width;
      high[j] = last[j] + width;
    }
    std::vector<std::vector<std::pair<double, double>>> nearby(n);
    size_t held = 0;
    forEachActive(done, [&](size_t j, const KeptCrossing &c) {
      weight[j] += c.weight;
      ++count[j];
      if (!near[j])
        return;
      const double d = whitening[j].squaredDistance(c);
      if (d < low[j]) {
        below[j] += c.weight;
      } else if (d <= high[j]) {
        if (held == NearbyDistances) { // too many: this core's boundary by selection
          held -= nearby[j].size();
          std::vector<std::pair<double, double>>().swap(nearby[j]);
          near[j] = 0;
          return;
        }
        nearby[j].emplace_back(d, c.weight);
        ++held;
      }
    });
    std::vector<double> boundary(n, None);
    std::vector<char> known = done;
    for (size_t j = 0; j < n; ++j)
      if (near[j])
        known[j] = boundaryNear(nearby[j], below[j], asked[j].fraction * weight[j], boundary[j]);
    nearby = {}; // their room, for the selection's
    std::vector<KeySearch> searches;
    std::vector<size_t> ofSearch;
    for (size_t j = 0; j < n; ++j)
      if (!known[j]) {
        searches.push_back({int(j), asked[j].fraction * weight[j], count[j]});
        ofSearch.push_back(j);
      }
    if (searches.empty())
      return boundary;
    // The binary form of a distance, not below +0, orders as the distance does.
    const KeyPass keys = [&](const auto &take) {
      forEachActive(known, [&](size_t j, const KeptCrossing &c) {
        const double d = whitening[j].squaredDistance(c);
        SelectionKey key{};
        memcpy(&key[0], &d, sizeof d);
        take(key, c.weight, int(j));
      });
    };
    const std::vector<std::optional<SelectionKey>> found = selectKeys(keys, searches, 64);
    for (size_t k = 0; k < found.size(); ++k)
      if (found[k])
        memcpy(&boundary[ofSearch[k]], &(*found[k])[0], sizeof(double));
    return boundary;
  }

  /// The distances near a last boundary held at once, for every core together.
  static constexpr size_t NearbyDistances = 262144;

  /// The smallest of the nearby distances whose weight, with all below it and the weight
  /// `below` them, reaches `target`; false where it lies outside them.
  static bool boundaryNear(std::vector<std::pair<double, double>> &nearby, double below,
                           double target, double &boundary) {
    if (!(below < target))
      return false;
    std::sort(nearby.begin(), nearby.end());
    for (const auto &[distance, weight] : nearby) {
      below += weight;
      if (below >= target) {
        boundary = distance;
        return true;
      }
    }
    return false;
  }
};

} // namespace

std::vector<Ellipsoid> coresOf(const CrossingPass &pass, const std::vector<CoreAsked> &asked) {
  return CoresInPasses(pass, asked).run();
}

namespace {

/// A number computed from the moments and its rate of change as one crossing's share of
/// the weight grows: that crossing's influence on it.
struct Influenced {
  double value, rate;
};
Influenced operator+(Influenced a, Influenced b) {
  return {a.value + b.value, a.rate + b.rate};
}
Influenced operator-(Influenced a, Influenced b) {
  return {a.value - b.value, a.rate - b.rate};
}
Influenced operator-(Influenced a, double b) {
  return {a.value - b, a.rate};
}
Influenced operator*(Influenced a, Influenced b) {
  return {a.value * b.value, a.rate * b.value + a.value * b.rate};
}
Influenced operator*(double a, Influenced b) {
  return {a * b.value, a * b.rate};
}
Influenced operator/(Influenced a, Influenced b) {
  return {a.value / b.value, (a.rate * b.value - a.value * b.rate) / (b.value * b.value)};
}
Influenced sqrt(Influenced a) {
  const double root = std::sqrt(a.value);
  return {root, a.rate / (2 * root)};
}

/// <u^4>/<u^2>^2 - 2 of the centred moments c(a, 0).
template <typename Centred> auto profileHaloOf(const Centred &c) {
  const auto second = c(2, 0);
  return c(4, 0) / (second * second) - 2;
}

/// sqrt(3 I4)/(2 I2) - 2 of the centred moments c(a, b).
template <typename Centred> auto phaseSpaceHaloOf(const Centred &c) {
  using std::sqrt;
  const auto i2 = c(2, 0) * c(0, 2) - c(1, 1) * c(1, 1);
  const auto i4 = c(4, 0) * c(0, 4) + 3 * c(2, 2) * c(2, 2) - 4 * c(1, 3) * c(3, 1);
  return sqrt(3 * i4) / (2 * i2) - 2;
}

/// The powers 0 to 4 of a crossing's coordinates (u, v) about the means of its plane.
struct Powers {
  double u[5], v[5];
  Powers(double du, double dv) {
    for (int a = 0; a <= 4; ++a) {
      u[a] = std::pow(du, a);
      v[a] = std::pow(dv, a);
    }
  }
};

/// The moments <u^a v^b> of a phase plane about its means, a + b to 4.
struct PlaneMoments {
  SampleMeans means;
  std::array<std::array<double, 5>, 5> moment{};

  double operator()(int a, int b) const { return moment[size_t(a)][size_t(b)]; }
  /// The moment with its rate of change as the share of the weight of a crossing grows,
  /// p the powers of its coordinates: u^a v^b - <u^a v^b>, less what the means move by.
  Influenced influenced(int a, int b, const Powers &p) const {
    double rate = p.u[a] * p.v[b] - (*this)(a, b);
    if (a > 0)
      rate -= a * (*this)(a - 1, b) * p.u[1];
    if (b > 0)
      rate -= b * (*this)(a, b - 1) * p.v[1];
    return {(*this)(a, b), rate};
  }
};

} // namespace

Halo haloOf(const CrossingPass &pass, int first) {
  clearUpperVectorState();
  auto each = [&](const auto &take) {
    pass([&](const KeptCrossing *block, size_t count, size_t) {
      for (size_t k = 0; k < count; ++k)
        take(block[k], coordinateOf(block[k], first), coordinateOf(block[k], first + 1));
    });
  };
  PlaneMoments m;
  each([&](const KeptCrossing &c, double, double) { m.means.add(c, first, 2, 1); });
  m.means.settle(2);
  const double meanU = m.means.mean[0], meanV = m.means.mean[1];
  each([&](const KeptCrossing &c, double u, double v) {
    const Powers p(u - meanU, v - meanV);
    for (int a = 0; a <= 4; ++a)
      for (int b = 0; a + b <= 4; ++b)
        m.moment[size_t(a)][size_t(b)] += c.weight * p.u[a] * p.v[b];
  });
  for (auto &row : m.moment)
    for (double &v : row)
      v /= m.means.weight;
  double profileSpread = 0, phaseSpaceSpread = 0;
  each([&](const KeptCrossing &c, double u, double v) {
    const Powers p(u - meanU, v - meanV);
    auto influenced = [&](int a, int b) { return m.influenced(a, b, p); };
    const double w2 = c.weight * c.weight;
    profileSpread += w2 * std::pow(profileHaloOf(influenced).rate, 2);
    phaseSpaceSpread += w2 * std::pow(phaseSpaceHaloOf(influenced).rate, 2);
  });
  return {{profileHaloOf(m), std::sqrt(profileSpread) / m.means.weight},
          {phaseSpaceHaloOf(m), std::sqrt(phaseSpaceSpread) / m.means.weight}};
}

std::pair<std::vector<double>, std::vector<double>>
withSubsampleErrors(const std::vector<KeptCrossing> &crossings,
                    const std::function<std::vector<double>(const Sample &)> &estimate) {
  std::vector<Sample> groups(SubsampleGroups);
  for (size_t k = 0; k < crossings.size(); ++k)
    groups[size_t(crossings[k].group)].push_back(k);
  const std::vector<double> values = estimate(wholeSample(crossings.size()));
  std::vector<std::vector<double>> ofGroups;
  for (const Sample &group : groups)
    ofGroups.push_back(group.empty() ? std::vector<double>(values.size(), None) : estimate(group));
  return {values, subsampleErrors(ofGroups)};
}

std::vector<double> subsampleErrors(const std::vector<std::vector<double>> &ofGroups) {
  std::vector<double> errors;
  for (size_t v = 0; v < ofGroups[0].size(); ++v) {
    double mean = 0, spread = 0;
    for (const std::vector<double> &g : ofGroups)
      mean += g[v] / SubsampleGroups;
    for (const std::vector<double> &g : ofGroups)
      spread += (g[v] - mean) * (g[v] - mean);
    errors.push_back(std::sqrt(spread / (SubsampleGroups * (SubsampleGroups - 1))));
  }
  return errors;
}

std::vector<Sample> coreSamples(const std::vector<KeptCrossing> &crossings) {
  std::vector<Sample> samples(CoreSamples);
  for (size_t k = 0; k < crossings.size(); ++k)
    for (size_t s : coreSamplesOf(crossings[k]))
      samples[s].push_back(k);
  return samples;
}

namespace {

/// The power p in [1/2, 1] for which (20^p - 1) / (4^p - 1), which grows with p, is the
/// ratio of how far the subsamples' and the quarters' means lie from the whole sample's
/// value.
double sizePower(double subsamplesOff, double quartersOff) {
  if (!(subsamplesOff * quartersOff > 0))
    return 0.5;
  const double ratio = subsamplesOff / quartersOff;
  auto ratioAt = [](double p) {
    return (std::pow(SubsampleGroups, p) - 1) / (std::pow(SampleQuarters, p) - 1);
  };
  double low = 0.5, high = 1;
  for (int step = 0; step < 60; ++step) {
    const double middle = (low + high) / 2;
    (ratioAt(middle) < ratio ? low : high) = middle;
  }
  return low;
}

double meanOf(std::vector<double>::const_iterator from, std::vector<double>::const_iterator to) {
  double sum = 0;
  for (auto v = from; v != to; ++v)
    sum += *v;
  return sum / double(to - from);
}

} // namespace

double chosenSetError(const std::vector<double> &ofSamples) {
  if (std::any_of(ofSamples.begin(), ofSamples.end(), [](double v) { return std::isnan(v); }))
    return None;
  const auto subsamples = ofSamples.begin() + 1, quarters = subsamples + SubsampleGroups;
  std::vector<std::vector<double>> ofGroups;
  for (auto v = subsamples; v != quarters; ++v)
    ofGroups.push_back({*v});
  const double spread = subsampleErrors(ofGroups)[0];
  const double subsamplesOff = meanOf(subsamples, quarters) - ofSamples[0];
  const double quartersOff = meanOf(quarters, ofSamples.end()) - ofSamples[0];
  const double shrink = std::pow(SubsampleGroups, sizePower(subsamplesOff, quartersOff)) - 1;
  const double bias = subsamplesOff / shrink, noise = spread / shrink;
  return std::sqrt(spread * spread + std::max(0.0, bias * bias - noise * noise));
}
