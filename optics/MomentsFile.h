//===- MomentsFile.h - A run's moments, saved for a merge -------*- C++ -*-===//
//
// Two forms hold the same numbers exactly. The text form is JSON, every double a
// hexadecimal float. The binary form, for merges of many jobs, is read without parsing
// a number (all little-endian):
//
//   bytes 0-7     "\x89TWM\r\n\x1a\n" (a text-mode copy or a cut transfer shows here)
//   bytes 8-11    uint32, the binary form's version, 1
//   bytes 12-15   uint32 H, the length of the header
//   H bytes       the header: the JSON form without "planes" (UTF-8), then blanks up to
//                 a multiple of 8 bytes from the file's start
//   P x 7 int64   per plane: n, n_back, left_out, has_species, species, mixed_species,
//                 unknown_species
//   P x K doubles per set of moments of the header's measures, in the order horizontal,
//                 vertical, horizontal_canonical, vertical_canonical, time, then those
//                 of the other measures in their order (transverse_4d, phase_space_6d,
//                 longitudinal, angular_momentum), each once: each plane's numbers in
//                 the order of the JSON form's list
//   uint32        CRC-32 (zlib's) of every byte before it
//
// P is the number of planes of the header's "planes_s_mm"; K is 48, 48, 23, 23 and 14,
// then 152, 244, 23 and 14.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_MOMENTSFILE_H
#define OPTICS_MOMENTSFILE_H

#include "OpticsRun.h"

#include <QByteArray>
#include <QString>
#include <functional>

/// Hands the bytes of the moments file to `take` piece by piece, in their order: the
/// binary form for a name ending in .bin, JSON otherwise, a plane at a time (the text of
/// many planes is never whole in memory).
void forEachMomentsPiece(const OpticsRun &run, const QString &path,
                         const std::function<void(const QByteArray &)> &take);
/// The bytes of the moments file, whole.
QByteArray momentsFileBytes(const OpticsRun &run, const QString &path);
/// The bytes of the moments file's binary form.
QByteArray binaryMomentsBytes(const OpticsRun &run);

/// A moments file checked and ready to be added to a merge. The binary form's counts
/// and moments stay in its bytes until they are added, one plane at a time: no file's
/// statistics are built whole, which would take longer than adding them.
struct MomentsPart {
  OpticsRun run;          ///< without statistics for the binary form
  QByteArray bytes;       ///< the binary form's bytes; empty for the text form
  qsizetype planesAt = 0; ///< where its counts begin
  bool crossings = false; ///< a particle file that holds the run's crossings too
};

/// Reads and checks a moments file of either form, told by its first bytes; throws an
/// InputError naming the path.
MomentsPart readMomentsPart(const QString &path, const QByteArray &bytes);

/// Adds a part to the run of the files before it; throws an InputError naming the path
/// when it cannot be merged. Returns the names of the measures that only one of the two
/// holds, left out of the run.
QStringList addMomentsPart(OpticsRun &run, const MomentsPart &part, const QString &path);

/// A moments file of either form as a run of its own.
OpticsRun readMomentsFile(const QString &path, const QByteArray &bytes);
/// A part as a run of its own, with every plane's statistics.
OpticsRun runOfPart(MomentsPart part);

#endif // OPTICS_MOMENTSFILE_H
