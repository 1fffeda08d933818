//===- TrackReader.h - Steps from AllTracks.txt ----------------*- C++ -*-===//
//
// One step per line, twelve columns: x y z Px Py Pz t PDGid EventID TrackID, a
// further integer and a further real. Blank lines, comments and lines from which
// fewer than twelve fields can be read are skipped silently.
//
//===----------------------------------------------------------------------------===//
#ifndef TWISS_TRACKREADER_H
#define TWISS_TRACKREADER_H

#include "Step.h"

#include <QFile>
#include <QString>
#include <QTextStream>

/// Reads the accepted lines of a track file as steps, one at a time.
class TrackReader {
public:
  explicit TrackReader(const QString &filename);
  bool isOpen() const { return open; }
  /// The next accepted step; false at the end of the file.
  bool next(Step &step);

private:
  QFile file;
  QTextStream stream;
  bool open;
};

/// Reads one simplified track line; false when fewer than twelve fields are read.
bool parseTrackLine(const QByteArray &line, Step &step);

#endif // TWISS_TRACKREADER_H
