//===- RunTest.cpp - Whole runs of twiss in a temporary directory ----------===//

#include "RunDirectoryTest.h"

#include <QDir>
#include <csignal>
#include <gtest/gtest.h>

namespace {

/// What -d prints before the tracks for a straight beamline and a plane at 1000 mm
/// with a radius cut of 100 mm.
const std::string StraightDebugHead =
    "Be3amline Coordinates:\n"
    "segment[0]:     s_min=0.000000 s_max=1000000.000000 isSubdivide=F\n"
    "             Transform: x=0 y=0 z=0\n"
    "\n"
    "twiss: %bcsample 1000mm\n"
    "            point=0.000mm,0.000mm,1000.000mm normal=0.0000,0.0000,1.0000\n"
    "            radiusCut=100.000mm rotation=\n";

const std::string NoCoordinatesBanner = "***************************************************\n"
                                        "*                                                 *\n"
                                        "*                translator error                 *\n"
                                        "* Cannot read 'beamlineCoordinates.txt'\n"
                                        "*                                                 *\n"
                                        "***************************************************\n";

class RunTest : public RunDirectoryTest {};

TEST_F(RunTest, emptyDirectory) {
  expectRun("twiss: no sampleS.txt file\n", NoCoordinatesBanner, 1);
  EXPECT_FALSE(hasReport());
}

TEST_F(RunTest, cutArgumentsAreReportedOnceEach) {
  expectRun("UNIMPLEMENTED: cut in twiss\n"
            "UNIMPLEMENTED: cut in twiss\n"
            "twiss: no sampleS.txt file\n",
            NoCoordinatesBanner, 1, {"cut=a", "cut=b", "nocut=c"});
}

TEST_F(RunTest, summaryCountsOnlyAsTheFirstArgument) {
  expectRun("twiss: no sampleS.txt file\n", NoCoordinatesBanner, 1, {"x", "--summary"});
}

TEST_F(RunTest, debugOptionInSecondPlaceIsIgnored) {
  write("beamlineCoordinates.txt", Straight);
  expectRun("twiss: no sampleS.txt file\n", "", 1, {"x", "-d"});
}

TEST_F(RunTest, debugDumpsTheCoordinateSystem) {
  write("beamlineCoordinates.txt", "%bcstart s=0m\n%bcbend radius=2m angle=30deg phi=0 s=1m\n");
  expectRun("twiss: no sampleS.txt file\n",
            "Be3amline Coordinates:\n"
            "segment[0]:     s_min=0.000000 s_max=1.000000 isSubdivide=F\n"
            "             Transform: x=0 y=0 z=0\n"
            "segment[1]: arc s_min=1.000000 s_max=2.047198 isSubdivide=F\n"
            "             Transform: x=0 y=0 z=1\n"
            "segment[2]:     s_min=2.047198 s_max=1000000.000000 isSubdivide=F\n"
            "             Transform: x=0.267949192431 y=0 z=2 "
            "rotation=A0.000000,1.000000,0.000000,30.000000\n"
            "\n",
            1, {"-d"});
}

TEST_F(RunTest, sampleFileWithOnlyCommentsHasNoPlanes) {
  writeStraightRun("# first\n  # second\n");
  expectRun("twiss: no s values\n", "", 1);
}

TEST_F(RunTest, blankSampleLineIsAPlaneAtZero) {
  writeStraightRun("# comment\n\n");
  expectRun("twiss: 1 samples in s\ntwiss error: Cannot open 'AllTracks.txt'\n",
            "twiss: %bcsample 0mm\n", 1);
  EXPECT_FALSE(hasReport());
}

TEST_F(RunTest, trackFileWithoutValidLinesStillWritesTheReport) {
  writeStraightRun("1000mm 100mm\n2000mm 100mm\n");
  write("AllTracks.txt", "# x y z Px Py Pz t PDGid EventID TrackID Parent Weight\n\n"
                         "1 2 3\nnot a number at all\n");
  ToolRun r = run({"-d"});
  EXPECT_EQ(r.out, "twiss: 2 samples in s\n");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(report(), emptyReport(1000) + emptyReport(2000));
  EXPECT_EQ(r.err.find("BCSample::track"), std::string::npos); // no track events
}

TEST_F(RunTest, badLinesAreSkippedAndTheTrackGoesOn) {
  writeStraightRun("1000mm 100mm\n");
  write("AllTracks.txt", "  # comment\n"
                         "1 0 900 0 0 1 0 11 1 1 0 1\n"
                         "\n"
                         "1 0 950 0 0 1 0 11 1 1 0\n"            // eleven fields
                         "1 0 960 0 0 1 zero 11 1 1 0 1\n"       // a word
                         "3 4 1100 0 0 1 0 11 1 1 0 1 extra\n"); // trailing field
  expectReport("meanX_1000=2mm\nsigmaX_1000=0mm\nmeanY_1000=2mm\nsigmaY_1000=0mm\n"
               "entries_1000=1\n");
}

TEST_F(RunTest, interleavedTracksAreManyShortTracks) {
  writeStraightRun("1000mm 100mm\n");
  write("AllTracks.txt", "0 0 900 0 0 1 0 11 1 1 0 0\n"
                         "0 0 950 0 0 1 0 11 1 2 0 0\n"
                         "0 0 1100 0 0 1 0 11 1 1 0 0\n"
                         "0 0 1150 0 0 1 0 11 1 2 0 0\n");
  ToolRun r = run({"-d"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(report(), emptyReport(1000));
  EXPECT_EQ(r.err, StraightDebugHead + "BCSample::trackBegin EventID=1 TrackID=1\n"
                                       "BCSample::trackEnd EventID=1 TrackID=1\n"
                                       "BCSample::trackBegin EventID=1 TrackID=2\n"
                                       "BCSample::trackEnd EventID=1 TrackID=2\n"
                                       "BCSample::trackBegin EventID=1 TrackID=1\n"
                                       "BCSample::trackEnd EventID=1 TrackID=1\n"
                                       "BCSample::trackBegin EventID=1 TrackID=2\n"
                                       "BCSample::trackEnd EventID=1 TrackID=2\n");
}

TEST_F(RunTest, eventMinus9999IsNeverEnded) {
  writeStraightRun("1000mm 100mm\n");
  write("AllTracks.txt", "0 0 900 0 0 1 0 11 -9999 5 0 0\n"
                         "0 0 1100 0 0 1 0 11 -9999 5 0 0\n"
                         "0 0 900 0 0 1 0 11 2 5 0 0\n");
  ToolRun r = run({"-d"});
  EXPECT_EQ(r.status, 0);
  std::string tail = r.err.substr(r.err.find("BCSample::track"));
  EXPECT_EQ(tail, "BCSample::trackBegin EventID=-9999 TrackID=5\n"
                  "BCSample::calculate s=1000 pos=0.000,0.000,0.000 mom=0.000,0.000,1.000\n"
                  "BCSample::trackBegin EventID=2 TrackID=5\n"
                  "BCSample::trackEnd EventID=2 TrackID=5\n");
}

TEST_F(RunTest, nanCoordinateCrossesNothing) {
  writeStraightRun("1000mm 100mm\n");
  write("AllTracks.txt", "0 0 900 0 0 1 0 11 1 1 0 0\n"
                         "nan 0 1100 0 0 1 0 11 1 1 0 0\n"
                         "0 0 900 0 0 1 0 11 1 2 0 0\n"
                         "0 0 1100 0 0 1 0 11 1 2 0 0\n");
  // The crossing with a NaN x is accepted by neither the radius cut nor the sums.
  expectReport("meanX_1000=0mm\nsigmaX_1000=0mm\nmeanY_1000=0mm\nsigmaY_1000=0mm\n"
               "entries_1000=1\n");
}

TEST_F(RunTest, twoPlanesWithDebug) {
  writeStraightRun("1000mm 100mm\n2000mm 50mm bothDirections=true\n");
  write("AllTracks.txt", "1 2 900 0.1 0.2 10 0 11 7 3 0 0\n"
                         "3 4 1100 0.1 0.2 10 1 11 7 3 0 0\n"
                         "3 4 2100 0.1 0.2 10 2 11 7 3 0 0\n"
                         "5 4 1900 0.1 0.2 -10 3 11 7 3 0 0\n");
  ToolRun r = run({"-d"});
  EXPECT_EQ(r.out, "twiss: 2 samples in s\n");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, StraightDebugHead +
                       "twiss: %bcsample 2000mm\n"
                       "            point=0.000mm,0.000mm,2000.000mm normal=0.0000,0.0000,1.0000\n"
                       "            radiusCut=50.000mm rotation=\n"
                       "BCSample::trackBegin EventID=7 TrackID=3\n"
                       "BCSample::calculate s=1000 pos=2.000,3.000,0.000 mom=0.100,0.200,10.000\n"
                       "BCSample::calculate s=2000 pos=3.000,4.000,0.000 mom=0.100,0.200,10.000\n"
                       "BCSample::calculate s=2000 pos=4.000,4.000,0.000 mom=0.100,0.200,0.000\n"
                       "BCSample::trackEnd EventID=7 TrackID=3\n");
  EXPECT_EQ(report(), "meanX_1000=2mm\nsigmaX_1000=0mm\nmeanY_1000=3mm\nsigmaY_1000=0mm\n"
                      "entries_1000=1\n"
                      "meanX_2000=3.5mm\nsigmaX_2000=0.5mm\nmeanY_2000=4mm\nsigmaY_2000=0mm\n"
                      "entries_2000=2\n");
}

TEST_F(RunTest, negativeSEndsAbnormallyWithoutReport) {
  writeStraightRun("-2mm 1mm\n");
  write("AllTracks.txt", "");
  ToolRun r = run();
  EXPECT_EQ(r.signal, SIGABRT);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err.rfind("INTERNAL ERROR: No BCSegment for s=-0.001\n"
                        "segment[0]:     s_min=0.000000 s_max=1000000.000000 isSubdivide=F\n"
                        "             Transform: x=0 y=0 z=0\n"
                        "terminate called after throwing an instance of 'QString'\n",
                        0),
            0u);
  EXPECT_FALSE(hasReport());
}

TEST_F(RunTest, unwritableReportEndsWithStatusOne) {
  writeStraightRun("1000mm 100mm\n");
  write("AllTracks.txt", "");
  QDir(dir.path()).mkdir("twiss.calc.txt");
  ToolRun r = run();
  EXPECT_EQ(r.out, "twiss: 1 samples in s\ntwiss error: Cannot write 'twiss.calc.txt'\n");
  EXPECT_EQ(r.status, 1);
}

TEST_F(RunTest, reportReplacesAnEarlierOne) {
  writeStraightRun("1000mm 100mm\n");
  write("AllTracks.txt", "");
  write("twiss.calc.txt", "an old report that is longer than the new one\n"
                          "...................................................\n"
                          "...................................................\n");
  EXPECT_EQ(run().status, 0);
  EXPECT_EQ(report(), emptyReport(1000));
}

TEST_F(RunTest, samePlaneTwiceWritesBothBlocks) {
  writeStraightRun("1000mm 100mm\n1000.2mm 10mm\n");
  write("AllTracks.txt", "");
  EXPECT_EQ(run().status, 0);
  EXPECT_EQ(report(), emptyReport(1000) + emptyReport(1000));
}

} // namespace
