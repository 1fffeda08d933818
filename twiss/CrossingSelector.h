//===- CrossingSelector.h - Only the planes a step can cross ---*- C++ -*-===//
//
// A crossing changes a plane's statistics only when it lies within the plane's radius
// cut, and the interpolated crossing always lies on the plane and on the segment
// between the previous and the current step. So a step needs testing only against
// the planes whose disk (centre, normal, radius cut) has a bounding box that the
// segment's bounding box touches; every other plane's test could only find a
// crossing that is dropped. The candidates are found in a bounding volume hierarchy
// over the disk boxes, whose leaves also bound their disks by a slab across the path,
// and tested with the distance the full broadcast would have stored for the previous
// step, so crossings and sums are exactly those of testing every plane. Without -d
// only the crossing's position is computed; with -d the candidates take the full
// test in the order of the plane list, so that the debug lines come in that order.
//
//===----------------------------------------------------------------------------===//
#ifndef TWISS_CROSSINGSELECTOR_H
#define TWISS_CROSSINGSELECTOR_H

#include "BCSample.h"
#include "PlaneGeometry.h"

#include <QList>
#include <memory>
#include <vector>

/// Feeds steps to the planes that can be crossed; same results as BCSample::trackStep.
class CrossingSelector {
public:
  /// What the crossing test of a move between two steps reads: the two positions.
  struct Move {
    /// The previous step's position and this step's, global mm.
    Nexil::Point from, to;
  };

  /// Builds the search structure over the disks of the planes (their order is kept).
  explicit CrossingSelector(const QList<BCSample *> &planes);
  /// Offers the step to the planes it may cross, then records it as the previous step.
  void trackStep(Step &step);
  /// Offers a move of a track between two positions to the planes it may cross, as
  /// trackStep does without -d.
  void handleMove(const Nexil::Point &from, const Nexil::Point &to);
  /// The move between two steps of a track, as the parallel crossing tests carry it.
  static Move move(const Step &previous, const Step &current) {
    return {previous.position, current.position};
  }
  /// Offers a move collected by the parallel crossing tests.
  void handleMove(const Move &move) { handleMove(move.from, move.to); }
  /// Makes the selector of a range of the planes, as the parallel crossing tests ask.
  static auto groupsOf(const QList<BCSample *> &planes) {
    return [planes](int first, int count) {
      return std::make_unique<CrossingSelector>(planes.mid(first, count));
    };
  }
  /// Replaces `found` by the indices in the plane list, ascending, of the planes whose
  /// disk the move from-to may cross; no other plane can count a crossing of it.
  void findCandidates(const Nexil::Point &from, const Nexil::Point &to,
                      std::vector<int> &found) const;
  /// What the crossing test of plane i of the list reads, for a plane findCandidates
  /// gives.
  const PlaneGeometry &geometryOf(int i) const { return *geometryByPlane[size_t(i)]; }

private:
  /// Up to this many disks are looked at one by one, without the tree.
  static constexpr size_t LinearScanLimit = 32;

  /// An axis-aligned box, its axes in the order of axis[].
  struct Box {
    double lo[3], hi[3];
  };
  /// One plane's disk: its box, then what its crossing test reads, side by side.
  struct Disk {
    Box box;
    PlaneGeometry geometry;
    BCSample *sample;
    int plane; ///< index in the plane list
  };
  struct Node {
    Box box;
    int first, count; ///< range of disks in a leaf; count 0 for an inner node
    int left, right;
    /// A leaf's disks lie between slabLo and slabHi along slabNormal from slabOrigin.
    Nexil::Vector slabNormal;
    Nexil::Point slabOrigin;
    double slabLo, slabHi;
  };

  QList<BCSample *> planes;
  int axis[3];             ///< the global axes, the most selective first
  std::vector<Disk> disks; ///< in the order of the tree's leaves
  std::vector<Node> nodes;
  std::vector<Disk> alwaysTested; ///< planes with an infinite radius cut
  /// Each plane's geometry in its disk, by the plane's index; none for a plane whose
  /// crossings are never accepted.
  std::vector<const PlaneGeometry *> geometryByPlane;
  std::vector<int> candidates;

  void chooseAxisOrder(const std::vector<int> &usable);
  static bool overlaps(const Box &a, const Box &b) {
    // Comparisons with NaN fail: a step with a NaN coordinate touches nothing, and it
    // cannot make a crossing either.
    for (int i = 0; i < 3; ++i)
      if (!(a.lo[i] <= b.hi[i] && b.lo[i] <= a.hi[i]))
        return false;
    return true;
  }
  /// How far a plane's disk reaches from its centre along a unit direction, with a margin.
  static double diskReach(const BCSample *plane, const Nexil::Vector &direction);
  Box diskBox(const BCSample *plane) const;
  void fitSlab(Node &leaf) const;
  int build(int first, int count);
  /// Calls visit(disk) for each disk whose box the box of the segment from-to touches.
  template <typename Visit>
  void forEachTouched(const Nexil::Point &from, const Nexil::Point &to, Visit visit) const;
  /// The full crossing test, visiting the candidates in the order of the plane list so
  /// that the debug lines of a step come in that order.
  void handleStepInPlaneOrder(const Nexil::Point &from, Step &step);
};

#endif // TWISS_CROSSINGSELECTOR_H
