//===- InputFile.h - Input read to its end, or the reason it was not -*- C++ -*-===//
//
// A text stream and a read of a whole file take a failed read for the end of the
// file; these do not: a read that fails, or a file that holds fewer bytes at its end
// than when it was opened (cut short by another program), ends them with a reason.
//
//===----------------------------------------------------------------------------===//
#ifndef TWISS_INPUTFILE_H
#define TWISS_INPUTFILE_H

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QTextStream>

/// Why the reading of a file that held `sizeAtOpen` bytes when it was opened has come
/// to an end before its last byte: the system's reason for a failed read ("Input/output
/// error"), or "File shrank while it was read" when it holds fewer bytes now (a pipe
/// never does); empty when the end is the end of the file.
QString readEndFailure(const QFile &file, qint64 sizeAtOpen);

/// Reads an open file line by line as a text stream does.
class TextLines {
public:
  /// Reads from the file, which must stay open while the lines are read.
  explicit TextLines(QFile &file) : file(file), sizeAtOpen(file.size()), stream(&file) {}
  /// The next line, as the stream gives it; false at the end of the file or after a
  /// failed read.
  bool next(QString &line);
  /// Why the lines ended before the end of the file ("Input/output error"); empty
  /// when they did not.
  QString failure() const { return readFailure; }

private:
  QFile &file;
  qint64 sizeAtOpen;
  QTextStream stream;
  QString readFailure;
};

/// Every byte of an open file; `failure` says why the bytes ended early, if they did.
QByteArray readWhole(QFile &file, QString &failure);

#endif // TWISS_INPUTFILE_H
