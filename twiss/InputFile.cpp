//===- InputFile.cpp - Input read to its end, or the reason it was not -----===//

#include "InputFile.h"

const char *const ShrankWhileRead = "File shrank while it was read";

bool hasShrunk(const QFile &file, qint64 sizeAtOpen) {
  return !file.isSequential() && file.size() < sizeAtOpen;
}

bool TextLines::next(QString &line) {
  if (!readFailure.isEmpty())
    return false;
  if (stream.atEnd()) {
    if (hasShrunk(file, sizeAtOpen))
      readFailure = ShrankWhileRead;
    return false;
  }
  line = stream.readLine();
  // A failed read leaves the stream as if the file ended: the file knows better.
  if (file.error() != QFileDevice::NoError) {
    readFailure = file.errorString();
    return false;
  }
  return true;
}

QByteArray readWhole(QFile &file, QString &failure) {
  const qint64 sizeAtOpen = file.size();
  QByteArray bytes;
  // Read on until a read gives nothing: one that fails then says so, where a single
  // read of the whole size would return the bytes before the failure as if complete.
  for (QByteArray piece; !(piece = file.read(qint64(1) << 20)).isEmpty();)
    bytes += piece;
  if (file.error() != QFileDevice::NoError)
    failure = file.errorString();
  else if (hasShrunk(file, sizeAtOpen))
    failure = ShrankWhileRead;
  return bytes;
}
