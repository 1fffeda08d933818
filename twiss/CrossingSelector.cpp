//===- CrossingSelector.cpp - Only the planes a step can cross -------------===//

#include "CrossingSelector.h"

#include "Console.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace {

const int LeafSize = 16;

} // namespace

CrossingSelector::CrossingSelector(const QList<BCSample *> &planes) : planes(planes) {
  std::vector<int> usable;
  for (int i = 0; i < planes.size(); ++i) {
    const BCSample *plane = planes[i];
    const Nexil::Point &c = plane->point;
    const Nexil::Vector &n = plane->normal;
    double radius = fabs(plane->radiusCut);
    bool finite = std::isfinite(c.x) && std::isfinite(c.y) && std::isfinite(c.z) &&
                  std::isfinite(n.x) && std::isfinite(n.y) && std::isfinite(n.z);
    if (!finite || std::isnan(radius))
      continue; // its crossings are never accepted
    if (std::isinf(radius))
      alwaysTested.push_back(Disk{Box(), PlaneGeometry(*plane), planes[i], i});
    else
      usable.push_back(i);
  }
  chooseAxisOrder(usable);
  disks.reserve(usable.size());
  for (int i : usable)
    disks.push_back(Disk{diskBox(planes[i]), PlaneGeometry(*planes[i]), planes[i], i});
  if (disks.size() > LinearScanLimit)
    build(0, int(disks.size()));
  geometryByPlane.resize(size_t(planes.size()));
  for (const std::vector<Disk> *list : {&disks, &alwaysTested})
    for (const Disk &disk : *list)
      geometryByPlane[size_t(disk.plane)] = &disk.geometry;
}

void CrossingSelector::chooseAxisOrder(const std::vector<int> &usable) {
  // The axis along which the planes spread most rejects most boxes at the first test.
  double spread[3] = {0, 0, 0};
  if (!usable.empty()) {
    const Nexil::Point &first = planes[usable.front()]->point;
    double lo[3] = {first.x, first.y, first.z}, hi[3] = {first.x, first.y, first.z};
    for (int i : usable) {
      const Nexil::Point &c = planes[i]->point;
      const double xyz[3] = {c.x, c.y, c.z};
      for (int k = 0; k < 3; ++k) {
        lo[k] = std::min(lo[k], xyz[k]);
        hi[k] = std::max(hi[k], xyz[k]);
      }
    }
    for (int k = 0; k < 3; ++k)
      spread[k] = hi[k] - lo[k];
  }
  std::iota(axis, axis + 3, 0);
  std::stable_sort(axis, axis + 3, [&](int a, int b) { return spread[a] > spread[b]; });
}

double CrossingSelector::diskReach(const BCSample *plane, const Nexil::Vector &direction) {
  // An accepted crossing lies on the plane (up to rounding) and within the radius cut
  // of the centre: inside the disk, whose half-extent along a unit direction u is
  // r sqrt(1 - (n.u)^2). The margin covers the interpolation's rounding, the midpoint
  // rule (1e-9 mm) and a normal of unit length only up to rounding, which can widen the
  // extent along a direction almost parallel to it by about 1.5e-8 of the radius.
  const Nexil::Point &c = plane->point;
  double radius = fabs(plane->radiusCut);
  double size = std::max({fabs(c.x), fabs(c.y), fabs(c.z)});
  double margin = 1e-6 * (1 + radius + size);
  double along = plane->normal.dot(direction);
  return radius * sqrt(std::max(0.0, 1 - along * along)) + margin;
}

CrossingSelector::Box CrossingSelector::diskBox(const BCSample *plane) const {
  const Nexil::Point &c = plane->point;
  const double centre[3] = {c.x, c.y, c.z};
  Box box;
  for (int j = 0; j < 3; ++j) {
    int k = axis[j];
    double reach = diskReach(plane, Nexil::Vector(k == 0, k == 1, k == 2));
    box.lo[j] = centre[k] - reach;
    box.hi[j] = centre[k] + reach;
  }
  return box;
}

void CrossingSelector::fitSlab(Node &leaf) const {
  // Consecutive planes of a path share almost the same normal: the leaf's disks lie
  // in a thin slab across the first one's normal, much thinner than their box where
  // the path runs oblique to the axes.
  const BCSample *first = disks[size_t(leaf.first)].sample;
  leaf.slabNormal = first->normal;
  leaf.slabOrigin = first->point;
  leaf.slabLo = leaf.slabHi = 0;
  for (int i = leaf.first; i < leaf.first + leaf.count; ++i) {
    const BCSample *plane = disks[size_t(i)].sample;
    double offset = leaf.slabNormal.dot(plane->point - leaf.slabOrigin);
    double reach = diskReach(plane, leaf.slabNormal);
    leaf.slabLo = std::min(leaf.slabLo, offset - reach);
    leaf.slabHi = std::max(leaf.slabHi, offset + reach);
  }
}

int CrossingSelector::build(int first, int count) {
  Node node;
  node.box = disks[size_t(first)].box;
  for (int i = first + 1; i < first + count; ++i)
    for (int k = 0; k < 3; ++k) {
      node.box.lo[k] = std::min(node.box.lo[k], disks[size_t(i)].box.lo[k]);
      node.box.hi[k] = std::max(node.box.hi[k], disks[size_t(i)].box.hi[k]);
    }
  node.first = first;
  node.count = count;
  node.left = node.right = -1;
  int index = int(nodes.size());
  nodes.push_back(node);
  auto begin = disks.begin() + first, end = begin + count;
  if (count <= LeafSize) {
    // Leaves in plane order, so that the candidates of a step usually come sorted.
    std::sort(begin, end, [](const Disk &a, const Disk &b) { return a.plane < b.plane; });
    fitSlab(nodes[size_t(index)]);
    return index;
  }

  // Split at the median of the axis along which the disk centres spread most. (Along
  // the longest axis of the box, thin slices of planes across a straight path would be
  // cut lengthwise, and every half would keep the whole slice's length.)
  auto centre = [](const Disk &d, int k) { return d.box.lo[k] + d.box.hi[k]; };
  int axis = 0;
  double widest = -1;
  for (int k = 0; k < 3; ++k) {
    auto [lo, hi] = std::minmax_element(begin, end, [k, &centre](const Disk &a, const Disk &b) {
      return centre(a, k) < centre(b, k);
    });
    if (centre(*hi, k) - centre(*lo, k) > widest) {
      widest = centre(*hi, k) - centre(*lo, k);
      axis = k;
    }
  }
  std::nth_element(begin, begin + count / 2, end, [axis, &centre](const Disk &a, const Disk &b) {
    return centre(a, axis) < centre(b, axis);
  });

  int left = build(first, count / 2);
  int right = build(first + count / 2, count - count / 2);
  nodes[size_t(index)].count = 0;
  nodes[size_t(index)].left = left;
  nodes[size_t(index)].right = right;
  return index;
}

template <typename Visit>
void CrossingSelector::forEachTouched(const Nexil::Point &from, const Nexil::Point &to,
                                      Visit visit) const {
  const double pa[3] = {from.x, from.y, from.z}, pb[3] = {to.x, to.y, to.z};
  Box segment;
  for (int j = 0; j < 3; ++j) {
    segment.lo[j] = std::min(pa[axis[j]], pb[axis[j]]);
    segment.hi[j] = std::max(pa[axis[j]], pb[axis[j]]);
  }
  for (const Disk &disk : alwaysTested)
    visit(disk);
  if (disks.size() <= LinearScanLimit) {
    // A handful of planes: looking at each is cheaper than walking the tree.
    for (const Disk &disk : disks)
      if (overlaps(disk.box, segment))
        visit(disk);
    return;
  }
  // The tree is balanced, so its depth is below 64 for any number of planes.
  int stack[64];
  int depth = 0;
  stack[depth++] = 0;
  while (depth > 0) {
    const Node &node = nodes[size_t(stack[--depth])];
    if (!overlaps(node.box, segment))
      continue;
    if (node.count == 0) {
      stack[depth++] = node.right; // the left child, lower along the split axis, first
      stack[depth++] = node.left;
      continue;
    }
    // The move's extent across the slab; NaN fails both tests and touches nothing.
    double a = node.slabNormal.dot(from - node.slabOrigin);
    double b = node.slabNormal.dot(to - node.slabOrigin);
    if (!(std::min(a, b) <= node.slabHi && std::max(a, b) >= node.slabLo))
      continue;
    for (int i = node.first; i < node.first + node.count; ++i)
      if (overlaps(disks[size_t(i)].box, segment))
        visit(disks[size_t(i)]);
  }
}

void CrossingSelector::handleMove(const Nexil::Point &from, const Nexil::Point &to) {
  // Without debug lines the planes may be visited in any order: each adds only to its own sums.
  forEachTouched(from, to, [&](const Disk &disk) {
    double x, y;
    if (!disk.geometry.crossing(from, to, x, y))
      return;
    ++disk.sample->nCrossings;
    disk.sample->statistics.add(x, y);
  });
}

void CrossingSelector::trackStep(Step &step) {
  if (!BCSample::firstStep) {
    const Nexil::Point &from = BCSample::previous.position;
    if (Debug)
      handleStepInPlaneOrder(from, step);
    else
      handleMove(from, step.position);
  }
  BCSample::rememberStep(step);
}

void CrossingSelector::findCandidates(const Nexil::Point &from, const Nexil::Point &to,
                                      std::vector<int> &found) const {
  found.clear();
  forEachTouched(from, to, [&found](const Disk &disk) { found.push_back(disk.plane); });
  if (!std::is_sorted(found.begin(), found.end()))
    std::sort(found.begin(), found.end());
}

void CrossingSelector::handleStepInPlaneOrder(const Nexil::Point &from, Step &step) {
  findCandidates(from, step.position, candidates);
  for (int i : candidates) {
    BCSample *plane = planes[i];
    // The distance the full broadcast would have stored at the previous step.
    plane->previousDistance = BCSample::storedDistance(plane->distanceOf(from));
    plane->handleStep(step);
  }
}
