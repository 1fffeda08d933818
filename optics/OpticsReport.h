//===- OpticsReport.h - The optics table and its record --------*- C++ -*-===//
//
// The optics table is CSV: one header line of column names, then one line per plane,
// numbers with 10 significant digits, an empty field where a value is undefined. The
// record beside it is JSON: how the run was made, the conventions, what the track loop
// saw, and the same rows with every number at full precision (null where undefined).
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_OPTICSREPORT_H
#define OPTICS_OPTICSREPORT_H

#include "OpticsRun.h"

#include <QByteArrayList>
#include <QList>

/// The version of the optics tool, as --version and the record give it.
extern const char *const OpticsVersion;

/// The optics table with the columns of these measures.
QByteArrayList opticsTable(const QStringList &measures, const QList<OpticsRow> &rows);

/// The slices along the bunch at every plane (s in mm), as CSV: plane, s, slice, then
/// the columns of a slice.
QByteArrayList slicesTable(const QList<double> &planeS, const QList<OpticsRow> &rows);

/// The record of the run beside the table, as JSON text.
QByteArrayList opticsRecord(const OpticsRun &run, const QList<OpticsRow> &rows);

/// Writes the pieces to the file, whole or not at all ("-": standard output); throws a
/// Failure when they cannot be written, leaving an earlier file as it was.
void writeWhole(const QString &path, const QByteArrayList &pieces);

#endif // OPTICS_OPTICSREPORT_H
