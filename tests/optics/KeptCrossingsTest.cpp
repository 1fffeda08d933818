//===- KeptCrossingsTest.cpp - Crossings kept in a temporary file ----------===//

#include "KeptCrossings.h"
#include "Failure.h"

#include <QDir>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

KeptCrossing numbered(size_t plane, size_t k) {
  const double v = double(plane * 1000000 + k);
  return {v, v + 0.25, -v, v * 2, 1 + double(k % 3), int(k % SubsampleGroups)};
}

void expectNumbered(const std::vector<KeptCrossing> &crossings, size_t plane, size_t count) {
  ASSERT_EQ(crossings.size(), count);
  for (size_t k = 0; k < count; ++k) {
    const KeptCrossing expected = numbered(plane, k);
    EXPECT_EQ(crossings[k].x, expected.x) << plane << " " << k;
    EXPECT_EQ(crossings[k].ux, expected.ux);
    EXPECT_EQ(crossings[k].y, expected.y);
    EXPECT_EQ(crossings[k].uy, expected.uy);
    EXPECT_EQ(crossings[k].weight, expected.weight);
    EXPECT_EQ(crossings[k].group, expected.group);
  }
}

} // namespace

TEST(KeptCrossingsTest, eachPlaneGivesBackItsCrossingsInTheirOrder) {
  QTemporaryDir dir;
  KeptCrossings kept(3, dir.path());
  // Interleaved, many blocks for plane 0, less than one for plane 2, none for plane 1.
  for (size_t k = 0; k < 100000; ++k) {
    kept.add(0, numbered(0, k));
    if (k < 100)
      kept.add(2, numbered(2, k));
  }
  EXPECT_EQ(kept.count(0), 100000u);
  EXPECT_EQ(kept.count(1), 0u);
  EXPECT_EQ(kept.count(2), 100u);
  expectNumbered(kept.crossingsOf(0), 0, 100000);
  expectNumbered(kept.crossingsOf(1), 1, 0);
  expectNumbered(kept.crossingsOf(2), 2, 100);
  // Read twice, the same; and once more with every crossing in the file.
  expectNumbered(kept.crossingsOf(0), 0, 100000);
  kept.settle();
  expectNumbered(kept.crossingsOf(0), 0, 100000);
  expectNumbered(kept.crossingsOf(1), 1, 0);
  expectNumbered(kept.crossingsOf(2), 2, 100);
  EXPECT_EQ(kept.count(2), 100u);
}

TEST(KeptCrossingsTest, manyPlanesShareTheMemoryInSmallBlocks) {
  QTemporaryDir dir;
  KeptCrossings kept(100000, dir.path());
  for (size_t plane : {size_t(0), size_t(99999)})
    for (size_t k = 0; k < 40; ++k)
      kept.add(plane, numbered(plane, k));
  expectNumbered(kept.crossingsOf(0), 0, 40);
  expectNumbered(kept.crossingsOf(99999), 99999, 40);
}

TEST(KeptCrossingsTest, theFileIsGoneFromItsDirectoryAsSoonAsItIsMade) {
  QTemporaryDir dir;
  KeptCrossings kept(1, dir.path());
  for (size_t k = 0; k < 10000; ++k)
    kept.add(0, numbered(0, k));
  EXPECT_EQ(QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
            QStringList());
  expectNumbered(kept.crossingsOf(0), 0, 10000);
}

TEST(KeptCrossingsTest, aDirectoryThatCannotHoldTheFileIsAnOutputError) {
  QTemporaryDir dir;
  try {
    KeptCrossings kept(1, dir.path() + "/missing");
    FAIL();
  } catch (const OutputError &e) {
    EXPECT_EQ(e.message, dir.path() + "/missing: cannot make a temporary file for the crossings "
                                      "(No such file or directory)");
    EXPECT_EQ(e.status, 1);
  }
}
