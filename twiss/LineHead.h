//===- LineHead.h - The part of an overlong line that is read --*- C++ -*-===//
//
// A track line is read as a text stream reads it: carriage returns deleted, decoded
// as UTF-8, its runs of white space made single blanks, and its first twelve fields
// scanned. Nothing after the blank that ends the twelfth field can change how it is
// read, so a line far longer than any step line is kept only up to there: its
// memory is that of its first twelve fields, however long the line.
//
//===----------------------------------------------------------------------------===//
#ifndef TWISS_LINEHEAD_H
#define TWISS_LINEHEAD_H

#include <QByteArray>
#include <QString>
#include <QStringDecoder>

/// The head of one line, taken in pieces of any size.
class LineHead {
public:
  /// Takes the next bytes of the line (no newline among them).
  void append(const char *data, size_t size);
  /// The head as a line of the file that is read as the whole line is: the fields
  /// in UTF-8, each followed by one blank.
  QByteArray text() const { return kept.toUtf8(); }

private:
  /// Fields after which the rest of a line is not read.
  static constexpr int FieldsRead = 12;

  QStringDecoder decoder{QStringConverter::Utf8, QStringConverter::Flag::ConvertInitialBom};
  QString kept;
  int fields = 0;       ///< fields begun
  bool inField = false; ///< the last character kept belongs to a field
  bool complete = false;

  void take(QChar c);
};

#endif // TWISS_LINEHEAD_H
