//===- CrossingSelector.cpp - Only the planes a step can cross -------------===//

#include "CrossingSelector.h"

#include "Console.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace {

const int LeafSize = 16;

bool overlaps(const double alo[3], const double ahi[3], const double blo[3], const double bhi[3]) {
  // Comparisons with NaN fail: a step with a NaN coordinate touches nothing, and it
  // cannot make a crossing either.
  for (int i = 0; i < 3; ++i)
    if (!(alo[i] <= bhi[i] && blo[i] <= ahi[i]))
      return false;
  return true;
}

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
      alwaysTested.push_back(i);
    else
      usable.push_back(i);
  }
  chooseAxisOrder(usable);
  for (int i : usable) {
    balls.push_back(diskBox(planes[i]));
    ballPlane.push_back(i);
  }
  if (balls.size() > LinearScanLimit)
    build(0, int(balls.size()));
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

CrossingSelector::Box CrossingSelector::diskBox(const BCSample *plane) const {
  // An accepted crossing lies on the plane (up to rounding) and within the radius cut
  // of the centre: inside the disk, whose half-extent along axis k is r sqrt(1 - n_k^2).
  // The margin covers the interpolation's rounding and the midpoint rule (1e-9 mm).
  const Nexil::Point &c = plane->point;
  const Nexil::Vector &n = plane->normal;
  const double centre[3] = {c.x, c.y, c.z}, normal[3] = {n.x, n.y, n.z};
  double radius = fabs(plane->radiusCut);
  double size = std::max({fabs(c.x), fabs(c.y), fabs(c.z)});
  double margin = 1e-8 * (1 + radius + size);
  Box box;
  for (int j = 0; j < 3; ++j) {
    int k = axis[j];
    double reach = radius * sqrt(std::max(0.0, 1 - normal[k] * normal[k])) + margin;
    box.lo[j] = centre[k] - reach;
    box.hi[j] = centre[k] + reach;
  }
  return box;
}

int CrossingSelector::build(int first, int count) {
  Node node;
  node.box = balls[size_t(first)];
  for (int i = first + 1; i < first + count; ++i)
    for (int k = 0; k < 3; ++k) {
      node.box.lo[k] = std::min(node.box.lo[k], balls[size_t(i)].lo[k]);
      node.box.hi[k] = std::max(node.box.hi[k], balls[size_t(i)].hi[k]);
    }
  node.first = first;
  node.count = count;
  node.left = node.right = -1;
  int index = int(nodes.size());
  nodes.push_back(node);
  if (count <= LeafSize) {
    // Leaves in plane order, so that the candidates of a step usually come sorted.
    std::vector<std::pair<int, Box>> leaf;
    for (int i = first; i < first + count; ++i)
      leaf.emplace_back(ballPlane[size_t(i)], balls[size_t(i)]);
    std::sort(leaf.begin(), leaf.end(),
              [](const auto &a, const auto &b) { return a.first < b.first; });
    for (int i = 0; i < count; ++i) {
      ballPlane[size_t(first + i)] = leaf[size_t(i)].first;
      balls[size_t(first + i)] = leaf[size_t(i)].second;
    }
    return index;
  }

  // Split at the median of the axis along which the disk centres spread most. (Along
  // the longest axis of the box, thin slices of planes across a straight path would be
  // cut lengthwise, and every half would keep the whole slice's length.)
  auto centre = [&](int i, int k) { return balls[size_t(i)].lo[k] + balls[size_t(i)].hi[k]; };
  int axis = 0;
  double widest = -1;
  for (int k = 0; k < 3; ++k) {
    double lo = centre(first, k), hi = lo;
    for (int i = first + 1; i < first + count; ++i) {
      lo = std::min(lo, centre(i, k));
      hi = std::max(hi, centre(i, k));
    }
    if (hi - lo > widest) {
      widest = hi - lo;
      axis = k;
    }
  }
  std::vector<int> order(static_cast<size_t>(count));
  std::iota(order.begin(), order.end(), first);
  std::nth_element(order.begin(), order.begin() + count / 2, order.end(),
                   [&](int a, int b) { return centre(a, axis) < centre(b, axis); });
  std::vector<Box> boxes;
  std::vector<int> owners;
  for (int i : order) {
    boxes.push_back(balls[size_t(i)]);
    owners.push_back(ballPlane[size_t(i)]);
  }
  std::copy(boxes.begin(), boxes.end(), balls.begin() + first);
  std::copy(owners.begin(), owners.end(), ballPlane.begin() + first);

  int left = build(first, count / 2);
  int right = build(first + count / 2, count - count / 2);
  nodes[size_t(index)].count = 0;
  nodes[size_t(index)].left = left;
  nodes[size_t(index)].right = right;
  return index;
}

void CrossingSelector::collect(const Nexil::Point &from, const Nexil::Point &to) {
  const double pa[3] = {from.x, from.y, from.z}, pb[3] = {to.x, to.y, to.z};
  Box segment;
  for (int j = 0; j < 3; ++j) {
    segment.lo[j] = std::min(pa[axis[j]], pb[axis[j]]);
    segment.hi[j] = std::max(pa[axis[j]], pb[axis[j]]);
  }
  candidates.assign(alwaysTested.begin(), alwaysTested.end());
  if (balls.size() <= LinearScanLimit) {
    // A handful of planes: looking at each is cheaper than walking the tree.
    for (size_t i = 0; i < balls.size(); ++i)
      if (overlaps(balls[i].lo, balls[i].hi, segment.lo, segment.hi))
        candidates.push_back(ballPlane[i]);
    return;
  }
  // The tree is balanced, so its depth is below 64 for any number of planes.
  int stack[64];
  int depth = 0;
  stack[depth++] = 0;
  while (depth > 0) {
    const Node &node = nodes[size_t(stack[--depth])];
    if (!overlaps(node.box.lo, node.box.hi, segment.lo, segment.hi))
      continue;
    if (node.count == 0) {
      stack[depth++] = node.right; // the left child, lower along the split axis, first
      stack[depth++] = node.left;
      continue;
    }
    for (int i = node.first; i < node.first + node.count; ++i)
      if (overlaps(balls[size_t(i)].lo, balls[size_t(i)].hi, segment.lo, segment.hi))
        candidates.push_back(ballPlane[size_t(i)]);
  }
}

void CrossingSelector::handleMove(const Nexil::Point &from, const Nexil::Point &to) {
  // Without debug lines the planes may be visited in any order: each adds only to its own sums.
  collect(from, to);
  for (int i : candidates)
    planes[i]->handleMove(from, to);
}

void CrossingSelector::trackStep(Step &step) {
  if (!BCSample::firstStep) {
    const Nexil::Point &from = BCSample::previous.position;
    if (Debug)
      handleStepInPlaneOrder(from, step);
    else
      handleMove(from, step.position);
  }
  BCSample::firstStep = false;
  BCSample::previous = step;
}

void CrossingSelector::handleStepInPlaneOrder(const Nexil::Point &from, Step &step) {
  collect(from, step.position);
  if (!std::is_sorted(candidates.begin(), candidates.end()))
    std::sort(candidates.begin(), candidates.end());
  for (int i : candidates) {
    BCSample *plane = planes[i];
    // The distance the full broadcast would have stored at the previous step.
    plane->previousDistance = BCSample::storedDistance(plane->distanceOf(from));
    plane->handleStep(step);
  }
}
