//===- CompressedTracksFuzz.cpp - A compressed track file, read -------------===//
//
// Built once per compression (ZstdTracksFuzz, GzipTracksFuzz, XzTracksFuzz): the input
// is the data after the compression's magic number, written as a file. The file goes
// through the track source (a thread decoding into a pipe, the reader on two threads)
// and, independently, through the decoder into memory and the reader of a plain file:
// both must give the same steps and counts, and the source must fail exactly when, and
// as, the decoder does.
//
//===----------------------------------------------------------------------------===//

#include "Failure.h"
#include "FuzzSupport.h"
#include "TrackSource.h"

#include <cstdlib>
#include <vector>

namespace {

/// The file of each build: TRACK_KIND 0 for zstd, 1 for gzip, 2 for xz.
struct Kind {
  const char *name;
  QByteArray magic;
};

const Kind Kinds[] = {{"AllTracks.txt.zst", QByteArray("\x28\xb5\x2f\xfd", 4)},
                      {"AllTracks.txt.gz", QByteArray("\x1f\x8b", 2)},
                      {"AllTracks.txt.xz", QByteArray("\xfd"
                                                      "7zXZ\0",
                                                      6)}};

/// Decoded text beyond this is not compared (a small input may declare gigabytes).
const qsizetype MostText = 64 << 20;

struct Read {
  std::vector<Step> steps;
  TrackLineCounts counts;
  QString failure;
};

Read readAll(TrackReader &reader) {
  Read read;
  Step step;
  while (reader.next(step))
    read.steps.push_back(step);
  read.counts = reader.lineCounts();
  return read;
}

/// Through the source, as twiss-optics reads the file.
Read throughSource(const QString &path) {
  TrackSource source(path);
  std::unique_ptr<TrackReader> reader = source.openReader(2);
  Read read = readAll(*reader);
  try {
    source.checkEnd();
  } catch (const InputError &error) {
    read.failure = error.message;
  }
  return read;
}

/// Decoded into memory, then written plain and read; false for more than MostText.
bool throughMemory(const QString &path, const QByteArray &bytes, Read &read) {
  QByteArray text;
  bool given = false;
  try {
    decompress(
        compressionOfName(path),
        [&](const char *&data, size_t &size) {
          if (given)
            return false;
          given = true;
          data = bytes.constData();
          size = size_t(bytes.size());
          return true;
        },
        [&](const char *data, size_t size) {
          text.append(data, qsizetype(size));
          return text.size() <= MostText;
        });
  } catch (const DecodeError &error) {
    read.failure = path + ": " + error.message;
  }
  if (text.size() > MostText)
    return false;
  TrackReader reader(writeInputFile("plain.txt", text, nullptr, 0), TrackReader::Blocks, 1);
  Read steps = readAll(reader);
  read.steps = steps.steps;
  read.counts = steps.counts;
  return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const Kind &kind = Kinds[TRACK_KIND];
  const QString path = writeInputFile(kind.name, kind.magic, data, size);
  if (path.isEmpty())
    return 0;
  const QByteArray bytes =
      kind.magic + QByteArray(reinterpret_cast<const char *>(data), qsizetype(size));
  Read memory;
  if (!throughMemory(path, bytes, memory))
    return 0;
  Read source = throughSource(path);
  // A failed decode may stop the two at different places in the text: only the
  // failure is compared then.
  if (source.failure != memory.failure)
    abort();
  if (memory.failure.isEmpty() &&
      (source.steps != memory.steps || source.counts.steps != memory.counts.steps ||
       source.counts.comments != memory.counts.comments ||
       source.counts.malformed != memory.counts.malformed))
    abort();
  return 0;
}
