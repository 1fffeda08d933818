//===- MomentsFile.cpp - A run's moments, saved for a merge ----------------===//

#include "MomentsFile.h"

#include "ExactNumber.h"
#include "Measure.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QtEndian>
#include <array>
#include <cstring>
#include <zlib.h>

namespace {

const char Magic[] = "\x89TWM\r\n\x1a\n";
const qsizetype MagicSize = 8;
const quint32 BinaryVersion = 1;
/// Magic number, version and header length.
const qsizetype Preamble = 16;
/// Per plane: n, n_back, left_out, has_species, species, mixed_species, unknown_species.
const int CountColumns = 7;

/// The numbers a set of moments keeps per plane.
size_t setSize(const MomentSet *set) {
  return Moments(int(set->coordinates.size()), set->order).state().size();
}

/// The numbers each set of moments of the run's measures keeps per plane, in their order.
std::vector<size_t> setSizes(const OpticsRun &run) {
  std::vector<size_t> sizes;
  for (const MomentSet *set : momentSetsOf(run.measures))
    sizes.push_back(setSize(set));
  return sizes;
}

template <typename T> void appendLittleEndian(QByteArray &bytes, T value) {
  const T little = qToLittleEndian(value);
  bytes.append(reinterpret_cast<const char *>(&little), sizeof little);
}

void appendDouble(QByteArray &bytes, double value) {
  quint64 bits;
  memcpy(&bits, &value, sizeof bits);
  appendLittleEndian(bytes, bits);
}

template <typename T> T readLittleEndian(const char *data) {
  return qFromLittleEndian<T>(data);
}

double readDouble(const char *data) {
  const quint64 bits = readLittleEndian<quint64>(data);
  double value;
  memcpy(&value, &bits, sizeof value);
  return value;
}

quint32 checksum(const char *data, qsizetype size) {
  return quint32(crc32(0, reinterpret_cast<const Bytef *>(data), uInt(size)));
}

} // namespace

QByteArray binaryMomentsBytes(const OpticsRun &run) {
  QByteArray header = QJsonDocument(run.momentsHeader()).toJson(QJsonDocument::Compact);
  while ((Preamble + header.size()) % 8 != 0)
    header.append(' ');
  QByteArray bytes(Magic, MagicSize);
  appendLittleEndian(bytes, BinaryVersion);
  appendLittleEndian(bytes, quint32(header.size()));
  bytes += header;
  // Its size is known, so the file is given its room once.
  const std::vector<size_t> sizes = setSizes(run);
  qsizetype numbers = CountColumns;
  for (size_t size : sizes)
    numbers += qsizetype(size);
  bytes.reserve(bytes.size() + qsizetype(run.statistics.size()) * numbers * 8 + 4);
  for (const PlaneStatistics &p : run.statistics)
    for (qint64 count : {qint64(p.n), qint64(p.nBack), qint64(p.leftOut), qint64(p.anySpecies),
                         qint64(p.species), qint64(p.mixedSpecies), qint64(p.unknownSpecies)})
      appendLittleEndian(bytes, count);
  for (size_t set = 0; set < sizes.size(); ++set)
    for (const PlaneStatistics &p : run.statistics)
      for (double v : p.momentState(set))
        appendDouble(bytes, v);
  appendLittleEndian(bytes, checksum(bytes.constData(), bytes.size()));
  return bytes;
}

namespace {

/// The counts of plane k (CountColumns of them), from where the planes' counts begin.
std::array<qint64, CountColumns> countsOf(const char *counts, qsizetype k) {
  std::array<qint64, CountColumns> c;
  for (int column = 0; column < CountColumns; ++column)
    c[size_t(column)] =
        readLittleEndian<qint64>(counts + (k * CountColumns + column) * qsizetype(sizeof(qint64)));
  return c;
}

/// Calls `take` with the counts and moments of every plane in turn, read from the
/// binary form's bytes into one plane's statistics.
template <typename Take> void forEachPlane(const MomentsPart &part, Take take) {
  const qsizetype planes = part.run.planeS.size();
  const char *counts = part.bytes.constData() + part.planesAt;
  const std::vector<size_t> sizes = setSizes(part.run);
  std::vector<const char *> sets;
  const char *next = counts + planes * CountColumns * qsizetype(sizeof(qint64));
  for (size_t size : sizes) {
    sets.push_back(next);
    next += planes * qsizetype(size * sizeof(double));
  }
  PlaneStatistics plane(momentSetsOf(part.run.measures));
  std::vector<double> numbers;
  for (qsizetype k = 0; k < planes; ++k) {
    const std::array<qint64, CountColumns> c = countsOf(counts, k);
    plane.n = long(c[0]);
    plane.nBack = long(c[1]);
    plane.leftOut = long(c[2]);
    plane.anySpecies = c[3] != 0;
    plane.species = int(c[4]);
    plane.mixedSpecies = c[5] != 0;
    plane.unknownSpecies = c[6] != 0;
    for (size_t set = 0; set < sizes.size(); ++set) {
      numbers.resize(sizes[set]);
      const char *at = sets[set] + k * qsizetype(numbers.size() * sizeof(double));
      for (size_t i = 0; i < numbers.size(); ++i)
        numbers[i] = readDouble(at + qsizetype(i * sizeof(double)));
      plane.setMomentState(set, numbers);
    }
    take(size_t(k), plane);
  }
}

MomentsPart readBinary(const QString &path, const QByteArray &bytes) {
  auto damaged = [&](const QString &what) { return notAMomentsFile(path, what); };
  const qsizetype size = bytes.size();
  if (size < Preamble + 4)
    throw damaged("cut short: " + QString::number(size) + " bytes");
  const char *data = bytes.constData();
  const quint32 version = readLittleEndian<quint32>(data + MagicSize);
  if (version != BinaryVersion)
    throw damaged("binary form version " + QString::number(version));
  const qsizetype headerSize = readLittleEndian<quint32>(data + MagicSize + 4);
  if (headerSize > size - Preamble - 4)
    throw damaged("cut short: " + QString::number(size) + " bytes");
  QJsonParseError error;
  QJsonDocument header = QJsonDocument::fromJson(bytes.mid(Preamble, headerSize), &error);
  if (!header.isObject())
    throw damaged("its header: " + error.errorString());
  MomentsPart part{OpticsRun::fromMomentsHeader(header.object(), path), bytes,
                   Preamble + headerSize};
  qsizetype perPlane = CountColumns * qsizetype(sizeof(qint64));
  for (size_t setNumbers : setSizes(part.run))
    perPlane += qsizetype(setNumbers * sizeof(double));
  const qsizetype expected = part.planesAt + part.run.planeS.size() * perPlane + 4;
  if (size != expected)
    throw damaged(QString("%1 bytes where its planes take %2").arg(size).arg(expected));
  if (readLittleEndian<quint32>(data + size - 4) != checksum(data, size - 4))
    throw damaged("its checksum does not match its bytes");
  for (qsizetype k = 0; k < part.run.planeS.size(); ++k) {
    const std::array<qint64, CountColumns> c = countsOf(data + part.planesAt, k);
    // n, n_back and left_out, then the species, an int.
    if (!isCount(c[0]) || !isCount(c[1]) || !isCount(c[2]) || c[4] != int(c[4]))
      throw damaged(QString("plane %1: a count out of range").arg(k));
  }
  return part;
}

} // namespace

void forEachMomentsPiece(const OpticsRun &run, const QString &path,
                         const std::function<void(const QByteArray &)> &take) {
  if (path.endsWith(".bin")) {
    take(binaryMomentsBytes(run));
    return;
  }
  // The header's text with the planes' list empty, then each plane's object put into it:
  // the compact text is the same, an object alone or within a list.
  QJsonObject header = run.momentsHeader();
  header["planes"] = QJsonArray();
  const QByteArray text = QJsonDocument(header).toJson(QJsonDocument::Compact);
  const QByteArray emptyList = "\"planes\":[]";
  const qsizetype end = text.indexOf(emptyList) + emptyList.size() - 1;
  take(text.left(end));
  for (size_t k = 0; k < run.statistics.size(); ++k)
    take((k > 0 ? "," : "") +
         QJsonDocument(run.statistics[k].toJson()).toJson(QJsonDocument::Compact));
  take(text.mid(end));
}

QByteArray momentsFileBytes(const OpticsRun &run, const QString &path) {
  QByteArray bytes;
  forEachMomentsPiece(run, path, [&](const QByteArray &piece) { bytes += piece; });
  return bytes;
}

MomentsPart readMomentsPart(const QString &path, const QByteArray &bytes) {
  if (bytes.startsWith(QByteArray(Magic, MagicSize)))
    return readBinary(path, bytes);
  QJsonParseError error;
  QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
  if (!document.isObject())
    throw notAMomentsFile(path, error.errorString());
  return {OpticsRun::fromMomentsJson(document.object(), path), QByteArray(), 0};
}

QStringList addMomentsPart(OpticsRun &run, const MomentsPart &part, const QString &path) {
  if (part.bytes.isEmpty())
    return run.merge(part.run, path);
  QStringList leftOut = run.mergeHeader(part.run, path);
  forEachPlane(part,
               [&](size_t k, const PlaneStatistics &plane) { run.mergePlane(k, plane, path); });
  return leftOut;
}

OpticsRun readMomentsFile(const QString &path, const QByteArray &bytes) {
  return runOfPart(readMomentsPart(path, bytes));
}

OpticsRun runOfPart(MomentsPart part) {
  if (!part.bytes.isEmpty()) {
    part.run.startStatistics(size_t(part.run.planeS.size()));
    forEachPlane(part,
                 [&](size_t k, const PlaneStatistics &plane) { part.run.statistics[k] = plane; });
  }
  return part.run;
}
