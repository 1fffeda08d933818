//===- FuzzSupport.cpp - Shared set-up of the fuzz targets -----------------===//

#include "FuzzSupport.h"

#include "BCSample.h"
#include "BeamlineCoordinates.h"
#include "Macro.h"
#include "Units.h"

#include <QFile>
#include <QTemporaryDir>
#include <cstdio>

namespace {

struct UnitTables {
  QHash<QString, int> types;
  QHash<QString, double> factors;
  UnitTables() : types(Nexil::Units::typeHash), factors(Nexil::Units::factorHash) {}
};

const UnitTables &pristineUnits() {
  static const UnitTables tables;
  return tables;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  stderr = fopen("/dev/null", "w");
  pristineUnits();
  return 0;
}

QString writeInputFile(const char *name, const QByteArray &prefix, const uint8_t *data,
                       size_t size) {
  static QTemporaryDir dir;
  const QString path = dir.path() + "/" + name;
  QFile file(path);
  if (!file.open(QIODevice::WriteOnly))
    return QString();
  file.write(prefix);
  file.write(reinterpret_cast<const char *>(data), qint64(size));
  return path;
}

void resetProcessState() {
  Nexil::Units::typeHash = pristineUnits().types;
  Nexil::Units::factorHash = pristineUnits().factors;
  Nexil::Units::val.clear();
  Nexil::Units::op.clear();
  Nexil::Macro::hash.clear();
  Nexil::Macro::globalHash.clear();
  Nexil::Macro::stack.clear();
  Nexil::BeamlineCoordinates::clear();
  qDeleteAll(BCSample::samples);
  BCSample::samples.clear();
  BCSample::firstStep = true;
}

bool isInternalError(const QString &message) {
  return message.startsWith("INTERNAL ERROR: ");
}

QString inputText(const uint8_t *data, size_t size) {
  return QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size));
}
