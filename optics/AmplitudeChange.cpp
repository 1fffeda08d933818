//===- AmplitudeChange.cpp - Each particle's amplitude from one plane to another ===//

#include "AmplitudeChange.h"

#include <QString>
#include <cmath>
#include <map>
#include <tuple>

namespace {

/// A track's first crossing of each plane: its amplitude and weight; none where it did
/// not cross.
struct Passage {
  double upstream = NAN, upstreamWeight = 0;
  double downstream = NAN, downstreamWeight = 0;
};

/// A track of the run: its run directory, event and track numbers.
using TrackKey = std::tuple<int, int, int>;

std::map<TrackKey, Passage> passagesOf(const std::vector<KeptCrossing> &upstream,
                                       const std::vector<double> &up,
                                       const std::vector<KeptCrossing> &downstream,
                                       const std::vector<double> &down) {
  std::map<TrackKey, Passage> passages;
  for (size_t k = 0; k < upstream.size(); ++k) {
    Passage &p = passages[{upstream[k].job, upstream[k].event, upstream[k].track}];
    if (std::isnan(p.upstream)) {
      p.upstream = up[k];
      p.upstreamWeight = upstream[k].weight;
    }
  }
  for (size_t k = 0; k < downstream.size(); ++k) {
    Passage &p = passages[{downstream[k].job, downstream[k].event, downstream[k].track}];
    if (std::isnan(p.downstream)) {
      p.downstream = down[k];
      p.downstreamWeight = downstream[k].weight;
    }
  }
  return passages;
}

QByteArray number(double v) {
  return std::isnan(v) ? QByteArray() : QString::asprintf("%.10g", v).toLatin1();
}

} // namespace

QByteArray amplitudeChangeTable(const std::vector<KeptCrossing> &upstream,
                                const std::vector<KeptCrossing> &downstream) {
  std::vector<double> up, down;
  const double emittance = amplitudesOf(upstream, up);
  if (std::isnan(emittance) || std::isnan(amplitudesOf(downstream, down)))
    return {};
  const double width = amplitudeBinWidth(emittance);
  auto binOf = [&](double a) { return amplitudeBin(a, emittance); };
  const std::map<TrackKey, Passage> passages = passagesOf(upstream, up, downstream, down);
  QByteArray table = "bin,a_from_mm_mrad,a_to_mm_mrad,upstream_below,downstream_below,ratio_below,"
                     "ratio_below_err";
  for (int j = 0; j <= AmplitudeBins; ++j)
    table += ",to_" + QByteArray::number(j);
  table += ",lost\n";
  for (int k = 0; k <= AmplitudeBins; ++k) {
    const double from = k * width, to = k < AmplitudeBins ? (k + 1) * width : INFINITY;
    // The ratio of the weights below `to`, its error from each track's share of both
    // (the ratio's influence, summed over the tracks).
    double below[2] = {}, moved[AmplitudeBins + 2] = {};
    for (const auto &[id, p] : passages) {
      below[0] += p.upstream < to ? p.upstreamWeight : 0;
      below[1] += p.downstream < to ? p.downstreamWeight : 0;
      if (!std::isnan(p.upstream) && binOf(p.upstream) == k)
        moved[std::isnan(p.downstream) ? AmplitudeBins + 1 : binOf(p.downstream)] +=
            p.upstreamWeight;
    }
    const double ratio = below[0] > 0 ? below[1] / below[0] : NAN;
    double spread = 0;
    for (const auto &[id, p] : passages) {
      const double u = p.upstream < to ? p.upstreamWeight : 0;
      const double d = p.downstream < to ? p.downstreamWeight : 0;
      spread += (d - ratio * u) * (d - ratio * u);
    }
    table += QByteArray::number(k) + ',' + number(from) + ',' +
             number(k < AmplitudeBins ? to : NAN) + ',' + number(below[0]) + ',' +
             number(below[1]) + ',' + number(ratio) + ',' +
             number(below[0] > 0 ? std::sqrt(spread) / below[0] : NAN);
    for (double m : moved)
      table += ',' + number(m);
    table += '\n';
  }
  return table;
}
