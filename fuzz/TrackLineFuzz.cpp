//===- TrackLineFuzz.cpp - Track lines and the crossing test ---------------===//
//
// The input is a track file. It is read by the block reader and by the text stream,
// which must agree, and its steps are fed to a few planes twice, once through the
// crossing selection and once to every plane, which must agree bit for bit.
//
//===----------------------------------------------------------------------------===//

#include "Analysis.h"
#include "BeamlineCoordinates.h"
#include "CrossingSelector.h"
#include "FuzzSupport.h"

#include <vector>

namespace {

std::vector<Step> readAll(const QString &path, TrackReader::Mode mode) {
  TrackReader reader(path, mode);
  std::vector<Step> steps;
  Step step;
  while (reader.next(step))
    steps.push_back(step);
  return steps;
}

QStringList feed(const std::vector<Step> &steps, bool select) {
  qDeleteAll(BCSample::samples);
  BCSample::samples.clear();
  for (const char *planeText : {"1mm 5mm", "2mm 5mm bothDirections=true", "3mm 1e9mm", "2mm 0mm"})
    new BCSample(planeText);
  CrossingSelector selector(BCSample::samples);
  int event = -9999, track = -9999;
  for (Step step : steps) {
    if (step.EventID != event || step.TrackID != track) {
      BCSample::beginTrack(step.EventID, step.TrackID);
      event = step.EventID;
      track = step.TrackID;
    }
    if (select)
      selector.trackStep(step);
    else
      BCSample::trackStep(step);
  }
  QStringList sums;
  for (const BCSample *p : BCSample::samples)
    sums << QString::asprintf("%d %a %a %a %a", p->statistics.entries, p->statistics.sumX,
                              p->statistics.sumX2, p->statistics.sumY, p->statistics.sumY2);
  return sums;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  StateReset reset;
  Nexil::BeamlineCoordinates::addSegment(new Nexil::StartBCSegment(0, Nexil::Transform()));
  Nexil::BeamlineCoordinates::scan(nullptr, Nexil::ArgHash());
  const QString path = writeInputFile("AllTracks.txt", QByteArray(), data, size);
  if (path.isEmpty())
    return 0;
  std::vector<Step> fast = readAll(path, TrackReader::Blocks);
  std::vector<Step> reference = readAll(path, TrackReader::TextStream);
  if (fast.size() != reference.size())
    __builtin_trap();
  for (size_t i = 0; i < fast.size(); ++i)
    if (!(fast[i] == reference[i]))
      __builtin_trap();
  if (feed(fast, true) != feed(fast, false))
    __builtin_trap();
  return 0;
}
