//===- CrossingSelector.h - Only the planes a step can cross ---*- C++ -*-===//
//
// A crossing changes a plane's statistics only when it lies within the plane's radius
// cut, and the interpolated crossing always lies on the plane and on the segment
// between the previous and the current step. So a step needs testing only against
// the planes whose disk (centre, normal, radius cut) has a bounding box that the
// segment's bounding box touches; every other plane's test could only find a
// crossing that is dropped. The candidates are found in a bounding volume hierarchy
// over the disk boxes and tested with the distance the full broadcast would have
// stored for the previous step, so crossings and sums are exactly those of testing
// every plane. With -d they are tested in the order of the plane list, so that the
// debug lines come in the same order too.
//
//===----------------------------------------------------------------------------===//
#ifndef TWISS_CROSSINGSELECTOR_H
#define TWISS_CROSSINGSELECTOR_H

#include "BCSample.h"

#include <QList>
#include <vector>

/// Feeds steps to the planes that can be crossed; same results as BCSample::trackStep.
class CrossingSelector {
public:
  explicit CrossingSelector(const QList<BCSample *> &planes);
  /// Offers the step to the planes it may cross, then records it as the previous step.
  void trackStep(Step &step);
  /// Offers a move of a track between two positions to the planes it may cross, as
  /// trackStep does without -d.
  void handleMove(const Nexil::Point &from, const Nexil::Point &to);

private:
  /// Up to this many disks are looked at one by one, without the tree.
  static constexpr size_t LinearScanLimit = 32;

  /// An axis-aligned box, its axes in the order of axis[].
  struct Box {
    double lo[3], hi[3];
  };
  struct Node {
    Box box;
    int first, count; ///< range of balls in a leaf; count 0 for an inner node
    int left, right;
  };

  QList<BCSample *> planes;
  int axis[3];                ///< the global axes, the most selective first
  std::vector<Box> balls;     ///< bounding box of each plane's disk
  std::vector<int> ballPlane; ///< the plane index of each ball
  std::vector<Node> nodes;
  std::vector<int> alwaysTested; ///< planes with an infinite radius cut
  std::vector<int> candidates;

  void chooseAxisOrder(const std::vector<int> &usable);
  Box diskBox(const BCSample *plane) const;
  int build(int first, int count);
  /// The planes whose disk box the box of the segment from-to touches.
  void collect(const Nexil::Point &from, const Nexil::Point &to);
  /// The full crossing test, visiting the candidates in the order of the plane list so
  /// that the debug lines of a step come in that order.
  void handleStepInPlaneOrder(const Nexil::Point &from, Step &step);
};

#endif // TWISS_CROSSINGSELECTOR_H
