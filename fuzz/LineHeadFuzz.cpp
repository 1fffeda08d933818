//===- LineHeadFuzz.cpp - The head of an overlong track line ---------------===//
//
// The input is one line, with runs written short: the byte 0x01, a count c and a
// character x stand for x repeated 64 (c + 1) times, so that fields far longer than
// the head keeps whole come up. The line is fed to a LineHead in pieces of the size
// the first byte gives; unless the head asks for the whole line, the head must read
// as the whole line does: the same kind of line and, for a step, the same bits.
//
//===----------------------------------------------------------------------------===//

#include "FuzzSupport.h"
#include "LineHead.h"
#include "TrackReader.h"

#include <algorithm>

namespace {

QByteArray expandRuns(const uint8_t *data, size_t size) {
  QByteArray line;
  for (size_t i = 0; i < size; ++i) {
    if (data[i] == 0x01 && i + 2 < size) {
      line.append(qsizetype(64) * (data[i + 1] + 1), char(data[i + 2]));
      i += 2;
    } else {
      line.append(char(data[i]));
    }
  }
  line.replace('\n', ' '); // one line
  return line;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 1)
    return 0;
  const size_t piece = size_t(data[0]) + 1;
  const QByteArray line = expandRuns(data + 1, size - 1);
  LineHead head;
  for (qsizetype at = 0; at < line.size(); at += qsizetype(piece))
    head.append(line.constData() + at, std::min(size_t(line.size() - at), piece));
  head.end();
  if (head.needsWholeLine())
    return 0;
  const QByteArray text = head.text();
  Step whole{}, fromHead{};
  TrackLine kind = readRawTrackLine(line.constData(), line.constData() + line.size(), whole);
  TrackLine headKind = readRawTrackLine(text.constData(), text.constData() + text.size(), fromHead);
  if (kind != headKind || (kind == TrackLine::Step && !(whole == fromHead)))
    __builtin_trap();
  return 0;
}
