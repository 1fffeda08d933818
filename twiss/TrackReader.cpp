//===- TrackReader.cpp - Steps from AllTracks.txt --------------------------===//

#include "TrackReader.h"

#include <cstdio>

bool parseTrackLine(const QByteArray &line, Step &step) {
  int fields = sscanf(line.constData(), "%lf%lf%lf%lf%lf%lf%lf%d%d%d%d%lf", &step.position.x,
                      &step.position.y, &step.position.z, &step.momentum.x, &step.momentum.y,
                      &step.momentum.z, &step.t, &step.PDGid, &step.EventID, &step.TrackID,
                      &step.extraID, &step.extraValue);
  return fields >= 12;
}

TrackReader::TrackReader(const QString &filename) : file(filename) {
  open = file.open(QIODevice::ReadOnly | QIODevice::Text);
  if (open)
    stream.setDevice(&file);
}

bool TrackReader::next(Step &step) {
  while (!stream.atEnd()) {
    QString line = stream.readLine().simplified();
    if (line.isEmpty() || line.startsWith("#"))
      continue;
    if (parseTrackLine(line.toLocal8Bit(), step))
      return true;
  }
  return false;
}
