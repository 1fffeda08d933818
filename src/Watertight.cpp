//===- Watertight.cpp - Closed, oriented and connected tessellated solids --===//
//
// Works on vertex indices only. An edge is packed into one 32-bit key (smaller index
// << 16 | larger index); its tally counts 1 for each use running upwards and 65536 for
// each use running downwards, so a closed, consistently oriented surface has every
// tally equal to 65537.
//
//===----------------------------------------------------------------------------===//

#include "Geometry.h"

#include "Console.h"

#include <QHash>
#include <QSet>
#include <algorithm>

namespace Nexil {

namespace {

struct EdgeTally {
  QHash<unsigned int, int> counts;
  QList<QSet<unsigned int>> facetEdges;
  QSet<unsigned int> current;

  void record(int a, int b) {
    unsigned int key = (unsigned(std::min(a, b)) << 16) | unsigned(std::max(a, b));
    current.insert(key);
    counts[key] += b < a ? 65536 : 1;
  }
  void closeFacet() {
    facetEdges.append(current);
    current.clear();
  }
};

/// Whether the facets, linked by shared edges, form one piece.
bool connected(QList<QSet<unsigned int>> facets) {
  QSet<unsigned int> reached = facets.takeFirst();
  bool merged = true;
  while (merged) {
    merged = false;
    for (int i = 0; i < facets.size(); ++i) {
      if (!facets[i].intersects(reached))
        continue;
      reached.unite(facets[i]);
      facets.removeAt(i--);
      merged = true;
    }
  }
  return facets.isEmpty();
}

} // namespace

bool Geometry::isWatertight(QList<Point> points, QList<int> facets) {
  if (points.size() > 65534) {
    // Too large to check; assumed watertight.
    Console.printf("Tessellated solid too large to check if it is watertight\n");
    return true;
  }
  if (facets.size() < 16)
    return false;
  if (facets.last() >= 0)
    facets.append(-1);
  EdgeTally tally;
  int first = 0;
  int prev = facets[0];
  if (prev < 0)
    return false;
  for (int i = 1; i < facets.size(); ++i) {
    if (facets[i] >= 0) {
      tally.record(prev, facets[i]);
      prev = facets[i];
      continue;
    }
    tally.record(prev, facets[first]);
    tally.closeFacet();
    first = i + 1;
    if (first >= facets.size())
      break;
    prev = facets[first];
    if (prev < 0)
      return false; // an empty facet
    i = first;
  }
  for (int count : tally.counts)
    if (count != 65537)
      return false;
  return connected(tally.facetEdges);
}

} // namespace Nexil
