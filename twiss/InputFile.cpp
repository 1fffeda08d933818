//===- InputFile.cpp - Input read to its end, or the reason it was not -----===//

#include "InputFile.h"

QString readEndFailure(const QFile &file, qint64 sizeAtOpen) {
  if (file.error() != QFileDevice::NoError)
    return file.errorString();
  if (!file.isSequential() && file.size() < sizeAtOpen)
    return "File shrank while it was read";
  return QString();
}

bool TextLines::next(QString &line) {
  if (!readFailure.isEmpty())
    return false;
  if (stream.atEnd()) {
    readFailure = readEndFailure(file, sizeAtOpen);
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
  failure = readEndFailure(file, sizeAtOpen);
  return bytes;
}
