//===- AmplitudeChangeTest.cpp - Each particle's amplitude from plane to plane ===//

#include "AmplitudeChange.h"
#include "CrossingSample.h"

#include <QList>
#include <QString>
#include <QTemporaryDir>
#include <cmath>
#include <gtest/gtest.h>
#include <random>

namespace {

KeptCrossing ofTrack(int track, double x, double ux, double y, double uy, double weight = 1) {
  KeptCrossing c{x, ux, y, uy, weight, 0};
  c.event = 1;
  c.track = track;
  return c;
}

/// Crossings at +-1 and +-3 on each axis, tracks 1 to 16: emitn_4d = 1.25 times the
/// scale squared, amplitudes 1 and 9 times it.
std::vector<KeptCrossing> star(double scale) {
  std::vector<KeptCrossing> c;
  int track = 0;
  for (double r : {1.0, -1.0, 3.0, -3.0}) {
    const double v = r * scale;
    c.push_back(ofTrack(++track, v, 0, 0, 0));
    c.push_back(ofTrack(++track, 0, v, 0, 0));
    c.push_back(ofTrack(++track, 0, 0, v, 0));
    c.push_back(ofTrack(++track, 0, 0, 0, v));
  }
  return c;
}

/// The table's lines, each split at its commas.
QList<QStringList> linesOf(const QByteArray &table) {
  QList<QStringList> lines;
  for (const QString &line : QString::fromLatin1(table).split('\n', Qt::SkipEmptyParts))
    lines << line.split(',');
  return lines;
}

} // namespace

TEST(AmplitudeChangeTest, aBeamShrunkByHalfMovesItsAmplitudesToAQuarter) {
  // Upstream A = 1 and 9 (emitn_4d 1.25: bins of 0.625, A = 1 in bin 1, 9 in bin 14);
  // downstream the same tracks at half the size: A = 0.25 (bin 0) and 2.25 (bin 3).
  const QList<QStringList> lines = linesOf(amplitudeChangeTable(star(1), star(0.5)));
  ASSERT_EQ(lines.size(), 1 + AmplitudeBins + 1);
  ASSERT_EQ(lines[0].size(), 7 + AmplitudeBins + 2);
  EXPECT_EQ(lines[0].mid(0, 8).join(','),
            "bin,a_from_mm_mrad,a_to_mm_mrad,upstream_below,downstream_below,ratio_below,"
            "ratio_below_err,to_0");
  EXPECT_EQ(lines[0].back(), "lost");
  EXPECT_EQ(lines[1].mid(0, 7).join(','), "0,0,0.625,0,8,,");
  EXPECT_EQ(lines[2].mid(0, 7).join(','), "1,0.625,1.25,8,8,1,0");
  EXPECT_EQ(lines[3].mid(0, 7).join(','), "2,1.25,1.875,8,8,1,0");
  EXPECT_EQ(lines[4].mid(0, 7).join(','), "3,1.875,2.5,8,16,2,0.5");
  EXPECT_EQ(lines[15].mid(0, 7).join(','), "14,8.75,9.375,16,16,1,0");
  EXPECT_EQ(lines[41].mid(0, 7).join(','), "40,25,,16,16,1,0");
  for (int k = 0; k <= AmplitudeBins; ++k)
    for (int j = 0; j <= AmplitudeBins + 1; ++j) {
      const double expected = (k == 1 && j == 0) || (k == 14 && j == 3) ? 8 : 0;
      EXPECT_EQ(lines[k + 1][7 + j].toDouble(), expected) << k << " to " << j;
    }
}

TEST(AmplitudeChangeTest, lostTracksAndTheRatiosError) {
  // Tracks 9 to 16 (A = 9) are lost downstream: half of the weight below the last edge.
  std::vector<KeptCrossing> down = star(1);
  down.resize(8);
  const QList<QStringList> lines = linesOf(amplitudeChangeTable(star(1), down));
  EXPECT_EQ(lines[15][7 + AmplitudeBins + 1], "8");
  EXPECT_EQ(lines[15][7 + 14], "0");
  EXPECT_EQ(lines[15][5], "0.5");
  // Each of the sixteen tracks adds (d - R u)^2 = 1/4: sqrt(16 / 4) / 16.
  EXPECT_EQ(lines[15][6], "0.125");
  // A track seen downstream only counts there: its own second crossing is not counted.
  down = star(1);
  down.push_back(ofTrack(99, 0.1, 0, 0, 0));
  down.push_back(ofTrack(1, 0, 0, 0, 0.1));
  const QList<QStringList> more = linesOf(amplitudeChangeTable(star(1), down));
  EXPECT_EQ(more[41][4], "17");
  // Track 1 stays in bin 1 (A = 1), by its first crossing: the second, near the centre,
  // would have moved it to bin 0.
  EXPECT_EQ(more[2][7 + 1], "8");
  EXPECT_EQ(more[2][7 + 0], "0");
}

TEST(AmplitudeChangeTest, throughADriftEveryParticleKeepsItsAmplitude) {
  std::mt19937 random(3);
  std::normal_distribution<double> normal;
  std::vector<KeptCrossing> up, down;
  for (int k = 0; k < 5000; ++k) {
    const double x = 2 * normal(random), ux = normal(random) - 0.3 * x, y = normal(random),
                 uy = 0.5 * normal(random);
    up.push_back(ofTrack(k, x, ux, y, uy));
    // 3 m of drift at u = 1000 P/(m c) mrad with m c / Pz = 0.5: x += 1.5 u_x mm.
    down.push_back(ofTrack(k, x + 1.5 * ux, ux, y + 1.5 * uy, uy));
  }
  std::vector<double> a, b;
  ASSERT_FALSE(std::isnan(amplitudesOf(up, a)));
  ASSERT_FALSE(std::isnan(amplitudesOf(down, b)));
  for (int k = 0; k < 5000; ++k)
    ASSERT_NEAR(b[size_t(k)], a[size_t(k)], 1e-9 * a[size_t(k)]) << k;
  const QList<QStringList> lines = linesOf(amplitudeChangeTable(up, down));
  for (int k = 0; k <= AmplitudeBins; ++k) {
    for (int j = 0; j <= AmplitudeBins + 1; ++j)
      EXPECT_TRUE(j == k || lines[k + 1][7 + j] == "0") << k << " to " << j;
    if (lines[k + 1][3] != "0") {
      EXPECT_EQ(lines[k + 1][5], "1") << k;
      EXPECT_EQ(lines[k + 1][6], "0") << k;
    }
  }
}

TEST(AmplitudeChangeTest, aDegeneratePlaneHasNoTable) {
  std::vector<KeptCrossing> flat;
  for (int k = 0; k < 10; ++k)
    flat.push_back(ofTrack(k, k, k, 0, 0));
  EXPECT_TRUE(amplitudeChangeTable(star(1), flat).isEmpty());
  EXPECT_TRUE(amplitudeChangeTable(flat, star(1)).isEmpty());
}

TEST(AmplitudeChangeTest, planesInPassesMatchTheirTracksAPartAtATime) {
  // Weighted tracks of two run directories, some crossing a plane twice (the first
  // crossing counts), some lost, some met only downstream; kept in blocks of 233, which
  // passes hand over the last first. Matched in one part and in ten: the table of the
  // planes read back whole, but for the order of its sums.
  std::mt19937 random(13);
  std::normal_distribution<double> normal;
  std::uniform_real_distribution<double> uniform(0.5, 1.5);
  std::vector<KeptCrossing> up, down;
  for (int k = 0; k < 3000; ++k) {
    const double x = normal(random), ux = normal(random), y = normal(random), uy = normal(random);
    KeptCrossing c = ofTrack(k / 2, x, ux, y, uy, uniform(random));
    c.job = k % 2;
    up.push_back(c);
    if (k % 7 == 0) {
      up.push_back(ofTrack(k / 2, 5 * x, ux, y, uy)); // a second time
      up.back().job = c.job;
    }
    if (k % 11 == 0)
      continue; // lost
    c.x *= 0.8;
    c.uy *= 0.9;
    down.push_back(c);
    if (k % 13 == 0)
      down.push_back(ofTrack(5000 + k, x, ux, y, uy)); // met downstream only
  }
  QTemporaryDir dir;
  KeptCrossings kept(1000, dir.path());
  for (const KeptCrossing &c : up)
    kept.add(0, c);
  for (const KeptCrossing &c : down)
    kept.add(1, c);
  kept.settle();
  const QList<QStringList> whole = linesOf(amplitudeChangeTable(up, down));
  ASSERT_EQ(whole.size(), AmplitudeBins + 2);
  for (size_t parts : {size_t(1), size_t(10)}) {
    const QList<QStringList> passed = linesOf(
        amplitudeChangeTable(kept.passesOver(0), kept.passesOver(1), parts * PartCrossings));
    ASSERT_EQ(passed.size(), whole.size());
    EXPECT_EQ(passed[0], whole[0]);
    for (qsizetype line = 1; line < whole.size(); ++line)
      for (qsizetype field = 0; field < whole[line].size(); ++field) {
        const double a = whole[line][field].toDouble(), b = passed[line][field].toDouble();
        EXPECT_NEAR(b, a, 1e-9 * std::fabs(a))
            << parts << " parts, line " << line << " field " << field;
        EXPECT_EQ(passed[line][field].isEmpty(), whole[line][field].isEmpty());
      }
  }
}
