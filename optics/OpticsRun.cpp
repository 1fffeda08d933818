//===- OpticsRun.cpp - Everything one analysis of a beam is made of --------===//

#include "OpticsRun.h"

#include "ExactNumber.h"
#include "Failure.h"
#include "Measure.h"

#include <QJsonArray>
#include <QSet>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <optional>
#include <thread>

namespace {

const char *const MomentsFormat = "twiss-optics moments";
/// The measure that takes the solenoid field at each plane.
const char *const AngularMomentum = "angular-momentum";
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

/// The measures a moments file holds: the default alone where it names none.
template <typename Malformed>
QStringList measuresOf(const QJsonObject &object, Malformed malformed) {
  const QString first = registeredMeasures().first()->name;
  if (!object.contains("measures"))
    return {first};
  const QJsonObject versions = object.value("measures").toObject();
  for (const QString &name : versions.keys()) {
    const Measure *measure = measureNamed(name);
    if (!measure)
      throw malformed("a measure this version does not know: " + name);
    if (versions.value(name).toInt() != measure->version)
      throw malformed(QString("measure %1 version %2").arg(name).arg(versions.value(name).toInt()));
  }
  QStringList names;
  for (const Measure *measure : registeredMeasures())
    if (versions.contains(measure->name))
      names << measure->name;
  if (names.isEmpty() || names.first() != first)
    throw malformed("no moments of the measure " + first);
  return names;
}

} // namespace

InputError notAMomentsFile(const QString &path, const QString &what) {
  return InputError(path + ": not a moments file of twiss-optics (" + what + ")");
}

void OpticsRun::startStatistics(size_t planes) {
  statistics.assign(planes, PlaneStatistics(momentSetsOf(measures)));
}

OpticsRow OpticsRun::row(size_t i) const {
  // A thread reads back one plane's crossings at a time.
  PlaneCrossings crossings;
  crossings.choices = choices;
  std::vector<KeptCrossing> ofPlane;
  if (kept && kept->count(i) > KeptCrossings::MaximumPlaneCrossings) {
    crossings.passes = kept->passesOver(i);
  } else if (kept) {
    ofPlane = kept->crossingsOf(i);
    crossings.crossings = &ofPlane;
  }
  return beamOptics(planeS[qsizetype(i)], statistics[i], statistics[0], reference, measures,
                    planeBz.value(qsizetype(i)), crossings);
}

namespace {

/// Lets threads hold at most a budget of bytes at once, each waiting for its share.
class ByteGate {
public:
  explicit ByteGate(size_t budget) : budget(budget) {}
  void take(size_t bytes) {
    std::unique_lock<std::mutex> lock(mutex);
    freed.wait(lock, [&] { return used + bytes <= budget; });
    used += bytes;
  }
  void give(size_t bytes) {
    {
      std::lock_guard<std::mutex> lock(mutex);
      used -= bytes;
    }
    freed.notify_all();
  }

private:
  const size_t budget;
  size_t used = 0;
  std::mutex mutex;
  std::condition_variable freed;
};

} // namespace

void OpticsRun::rows(int threads, const std::function<void(OpticsRow &&)> &take) const {
  // Every plane's moments settled first: then the rows only read them.
  for (const PlaneStatistics &plane : statistics)
    plane.horizontal();
  // Each plane's row depends on its plane alone: threads take the next plane left, as
  // long as the crossings read back stay within their budget and the plane is within a
  // window of the next row to hand over, so that few rows wait at once.
  const size_t planes = statistics.size(), window = 4 * size_t(std::max(threads, 1)) + 16;
  std::vector<std::optional<OpticsRow>> made(planes);
  std::atomic<size_t> next{0};
  size_t handed = 0; // rows handed over, under the mutex
  bool failed = false;
  std::exception_ptr failure;
  std::mutex mutex;
  std::condition_variable handedOver;
  ByteGate gate(KeptCrossings::ReadBackBudget);
  auto work = [&] {
    try {
      for (size_t i; (i = next++) < planes;) {
        {
          std::unique_lock<std::mutex> lock(mutex);
          handedOver.wait(lock, [&] { return i < handed + window || failed; });
          if (failed)
            return;
        }
        const size_t count = kept ? kept->count(i) : 0;
        // A plane read back whole takes its own bytes; one taken in passes, whose blocks
        // and search for quantiles may take as much, the whole budget.
        const size_t bytes = count <= KeptCrossings::MaximumPlaneCrossings
                                 ? KeptCrossings::readBackBytes(count)
                                 : KeptCrossings::ReadBackBudget;
        gate.take(bytes);
        struct Given {
          ByteGate &gate;
          size_t bytes;
          ~Given() { gate.give(bytes); }
        } given{gate, bytes};
        OpticsRow r = row(i);
        std::lock_guard<std::mutex> lock(mutex);
        made[i] = std::move(r);
        for (; handed < planes && made[handed]; ++handed) {
          take(std::move(*made[handed]));
          made[handed].reset();
        }
        handedOver.notify_all();
      }
    } catch (...) {
      std::lock_guard<std::mutex> lock(mutex);
      failure = failure ? failure : std::current_exception();
      failed = true;
      next = planes;
      handedOver.notify_all();
    }
  };
  std::vector<std::thread> helpers;
  for (int t = 1; t < std::min(threads, int(planes)); ++t)
    helpers.emplace_back(work);
  work();
  for (std::thread &helper : helpers)
    helper.join();
  if (failure)
    std::rethrow_exception(failure);
}

QList<OpticsRow> OpticsRun::rows(int threads) const {
  QList<OpticsRow> all;
  rows(threads, [&](OpticsRow &&r) { all.append(std::move(r)); });
  return all;
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
  // Only the angular momentum takes the field; a run without it says nothing of it.
  if (measures.contains(AngularMomentum)) {
    QJsonArray fields;
    for (double v : planeBz)
      fields.append(exactText(v));
    object["planes_bz_T"] = fields;
  }
  object["totals"] = totals.toJson();
  // A run of the default measures says nothing of them, as files before measures did.
  if (measures != QStringList(registeredMeasures().first()->name)) {
    QJsonObject versions;
    for (const QString &name : measures)
      versions[name] = measureNamed(name)->version;
    object["measures"] = versions;
  }
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
  for (const QJsonValue &bz : object.value("planes_bz_T").toArray()) {
    double v = 0;
    ok = readExact(bz, v) && ok;
    run.planeBz.append(v);
  }
  if (!ok)
    throw malformed("a number is not a hexadecimal float");
  if (!run.totals.fromJson(object.value("totals").toObject()))
    throw malformed("no totals");
  if (run.planeS.isEmpty())
    throw malformed("the planes do not match their positions");
  run.measures = measuresOf(object, malformed);
  if (run.measures.contains(AngularMomentum) && run.planeBz.size() != run.planeS.size())
    throw malformed("the solenoid fields do not match the planes");
  return run;
}

OpticsRun OpticsRun::fromMomentsJson(const QJsonObject &object, const QString &path) {
  OpticsRun run = fromMomentsHeader(object, path);
  QJsonArray planes = object.value("planes").toArray();
  auto malformed = [&](const QString &what) { return notAMomentsFile(path, what); };
  if (planes.size() != run.planeS.size())
    throw malformed("the planes do not match their positions");
  run.startStatistics(size_t(planes.size()));
  for (qsizetype i = 0; i < planes.size(); ++i)
    if (!run.statistics[size_t(i)].fromJson(planes[i].toObject()))
      throw malformed(QString("plane %1").arg(i));
  return run;
}

QStringList OpticsRun::merge(const OpticsRun &other, const QString &path) {
  QStringList leftOut = mergeHeader(other, path);
  for (size_t i = 0; i < statistics.size(); ++i)
    mergePlane(i, other.statistics[i], path);
  return leftOut;
}

void OpticsRun::mergePlane(size_t k, const PlaneStatistics &plane, const QString &path) {
  if (!statistics[k].fitsWith(plane))
    throw countsOverflow(path);
  statistics[k].merge(plane);
}

QStringList OpticsRun::mergeHeader(const OpticsRun &other, const QString &path) {
  auto refuse = [&](const QString &what) {
    return InputError(path + ": cannot be merged: " + what +
                      " differ from those of the first file");
  };
  if (other.coordinatesDigest != coordinatesDigest)
    throw refuse("the beamline coordinates");
  if (other.planesDigest != planesDigest || other.planeS != planeS)
    throw refuse("the planes");
  if (measures.contains(AngularMomentum) && other.measures.contains(AngularMomentum) &&
      other.planeBz != planeBz)
    throw refuse("the solenoid fields (Bz, --bz)");
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
  return keepCommonMeasures(other.measures);
}

QStringList OpticsRun::keepCommonMeasures(const QStringList &others) {
  QStringList common, leftOut;
  for (const QString &name : measures)
    (others.contains(name) ? common : leftOut) << name;
  for (const QString &name : others)
    if (!measures.contains(name))
      leftOut << name;
  if (common != measures) {
    measures = common;
    for (PlaneStatistics &plane : statistics)
      plane.keepOnly(momentSetsOf(measures));
  }
  return leftOut;
}
