//===- OpticsReport.cpp - The optics table and its record ------------------===//

#include "OpticsReport.h"

#include "BunchSlices.h"
#include "Failure.h"
#include "Measure.h"
#include "ReplacementFile.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <algorithm>
#include <cmath>
#include <cstdio>

const char *const OpticsVersion = TWISS_VERSION;

namespace {

QJsonObject conventions(const QStringList &measures) {
  QJsonObject c;
  for (const Measure *measure : registeredMeasures())
    if (measures.contains(measure->name))
      for (const auto &[name, text] : measure->conventions)
        c[name] = text;
  c["frame"] = "x and y in each plane's own frame, as twiss computes them; s exact, in mm";
  c["angles"] = "x' = Px/Pz and y' = Py/Pz of the momentum in the plane's frame, in mrad";
  c["interpolation"] = "position, momentum, time and weight interpolated linearly between the "
                       "two steps on either side of the plane";
  c["moments"] = "weighted centred moments normalised by the sum of the weights (1/N, population)";
  c["errors"] = "first-order propagation of the spread of the moments (delta method), "
                "sigma^2 = sum w^2 psi^2 / W^2";
  c["transmission"] = "sum of weights relative to the first plane; binomial error with the "
                      "first plane's effective count";
  return c;
}

/// A long text kept in pieces of about a megabyte, each given its room once: never one
/// block, never grown by copying.
class Pieces {
public:
  void append(const QByteArray &bytes) {
    constexpr qsizetype PieceBytes = 1 << 20;
    if (list.isEmpty() || list.last().size() + bytes.size() > PieceBytes) {
      list << QByteArray();
      list.last().reserve(std::max(PieceBytes, bytes.size()));
    }
    list.last().append(bytes);
  }
  QByteArrayList list;
};

/// The record of one plane, as an element of the record's list of planes (indented
/// twice): the value of every column, null where it has none.
QByteArray planeRecord(const OpticsRow &row) {
  const QStringList &columns = row.layout->columns;
  const qsizetype status = columns.size() - 1;
  QJsonObject plane;
  for (qsizetype i = 0; i < status; ++i) {
    double v = row.values[size_t(i)];
    plane[columns[i]] = std::isfinite(v) ? QJsonValue(v) : QJsonValue(QJsonValue::Null);
  }
  plane[columns[status]] = row.status;
  for (auto added = row.record.begin(); added != row.record.end(); ++added)
    plane[added.key()] = added.value();
  QByteArray text = QJsonDocument(plane).toJson();
  text.chop(1); // the document's last newline
  QByteArray indented = "        ";
  return indented.append(text.replace("\n", "\n        "));
}

} // namespace

QByteArrayList opticsTable(const QStringList &measures, const QList<OpticsRow> &rows) {
  const QStringList columns = tableColumns(measures);
  Pieces lines;
  lines.append(columns.join(',').toLatin1() + '\n');
  const qsizetype status = columns.size() - 1;
  for (const OpticsRow &row : rows) {
    QByteArray line;
    for (qsizetype i = 0; i < status; ++i) {
      double v = row.values[size_t(i)];
      if (!std::isnan(v))
        line += QString::asprintf("%.10g", v).toLatin1();
      line += ',';
    }
    lines.append(line + row.status.toLatin1() + '\n');
  }
  return lines.list;
}

QByteArrayList slicesTable(const QList<double> &planeS, const QList<OpticsRow> &rows) {
  Pieces lines;
  lines.append("plane,s_mm,slice," + sliceColumns().join(',').toLatin1() + '\n');
  for (qsizetype plane = 0; plane < rows.size(); ++plane)
    for (size_t slice = 0; slice < rows[plane].slices.size(); ++slice) {
      QByteArray line =
          QString::asprintf("%lld,%.10g,%zu", (long long)plane, planeS[plane], slice).toLatin1();
      for (double v : rows[plane].slices[slice])
        line += ',' + (std::isnan(v) ? QByteArray() : QString::asprintf("%.10g", v).toLatin1());
      lines.append(line + '\n');
    }
  return lines.list;
}

QByteArrayList opticsRecord(const OpticsRun &run, const QList<OpticsRow> &rows) {
  QJsonObject record;
  record["tool"] = "twiss-optics";
  record["version"] = OpticsVersion;
  record["run_directories"] = QJsonArray::fromStringList(run.directories);
  record["selection"] = run.selection.toJson();
  record["weights"] = run.selection.weighted ? "weight column (12)" : "every crossing weighs 1";
  QJsonObject reference;
  reference["mode"] = run.reference.fixed ? "fixed" : "mean momentum at each plane";
  if (run.reference.fixed)
    reference["MeV"] = run.reference.momentum;
  record["p_ref"] = reference;
  record["conventions"] = conventions(run.measures);
  record["totals"] = run.totals.toJson();
  double crossings = 0;
  for (const OpticsRow &row : rows)
    crossings += row.value("n");
  record["crossings"] = crossings;
  record["planes"] = QJsonArray();
  // The planes are written one at a time where the empty list stands, as the whole
  // document would write them: a record of many planes is never held as one tree.
  const QByteArray listEnd = "    ]", emptyPlanes = "\n    \"planes\": [\n" + listEnd;
  QByteArray text = QJsonDocument(record).toJson();
  const qsizetype at = text.indexOf(emptyPlanes) + emptyPlanes.size() - listEnd.size();
  Pieces pieces;
  pieces.append(text.left(at));
  for (qsizetype i = 0; i < rows.size(); ++i)
    pieces.append(planeRecord(rows[i]).append(i + 1 < rows.size() ? ",\n" : "\n"));
  pieces.append(text.mid(at));
  return pieces.list;
}

void writeWhole(const QString &path, const QByteArrayList &pieces) {
  if (path == "-") {
    bool written = true;
    for (const QByteArray &piece : pieces)
      written = written &&
                fwrite(piece.constData(), 1, size_t(piece.size()), stdout) == size_t(piece.size());
    if (!written || fflush(stdout) != 0)
      throw OutputError("cannot write the table to standard output");
    return;
  }
  QString error = writeWholeFile(path, pieces);
  if (!error.isEmpty())
    throw OutputError(path + ": cannot be written (" + error + ")");
}
