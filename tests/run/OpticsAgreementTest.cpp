//===- OpticsAgreementTest.cpp - twiss-optics and twiss see the same beam ---===//
//
// For every particle and unit weights, the optics tool's mean and width of x and y at
// each plane are those of twiss's sums, to 1e-9, and its count is twiss's entries.
// Both run in this process: twiss's planes through the broadcast to every plane, the
// optics tool's through the shared engine, split over two threads with many planes.
//
//===----------------------------------------------------------------------------===//

#include "Analysis.h"
#include "BeamlineFixture.h"
#include "RunInput.h"
#include "TestSupport.h"
#include "TrackAnalysis.h"

#include <QFile>
#include <QTextStream>
#include <cmath>

namespace {

class OpticsAgreementTest : public BeamlineFixture {
protected:
  void TearDown() override {
    qDeleteAll(BCSample::samples);
    BCSample::samples.clear();
    BeamlineFixture::TearDown();
  }

  void expectAgreement(const QString &directory) {
    readCoordinates(directory + "/beamlineCoordinates.txt", false);
    QList<PlaneLine> lines = readPlaneLines(directory + "/sampleS.txt", false);
    std::vector<std::unique_ptr<BCSample>> exact = placePlanes(lines, "sampleS.txt");
    QList<BCSample *> planes;
    for (auto &plane : exact)
      planes.append(plane.get());
    std::vector<PlaneStatistics> statistics(exact.size());
    Selection unweighted;
    unweighted.weighted = false;
    analyseTracks({directory + "/AllTracks.txt"}, planes, statistics, unweighted, false, 2);

    // twiss's planes, from the same lines, fed every step.
    stderrOf([&] {
      QFile file(directory + "/sampleS.txt");
      ASSERT_TRUE(file.open(QIODevice::ReadOnly | QIODevice::Text));
      QTextStream in(&file);
      while (!in.atEnd()) {
        QString line = in.readLine().simplified();
        if (!line.startsWith("#"))
          new BCSample(line);
      }
    });
    TrackReader reader(directory + "/AllTracks.txt");
    feedTracks(reader, [](Step &step) { BCSample::trackStep(step); });

    ASSERT_EQ(BCSample::samples.size(), qsizetype(statistics.size()));
    long crossings = 0;
    for (size_t i = 0; i < statistics.size(); ++i) {
      const Twiss &twiss = BCSample::samples[qsizetype(i)]->statistics;
      const PlaneStatistics &optics = statistics[i];
      ASSERT_EQ(optics.n, twiss.entries) << "plane " << i;
      crossings += optics.n;
      if (twiss.entries == 0)
        continue;
      double meanX = twiss.sumX / twiss.entries, meanY = twiss.sumY / twiss.entries;
      double sigmaX = std::sqrt(twiss.sumX2 / twiss.entries - meanX * meanX);
      double sigmaY = std::sqrt(twiss.sumY2 / twiss.entries - meanY * meanY);
      double scale = sigmaX + std::fabs(meanX);
      EXPECT_NEAR(optics.horizontal().mean(0), meanX, 1e-9 * scale) << "plane " << i;
      EXPECT_NEAR(optics.vertical().mean(0), meanY, 1e-9 * (sigmaY + std::fabs(meanY)));
      EXPECT_NEAR(std::sqrt(optics.horizontal().covariance(0, 0)), sigmaX, 1e-9 * sigmaX);
      EXPECT_NEAR(std::sqrt(optics.vertical().covariance(0, 0)), sigmaY, 1e-9 * sigmaY);
    }
    EXPECT_GT(crossings, 0);
  }

  void expectAgreementOnGeneratedRun(const QStringList &options) {
    QTemporaryDir dir;
    ToolRun made = runCommand(
        dir.path(), QStringList{MAKE_RUN_BINARY, dir.path(), "--particles", "300"} + options);
    ASSERT_EQ(made.status, 0) << made.err;
    expectAgreement(dir.path());
  }
};

TEST_F(OpticsAgreementTest, bundledExample) {
  expectAgreement(SOURCE_DIR "/examples/beamline");
}

TEST_F(OpticsAgreementTest, generatedBentRunWithManyPlanes) {
  // 300 planes: the optics tool splits them between two threads, twiss does not.
  expectAgreementOnGeneratedRun({"--planes", "300", "--general", "--digits", "7"});
}

TEST_F(OpticsAgreementTest, generatedStraightRunWithCoarseSteps) {
  expectAgreementOnGeneratedRun({"--planes", "40", "--straight", "--step", "170"});
}

} // namespace
