//===- MomentsFile.cpp - A run's moments, saved for a merge ----------------===//

#include "MomentsFile.h"

#include <QJsonDocument>
#include <QtEndian>
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

/// The numbers each set of moments keeps per plane.
size_t setSize(int set) {
  static const std::vector<size_t> sizes = [] {
    std::vector<size_t> s;
    for (int i = 0; i < PlaneStatistics::MomentSets; ++i)
      s.push_back(PlaneStatistics().momentState(i).size());
    return s;
  }();
  return sizes[size_t(set)];
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

QByteArray binaryBytes(const OpticsRun &run) {
  QByteArray header = QJsonDocument(run.momentsHeader()).toJson(QJsonDocument::Compact);
  while ((Preamble + header.size()) % 8 != 0)
    header.append(' ');
  QByteArray bytes(Magic, MagicSize);
  appendLittleEndian(bytes, BinaryVersion);
  appendLittleEndian(bytes, quint32(header.size()));
  bytes += header;
  for (const PlaneStatistics &p : run.statistics)
    for (qint64 count : {qint64(p.n), qint64(p.nBack), qint64(p.leftOut), qint64(p.anySpecies),
                         qint64(p.species), qint64(p.mixedSpecies), qint64(p.unknownSpecies)})
      appendLittleEndian(bytes, count);
  for (int set = 0; set < PlaneStatistics::MomentSets; ++set)
    for (const PlaneStatistics &p : run.statistics)
      for (double v : p.momentState(set))
        appendDouble(bytes, v);
  appendLittleEndian(bytes, checksum(bytes.constData(), bytes.size()));
  return bytes;
}

/// The counts and moments of every plane, from the bytes after the header.
void readPlanes(OpticsRun &run, const char *data) {
  for (PlaneStatistics &p : run.statistics) {
    qint64 counts[CountColumns];
    for (qint64 &count : counts) {
      count = readLittleEndian<qint64>(data);
      data += sizeof(qint64);
    }
    p.n = long(counts[0]);
    p.nBack = long(counts[1]);
    p.leftOut = long(counts[2]);
    p.anySpecies = counts[3] != 0;
    p.species = int(counts[4]);
    p.mixedSpecies = counts[5] != 0;
    p.unknownSpecies = counts[6] != 0;
  }
  for (int set = 0; set < PlaneStatistics::MomentSets; ++set) {
    std::vector<double> numbers(setSize(set));
    for (PlaneStatistics &p : run.statistics) {
      for (double &v : numbers) {
        v = readDouble(data);
        data += sizeof(double);
      }
      p.setMomentState(set, numbers);
    }
  }
}

OpticsRun readBinary(const QString &path, const QByteArray &bytes) {
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
  OpticsRun run = OpticsRun::fromMomentsHeader(header.object(), path);
  qsizetype perPlane = CountColumns * qsizetype(sizeof(qint64));
  for (int set = 0; set < PlaneStatistics::MomentSets; ++set)
    perPlane += qsizetype(setSize(set) * sizeof(double));
  const qsizetype expected = Preamble + headerSize + run.planeS.size() * perPlane + 4;
  if (size != expected)
    throw damaged(QString("%1 bytes where its planes take %2").arg(size).arg(expected));
  if (readLittleEndian<quint32>(data + size - 4) != checksum(data, size - 4))
    throw damaged("its checksum does not match its bytes");
  readPlanes(run, data + Preamble + headerSize);
  return run;
}

} // namespace

QByteArray momentsFileBytes(const OpticsRun &run, const QString &path) {
  if (path.endsWith(".bin"))
    return binaryBytes(run);
  return QJsonDocument(run.toMomentsJson()).toJson(QJsonDocument::Compact);
}

OpticsRun readMomentsFile(const QString &path, const QByteArray &bytes) {
  if (bytes.startsWith(QByteArray(Magic, MagicSize)))
    return readBinary(path, bytes);
  QJsonParseError error;
  QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
  if (!document.isObject())
    throw notAMomentsFile(path, error.errorString());
  return OpticsRun::fromMomentsJson(document.object(), path);
}
