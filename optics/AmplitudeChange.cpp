//===- AmplitudeChange.cpp - Each particle's amplitude from one plane to another ===//

#include "AmplitudeChange.h"

#include <QString>
#include <algorithm>
#include <cmath>
#include <functional>
#include <tuple>

namespace {

/// A track of the run: its run directory, event and track numbers.
using TrackKey = std::tuple<int, int, int>;

TrackKey keyOf(const KeptCrossing &c) {
  return {c.job, c.event, c.track};
}

/// A track's first crossing of each plane: its amplitude and weight; none where it did
/// not cross.
struct Passage {
  double upstream = NAN, upstreamWeight = 0;
  double downstream = NAN, downstreamWeight = 0;
};

/// Hands over every track's passage, in groups of tracks, each group in the order of
/// the tracks; the same groups and order on every call.
using PassageGroups =
    std::function<void(const std::function<void(const std::vector<Passage> &)> &)>;

/// Each crossing of a plane, its amplitude and its place in the order the plane met them.
using AmplitudePass =
    std::function<void(const std::function<void(const KeptCrossing &, double, size_t)> &)>;

/// The amplitudes of a plane's crossings about the plane's own beam; none (and false)
/// where its Sigma4 is not positive definite.
bool amplitudesOver(const CrossingPass &pass, AmplitudePass &amplitudes, double &emittance) {
  const Ellipsoid beam = ellipsoidOf(pass, PhaseX, 4);
  emittance = beam.emittance();
  if (std::isnan(emittance))
    return false;
  amplitudes = [pass, beam, e = emittance](const auto &take) {
    forEachAmplitude(pass, beam, e, take);
  };
  return true;
}

/// The passages of the tracks whose part is `part` of `parts`, in the order of the
/// tracks: each track's first crossing of each plane.
std::vector<Passage> passagesOf(const AmplitudePass &upstream, const AmplitudePass &downstream,
                                size_t part, size_t parts) {
  struct Met {
    TrackKey track;
    size_t arrival;
    double amplitude, weight;
  };
  // Each track's first crossing of a plane, in the order of the tracks.
  auto firstOf = [&](const AmplitudePass &plane) {
    std::vector<Met> met;
    plane([&](const KeptCrossing &c, double amplitude, size_t arrival) {
      if ((trackHash(c.event, c.track) + uint64_t(uint32_t(c.job))) % parts == part)
        met.push_back({keyOf(c), arrival, amplitude, c.weight});
    });
    std::sort(met.begin(), met.end(), [](const Met &a, const Met &b) {
      return std::tie(a.track, a.arrival) < std::tie(b.track, b.arrival);
    });
    met.erase(std::unique(met.begin(), met.end(),
                          [](const Met &a, const Met &b) { return a.track == b.track; }),
              met.end());
    return met;
  };
  const std::vector<Met> up = firstOf(upstream), down = firstOf(downstream);
  std::vector<Passage> passages;
  auto u = up.begin(), d = down.begin();
  while (u != up.end() || d != down.end()) {
    Passage p;
    const bool fromUp = u != up.end() && (d == down.end() || u->track <= d->track);
    const bool fromDown = d != down.end() && (u == up.end() || d->track <= u->track);
    if (fromUp) {
      p.upstream = u->amplitude;
      p.upstreamWeight = u->weight;
      ++u;
    }
    if (fromDown) {
      p.downstream = d->amplitude;
      p.downstreamWeight = d->weight;
      ++d;
    }
    passages.push_back(p);
  }
  return passages;
}

QByteArray number(double v) {
  return std::isnan(v) ? QByteArray() : QString::asprintf("%.10g", v).toLatin1();
}

/// The table of the passages, in bins of `emittance`.
QByteArray tableOf(const PassageGroups &groups, double emittance) {
  const double width = amplitudeBinWidth(emittance);
  auto binOf = [&](double a) { return amplitudeBin(a, emittance); };
  constexpr size_t Bins = AmplitudeBins + 1;
  // Per bin k: the weights below its upper edge upstream and downstream, where its
  // particles went (a bin, or lost), and the spread of the ratio of the weights below.
  double below[Bins][2] = {}, moved[Bins][AmplitudeBins + 2] = {}, spread[Bins] = {}, ratio[Bins];
  auto upperEdge = [&](size_t k) { return k < AmplitudeBins ? double(k + 1) * width : INFINITY; };
  groups([&](const std::vector<Passage> &passages) {
    for (size_t k = 0; k < Bins; ++k)
      for (const Passage &p : passages) {
        below[k][0] += p.upstream < upperEdge(k) ? p.upstreamWeight : 0;
        below[k][1] += p.downstream < upperEdge(k) ? p.downstreamWeight : 0;
        if (!std::isnan(p.upstream) && binOf(p.upstream) == int(k))
          moved[k][std::isnan(p.downstream) ? AmplitudeBins + 1 : binOf(p.downstream)] +=
              p.upstreamWeight;
      }
  });
  for (size_t k = 0; k < Bins; ++k)
    ratio[k] = below[k][0] > 0 ? below[k][1] / below[k][0] : NAN;
  // The ratio's error from each track's share of both (its influence, summed over the
  // tracks).
  groups([&](const std::vector<Passage> &passages) {
    for (size_t k = 0; k < Bins; ++k)
      for (const Passage &p : passages) {
        const double u = p.upstream < upperEdge(k) ? p.upstreamWeight : 0;
        const double d = p.downstream < upperEdge(k) ? p.downstreamWeight : 0;
        spread[k] += (d - ratio[k] * u) * (d - ratio[k] * u);
      }
  });
  QByteArray table = "bin,a_from_mm_mrad,a_to_mm_mrad,upstream_below,downstream_below,ratio_below,"
                     "ratio_below_err";
  for (int j = 0; j <= AmplitudeBins; ++j)
    table += ",to_" + QByteArray::number(j);
  table += ",lost\n";
  for (size_t k = 0; k < Bins; ++k) {
    table += QByteArray::number(qulonglong(k)) + ',' + number(double(k) * width) + ',' +
             number(k < AmplitudeBins ? upperEdge(k) : NAN) + ',' + number(below[k][0]) + ',' +
             number(below[k][1]) + ',' + number(ratio[k]) + ',' +
             number(below[k][0] > 0 ? std::sqrt(spread[k]) / below[k][0] : NAN);
    for (double m : moved[k])
      table += ',' + number(m);
    table += '\n';
  }
  return table;
}

} // namespace

QByteArray amplitudeChangeTable(const CrossingPass &upstream, const CrossingPass &downstream,
                                size_t crossings) {
  AmplitudePass up, down;
  double emittance, downstreamEmittance;
  if (!amplitudesOver(upstream, up, emittance) ||
      !amplitudesOver(downstream, down, downstreamEmittance))
    return {};
  // The tracks in parts of at most PartCrossings crossings of a plane, on average.
  const size_t parts = std::max<size_t>(1, (crossings + PartCrossings - 1) / PartCrossings);
  return tableOf(
      [&](const auto &take) {
        for (size_t part = 0; part < parts; ++part)
          take(passagesOf(up, down, part, parts));
      },
      emittance);
}

QByteArray amplitudeChangeTable(const std::vector<KeptCrossing> &upstream,
                                const std::vector<KeptCrossing> &downstream) {
  return amplitudeChangeTable(passOf(upstream), passOf(downstream),
                              std::max(upstream.size(), downstream.size()));
}
