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

/// The weights of the amplitudes in their bins of half the plane's emitn_4d.
QJsonObject distribution(const std::vector<KeptCrossing> &crossings,
                         const std::vector<double> &amplitudes, double emittance) {
  std::vector<double> weights(AmplitudeBins + 1);
  for (size_t k = 0; k < amplitudes.size(); ++k)
    weights[size_t(amplitudeBin(amplitudes[k], emittance))] += crossings[k].weight;
  QJsonArray list;
  for (double w : weights)
    list.append(w);
  return {{"bin_mm_mrad", amplitudeBinWidth(emittance)}, {"weights", list}};
}

void fill(const PlaneContext &context, OpticsRow &row, QStringList &flags) {
  const std::vector<KeptCrossing> *crossings = keptCrossingsOf(context, flags);
  if (!crossings)
    return;
  std::vector<double> of;
  const double emittance = amplitudesOf(*crossings, of);
  if (std::isnan(emittance)) {
    flags << "degenerate";
    return;
  }
  row.record["amplitude_distribution"] = distribution(*crossings, of, emittance);
  std::vector<std::pair<double, double>> amplitudes;
  for (size_t k = 0; k < of.size(); ++k)
    amplitudes.emplace_back(of[k], (*crossings)[k].weight);
  double weight = 0, weight2 = 0;
  for (const auto &a : amplitudes) {
    weight += a.second;
    weight2 += a.second * a.second;
  }
  // The binomial spread s of the share below the quantile, with the effective number of
  // crossings, over the slope of the quantile against the share, taken between the
  // order statistics QuantileWindow spreads either side (within 0 and 1).
  const double effective = weight * weight / weight2;
  for (const Quantile &q : Quantiles) {
    const double f = q.fraction, spread = std::sqrt(f * (1 - f) / effective);
    const double hi = std::min(1.0, f + QuantileWindow * spread);
    const double lo = std::max(0.0, f - QuantileWindow * spread);
    row.set(q.column, lowerQuantile(amplitudes, f));
    row.set(QString(q.column) + "_err",
            spread * (lowerQuantile(amplitudes, hi) - lowerQuantile(amplitudes, lo)) / (hi - lo));
  }
  const double acceptance = context.crossings.choices.acceptance;
  if (std::isnan(acceptance) || !(context.firstWeight > 0))
    return;
  double inside = 0;
  for (const auto &a : amplitudes)
    if (a.first <= acceptance)
      inside += a.second;
  // A binomial fraction of the first plane's beam, as the transmission.
  const double fraction = inside / context.firstWeight;
  row.set("within_acceptance", fraction);
  row.set("within_acceptance_err",
          std::sqrt(std::max(0.0, fraction * (1 - fraction)) / context.firstCount));
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
      {"degenerate", "no-crossings", "too-many-crossings"},
      fill,
      true};
  return measure;
}
