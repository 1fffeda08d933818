//===- WatertightTest.cpp - Closed, oriented, connected tessellated solids -===//

#include "Geometry.h"

#include "TestSupport.h"

#include <gtest/gtest.h>

using namespace Nexil;

namespace {

QList<Point> points(int n) {
  return QList<Point>(n);
}

// Outward-facing triangles of a tetrahedron, each followed by -1.
const QList<int> Tetrahedron = {0, 2, 1, -1, 0, 1, 3, -1, 1, 2, 3, -1, 0, 3, 2, -1};

QList<int> cube() {
  return {0, 3, 2, 1, -1, 4, 5, 6, 7, -1, 0, 1, 5, 4, -1,
          1, 2, 6, 5, -1, 2, 3, 7, 6, -1, 3, 0, 4, 7, -1};
}

TEST(WatertightTest, tetrahedron) {
  EXPECT_TRUE(Geometry::isWatertight(points(4), Tetrahedron));
  QList<int> flipped = Tetrahedron;
  std::swap(flipped[1], flipped[2]);
  EXPECT_FALSE(Geometry::isWatertight(points(4), flipped));
}

TEST(WatertightTest, tetrahedronWithoutItsLastTerminatorIsTooShort) {
  QList<int> facets = Tetrahedron;
  facets.removeLast();
  EXPECT_FALSE(Geometry::isWatertight(points(4), facets)); // 15 entries
}

TEST(WatertightTest, cubeWithAndWithoutItsLastTerminator) {
  EXPECT_TRUE(Geometry::isWatertight(points(8), cube()));
  QList<int> facets = cube();
  facets.removeLast();
  EXPECT_TRUE(Geometry::isWatertight(points(8), facets));
}

TEST(WatertightTest, cubeWithAFaceMissingOrFlipped) {
  QList<int> open = cube().mid(0, 25);
  EXPECT_FALSE(Geometry::isWatertight(points(8), open));
  QList<int> flipped = cube();
  std::reverse(flipped.begin() + 5, flipped.begin() + 9);
  EXPECT_FALSE(Geometry::isWatertight(points(8), flipped));
}

TEST(WatertightTest, twoSeparateTetrahedraAreTwoPieces) {
  QList<int> facets = Tetrahedron;
  for (int i : Tetrahedron)
    facets << (i < 0 ? i : i + 4);
  EXPECT_FALSE(Geometry::isWatertight(points(8), facets));
}

TEST(WatertightTest, octahedron) {
  // Vertices: 0 +x, 1 -x, 2 +y, 3 -y, 4 +z, 5 -z.
  QList<int> facets = {0, 2, 4, -1, 2, 1, 4, -1, 1, 3, 4, -1, 3, 0, 4, -1,
                       2, 0, 5, -1, 1, 2, 5, -1, 3, 1, 5, -1, 0, 3, 5, -1};
  EXPECT_TRUE(Geometry::isWatertight(points(6), facets));
}

TEST(WatertightTest, triangulatedTorus) {
  const int n = 6, m = 4;
  QList<int> facets;
  auto v = [&](int i, int j) { return (i % n) * m + (j % m); };
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < m; ++j) {
      facets << v(i, j) << v(i + 1, j) << v(i + 1, j + 1) << -1;
      facets << v(i, j) << v(i + 1, j + 1) << v(i, j + 1) << -1;
    }
  EXPECT_TRUE(Geometry::isWatertight(points(n * m), facets));
}

TEST(WatertightTest, twoCubesSharingOneEdgeAreNotWatertight) {
  QList<int> facets = cube();
  // The second cube shares the edge 2-6 of the first one.
  QList<int> second = {2, 8, 9, 10, 6, 11, 12, 13};
  for (int i : cube())
    facets << (i < 0 ? i : second[i]);
  EXPECT_FALSE(Geometry::isWatertight(points(14), facets));
}

TEST(WatertightTest, shortAndMalformedLists) {
  EXPECT_FALSE(Geometry::isWatertight(points(3), {0, 1, 2, -1}));
  QList<int> leading = Tetrahedron;
  leading.prepend(-1);
  EXPECT_FALSE(Geometry::isWatertight(points(4), leading));
  QList<int> emptyFacet = Tetrahedron;
  emptyFacet.insert(4, -1);
  EXPECT_FALSE(Geometry::isWatertight(points(4), emptyFacet));
}

TEST(WatertightTest, tooLargeSolidsAreAssumedWatertight) {
  bool answer = false;
  std::string err = stderrOf([&] { answer = Geometry::isWatertight(points(65535), {}); });
  EXPECT_TRUE(answer);
  EXPECT_EQ(err, "Tessellated solid too large to check if it is watertight\n");
  err = stderrOf([&] { answer = Geometry::isWatertight(points(65534), {0, 1, 2, -1}); });
  EXPECT_FALSE(answer);
  EXPECT_EQ(err, "");
}

} // namespace
