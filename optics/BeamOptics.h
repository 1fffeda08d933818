//===- BeamOptics.h - The optics of the beam at one plane ------*- C++ -*-===//
//
// Turns a plane's counts and moments into one row of the optics table: the counts and
// transmission, then the values of each measure chosen (Measure.h), each with its
// statistical error where it has one. All moments are weighted and normalised by the
// sum of the weights (population moments). Errors are first-order propagation of the
// moments' own spread (the delta method): the influence of each crossing on an
// estimate, summed with the squared weights.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_BEAMOPTICS_H
#define OPTICS_BEAMOPTICS_H

#include "KeptCrossings.h"
#include "PlaneStatistics.h"

#include <QHash>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <limits>
#include <vector>

/// The columns of a table of some measures, each with its place.
struct ColumnLayout {
  QStringList columns;
  QHash<QString, int> places;
  /// The layout of these measures, made once for the process.
  static const ColumnLayout &of(const QStringList &measures);
};

/// One row of the optics table: a value per column of its measures (a column without a
/// value is empty in the table), and the status.
struct OpticsRow {
  const ColumnLayout *layout;
  /// The values in the order of the layout's columns, NaN where a column has none; the
  /// status's place is NaN too.
  std::vector<double> values;
  QString status;
  /// The values of each slice along the bunch, in the columns of the slices file, where
  /// the slices are measured.
  std::vector<std::vector<double>> slices;
  /// What the measures add to the plane's record beside its columns.
  QJsonObject record;

  /// A row of the columns of these measures.
  explicit OpticsRow(const QStringList &measures);
  /// The value of a column, NaN where it has none.
  double value(const QString &column) const;
  /// Sets the value of a column of the row's measures.
  void set(const QString &column, double value);
};

/// The reference momentum: a fixed one, or each plane's weighted mean momentum.
struct MomentumReference {
  bool fixed = false;
  double momentum = 0; ///< MeV/c, when fixed
};

/// What the measures of the crossings one by one are asked for.
struct CrossingChoices {
  double acceptance = std::numeric_limits<double>::quiet_NaN(); ///< mm mrad; NaN for none
  int slices = 10; ///< slices along the bunch, each of as many crossings
  /// ns: slices of this duration from the first crossing instead; NaN for none
  double sliceWidth = std::numeric_limits<double>::quiet_NaN();
};

/// A plane's crossings one by one, for the measures that take them.
struct PlaneCrossings {
  const std::vector<KeptCrossing> *crossings = nullptr; ///< null where the run has none
  /// Where the plane has more crossings than are read back whole: passes over them.
  CrossingPass passes;
  CrossingChoices choices;
};

/// The row of a plane at sMillimetres, in a solenoid field bz (T), with the columns of
/// these measures; transmission is taken relative to `first`.
OpticsRow beamOptics(double sMillimetres, const PlaneStatistics &plane,
                     const PlaneStatistics &first, const MomentumReference &reference,
                     const QStringList &measures, double bz = 0,
                     const PlaneCrossings &crossings = {});
/// The same with the default measures.
OpticsRow beamOptics(double sMillimetres, const PlaneStatistics &plane,
                     const PlaneStatistics &first, const MomentumReference &reference);

/// Below this relative momentum spread there is no dispersion to measure: momenta
/// written to a text file with six or seven digits spread this much by rounding alone.
constexpr double MinimumMomentumSpread = 1e-6;
/// Below this effective number of crossings the status says "few".
constexpr double FewCrossings = 10;

#endif // OPTICS_BEAMOPTICS_H
