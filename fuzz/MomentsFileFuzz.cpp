//===- MomentsFileFuzz.cpp - A moments file, read for a merge ---------------===//
//
// The input is a moments file of either form. A binary one gets its checksum set
// right, so that the header and the sizes behind it are explored. A file that is read
// must write itself again to a file that reads back to the same numbers, and must
// merge with itself.
//
//===----------------------------------------------------------------------------===//

#include "FuzzSupport.h"
#include "MomentsFile.h"

#include <QJsonDocument>
#include <QtEndian>
#include <cstdlib>
#include <zlib.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
  if (bytes.startsWith("\x89TWM\r\n\x1a\n") && bytes.size() >= 20) {
    const quint32 crc =
        quint32(crc32(0, reinterpret_cast<const Bytef *>(bytes.constData()), uInt(size - 4)));
    qToLittleEndian(crc, bytes.data() + size - 4);
  }
  try {
    MomentsPart part = readMomentsPart("m.bin", bytes);
    OpticsRun run = readMomentsFile("m.bin", bytes);
    const QByteArray text = QJsonDocument(run.toMomentsJson()).toJson();
    for (const char *name : {"again.bin", "again.json"}) {
      OpticsRun again = readMomentsFile(name, momentsFileBytes(run, name));
      if (QJsonDocument(again.toMomentsJson()).toJson() != text)
        abort();
    }
    addMomentsPart(run, part, "m.bin");
    run.rows();
  } catch (const InputError &) {
    // A file that is not a moments file is named as such: nothing more to check.
  }
  return 0;
}
