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
#include "ReplacementFile.h"

#include <QByteArrayList>
#include <QList>
#include <functional>
#include <memory>

/// The version of the optics tool, as --version and the record give it.
extern const char *const OpticsVersion;

/// The optics table of a run, its record and its slices file, written as the rows come
/// in the order of the planes: a run of many planes never holds their texts whole. The
/// files are put in place by commit(); until then earlier ones stay as they were.
class OpticsReport {
public:
  /// Starts the table at `tablePath` ("-": standard output, held until commit(), without
  /// record or slices file), the record beside it (its name less ".csv", then ".json")
  /// and, where `sliced`, the slices file (".slices.csv"). Failures wait for commit().
  OpticsReport(const OpticsRun &run, const QString &tablePath, bool sliced);
  OpticsReport(const OpticsReport &) = delete;
  OpticsReport &operator=(const OpticsReport &) = delete;

  /// Adds the row of the next plane.
  void add(const OpticsRow &row);
  /// Puts the table, the record and the slices file in place, in this order; throws an
  /// OutputError naming the first that cannot be written.
  void commit();

private:
  QString tablePath;
  QStringList columns;
  QList<double> planeS;
  qsizetype added = 0;        ///< rows so far
  QByteArrayList stdoutTable; ///< the table bound for standard output
  std::unique_ptr<WholeFile> table, record, slices;
  QByteArray recordEnd; ///< what follows the record's last plane
};

/// A file beside the table: its name less ".csv", then the suffix.
QString besideTable(const QString &tablePath, const char *suffix);

/// Writes the pieces to the file, whole or not at all ("-": standard output); throws a
/// Failure when they cannot be written, leaving an earlier file as it was.
void writeWhole(const QString &path, const QByteArrayList &pieces);
/// The same of the pieces that `make` hands over one after another, each written as it
/// comes.
void writeWhole(const QString &path,
                const std::function<void(const std::function<void(const QByteArray &)> &)> &make);

#endif // OPTICS_OPTICSREPORT_H
