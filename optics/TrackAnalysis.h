//===- TrackAnalysis.h - The track files through the planes ----*- C++ -*-===//
//
// Reads the track files of every run directory, keeps the tracks of the selection and
// adds their crossings to the planes' statistics, on the crossing engine that twiss
// uses. Each file's tracks are its own: a track never continues into the next file.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_TRACKANALYSIS_H
#define OPTICS_TRACKANALYSIS_H

#include "BCSample.h"
#include "KeptCrossings.h"
#include "ParticleFile.h"
#include "PlaneStatistics.h"
#include "TrackReader.h"

#include <QJsonObject>
#include <QList>
#include <QStringList>
#include <vector>

/// Which tracks count, and with what weight.
struct Selection {
  QList<int> species;         ///< PDG identifiers; empty for every species
  bool primariesOnly = false; ///< only tracks whose parent (column 11) is 0
  bool weighted = true;       ///< weigh crossings by the weight column (12), else by 1

  bool accepts(const Step &step) const {
    return (species.isEmpty() || species.contains(step.PDGid)) &&
           (!primariesOnly || step.extraID == 0);
  }
  QJsonObject toJson() const;
};

/// What the track loop saw, over every file.
struct TrackTotals {
  TrackLineCounts lines;
  long tracks = 0;         ///< every track read
  long selectedTracks = 0; ///< tracks of the selection
  long events = 0;         ///< changes of the event number from track to track, per file
  long long bytes = 0;     ///< size of the track files

  void add(const TrackTotals &other);
  /// Whether every count, added to the other's, stays within a moments file's counts.
  bool fitsWith(const TrackTotals &other) const;
  QJsonObject toJson() const;
  /// Reads what toJson wrote; false if something is missing.
  bool fromJson(const QJsonObject &object);
};

/// Adds the crossings of the selected tracks of every file to `statistics` (one per
/// plane), and to `particles` and `kept` where they are given; shows progress on standard
/// error when `progress`.
TrackTotals analyseTracks(const QStringList &trackFiles, const QList<BCSample *> &planes,
                          std::vector<PlaneStatistics> &statistics, const Selection &selection,
                          bool progress, int threads, ParticleFile *particles = nullptr,
                          KeptCrossings *kept = nullptr);

#endif // OPTICS_TRACKANALYSIS_H
