//===- LineHead.h - The part of an overlong line that is read --*- C++ -*-===//
//
// A track line is read as a text stream reads it: carriage returns deleted, decoded
// as UTF-8, its runs of white space made single blanks, and its first twelve fields
// scanned. Nothing after the blank that ends the twelfth field can change how it is
// read, so a line far longer than any step line is kept only up to there.
//
// A field itself may be huge. One of digits alone, with an optional sign, is kept in
// a short form that every reading of the line takes for the same number: without its
// leading zeros, and past 400 significant digits as 1 and 400 zeros (out of range as
// an integer and as a double alike). Any other field longer than MaxField characters
// cannot be shortened safely: then the whole line is needed after all.
//
//===----------------------------------------------------------------------------===//
#ifndef TWISS_LINEHEAD_H
#define TWISS_LINEHEAD_H

#include <QByteArray>
#include <QString>

/// The head of one line, taken in pieces of any size.
class LineHead {
public:
  /// Takes the next bytes of the line (no newline among them).
  void append(const char *data, size_t size);
  /// Takes the end of the line: bytes that began a character and were cut by it
  /// are invalid.
  void end();
  /// Whether the line cannot be read from its head: a long field is not a plain
  /// number. The caller reads the line whole instead.
  bool needsWholeLine() const { return wholeLineNeeded; }
  /// The head as a line of the file that is read as the whole line is: the fields
  /// in UTF-8, each followed by one blank.
  QByteArray text() const;

private:
  /// Fields after which the rest of a line is not read.
  static constexpr int FieldsRead = 12;
  /// Characters of a field kept as they are.
  static constexpr int MaxField = 4096;
  /// Significant digits of a long number kept; more stand for "out of range".
  static constexpr int MaxDigits = 400;

  QByteArray unfinished; ///< the bytes of a character that the next piece may finish
  QString kept;          ///< the completed fields, each followed by a blank
  QString field;         ///< the field being read, as it is while it is short
  bool inField = false;
  int fields = 0; ///< fields begun
  bool complete = false;
  bool wholeLineNeeded = false;
  // A long field of digits, in short form.
  bool longNumber = false;
  QString sign, digits; ///< digits without the leading zeros, at most MaxDigits + 1

  /// Takes decoded characters until the head is complete.
  void take(const QByteArray &bytes);
  void take(QChar c);
  /// The field being read as the head gives it.
  QString fieldText() const;
  void endField();
  void shortenField();
  void takeDigit(QChar c);
};

#endif // TWISS_LINEHEAD_H
