//===- ReferenceRunTest.cpp - twiss against the straightforward track loop -===//
//
// Generated run directories are analysed twice: by twiss and by twiss-reference,
// which reads every line through a text stream and offers every step to every plane
// on one thread. Standard output, standard error, exit status and report must agree
// byte for byte, with few planes (one thread tests them) and with many (two do).
//
//===----------------------------------------------------------------------------===//

#include "TestSupport.h"

#include <QRegularExpression>
#include <gtest/gtest.h>

namespace {

struct Case {
  const char *name;
  QStringList options; ///< for make-run
};

void PrintTo(const Case &c, std::ostream *os) {
  *os << c.name;
}

class ReferenceRunTest : public ::testing::TestWithParam<Case> {
protected:
  QTemporaryDir dir;
  std::string report() { return readFile(dir.path() + "/twiss.calc.txt"); }
};

TEST_P(ReferenceRunTest, sameOutputAsEveryPlaneTestedOnOneThread) {
  ToolRun made =
      runCommand(dir.path(), QStringList{MAKE_RUN_BINARY, dir.path(), "--megabytes", "2",
                                         "--general", "--digits", "12", "--misses", "5"} +
                                 GetParam().options);
  ASSERT_EQ(made.status, 0) << made.err;
  // Two threads whatever the machine has: with many planes they split the planes.
  RunSettings twoThreads;
  twoThreads.environment << "TWISS_THREADS=2";
  ToolRun twiss = runTool(dir.path(), {}, twoThreads);
  std::string twissReport = report();
  ToolRun reference = runCommand(dir.path(), {REFERENCE_BINARY});
  EXPECT_EQ(twiss.status, 0);
  EXPECT_EQ(twiss.status, reference.status);
  EXPECT_EQ(twiss.out, reference.out);
  EXPECT_EQ(twiss.err, reference.err);
  EXPECT_EQ(twissReport, report());
  // Most planes see the beam: the comparison is not one of empty reports.
  QString text = QString::fromStdString(twissReport);
  int planes = int(text.count("entries_"));
  int empty = int(text.count(QRegularExpression("entries_\\d+=0\\n")));
  EXPECT_GT(planes, 0);
  EXPECT_LT(empty, planes / 4);
}

INSTANTIATE_TEST_SUITE_P(
    GeneratedRuns, ReferenceRunTest,
    ::testing::Values(Case{"straightTenPlanes", {"--straight", "--planes", "10"}},
                      Case{"straightThreeHundredPlanes", {"--straight", "--planes", "300"}},
                      Case{"bentThreeHundredPlanes", {"--planes", "300", "--seed", "2"}},
                      Case{"bentTwoThousandPlanesShortSteps",
                           {"--planes", "2000", "--step", "7", "--seed", "3"}}),
    [](const ::testing::TestParamInfo<Case> &info) { return std::string(info.param.name); });

} // namespace
