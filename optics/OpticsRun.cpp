//===- OpticsRun.cpp - Everything one analysis of a beam is made of --------===//

#include "OpticsRun.h"

#include "ExactNumber.h"
#include "Failure.h"

#include <QJsonArray>
#include <QSet>

namespace {

const char *const MomentsFormat = "twiss-optics moments";
const int MomentsVersion = 1;

QJsonObject referenceToJson(const MomentumReference &reference) {
  QJsonObject object;
  object["mode"] = reference.fixed ? "fixed" : "mean momentum at each plane";
  if (reference.fixed)
    object["MeV"] = exactText(reference.momentum);
  return object;
}

InputError countsOverflow(const QString &path) {
  return InputError(path + ": cannot be merged: its counts and those before it add up to more "
                           "than 2^53");
}

} // namespace

InputError notAMomentsFile(const QString &path, const QString &what) {
  return InputError(path + ": not a moments file of twiss-optics (" + what + ")");
}

QList<OpticsRow> OpticsRun::rows() const {
  QList<OpticsRow> rows;
  for (size_t i = 0; i < statistics.size(); ++i)
    rows.append(beamOptics(planeS[qsizetype(i)], statistics[i], statistics[0], reference));
  return rows;
}

QJsonObject OpticsRun::momentsHeader() const {
  QJsonObject object;
  object["format"] = MomentsFormat;
  object["format_version"] = MomentsVersion;
  object["run_directories"] = QJsonArray::fromStringList(directories);
  object["selection"] = selection.toJson();
  object["p_ref"] = referenceToJson(reference);
  object["beamline_sha256"] = coordinatesDigest;
  object["planes_sha256"] = planesDigest;
  QJsonArray s;
  for (double v : planeS)
    s.append(exactText(v));
  object["planes_s_mm"] = s;
  object["totals"] = totals.toJson();
  return object;
}

QJsonObject OpticsRun::toMomentsJson() const {
  QJsonObject object = momentsHeader();
  QJsonArray planes;
  for (const PlaneStatistics &plane : statistics)
    planes.append(plane.toJson());
  object["planes"] = planes;
  return object;
}

OpticsRun OpticsRun::fromMomentsHeader(const QJsonObject &object, const QString &path) {
  auto malformed = [&](const QString &what) { return notAMomentsFile(path, what); };
  if (object.value("format").toString() != MomentsFormat)
    throw malformed("no format line");
  if (object.value("format_version").toInt() != MomentsVersion)
    throw malformed("format version " + QString::number(object.value("format_version").toInt()));
  OpticsRun run;
  for (const QJsonValue &d : object.value("run_directories").toArray())
    run.directories.append(d.toString());
  QJsonObject selection = object.value("selection").toObject();
  for (const QJsonValue &id : selection.value("species").toArray())
    run.selection.species.append(id.toInt());
  run.selection.primariesOnly = selection.value("primaries_only").toBool();
  run.selection.weighted = selection.value("weighted").toBool(true);
  QJsonObject reference = object.value("p_ref").toObject();
  bool ok = true;
  run.reference.fixed = reference.value("mode").toString() == "fixed";
  if (run.reference.fixed)
    ok = readExact(reference.value("MeV"), run.reference.momentum);
  run.coordinatesDigest = object.value("beamline_sha256").toString();
  run.planesDigest = object.value("planes_sha256").toString();
  for (const QJsonValue &s : object.value("planes_s_mm").toArray()) {
    double v = 0;
    ok = readExact(s, v) && ok;
    run.planeS.append(v);
  }
  if (!ok)
    throw malformed("a number is not a hexadecimal float");
  if (!run.totals.fromJson(object.value("totals").toObject()))
    throw malformed("no totals");
  if (run.planeS.isEmpty())
    throw malformed("the planes do not match their positions");
  return run;
}

OpticsRun OpticsRun::fromMomentsJson(const QJsonObject &object, const QString &path) {
  OpticsRun run = fromMomentsHeader(object, path);
  QJsonArray planes = object.value("planes").toArray();
  auto malformed = [&](const QString &what) { return notAMomentsFile(path, what); };
  if (planes.size() != run.planeS.size())
    throw malformed("the planes do not match their positions");
  run.statistics.resize(size_t(planes.size()));
  for (qsizetype i = 0; i < planes.size(); ++i)
    if (!run.statistics[size_t(i)].fromJson(planes[i].toObject()))
      throw malformed(QString("plane %1").arg(i));
  return run;
}

void OpticsRun::merge(const OpticsRun &other, const QString &path) {
  mergeHeader(other, path);
  for (size_t i = 0; i < statistics.size(); ++i)
    mergePlane(i, other.statistics[i], path);
}

void OpticsRun::mergePlane(size_t k, const PlaneStatistics &plane, const QString &path) {
  if (!statistics[k].fitsWith(plane))
    throw countsOverflow(path);
  statistics[k].merge(plane);
}

void OpticsRun::mergeHeader(const OpticsRun &other, const QString &path) {
  auto refuse = [&](const QString &what) {
    return InputError(path + ": cannot be merged: " + what +
                      " differ from those of the first file");
  };
  if (other.coordinatesDigest != coordinatesDigest)
    throw refuse("the beamline coordinates");
  if (other.planesDigest != planesDigest || other.planeS != planeS)
    throw refuse("the planes");
  // A selection of species is a set: mu+,e- and e-,mu+ select the same tracks.
  auto speciesSet = [](const QList<int> &ids) { return QSet<int>(ids.begin(), ids.end()); };
  if (speciesSet(other.selection.species) != speciesSet(selection.species) ||
      other.selection.primariesOnly != selection.primariesOnly)
    throw refuse("the selection of tracks");
  if (other.selection.weighted != selection.weighted)
    throw refuse("the weights (--unweighted)");
  if (other.reference.fixed != reference.fixed || other.reference.momentum != reference.momentum)
    throw refuse("the reference momentum (--p-ref)");
  if (!totals.fitsWith(other.totals))
    throw countsOverflow(path);
  directories += other.directories;
  totals.add(other.totals);
}
