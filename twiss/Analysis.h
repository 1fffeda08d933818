//===- Analysis.h - The phases of a twiss run ------------------*- C++ -*-===//
//
// After the command line and the coordinate system: the planes are read from
// sampleS.txt, every step of AllTracks.txt is fed to them, and their reports are
// written to twiss.calc.txt. Each phase returns false after printing why the run
// must end with status 1.
//
//===----------------------------------------------------------------------------===//
#ifndef TWISS_ANALYSIS_H
#define TWISS_ANALYSIS_H

#include "BCSample.h"
#include "TrackReader.h"

/// Creates one plane for each line of sampleS.txt that is not a comment.
bool readPlanes();
/// Reads AllTracks.txt and feeds every step to every plane.
bool runTrackLoop();
/// Writes every plane's report to twiss.calc.txt.
bool writeReport();

/// Feeds every step of the reader to feed(step), ending and beginning tracks on the
/// planes whenever (EventID, TrackID) changes.
template <typename Feed> void feedTracks(TrackReader &reader, Feed feed) {
  // -9999 means that no track is open; only the event number is looked at.
  int currentEvent = -9999, currentTrack = -9999;
  Step step;
  while (reader.next(step)) {
    if (step.EventID != currentEvent || step.TrackID != currentTrack) {
      if (currentEvent != -9999)
        BCSample::endTrack(currentEvent, currentTrack);
      BCSample::beginTrack(step.EventID, step.TrackID);
      currentEvent = step.EventID;
      currentTrack = step.TrackID;
    }
    feed(step);
  }
  if (currentEvent != -9999)
    BCSample::endTrack(currentEvent, currentTrack);
}

#endif // TWISS_ANALYSIS_H
