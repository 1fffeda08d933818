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

/// Creates one plane for each line of sampleS.txt that is not a comment.
bool readPlanes();
/// Reads AllTracks.txt and feeds every step to every plane.
bool runTrackLoop();
/// Writes every plane's report to twiss.calc.txt.
bool writeReport();

#endif // TWISS_ANALYSIS_H
