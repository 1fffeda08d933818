//===- ThreadedRunTest.cpp - The same bytes on any number of threads -------===//
//
// Generated run directories are analysed by both tools with TWISS_THREADS from 1 to
// 64: report, standard output, standard error and exit status must not change by a
// byte. A preloaded counter tells how many threads a run started.
//
//===----------------------------------------------------------------------------===//

#include "TestSupport.h"

#include <QRegularExpression>
#include <gtest/gtest.h>

namespace {

const int ThreadCounts[] = {1, 2, 3, 4, 7, 16, 64};

struct Case {
  const char *name;
  QStringList options;    ///< for make-run
  std::string planes;     ///< sampleS.txt instead of make-run's, when not empty
  QStringList twissExtra; ///< twiss's arguments
};

void PrintTo(const Case &c, std::ostream *os) {
  *os << c.name;
}

/// Planes in pairs at the same s, every third counting both directions.
std::string pairedPlanes(int pairs) {
  std::string text;
  for (int i = 0; i < pairs; ++i)
    for (int k = 0; k < 2; ++k)
      text += QString::asprintf("%dmm %dmm%s\n", 100 + i * 6800 / pairs, 40 + 30 * k,
                                (2 * i + k) % 3 == 0 ? " bothDirections=true" : "")
                  .toStdString();
  return text;
}

struct Outputs {
  ToolRun run;
  std::string files;
};

class ThreadedRunTest : public ::testing::TestWithParam<Case> {
protected:
  QTemporaryDir dir;

  void SetUp() override {
    ToolRun made = runCommand(dir.path(), QStringList{MAKE_RUN_BINARY, dir.path(), "--megabytes",
                                                      "1", "--digits", "12", "--misses", "5"} +
                                              GetParam().options);
    ASSERT_EQ(made.status, 0) << made.err;
    if (!GetParam().planes.empty())
      writeFile(dir.path() + "/sampleS.txt", GetParam().planes);
  }

  RunSettings threads(int count) {
    RunSettings settings;
    settings.environment << QString("TWISS_THREADS=%1").arg(count);
    return settings;
  }

  Outputs twiss(int count) {
    Outputs o{runTool(dir.path(), GetParam().twissExtra, threads(count)), ""};
    o.files = readFile(dir.path() + "/twiss.calc.txt");
    return o;
  }

  Outputs optics(int count) {
    Outputs o{runOpticsTool(dir.path(), {"-o", "optics.csv"}, threads(count)), ""};
    // The summary's time and speed are the only words that may change.
    o.run.err = QString::fromStdString(o.run.err)
                    .replace(QRegularExpression("; [0-9.]+ s, [0-9]+ MB/s\n$"), "\n")
                    .toStdString();
    o.files = readFile(dir.path() + "/optics.csv") + readFile(dir.path() + "/optics.json");
    return o;
  }

  void expectSame(const Outputs &one, const Outputs &many, int count) {
    EXPECT_EQ(one.run.status, 0);
    EXPECT_EQ(many.run.status, one.run.status) << count << " threads";
    EXPECT_EQ(many.run.out, one.run.out) << count << " threads";
    EXPECT_EQ(many.run.err, one.run.err) << count << " threads";
    EXPECT_EQ(many.files, one.files) << count << " threads";
  }
};

TEST_P(ThreadedRunTest, twissWritesTheSameBytesOnAnyNumberOfThreads) {
  Outputs one = twiss(1);
  ASSERT_NE(one.files.find("entries_"), std::string::npos);
  for (int count : ThreadCounts)
    expectSame(one, twiss(count), count);
}

TEST_P(ThreadedRunTest, opticsWritesTheSameBytesOnAnyNumberOfThreads) {
  Outputs one = optics(1);
  ASSERT_GT(one.files.size(), 1000u);
  ASSERT_NE(one.run.err.find(" planes\n"), std::string::npos) << one.run.err;
  for (int count : ThreadCounts)
    expectSame(one, optics(count), count);
}

INSTANTIATE_TEST_SUITE_P(
    GeneratedRuns, ThreadedRunTest,
    ::testing::Values(
        Case{"straightTenPlanes", {"--straight", "--planes", "10"}, "", {}},
        Case{"straightTenPlanesDebug", {"--straight", "--planes", "10"}, "", {"-d"}},
        Case{"bentThreeHundredPlanes", {"--planes", "300", "--seed", "2"}, "", {}},
        Case{"bentThreeHundredPlanesDebug", {"--planes", "300", "--seed", "4"}, "", {"-d"}},
        Case{"bentTwoThousandPlanes", {"--planes", "2000", "--step", "7", "--seed", "3"}, "", {}},
        Case{"pairedPlanesBothDirections", {"--seed", "5"}, pairedPlanes(150), {}}),
    [](const ::testing::TestParamInfo<Case> &info) { return std::string(info.param.name); });

/// The threads a twiss run starts, counted by the preloaded counter.
class ThreadUseTest : public ::testing::Test {
protected:
  QTemporaryDir dir;

  void SetUp() override {
    ToolRun made = runCommand(dir.path(), {MAKE_RUN_BINARY, dir.path(), "--megabytes", "1",
                                           "--planes", "100", "--straight"});
    ASSERT_EQ(made.status, 0) << made.err;
  }

  int threadsStarted(QStringList command, const QStringList &environment) {
    RunSettings settings;
    settings.environment = environment;
    settings.environment << "LD_PRELOAD=" THREAD_COUNTER
                         << "THREAD_COUNT_FILE=" + dir.path() + "/threads"
                         << "ASAN_OPTIONS=detect_leaks=0:verify_asan_link_order=0";
    command << TWISS_BINARY;
    ToolRun run = runCommand(dir.path(), command, settings);
    EXPECT_EQ(run.status, 0) << run.err;
    return std::stoi(readFile(dir.path() + "/threads"));
  }
};

TEST_F(ThreadUseTest, oneCoreOfTheAffinityMaskMeansOneThread) {
  EXPECT_EQ(threadsStarted({"taskset", "-c", "0"}, {}), 0);
}

TEST_F(ThreadUseTest, environmentOverridesTheAffinityMask) {
  // One thread converts the lines (one processor); the caller and two helpers test the
  // 100 planes.
  EXPECT_EQ(threadsStarted({"taskset", "-c", "0"}, {"TWISS_THREADS=3"}), 3);
  EXPECT_EQ(threadsStarted({"taskset", "-c", "0"}, {"TWISS_THREADS=1"}), 0);
  EXPECT_EQ(threadsStarted({}, {"TWISS_THREADS=1"}), 0);
}

TEST_F(ThreadUseTest, invalidCountsAreIgnored) {
  for (const char *text : {"TWISS_THREADS=0", "TWISS_THREADS=two", "TWISS_THREADS=-2",
                           "TWISS_THREADS=", "TWISS_THREADS=3 "})
    EXPECT_EQ(threadsStarted({"taskset", "-c", "0"}, {text}), 0) << text;
}

TEST_F(ThreadUseTest, noMoreThreadsThanTheyCanUse) {
  // Sixty-four threads at the most: one converts the lines (one processor), and the 100
  // planes make eight groups (the fewest), tested by the caller and seven helpers.
  EXPECT_EQ(threadsStarted({"taskset", "-c", "0"}, {"TWISS_THREADS=1000"}), 8);
  EXPECT_EQ(threadsStarted({"taskset", "-c", "0"}, {"TWISS_THREADS=64"}), 8);
}

} // namespace
