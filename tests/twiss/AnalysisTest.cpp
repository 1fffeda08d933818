//===- AnalysisTest.cpp - The phases of a run, in the process -------------===//

#include "Analysis.h"

#include "BeamlineFixture.h"
#include "Console.h"
#include "TestSupport.h"

#include <QDir>
#include <QTemporaryDir>
#include <unistd.h>

using namespace Nexil;

namespace {

/// Runs each test in a directory of its own, on a straight path along z.
class AnalysisTest : public BeamlineFixture {
protected:
  QTemporaryDir dir;
  QString previousDirectory = QDir::currentPath();

  void SetUp() override {
    BeamlineFixture::SetUp();
    BeamlineCoordinates::addSegment(new StartBCSegment(0, Transform()));
    BeamlineCoordinates::scan(nullptr, ArgHash());
    ASSERT_TRUE(QDir::setCurrent(dir.path()));
  }
  void TearDown() override {
    QDir::setCurrent(previousDirectory);
    qDeleteAll(BCSample::samples);
    BCSample::samples.clear();
    BCSample::firstStep = true;
    BeamlineFixture::TearDown();
  }
  /// The track events that feedTracks sends for the steps, as their debug lines
  /// name them ("begin 1 2" for event 1, track 2), and the number of steps fed.
  QStringList trackEvents(const std::string &tracks) {
    writeFile("AllTracks.txt", tracks);
    TrackReader reader("AllTracks.txt", TrackReader::Blocks, 1);
    int steps = 0;
    Debug = true;
    QString lines =
        QString::fromStdString(stderrOf([&] { feedTracks(reader, [&](Step &) { ++steps; }); }));
    Debug = false;
    lines.replace("BCSample::trackBegin EventID=", "begin ")
        .replace("BCSample::trackEnd EventID=", "end ")
        .replace(" TrackID=", " ");
    QStringList events = lines.split('\n', Qt::SkipEmptyParts);
    events << QString("%1 steps").arg(steps);
    return events;
  }
};

TEST_F(AnalysisTest, withoutAPlaneFileNothingIsRead) {
  bool read = true;
  EXPECT_EQ(stdoutOf([&] { read = readPlanes(); }), "twiss: no sampleS.txt file\n");
  EXPECT_FALSE(read);
}

TEST_F(AnalysisTest, onlyCommentsMeansNoPlanes) {
  writeFile("sampleS.txt", "# s radius\n#1000mm 10mm\n");
  bool read = true;
  EXPECT_EQ(stdoutOf([&] { read = readPlanes(); }), "twiss: no s values\n");
  EXPECT_FALSE(read);
}

TEST_F(AnalysisTest, everyLineButCommentsIsAPlaneBlankOnesAtZero) {
  writeFile("sampleS.txt", "1000mm 10mm\n\n# a comment\n  2m   5mm  \n");
  bool read = false;
  std::string out;
  stderrOf([&] { out = stdoutOf([&] { read = readPlanes(); }); });
  EXPECT_EQ(out, "twiss: 3 samples in s\n");
  ASSERT_TRUE(read);
  ASSERT_EQ(BCSample::samples.size(), 3);
  EXPECT_EQ(BCSample::samples[0]->s, 1000);
  EXPECT_EQ(BCSample::samples[1]->s, 0);
  EXPECT_EQ(BCSample::samples[1]->radiusCut, 0.0);
  EXPECT_EQ(BCSample::samples[2]->s, 2000);
  EXPECT_EQ(BCSample::samples[2]->radiusCut, 5.0);
}

TEST_F(AnalysisTest, withoutATrackFileTheLoopEnds) {
  stderrOf([] { new BCSample("1000mm 100mm"); });
  bool ran = true;
  EXPECT_EQ(stdoutOf([&] { ran = runTrackLoop(); }), "twiss error: Cannot open 'AllTracks.txt'\n");
  EXPECT_FALSE(ran);
}

TEST_F(AnalysisTest, tracksEndWhereTheEventOrTrackNumberChanges) {
  EXPECT_EQ(trackEvents("0 0 1 0 0 1 0 11 1 1 0 1\n"
                        "0 0 2 0 0 1 0 11 1 1 0 1\n"
                        "0 0 3 0 0 1 0 11 1 2 1 1\n"
                        "0 0 4 0 0 1 0 11 2 2 0 1\n"
                        "0 0 5 0 0 1 0 11 2 2 0 1\n"),
            QStringList({"begin 1 1", "end 1 1", "begin 1 2", "end 1 2", "begin 2 2", "end 2 2",
                         "5 steps"}));
}

TEST_F(AnalysisTest, noTrackEventsWithoutSteps) {
  EXPECT_EQ(trackEvents(""), QStringList({"0 steps"}));
}

TEST_F(AnalysisTest, aTrackOfEventMinus9999IsNeverEnded) {
  // -9999 is the mark of "no track open": such a track is begun but not ended.
  EXPECT_EQ(trackEvents("0 0 1 0 0 1 0 11 -9999 5 0 1\n"
                        "0 0 2 0 0 1 0 11 3 1 0 1\n"),
            QStringList({"begin -9999 5", "begin 3 1", "end 3 1", "2 steps"}));
}

TEST_F(AnalysisTest, theReportHoldsEveryPlaneInOrder) {
  BCSample *first = nullptr, *second = nullptr;
  stderrOf([&] {
    first = new BCSample("2000mm 100mm");
    second = new BCSample("1000mm 100mm");
  });
  writeFile("twiss.calc.txt", "an earlier report, longer than the new one............\n"
                              "..............................................................\n"
                              "..............................................................\n");
  ASSERT_TRUE(writeReport());
  std::string expected = (first->result() + second->result()).toStdString();
  EXPECT_EQ(readFile("twiss.calc.txt"), expected);
  EXPECT_EQ(expected.substr(0, 18), "meanX_2000=0mm\nsig");
  EXPECT_EQ(QDir(".").entryList(QDir::Files), QStringList({"twiss.calc.txt"}));
}

TEST_F(AnalysisTest, aReportThatCannotBeWrittenEndsTheRun) {
  stderrOf([] { new BCSample("1000mm 100mm"); });
  ASSERT_TRUE(QDir(".").mkdir("twiss.calc.txt"));
  bool written = true;
  EXPECT_EQ(stdoutOf([&] { written = writeReport(); }),
            "twiss error: Cannot write 'twiss.calc.txt'\n");
  EXPECT_FALSE(written);
}

} // namespace
