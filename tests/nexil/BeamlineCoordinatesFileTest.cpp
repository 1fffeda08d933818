//===- BeamlineCoordinatesFileTest.cpp - The file and its sample list -----===//

#include "BeamlineCoordinates.h"

#include "BeamlineFixture.h"
#include "TestSupport.h"

#include <cmath>

using namespace Nexil;

namespace {

class BeamlineCoordinatesFileTest : public BeamlineFixture {
protected:
  QTemporaryDir dir;
  QString path(const char *name) { return dir.path() + "/" + name; }
  std::string load(const std::string &text) {
    writeFile(path("bc.txt"), text);
    return stderrOf([&] { BeamlineCoordinates::initFromFile(path("bc.txt")); });
  }
};

TEST_F(BeamlineCoordinatesFileTest, startBendAndStraight) {
  std::string err = load("%bcstart x=0m y=0m z=0m s=0m\n"
                         "%bcbend radius=5m angle=0.5rad phi=0 s=10m\n");
  EXPECT_EQ(err, "");
  QList<BCSegment *> &segs = BeamlineCoordinates::segments;
  ASSERT_EQ(segs.size(), 3);
  EXPECT_EQ(segs[0]->s_min, 0.0);
  EXPECT_EQ(segs[0]->s_max, 10.0);
  EXPECT_NE(dynamic_cast<StartBCSegment *>(segs[0]), nullptr);
  EXPECT_NE(dynamic_cast<ArcBCSegment *>(segs[1]), nullptr);
  EXPECT_EQ(segs[1]->s_max, 12.5);
  EXPECT_EQ(segs[2]->s_min, 12.5);
  EXPECT_EQ(segs[2]->s_max, 1e6);
  EXPECT_EQ(BeamlineCoordinates::nextS, 0.0);
}

TEST_F(BeamlineCoordinatesFileTest, unitsAndExpressionsInEveryKey) {
  std::string err = load("%bcstart x=1mm y=2*1mm z=0m rotation=Y90 s=0mm\n"
                         "%bcbend radius=2*1m angle=30deg phi=0 s=1500mm\n");
  EXPECT_EQ(err, "");
  ArcBCSegment *arc = dynamic_cast<ArcBCSegment *>(BeamlineCoordinates::segments[1]);
  ASSERT_NE(arc, nullptr);
  EXPECT_EQ(arc->s_min, 1.5);
  EXPECT_EQ(arc->radius, 2.0);
  EXPECT_NEAR(arc->angle, Pi / 6, 1e-15);
  Transform start = BeamlineCoordinates::getTransform(0);
  expectNear(start.origin(), 0.001, 0.002, 0);
  expectNear(start * Vector(0, 0, 1), 1, 0, 0, 1e-15);
}

TEST_F(BeamlineCoordinatesFileTest, bareNumbersInAUnitAreReported) {
  std::string err = load("%bcstart s=0\n");
  EXPECT_EQ(bannerMessages(err), "Units Conversion Error from (none) to m");
  EXPECT_EQ(BeamlineCoordinates::segments.size(), 1);
}

TEST_F(BeamlineCoordinatesFileTest, commentsBlankLinesAndUnknownCommandsAreIgnored) {
  std::string err = load("   # a comment after blanks\n"
                         "\n"
                         "\t\n"
                         "%bcstart s=0m\n"
                         "%bcfoo s=3m radius=1m\n"
                         "bcbend s=4m\n");
  EXPECT_EQ(err, "");
  EXPECT_EQ(BeamlineCoordinates::segments.size(), 1);
}

TEST_F(BeamlineCoordinatesFileTest, absentKeysEvaluateToZero) {
  std::string err = load("%bcstart\n%bcbend s=3m\n");
  EXPECT_EQ(err, "");
  // The bend without radius is a kink of angle 0 at s = 3; being the last segment it
  // runs on to 1e6 instead of being removed.
  ASSERT_EQ(BeamlineCoordinates::segments.size(), 2);
  EXPECT_EQ(BeamlineCoordinates::segments[1]->s_min, 3.0);
  expectNear(BeamlineCoordinates::getTransform(5).origin(), 0, 0, 5);
}

TEST_F(BeamlineCoordinatesFileTest, kinkTurnsThePathBeyondIt) {
  load("%bcstart s=0m\n%bcbend radius=0m angle=0.1rad s=3m\n");
  ASSERT_EQ(BeamlineCoordinates::segments.size(), 2);
  for (BCSegment *seg : BeamlineCoordinates::segments)
    EXPECT_GT(seg->s_max - seg->s_min, 0.0);
  Transform t = BeamlineCoordinates::getTransform(4);
  expectNear(t.origin(), sin(0.1), 0, 3 + cos(0.1));
  expectNear(t * Vector(0, 0, 1), sin(0.1), 0, cos(0.1));
}

TEST_F(BeamlineCoordinatesFileTest, negativeRadiusMakesAKinkWithoutMessage) {
  std::string err = load("%bcstart s=0m\n%bcbend radius=-1m angle=0.1rad s=3m\n");
  EXPECT_EQ(err, "");
  EXPECT_EQ(BeamlineCoordinates::segments.size(), 2);
}

TEST_F(BeamlineCoordinatesFileTest, phiTiltsTheBendTowardsY) {
  load("%bcstart s=0m\n%bcbend radius=2m angle=0.5rad phi=90 s=1m\n");
  Transform end = BeamlineCoordinates::getTransform(2);
  expectNear(end.origin(), 0, 2 * (1 - cos(0.5)), 1 + 2 * sin(0.5));
}

TEST_F(BeamlineCoordinatesFileTest, negativeAngleBendReportsTheOverlap) {
  writeFile(path("bc.txt"), "%bcstart s=0m\n%bcbend radius=2m angle=-0.5rad s=4m\n");
  std::string message;
  std::string err = stderrOf(
      [&] { message = thrown([&] { BeamlineCoordinates::initFromFile(path("bc.txt")); }); });
  EXPECT_EQ(message, "INTERNAL ERROR: Invalid overlap of Beamline Coordinate segments. "
                     "radius=2 angle=-0.5");
  // The straight after the arc starts at 3, before the arc: the arc is closed at 3.
  EXPECT_EQ(err, "ArcBCSegment Invalid Overlap\n"
                 "s_min=4.000000 s_max=1000000.00000 s_min+angle*radius=5.000000\n"
                 "segment[0]:     s_min=0.000000 s_max=3.000000 isSubdivide=F\n"
                 "             Transform: x=0 y=0 z=0\n"
                 "segment[1]:     s_min=3.000000 s_max=4.000000 isSubdivide=F\n"
                 "             Transform: x=0 y=0 z=3\n"
                 "segment[2]: arc s_min=4.000000 s_max=1000000.000000 isSubdivide=F\n"
                 "             Transform: x=0 y=0 z=4\n");
}

TEST_F(BeamlineCoordinatesFileTest, startAwayFromZeroIsAnInternalError) {
  writeFile(path("bc.txt"), "%bcstart s=5m\n");
  try {
    BeamlineCoordinates::initFromFile(path("bc.txt"));
    FAIL();
  } catch (const QString &e) {
    EXPECT_EQ(e, "INTERNAL ERROR: %bcstart not smallest value of s");
  }
}

TEST_F(BeamlineCoordinatesFileTest, unreadableFileIsReportedAndLeavesTheSystem) {
  std::string err = stderrOf([&] { BeamlineCoordinates::initFromFile(path("missing.txt")); });
  EXPECT_EQ(bannerMessages(err), "Cannot read '" + path("missing.txt").toStdString() + "'");
  EXPECT_TRUE(BeamlineCoordinates::segments.isEmpty());
  EXPECT_TRUE(BeamlineCoordinates::segmentPoints.isEmpty());
}

TEST_F(BeamlineCoordinatesFileTest, systemReadFromAFileIsNotWrittenBack) {
  load("%bcstart s=0m\n%bcbend radius=5m angle=0.5rad s=10m\n");
  std::string err = stderrOf([] { BeamlineCoordinates::write("-"); });
  EXPECT_EQ(err.find("%bc"), std::string::npos);
  EXPECT_EQ(err.substr(0, 11), "segment[0]:");
  BeamlineCoordinates::write(path("out.txt"));
  EXPECT_TRUE(fileExists(path("out.txt")));
  EXPECT_EQ(readFile(path("out.txt")), "");
}

TEST_F(BeamlineCoordinatesFileTest, writtenLinesReadBack) {
  load("%bcstart s=0m\n%bcbend radius=5m angle=0.5rad s=10m\n");
  BeamlineCoordinates::segments[0]->cmdline = "%bcstart x=0m y=0m z=0m";
  BeamlineCoordinates::segments[1]->cmdline = "%bcbend radius=5m angle=0.5rad phi=0";
  BeamlineCoordinates::write(path("out.txt"));
  EXPECT_EQ(readFile(path("out.txt")), "%bcstart x=0m y=0m z=0m s=0m\n"
                                       "%bcbend radius=5m angle=0.5rad phi=0 s=10m\n");
  reset();
  BeamlineCoordinates::initFromFile(path("out.txt"));
  ASSERT_EQ(BeamlineCoordinates::segments.size(), 3);
  EXPECT_EQ(BeamlineCoordinates::segments[1]->s_max, 12.5);
}

TEST_F(BeamlineCoordinatesFileTest, unwritableFileIsReported) {
  load("%bcstart s=0m\n");
  std::string err = stderrOf([&] { BeamlineCoordinates::write(dir.path()); });
  EXPECT_EQ(bannerMessages(err), "Cannot write '" + dir.path().toStdString() + "'");
  BeamlineCoordinates::sampleS.insert(1, 2);
  err = stderrOf([&] { BeamlineCoordinates::writeSampleS(dir.path()); });
  EXPECT_EQ(bannerMessages(err), "Cannot write '" + dir.path().toStdString() + "'");
}

TEST_F(BeamlineCoordinatesFileTest, sampleListIsWrittenInOrderOfS) {
  BeamlineCoordinates::sampleS.insert(1500, 100);
  BeamlineCoordinates::sampleS.insert(200, 50.5);
  BeamlineCoordinates::sampleS.insert(-3, 1.0 / 3);
  BeamlineCoordinates::sampleS.insert(7, 1e-7);
  BeamlineCoordinates::writeSampleS(path("sampleS.txt"));
  EXPECT_EQ(readFile(path("sampleS.txt")), "-3mm 0.333333mm\n"
                                           "7mm 1e-07mm\n"
                                           "200mm 50.5mm\n"
                                           "1500mm 100mm\n");
}

TEST_F(BeamlineCoordinatesFileTest, emptySampleListWritesNoFile) {
  BeamlineCoordinates::writeSampleS(path("sampleS.txt"));
  EXPECT_FALSE(fileExists(path("sampleS.txt")));
}

TEST_F(BeamlineCoordinatesFileTest, readReadsNothing) {
  EXPECT_FALSE(BeamlineCoordinates::read(path("anything")));
  EXPECT_TRUE(BeamlineCoordinates::segments.isEmpty());
}

TEST(CoordinatesFileDeathTest, onlyCommentsStopAtTheEmptyList) {
  QTemporaryDir dir;
  writeFile(dir.path() + "/bc.txt", "# nothing\n\n");
  EXPECT_DEATH(BeamlineCoordinates::initFromFile(dir.path() + "/bc.txt"), "index out of range");
}

} // namespace

namespace {

TEST_F(BeamlineCoordinatesFileTest, nanStartOfAnArcEndsWithoutEndlessDumps) {
  writeFile(path("bc.txt"), "%bcstart s=0m\n%bcbend radius=1m angle=1rad s=0/0m\n");
  std::string message;
  std::string err = stderrOf(
      [&] { message = thrown([&] { BeamlineCoordinates::initFromFile(path("bc.txt")); }); });
  EXPECT_EQ(message, "INTERNAL ERROR: No BCSegment for s=nan");
  EXPECT_EQ(bannerMessages(err),
            "Units Conversion Error from m to |Units Conversion Error from (none) to m");
  EXPECT_NE(err.find("ArcBCSegment Invalid Overlap\n"), std::string::npos);
}

} // namespace
