//===- HostileInputTest.cpp - Huge, broken and hostile run directories -----===//

#include "RunDirectoryTest.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <csignal>
#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

class HostileInputTest : public RunDirectoryTest {
protected:
  /// Appends the same block of bytes until the file reaches the size.
  void writeLarge(const char *name, const std::string &block, qint64 size) {
    QFile file(dir.path() + "/" + name);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    std::string big;
    while (big.size() < (4u << 20))
      big += block;
    for (qint64 written = 0; written < size; written += qint64(big.size()))
      ASSERT_EQ(file.write(big.data(), qint64(big.size())), qint64(big.size()));
  }
};

TEST_F(HostileInputTest, opticsProgressOnlyOnATerminalAndOnlyForLargeFiles) {
  writeStraightRun("500mm 100mm\n");
  std::string block;
  for (int z = 0; z < 2000; z += 100)
    block += QString::asprintf("0.125 -0.25 %d 0.001 0.002 200 1.5 -13 1 1 0 1\n", z).toStdString();
  writeLarge("AllTracks.txt", block, 101 * 1000 * 1000);
  // On a terminal (script gives the tool one): a progress line, cleared at the end.
  ToolRun terminal = runCommand(
      dir.path(), {"script", "-qfec", QString(OPTICS_BINARY) + " -o x.csv", "/dev/null"});
  EXPECT_EQ(terminal.status, 0);
  EXPECT_NE(terminal.out.find("\r\033[Ktwiss-optics: "), std::string::npos);
  EXPECT_NE(terminal.out.find("% "), std::string::npos);
  EXPECT_NE(terminal.out.find(" MB/s "), std::string::npos);
  EXPECT_NE(terminal.out.find(" s left"), std::string::npos);
  // The share read grows from the start to at most the whole file; the time left is
  // what the rest takes at the rate shown (each rounded to a whole number).
  QRegularExpression line("twiss-optics: +(\\d+)%  (\\d+) MB/s  (\\d+) s left");
  int previous = 0, lines = 0;
  for (const QRegularExpressionMatch &m : line.globalMatch(QString::fromStdString(terminal.out))) {
    int percent = m.captured(1).toInt(), rate = m.captured(2).toInt();
    EXPECT_GE(percent, previous);
    EXPECT_LE(percent, 100);
    if (rate > 0) {
      EXPECT_NEAR(m.captured(3).toDouble(), (100 - percent) / 100.0 * 101 / rate, 1.5)
          << m.captured(0).toStdString();
    }
    previous = percent;
    ++lines;
  }
  EXPECT_GT(lines, 0);
  EXPECT_NE(terminal.out.find("\r\033[Ktwiss-optics: 2166500 lines read"), std::string::npos);
  // Redirected: the summary alone.
  ToolRun redirected = runOpticsTool(dir.path(), {});
  EXPECT_EQ(redirected.status, 0);
  EXPECT_EQ(redirected.err.find('\r'), std::string::npos);
  EXPECT_EQ(redirected.err.substr(0, 35), "twiss-optics: 2166500 lines read, 0");
  // With --quiet, nothing even on a terminal.
  ToolRun quiet = runCommand(
      dir.path(), {"script", "-qfec", QString(OPTICS_BINARY) + " -q -o x.csv", "/dev/null"});
  EXPECT_EQ(quiet.out, "");
}

TEST_F(HostileInputTest, failedReportWriteKeepsThePreviousReport) {
  write("beamlineCoordinates.txt", Straight);
  std::string planes;
  for (int i = 1; i <= 200; ++i)
    planes += std::to_string(i * 10) + "mm 100mm\n";
  write("sampleS.txt", planes);
  write("AllTracks.txt", "");
  write("twiss.calc.txt", "the previous report\n");
  RunSettings limits;
  limits.fileSizeBytes = 8000; // the report needs about 20 kB; the captured output less
  ToolRun r = run({}, limits);
  EXPECT_EQ(r.out, "twiss: 200 samples in s\ntwiss error: Cannot write 'twiss.calc.txt'\n");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(report(), "the previous report\n");
  EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files).size(), 4); // no temporary file left
}

TEST_F(HostileInputTest, oneHugeLineWithoutNewline) {
  // Fields of ten digits (the line held whole took 76 MB), and a single field of 50 MB,
  // kept in short form and read as out of range (305 MB).
  for (const char *block : {"1234567890 ", "7777777777"}) {
    writeStraightRun("1000mm 100mm\n");
    writeLarge("AllTracks.txt", block, 50 << 20);
    ToolRun r = expectReport(emptyReport(1000));
#ifndef NEXIL_SANITIZED_BUILD
    EXPECT_LE(r.peakKilobytes, 32 * 1024) << block;
#endif
  }
}

TEST_F(HostileInputTest, oneHugeLineOfOddNumbersThenTracks) {
  // A leading '+' sends each line through the text stream's rules, which held the
  // line four times over (317 MB for this one); the lines after it are read as usual.
  writeStraightRun("1000mm 100mm\n");
  writeLarge("AllTracks.txt", "+1234567890 ", 50 << 20);
  QFile tracks(path("AllTracks.txt"));
  ASSERT_TRUE(tracks.open(QIODevice::Append));
  tracks.write("\n0.5 -2 900 0 0 1 0 11 1 1 0 0\n0.5 -2 1100 0 0 1 0 11 1 1 0 0\n");
  tracks.close();
  ToolRun r = run();
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(report(), "meanX_1000=0.5mm\nsigmaX_1000=0mm\nmeanY_1000=-2mm\nsigmaY_1000=0mm\n"
                      "entries_1000=1\n");
#ifndef NEXIL_SANITIZED_BUILD
  EXPECT_LE(r.peakKilobytes, 32 * 1024);
  ToolRun optics = runOpticsTool(dir.path(), {"-q"});
  EXPECT_EQ(optics.status, 0);
  EXPECT_LE(optics.peakKilobytes, 48 * 1024);
#endif
}

TEST_F(HostileInputTest, brokenBytesWindowsEndingsAndOddNumbers) {
  writeStraightRun("1000mm 100mm\n");
  // Track 1 crosses; track 2's lines hold a NUL and bytes that are no UTF-8 and are
  // skipped; tracks 3 and 4 cross at infinite or NaN positions, which no cut accepts.
  std::string tracks = "0 0 900 0 0 1 0 11 1 1 0 0\r\n"
                       "0 0 1100 0 0 1 0 11 1 1 0 0\r\n"s
                       "0 0\x00 900 0 0 1 0 11 2 1 0 0\n"s
                       "0 \xff\xfe 0 1100 0 0 1 0 11 2 1 0 0\n"
                       "1e999 0 900 0 0 1 0 11 3 1 0 0\n"
                       "-nan 0 1100 0 0 1 0 11 3 1 0 0\n";
  ASSERT_EQ(std::count(tracks.begin(), tracks.end(), '\n'), 6);
  tracks += std::string(400, '9') + " 0 900 0 0 1 0 11 4 1 0 0\n";
  tracks += "2 0 1100 0 0 1 0 11 4 1 0 " + std::string(400, '7') + "\n";
  write("AllTracks.txt", tracks);
  expectReport("meanX_1000=0mm\nsigmaX_1000=0mm\nmeanY_1000=0mm\nsigmaY_1000=0mm\n"
               "entries_1000=1\n");
}

TEST_F(HostileInputTest, deeplyNestedSampleExpression) {
  writeStraightRun(std::string(100000, '(') + "1500mm" + std::string(100000, ')') + " 100mm\n");
  write("AllTracks.txt", "");
  ToolRun r = run();
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "twiss: %bcsample 1500mm\n");
  EXPECT_EQ(report(), emptyReport(1500));
}

TEST_F(HostileInputTest, longSampleExpression) {
  write("beamlineCoordinates.txt", Straight);
  std::string sum = "0mm";
  for (int i = 0; i < 100000; ++i)
    sum += "+0.015mm";
  write("sampleS.txt", sum + " 100mm\n");
  write("AllTracks.txt", "");
  ToolRun r = run();
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "twiss: %bcsample 1500mm\n");
}

TEST_F(HostileInputTest, tenThousandSegmentsAndPlanes) {
  std::string coordinates = "%bcstart s=0m\n";
  for (int i = 1; i <= 10000; ++i)
    coordinates +=
        QString::asprintf("%%bcbend radius=0m angle=%s0.0001rad s=%dmm\n", i % 2 ? "" : "-", i * 2)
            .toStdString();
  write("beamlineCoordinates.txt", coordinates);
  std::string planes;
  for (int i = 0; i < 10000; ++i)
    planes += std::to_string(1 + i * 2) + "mm 100mm\n";
  write("sampleS.txt", planes);
  write("AllTracks.txt", "0 0 -1 0 0 1 0 11 1 1 0 0\n0 0 30000 0 0 1 0 11 1 1 0 0\n");
  ToolRun r = run();
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "twiss: 10000 samples in s\n");
  std::string text = report();
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 50000);
  EXPECT_NE(text.find("entries_19999=1\n"), std::string::npos);
}

#ifndef NEXIL_SANITIZED_BUILD
TEST_F(HostileInputTest, gigabyteTrackFileKeepsMemoryFlat) {
  writeStraightRun("500mm 100mm\n1500mm 100mm\n");
  std::string block;
  for (int z = 0; z < 2000; z += 100)
    block += QString::asprintf("0.125 -0.25 %d 0.001 0.002 200 1.5 -13 1 %d 0 1\n", z, z / 100)
                 .toStdString();
  writeLarge("AllTracks.txt", block, qint64(1) << 30);
  ToolRun r = run();
  EXPECT_EQ(r.status, 0);
  EXPECT_LE(r.peakKilobytes, 32 * 1024);
  RecordProperty("peak_kilobytes", int(r.peakKilobytes));
  // The optics tool streams the same file within its own bound.
  ToolRun optics = runOpticsTool(dir.path(), {"-q"});
  EXPECT_EQ(optics.status, 0);
  EXPECT_LE(optics.peakKilobytes, 48 * 1024);
  RecordProperty("optics_peak_kilobytes", int(optics.peakKilobytes));
}
#endif

} // namespace
