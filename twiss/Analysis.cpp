//===- Analysis.cpp - The phases of a twiss run ----------------------------===//

#include "Analysis.h"

#include "Console.h"
#include "CrossingSelector.h"
#include "InputFile.h"
#include "ParallelCrossings.h"
#include "ReplacementFile.h"
#include "ThreadCount.h"

#include <QFile>
#include <cstdio>

bool readPlanes() {
  QFile file("sampleS.txt");
  if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
    printf("twiss: no sampleS.txt file\n");
    return false;
  }
  TextLines lines(file);
  QString line;
  while (lines.next(line)) {
    line = line.simplified();
    // Blank lines are planes too (at s = 0, radius 0); only comments are skipped.
    if (line.startsWith("#"))
      continue;
    new BCSample(line);
  }
  if (!lines.failure().isEmpty()) {
    printf("twiss error: Cannot read 'sampleS.txt' (%s)\n", qPrintable(lines.failure()));
    return false;
  }
  file.close();
  if (BCSample::nSamples() == 0) {
    printf("twiss: no s values\n");
    return false;
  }
  printf("twiss: %d samples in s\n", BCSample::nSamples());
  fflush(stdout);
  return true;
}

bool runTrackLoop() {
  int threads = threadCount();
  TrackReader reader("AllTracks.txt", TrackReader::Blocks, threads);
  if (!reader.isOpen()) {
    printf("twiss error: Cannot open 'AllTracks.txt'\n");
    return false;
  }
  // The debug lines come out in plane order: with -d one thread tests every plane.
  ParallelCrossings<CrossingSelector> crossings(BCSample::nSamples(), Debug ? 1 : threads,
                                                CrossingSelector::groupsOf(BCSample::samples));
  feedTracks(reader, [&](Step &step) { crossings.trackStep(step); });
  // A read that failed, or a file that shrank, must not pass for the end of the tracks.
  if (!reader.failure().isEmpty()) {
    printf("twiss error: Cannot read 'AllTracks.txt' (%s)\n", qPrintable(reader.failure()));
    return false;
  }
  return true;
}

bool writeReport() {
  // Replaces the earlier report only when the whole new one is on the disk: a full
  // disk, a size limit or a killed run never leaves a half-written report.
  QString text;
  for (BCSample *sample : BCSample::samples)
    text += sample->result();
  if (!writeWholeFile("twiss.calc.txt", text.toLocal8Bit()).isEmpty()) {
    printf("twiss error: Cannot write 'twiss.calc.txt'\n");
    return false;
  }
  return true;
}
