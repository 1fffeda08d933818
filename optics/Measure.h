//===- Measure.h - What the optics table measures at a plane ---*- C++ -*-===//
//
// A measure is a group of columns of the optics table made from a plane's moments: it
// names the sets of moments it needs of every crossing, its columns with a line that
// defines each, the status flags it may raise, and how its values and errors come from
// the moments. The table, the record, the moments file and the help take the columns
// from the measures chosen, in the order of the list of measures; the counts and the
// status frame them.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_MEASURE_H
#define OPTICS_MEASURE_H

#include "BeamOptics.h"
#include "PlaneStatistics.h"

#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>
#include <vector>

/// The speed of light, mm/ns: c t in mm of a time in ns.
constexpr double LightSpeed = 299.792458;
/// q B r in MeV/c for q = e, B = 1 T and r = 1 mm.
constexpr double MomentumPerTeslaMillimetre = 0.299792458;

/// A column of a measure.
struct MeasureColumn {
  QString name;
  bool error;         ///< followed by the column name + "_err", its standard error
  QString definition; ///< one line: what it is
};

/// What a measure may use of a plane besides its moments.
struct PlaneContext {
  const PlaneStatistics &plane;
  double meanMomentum; ///< MeV/c
  double pRef;         ///< the reference momentum of delta, MeV/c
  double sigmaDelta;   ///< the relative momentum spread
  bool dispersion;     ///< the momentum spread is wide enough to measure dispersion
  bool normalisable;   ///< one species of known mass
  double mass;         ///< its mass, MeV/c^2, where normalisable
  int charge;          ///< its charge, e, where normalisable
  double bz;           ///< the solenoid field at the plane, T
  /// q Bz / (2 m c) in mrad per mm: u_x - kappa y and u_y + kappa x are the canonical
  /// momenta in the field (u in mrad); 0 without a field or one mass.
  double kappa;
  const PlaneCrossings &crossings;
  double firstWeight; ///< of the first plane's crossings
  double firstCount;  ///< the first plane's effective number of crossings
};

/// A group of columns, chosen by its name.
struct Measure {
  QString name;
  int version; ///< of its moments in a moments file
  QString summary;
  QList<MeasureColumn> columns;
  /// Its conventions in words, for the record: (name, text).
  QList<QPair<QString, QString>> conventions;
  std::vector<const MomentSet *> sets;
  QStringList flags; ///< the status flags it may raise
  /// Sets its values in the row and adds its flags, of a plane with crossings.
  void (*fill)(const PlaneContext &plane, OpticsRow &row, QStringList &flags);
  /// Takes the crossings one by one: the run keeps them.
  bool particles = false;
};

/// How a measure of the crossings one by one fills its columns of a plane read back
/// whole, and of a plane taken in passes.
using WholePlaneFill = void(const PlaneContext &, const std::vector<KeptCrossing> &, OpticsRow &,
                            QStringList &);
using PlanePassesFill = void(const PlaneContext &, const CrossingPass &, OpticsRow &,
                             QStringList &);

/// Hands a plane's crossings one by one to a measure that takes them: to `whole` read
/// back whole, or to `inPasses` as passes over a plane too large for that. Neither where
/// the plane has not one species of known mass; where the run kept none, `flags` gets
/// no-crossings.
void takeCrossings(const PlaneContext &context, OpticsRow &row, QStringList &flags,
                   WholePlaneFill *whole, PlanePassesFill *inPasses);

/// Whether one of these measures takes the crossings one by one.
bool keepsCrossings(const QStringList &measures);

/// The columns of the counts, before those of every measure.
const QList<MeasureColumn> &countColumns();

/// Every measure, in the order of their columns; the first is the default, always taken.
const QList<const Measure *> &registeredMeasures();
/// The measure of this name; none if there is no such measure.
const Measure *measureNamed(const QString &name);
/// The measures of a list of names ("4d,all"...), in the registry's order, the default
/// first; false with the offending name in `bad` when one is not a measure.
bool parseMeasureList(const QString &text, QStringList &names, QString &bad);

/// The columns of the table of these measures: the counts, each measure's columns and
/// their errors, then "status".
QStringList tableColumns(const QStringList &measures);
/// The sets of moments these measures need, each once.
std::vector<const MomentSet *> momentSetsOf(const QStringList &measures);

/// The measures: today's transverse and time columns, the coupled transverse ones, the
/// whole phase space, time against energy, the angular momentum about the path, and of
/// the crossings one by one the amplitudes, the cores and the halo, and the slices.
const Measure &uncoupledMeasure();
const Measure &coupledMeasure();
const Measure &phaseSpaceMeasure();
const Measure &longitudinalMeasure();
const Measure &angularMomentumMeasure();
const Measure &amplitudeMeasure();
const Measure &coreMeasure();
const Measure &sliceMeasure();

/// The moments of (x, u_x, y, u_y, |P|), u = P/(m c) in mrad, that the coupled measures
/// share.
const MomentSet &transverse4dMoments();

#endif // OPTICS_MEASURE_H
