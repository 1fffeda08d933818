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
} // namespace
