//===- OpticsCrossings.h - Crossings with every column, per plane -*- C++ -*-===//
//
// The optics tool's group of planes for the shared crossing engine: it finds the
// planes a move may cross as twiss does, applies the same crossing test, and
// interpolates the whole crossing (position, momentum, time, weight) into the
// plane's frame. Backward crossings of a plane that counts one direction only are
// counted apart.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_OPTICSCROSSINGS_H
#define OPTICS_OPTICSCROSSINGS_H

#include "CrossingSelector.h"
#include "KeptCrossings.h"
#include "ParticleFile.h"
#include "PlaneStatistics.h"
#include "Species.h"

#include <QHash>
#include <vector>

/// Tests moves against a range of planes and adds their crossings to the statistics.
class OpticsCrossings {
public:
  /// A move between two steps of a track: both steps whole, and the track's number.
  struct Move {
    Step from, to;
    int64_t track;
  };

  /// Moves in a batch of the parallel crossing tests: a move carries both steps whole,
  /// so an eighth of the moves of twiss's batches, about half the bytes in flight (room
  /// that the planes' moments need more at many planes; the threads keep their pace).
  static constexpr size_t BatchSize = 512;

  /// Planes and their statistics, side by side; `weighted` takes the weight column.
  /// The planes are rows [first, first + planes.size()) of the table; `particles`,
  /// when not null, receives the crossings of the planes it writes, `kept` those the
  /// measures keep, which come from the tracks of run directory `job`.
  OpticsCrossings(const QList<BCSample *> &planes, int first, PlaneStatistics *statistics,
                  bool weighted, ParticleFile *particles, KeptCrossings *kept = nullptr,
                  int job = 0);

  /// The move to a step of the track numbered `track`, counted from 1 over all track
  /// files.
  static Move move(const Step &previous, const Step &current, int64_t track) {
    return {previous, current, track};
  }
  void handleMove(const Move &move);
  /// Tests the move from the previous step, then records the step as the previous one.
  void trackStep(Step &step, int64_t track);

private:
  QList<BCSample *> planes;
  int first;
  PlaneStatistics *statistics;
  bool weighted;
  ParticleFile *particles;
  KeptCrossings *kept; ///< the crossings one by one, where a measure takes them
  int job;
  CrossingSelector selector;
  std::vector<int> candidates;
  QHash<int, SpeciesFacts> masses; ///< of this group's thread

  void testPlane(int index, const Move &move);
  /// The crossing of a plane at fraction f of the way back from `to` to `from`, at the
  /// offset r from its centre.
  OpticsCrossing interpolate(const BCSample &plane, const Step &from, const Step &to, double f,
                             const Nexil::Vector &r, const SpeciesFacts &species) const;
};

#endif // OPTICS_OPTICSCROSSINGS_H
