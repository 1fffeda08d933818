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

/// The record without its planes: how the run was made, the conventions and what the
/// track loop saw; `planesAt` is where the planes' records go, as the whole document
/// would place them: a record of many planes is never held as one tree.
QByteArray recordFrame(const OpticsRun &run, qsizetype &planesAt) {
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
  for (const PlaneStatistics &plane : run.statistics)
    crossings += double(plane.n);
  record["crossings"] = crossings;
  record["planes"] = QJsonArray();
  const QByteArray listEnd = "    ]", emptyPlanes = "\n    \"planes\": [\n" + listEnd;
  QByteArray text = QJsonDocument(record).toJson();
  planesAt = text.indexOf(emptyPlanes) + emptyPlanes.size() - listEnd.size();
  return text;
}

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

QString besideTable(const QString &tablePath, const char *suffix) {
  QString base = tablePath.endsWith(".csv") ? tablePath.chopped(4) : tablePath;
  return base + suffix;
}

OpticsReport::OpticsReport(const OpticsRun &run, const QString &tablePath, bool sliced)
    : tablePath(tablePath), columns(tableColumns(run.measures)), planeS(run.planeS) {
  const QByteArray header = columns.join(',').toLatin1() + '\n';
  if (tablePath == "-") {
    stdoutTable << header;
    return;
  }
  table = std::make_unique<WholeFile>(tablePath);
  table->write(header);
  record = std::make_unique<WholeFile>(besideTable(tablePath, ".json"));
  qsizetype at = 0;
  const QByteArray frame = recordFrame(run, at);
  record->write(frame.left(at));
  recordEnd = frame.mid(at);
  if (sliced) {
    slices = std::make_unique<WholeFile>(besideTable(tablePath, ".slices.csv"));
    slices->write("plane,s_mm,slice," + sliceColumns().join(',').toLatin1() + '\n');
  }
}

void OpticsReport::add(const OpticsRow &row) {
  const qsizetype plane = added++;
  QByteArray line;
  const qsizetype status = columns.size() - 1;
  for (qsizetype i = 0; i < status; ++i) {
    double v = row.values[size_t(i)];
    if (!std::isnan(v))
      line += QString::asprintf("%.10g", v).toLatin1();
    line += ',';
  }
  line += row.status.toLatin1() + '\n';
  if (!table) {
    stdoutTable << line;
    return;
  }
  table->write(line);
  record->write(planeRecord(row).append(plane + 1 < planeS.size() ? ",\n" : "\n"));
  if (slices)
    for (size_t slice = 0; slice < row.slices.size(); ++slice) {
      QByteArray text =
          QString::asprintf("%lld,%.10g,%zu", (long long)plane, planeS[plane], slice).toLatin1();
      for (double v : row.slices[slice])
        text += ',' + (std::isnan(v) ? QByteArray() : QString::asprintf("%.10g", v).toLatin1());
      slices->write(text + '\n');
    }
}

void OpticsReport::commit() {
  if (!table) {
    writeWhole("-", stdoutTable);
    return;
  }
  record->write(recordEnd);
  auto finish = [](WholeFile &file, const QString &path) {
    const QString error = file.finish();
    if (!error.isEmpty())
      throw OutputError(path + ": cannot be written (" + error + ")");
  };
  finish(*table, tablePath);
  finish(*record, besideTable(tablePath, ".json"));
  if (slices)
    finish(*slices, besideTable(tablePath, ".slices.csv"));
}

void writeWhole(const QString &path, const QByteArrayList &pieces) {
  writeWhole(path, [&](const std::function<void(const QByteArray &)> &take) {
    for (const QByteArray &piece : pieces)
      take(piece);
  });
}

void writeWhole(const QString &path,
                const std::function<void(const std::function<void(const QByteArray &)> &)> &make) {
  if (path == "-") {
    bool written = true;
    make([&](const QByteArray &piece) {
      written = written &&
                fwrite(piece.constData(), 1, size_t(piece.size()), stdout) == size_t(piece.size());
    });
    if (!written || fflush(stdout) != 0)
      throw OutputError("cannot write the table to standard output");
    return;
  }
  WholeFile file(path);
  make([&](const QByteArray &piece) { file.write(piece); });
  const QString error = file.finish();
  if (!error.isEmpty())
    throw OutputError(path + ": cannot be written (" + error + ")");
}
