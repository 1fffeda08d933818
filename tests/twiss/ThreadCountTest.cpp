//===- ThreadCountTest.cpp - How many threads a run uses -------------------===//

#include "ThreadCount.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <sched.h>

namespace {

TEST(ThreadCountTest, wholeNumbersFromOneAreCounts) {
  EXPECT_EQ(parseThreadCount("1"), 1);
  EXPECT_EQ(parseThreadCount("7"), 7);
  EXPECT_EQ(parseThreadCount("064"), 64);
  EXPECT_EQ(parseThreadCount("63"), 63);
}

TEST(ThreadCountTest, countsAboveTheMostAreTheMost) {
  EXPECT_EQ(parseThreadCount("65"), MaxThreads);
  EXPECT_EQ(parseThreadCount("99999999999999999999999"), MaxThreads);
}

TEST(ThreadCountTest, anythingElseIsNoCount) {
  for (const char *text : {"", "0", "00", "-1", "+2", " 2", "2 ", "2.0", "two", "0x10", "1e1"})
    EXPECT_EQ(parseThreadCount(text), 0) << text;
  EXPECT_EQ(parseThreadCount(nullptr), 0);
}

class ThreadCountEnvironmentTest : public ::testing::Test {
protected:
  cpu_set_t saved;
  void SetUp() override { ASSERT_EQ(sched_getaffinity(0, sizeof saved, &saved), 0); }
  void TearDown() override {
    unsetenv("TWISS_THREADS");
    sched_setaffinity(0, sizeof saved, &saved);
  }
  /// Confines the calling thread to its first allowed processor.
  void confineToOneProcessor() {
    cpu_set_t one;
    CPU_ZERO(&one);
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu)
      if (CPU_ISSET(cpu, &saved)) {
        CPU_SET(cpu, &one);
        break;
      }
    ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
  }
};

TEST_F(ThreadCountEnvironmentTest, followsTheAffinityMask) {
  unsetenv("TWISS_THREADS");
  EXPECT_EQ(threadCount(), std::min(CPU_COUNT(&saved), MaxThreads));
  confineToOneProcessor();
  EXPECT_EQ(threadCount(), 1);
}

TEST_F(ThreadCountEnvironmentTest, environmentOverridesTheMask) {
  confineToOneProcessor();
  setenv("TWISS_THREADS", "12", 1);
  EXPECT_EQ(threadCount(), 12);
  setenv("TWISS_THREADS", "0", 1);
  EXPECT_EQ(threadCount(), 1);
  setenv("TWISS_THREADS", "many", 1);
  EXPECT_EQ(threadCount(), 1);
}

} // namespace
