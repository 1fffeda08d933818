//===- TrackAnalysis.cpp - The track files through the planes --------------===//

#include "TrackAnalysis.h"

#include "Analysis.h"
#include "ExactNumber.h"
#include "Failure.h"
#include "OpticsCrossings.h"
#include "ParallelCrossings.h"
#include "TrackSource.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonArray>
#include <cstdio>

namespace {

/// A progress line on standard error, refreshed at most four times a second.
class Progress {
public:
  Progress(bool shown, long long totalBytes) : shown(shown), total(totalBytes) { clock.start(); }
  ~Progress() {
    if (printed)
      fputs("\r\033[K", stderr);
  }
  void update(long long bytesDone) {
    if (!shown || clock.elapsed() - lastShown < 250 || total <= 0)
      return;
    lastShown = clock.elapsed();
    double seconds = clock.elapsed() / 1000.0;
    double rate = bytesDone / 1e6 / std::max(seconds, 1e-3);
    double left = rate > 0 ? (total - bytesDone) / 1e6 / rate : 0;
    fprintf(stderr, "\r\033[Ktwiss-optics: %3.0f%%  %.0f MB/s  %.0f s left",
            100.0 * bytesDone / total, rate, left);
    fflush(stderr);
    printed = true;
  }

private:
  bool shown;
  long long total;
  QElapsedTimer clock;
  qint64 lastShown = -1000;
  bool printed = false;
};

QJsonObject lineCountsToJson(const TrackLineCounts &lines) {
  QJsonObject object;
  object["read"] = double(lines.steps + lines.comments + lines.malformed);
  object["steps"] = double(lines.steps);
  object["skipped_blank_or_comment"] = double(lines.comments);
  object["skipped_fewer_than_12_fields"] = double(lines.malformed);
  return object;
}

} // namespace

QJsonObject Selection::toJson() const {
  QJsonArray ids;
  for (int id : species)
    ids.append(id);
  QJsonObject object;
  object["species"] = ids;
  object["primaries_only"] = primariesOnly;
  object["weighted"] = weighted;
  return object;
}

void TrackTotals::add(const TrackTotals &other) {
  lines += other.lines;
  tracks += other.tracks;
  selectedTracks += other.selectedTracks;
  events += other.events;
  bytes += other.bytes;
}

QJsonObject TrackTotals::toJson() const {
  QJsonObject object;
  object["lines"] = lineCountsToJson(lines);
  object["tracks"] = double(tracks);
  object["tracks_selected"] = double(selectedTracks);
  object["events"] = double(events);
  object["bytes"] = double(bytes);
  return object;
}

bool TrackTotals::fromJson(const QJsonObject &object) {
  QJsonObject l = object.value("lines").toObject();
  long long counts[7];
  const QJsonValue values[7] = {l.value("steps"),
                                l.value("skipped_blank_or_comment"),
                                l.value("skipped_fewer_than_12_fields"),
                                object.value("tracks"),
                                object.value("tracks_selected"),
                                object.value("events"),
                                object.value("bytes")};
  for (int i = 0; i < 7; ++i)
    if (!readCount(values[i], counts[i]))
      return false;
  lines.steps = long(counts[0]);
  lines.comments = long(counts[1]);
  lines.malformed = long(counts[2]);
  tracks = long(counts[3]);
  selectedTracks = long(counts[4]);
  events = long(counts[5]);
  bytes = counts[6];
  return true;
}

bool TrackTotals::fitsWith(const TrackTotals &other) const {
  return sumIsCount(lines.steps, other.lines.steps) &&
         sumIsCount(lines.comments, other.lines.comments) &&
         sumIsCount(lines.malformed, other.lines.malformed) && sumIsCount(tracks, other.tracks) &&
         sumIsCount(selectedTracks, other.selectedTracks) && sumIsCount(events, other.events) &&
         sumIsCount(bytes, other.bytes);
}

TrackTotals analyseTracks(const QStringList &trackFiles, const QList<BCSample *> &planes,
                          std::vector<PlaneStatistics> &statistics, const Selection &selection,
                          bool progress, int threads, ParticleFile *particles,
                          KeptCrossings *kept) {
  TrackTotals totals;
  long long fileBytes = 0; // on disk, compressed or not
  for (const QString &path : trackFiles)
    fileBytes += path == "-" ? 0 : QFileInfo(path).size();
  Progress shown(progress && fileBytes > 100 * 1000 * 1000, fileBytes);
  long long bytesBefore = 0;
  for (int job = 0; job < trackFiles.size(); ++job) {
    const QString &path = trackFiles[job];
    TrackSource source(path);
    std::unique_ptr<TrackReader> reader = source.openReader(threads);
    if (!reader->isOpen())
      throw InputError(source.name() + ": cannot be read");
    auto bytesTaken = [&] {
      return source.readDirectly() ? reader->bytesRead() : source.bytesTaken();
    };
    long stepsFed = 0;
    bool eventSeen = false, selected = false;
    int lastEvent = 0;
    {
      ParallelCrossings<OpticsCrossings> crossings(
          int(planes.size()), threads,
          [&](int first, int count) {
            return std::make_unique<OpticsCrossings>(planes.mid(first, count), first,
                                                     &statistics[size_t(first)], selection.weighted,
                                                     particles, kept, job);
          },
          OpticsCrossings::BatchSize);
      feedTracks(*reader, [&](Step &step) {
        if (BCSample::firstStep) {
          ++totals.tracks;
          totals.events += !eventSeen || step.EventID != lastEvent;
          eventSeen = true;
          lastEvent = step.EventID;
          selected = selection.accepts(step);
          totals.selectedTracks += selected;
        }
        if (selected)
          crossings.trackStep(step, int64_t(totals.tracks));
        else
          BCSample::rememberStep(step);
        if ((++stepsFed & 0xffff) == 0)
          shown.update(bytesBefore + bytesTaken());
      });
    }
    source.checkEnd();
    if (!reader->failure().isEmpty())
      throw InputError::unreadable(source.name(), reader->failure());
    TrackLineCounts lines = reader->lineCounts();
    if (lines.steps == 0)
      throw InputError(source.name() +
                       ": no readable track line (twelve columns: x y z Px Py Pz t PDGid "
                       "EventID TrackID ParentID Weight)");
    totals.lines += lines;
    // The text's bytes: a plain file's size (a pipe tells it only by being read).
    const qint64 size = path == "-" ? 0 : QFileInfo(path).size();
    totals.bytes += source.readDirectly() ? size : reader->bytesRead();
    bytesBefore += size;
  }
  return totals;
}
