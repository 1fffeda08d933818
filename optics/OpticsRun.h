//===- OpticsRun.h - Everything one analysis of a beam is made of -*- C++ -*-===//
//
// The run directories, the selection and the reference momentum, what the track loop
// saw, and every plane's statistics. Saved exactly as a moments file, runs over parts
// of one simulation merge into the run over all of it.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_OPTICSRUN_H
#define OPTICS_OPTICSRUN_H

#include "BeamOptics.h"
#include "Failure.h"
#include "PlaneStatistics.h"
#include "TrackAnalysis.h"

#include <QJsonObject>
#include <QList>
#include <QStringList>
#include <functional>
#include <limits>
#include <memory>
#include <vector>

/// One analysis: how it was made and what it found.
struct OpticsRun {
  QStringList directories;
  Selection selection;
  MomentumReference reference;
  QStringList measures = {"2d"}; ///< the names of the measures taken, in the registry's order
  QString coordinatesDigest;     ///< SHA-256 of beamlineCoordinates.txt
  QString planesDigest;          ///< SHA-256 of sampleS.txt
  QList<double> planeS;          ///< the planes' s, mm
  QList<double> planeBz;         ///< the solenoid field at each plane, T
  TrackTotals totals;
  std::vector<PlaneStatistics> statistics; ///< one per plane
  /// Every crossing one by one, where a measure takes them and the tracks were read (not
  /// in a merge of moments).
  std::shared_ptr<KeptCrossings> kept;
  CrossingChoices choices;

  /// Statistics for every plane, keeping the moments of the measures.
  void startStatistics(size_t planes);
  /// The row of plane i.
  OpticsRow row(size_t i) const;
  /// One row per plane, in the order of the sample list, made on `threads` threads.
  QList<OpticsRow> rows(int threads = 1) const;
  /// Hands each plane's row to `take` as it is made, in the order of the sample list
  /// (one call at a time), with only a few rows made ahead of it.
  void rows(int threads, const std::function<void(OpticsRow &&)> &take) const;
  /// The moments file: every number exact.
  QJsonObject toMomentsJson() const;
  /// Reads a moments file; throws a Failure naming `path`.
  static OpticsRun fromMomentsJson(const QJsonObject &object, const QString &path);
  /// The moments file without the planes' moments: how the run was made, where its
  /// planes stand and what the track loop saw.
  QJsonObject momentsHeader() const;
  /// Reads a header, without statistics. Throws a Failure naming `path`.
  static OpticsRun fromMomentsHeader(const QJsonObject &object, const QString &path);
  /// Adds a run over other tracks of the same beamline, planes and selection; throws a
  /// Failure naming `path` when they differ. Returns the names of the measures that
  /// only one of the two runs holds, which the merged run leaves out.
  QStringList merge(const OpticsRun &other, const QString &path);
  /// What merge() does but for the statistics: the checks, directories and totals, and
  /// the measures both runs hold; returns the names of the measures it had to leave out.
  QStringList mergeHeader(const OpticsRun &other, const QString &path);
  /// Keeps the measures of both lists and the moments they need; returns the others.
  QStringList keepCommonMeasures(const QStringList &others);
  /// Adds the statistics of plane k seen elsewhere; throws a Failure naming `path` when
  /// a count would pass what a moments file holds.
  void mergePlane(size_t k, const PlaneStatistics &plane, const QString &path);
};

/// The error of a file that is not a moments file, or a damaged one: `what` says why.
InputError notAMomentsFile(const QString &path, const QString &what);

#endif // OPTICS_OPTICSRUN_H
