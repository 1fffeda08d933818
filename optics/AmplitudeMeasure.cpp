//===- AmplitudeMeasure.cpp - How far each particle is from the beam's centre ===//
//
// The amplitude of a crossing is A = emitn_4d d^T Sigma4^-1 d, d its (x, u_x, y, u_y)
// less the plane's means: the 4D emittance of the ellipsoid through it, in mm mrad. A
// Gaussian beam's A / emitn_4d follows a chi-square law of four degrees. The quantiles
// of A say how large an acceptance holds a given share of the beam; the share within a
// given acceptance is what a channel transmits into the next.
//
//===----------------------------------------------------------------------------===//

#include "CrossingSample.h"
#include "Measure.h"

#include <QJsonArray>
#include <cmath>

namespace {

struct Quantile {
  double fraction;
  const char *column;
};
const Quantile Quantiles[] = {{0.5, "A_50_mm_mrad"},
                              {0.9, "A_90_mm_mrad"},
                              {0.95, "A_95_mm_mrad"},
                              {0.99, "A_99_mm_mrad"},
                              {0.999, "A_99_9_mm_mrad"}};

/// The window of the quantiles' slope, in binomial spreads of the share either side.
constexpr double QuantileWindow = 3;

/// What the columns take of every amplitude of a plane, in the plane's order.
struct AmplitudeSums {
  double emittance;  ///< the plane's emitn_4d
  double acceptance; ///< --acceptance, or none
  std::vector<double> binWeights = std::vector<double>(AmplitudeBins + 1);
  double weight = 0, weight2 = 0;
  double inside = 0; ///< the weight within the acceptance

  void add(double amplitude, double w) {
    binWeights[size_t(amplitudeBin(amplitude, emittance))] += w;
    weight += w;
    weight2 += w * w;
    if (amplitude <= acceptance)
      inside += w;
  }
};

/// A quantile's share, the binomial spread of the share with the effective number of
/// crossings, and the ends of the window of its slope: QuantileWindow spreads either side,
/// within 0 and 1.
struct QuantileShares {
  double f, spread, hi, lo;
};

std::vector<QuantileShares> sharesOf(const AmplitudeSums &sums) {
  const double effective = sums.weight * sums.weight / sums.weight2;
  std::vector<QuantileShares> shares;
  for (const Quantile &q : Quantiles) {
    const double f = q.fraction, spread = std::sqrt(f * (1 - f) / effective);
    shares.push_back({f, spread, std::min(1.0, f + QuantileWindow * spread),
                      std::max(0.0, f - QuantileWindow * spread)});
  }
  return shares;
}

/// The fractions whose quantiles the columns take: each quantile's share, then the ends
/// of its window.
std::vector<double> quantileFractions(const AmplitudeSums &sums) {
  std::vector<double> fractions;
  for (const QuantileShares &s : sharesOf(sums))
    fractions.insert(fractions.end(), {s.f, s.hi, s.lo});
  return fractions;
}

/// The columns and the record's distribution, from the sums and the quantiles at
/// quantileFractions().
void setColumns(const PlaneContext &context, const AmplitudeSums &sums,
                const std::vector<double> &quantiles, OpticsRow &row) {
  QJsonArray list;
  for (double w : sums.binWeights)
    list.append(w);
  row.record["amplitude_distribution"] =
      QJsonObject{{"bin_mm_mrad", amplitudeBinWidth(sums.emittance)}, {"weights", list}};
  // The spread of the share below the quantile times the slope of the quantile against
  // the share, taken between the ends of its window.
  const std::vector<QuantileShares> shares = sharesOf(sums);
  for (size_t q = 0; q < shares.size(); ++q) {
    const QuantileShares &s = shares[q];
    row.set(Quantiles[q].column, quantiles[3 * q]);
    row.set(QString(Quantiles[q].column) + "_err",
            s.spread * (quantiles[3 * q + 1] - quantiles[3 * q + 2]) / (s.hi - s.lo));
  }
  if (std::isnan(sums.acceptance) || !(context.firstWeight > 0))
    return;
  // A binomial fraction of the first plane's beam, as the transmission.
  const double fraction = sums.inside / context.firstWeight;
  row.set("within_acceptance", fraction);
  row.set("within_acceptance_err",
          std::sqrt(std::max(0.0, fraction * (1 - fraction)) / context.firstCount));
}

/// A plane read back whole: its quantiles by selection among all its amplitudes.
void fillFromCrossings(const PlaneContext &context, const std::vector<KeptCrossing> &crossings,
                       OpticsRow &row, QStringList &flags) {
  std::vector<double> of;
  AmplitudeSums sums{amplitudesOf(crossings, of), context.crossings.choices.acceptance};
  if (std::isnan(sums.emittance)) {
    flags << "degenerate";
    return;
  }
  std::vector<std::pair<double, double>> amplitudes;
  for (size_t k = 0; k < of.size(); ++k) {
    amplitudes.emplace_back(of[k], crossings[k].weight);
    sums.add(of[k], crossings[k].weight);
  }
  std::vector<double> quantiles;
  for (double f : quantileFractions(sums))
    quantiles.push_back(lowerQuantile(amplitudes, f));
  setColumns(context, sums, quantiles, row);
}

/// A plane too large to be read back whole: its amplitudes in passes over its crossings.
void fillFromPasses(const PlaneContext &context, const CrossingPass &passes, OpticsRow &row,
                    QStringList &flags) {
  const Ellipsoid beam = ellipsoidOf(passes, PhaseX, 4);
  AmplitudeSums sums{beam.emittance(), context.crossings.choices.acceptance};
  if (std::isnan(sums.emittance)) {
    flags << "degenerate";
    return;
  }
  const ValuePass amplitudes = amplitudesOf(passes, beam, sums.emittance);
  amplitudes([&](double a, double w) { sums.add(a, w); });
  setColumns(context, sums, lowerQuantiles(amplitudes, quantileFractions(sums)), row);
}

void fill(const PlaneContext &context, OpticsRow &row, QStringList &flags) {
  takeCrossings(context, row, flags, fillFromCrossings, fillFromPasses);
}

QList<MeasureColumn> columns() {
  return {
      {"A_50_mm_mrad", true, "median amplitude A = emitn_4d d^T Sigma4^-1 d, mm mrad"},
      {"A_90_mm_mrad", true, "90 % of the weight has a smaller or equal amplitude, mm mrad"},
      {"A_95_mm_mrad", true, "95 % quantile of the amplitude, mm mrad"},
      {"A_99_mm_mrad", true, "99 % quantile of the amplitude, mm mrad"},
      {"A_99_9_mm_mrad", true, "99.9 % quantile of the amplitude, mm mrad"},
      {"within_acceptance", true,
       "weight with an amplitude within --acceptance, over the first plane's weight"},
  };
}

} // namespace

const Measure &amplitudeMeasure() {
  static const Measure measure{
      "amplitude",
      1,
      "of each crossing in the 4D phase space: quantiles, and the beam within an acceptance",
      columns(),
      {{"amplitude",
        "A = emitn_4d d^T Sigma4^-1 d, d = (x, u_x, y, u_y) less the plane's weighted means, "
        "Sigma4 their weighted covariance; the q quantile is the smallest A whose weight and "
        "that of all smaller A reach q of the plane's weight (no interpolation); its error is "
        "s = sqrt(q (1 - q) / n_eff) times the slope of the quantile against the share "
        "between q - 3 s and q + 3 s"}},
      {},
      {"degenerate", "no-crossings"},
      fill,
      true};
  return measure;
}
