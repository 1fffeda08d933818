//===- RunInput.h - The beamline and the planes of a run -------*- C++ -*-===//
//
// Reads beamlineCoordinates.txt and sampleS.txt as twiss does, but strictly: a value
// the library can only read with an error banner, a thrown message of the coordinate
// system and a plane without a radius cut are errors of that file and line. Leniently,
// they are warnings and the values twiss would use are taken.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_RUNINPUT_H
#define OPTICS_RUNINPUT_H

#include "BCSample.h"

#include <QList>
#include <QString>
#include <memory>
#include <vector>

/// One plane as a line of sampleS.txt gives it.
struct PlaneLine {
  int line;            ///< line number in the file, from 1
  double sMillimetres; ///< exact, not rounded
  double radiusCut;    ///< mm
  bool bothDirections;
  double bz; ///< the solenoid field at the plane (Bz=), T; NaN where the line gives none
};

/// Reads a quantity with its unit ("4T", "40kG"; "10ps") in `unit` ("T"; "ns"); false if
/// the text is not one.
bool readQuantity(const QString &text, const char *unit, double &value);

/// Throws a Failure unless the path is a readable, non-empty file.
void checkInputFile(const QString &path);

/// Reads and finishes the coordinate system from the file.
void readCoordinates(const QString &path, bool lenient);

/// Reads the planes of a sample list, in its order.
QList<PlaneLine> readPlaneLines(const QString &path, bool lenient);

/// Places the planes on the coordinate system; `path` names the list in messages.
std::vector<std::unique_ptr<BCSample>> placePlanes(const QList<PlaneLine> &lines,
                                                   const QString &path);

#endif // OPTICS_RUNINPUT_H
