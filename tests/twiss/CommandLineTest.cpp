//===- CommandLineTest.cpp - The twiss command line, run as a child process ===//

#include "TestSupport.h"

#include <QDir>
#include <gtest/gtest.h>

namespace {

const char *const Descriptor = "name=twiss\n"
                               "inputFiles=AllTracks.txt,sampleS.txt\n"
                               "cutVars=x,y,z,Px,Py,Pz,t,PDGid\n"
                               "description=Computes Twiss variables at values of s.\n";

class CommandLineTest : public ::testing::Test {
protected:
  QTemporaryDir dir;
  ToolRun run(const QStringList &args) { return runTool(dir.path(), args); }
};

TEST_F(CommandLineTest, summaryPrintsTheDescriptor) {
  ToolRun r = run({"--summary"});
  EXPECT_EQ(r.out, Descriptor);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.status, 0);
}

TEST_F(CommandLineTest, debugThenSummaryPrintsTheDescriptor) {
  ToolRun r = run({"-d", "--summary"});
  EXPECT_EQ(r.out, Descriptor);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.status, 0);
}

TEST_F(CommandLineTest, summaryThenDebugPrintsTheDescriptor) {
  ToolRun r = run({"--summary", "-d"});
  EXPECT_EQ(r.out, Descriptor);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.status, 0);
}

TEST_F(CommandLineTest, summaryNeedsNoInputFileAndWritesNone) {
  run({"--summary"});
  EXPECT_TRUE(QDir(dir.path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries).isEmpty());
}
TEST_F(CommandLineTest, onlyExactlyDashDIsTheDebugOption) {
  writeFile(dir.path() + "/beamlineCoordinates.txt", "%bcstart s=0m\n");
  writeFile(dir.path() + "/sampleS.txt", "1000mm 100mm\n");
  writeFile(dir.path() + "/AllTracks.txt", "0 0 0 0 0 1 0 11 1 1 0 1\n");
  const std::string quiet = "twiss: %bcsample 1000mm\n";
  ToolRun debug = run({"-d"});
  EXPECT_EQ(debug.status, 0);
  EXPECT_NE(debug.err.find("BCSample::trackBegin EventID=1 TrackID=1\n"), std::string::npos);
  for (const char *lookalike : {"-dx", "--d", "-D", "d", "-d ", " -d", "-"}) {
    ToolRun r = run({lookalike});
    EXPECT_EQ(r.err, quiet) << lookalike;
    EXPECT_EQ(r.out, "twiss: 1 samples in s\n") << lookalike;
    EXPECT_EQ(r.status, 0) << lookalike;
  }
}

TEST_F(CommandLineTest, onlyExactlySummaryPrintsTheDescriptor) {
  for (const char *lookalike : {"--summar", "--summaryx", "-summary", "--Summary", "summary"}) {
    ToolRun r = run({lookalike});
    EXPECT_EQ(r.out, "twiss: no sampleS.txt file\n") << lookalike;
    EXPECT_EQ(r.status, 1) << lookalike;
  }
}

} // namespace
