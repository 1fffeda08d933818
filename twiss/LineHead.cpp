//===- LineHead.cpp - The part of an overlong line that is read -----------===//

#include "LineHead.h"

#include <QStringDecoder>

namespace {

bool isDigit(QChar c) {
  return c >= '0' && c <= '9';
}

/// The number of bytes at the end that begin a UTF-8 character and lack some of its
/// continuation bytes; 0 where the bytes end after a whole one or an invalid byte.
qsizetype unfinishedTail(const QByteArray &bytes) {
  for (qsizetype back = 1; back <= std::min<qsizetype>(3, bytes.size()); ++back) {
    const auto byte = uchar(bytes[bytes.size() - back]);
    if ((byte & 0xC0) == 0x80)
      continue; // a continuation byte: its lead byte comes before
    const int length = byte >= 0xF8   ? 0
                       : byte >= 0xF0 ? 4
                       : byte >= 0xE0 ? 3
                       : byte >= 0xC0 ? 2
                                      : 0;
    return length > back ? back : 0;
  }
  return 0;
}

} // namespace

void LineHead::append(const char *data, size_t size) {
  if (complete)
    return;
  // Text mode deletes every carriage return, even inside a character's bytes. A line
  // is decoded on its own, so a character cut by a piece's end waits for the next.
  QByteArray bytes = unfinished;
  bytes.reserve(bytes.size() + qsizetype(size));
  for (const char *p = data; p < data + size; ++p)
    if (*p != '\r')
      bytes.append(*p);
  const qsizetype tail = unfinishedTail(bytes);
  unfinished = bytes.right(tail);
  bytes.chop(tail);
  take(bytes);
}

void LineHead::end() {
  // Bytes that began a character and were cut by the end of the line are invalid,
  // as the newline after them makes them for a text stream.
  if (!complete)
    take(unfinished);
  unfinished.clear();
}

void LineHead::take(const QByteArray &bytes) {
  // A mark inside a line is a character (U+FEFF), as it is for the text stream.
  QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::ConvertInitialBom |
                                                     QStringConverter::Flag::Stateless);
  const QString decoded = decoder(bytes);
  for (QChar c : decoded) {
    take(c);
    if (complete)
      return;
  }
}

QByteArray LineHead::text() const {
  return (inField ? kept + fieldText() : kept).toUtf8();
}

void LineHead::take(QChar c) {
  if (c.isSpace()) {
    if (inField)
      endField();
    return;
  }
  if (!inField) {
    inField = true;
    ++fields;
  }
  if (!longNumber && field.size() < MaxField) {
    field += c;
    return;
  }
  if (!longNumber)
    shortenField();
  takeDigit(c);
}

void LineHead::shortenField() {
  // Any character but a leading sign that is no digit makes the whole line needed.
  longNumber = true;
  bool hasSign = field.startsWith('+') || field.startsWith('-');
  sign = hasSign ? field.left(1) : QString();
  for (int i = hasSign ? 1 : 0; i < field.size(); ++i)
    takeDigit(field[i]);
  field.clear();
}

void LineHead::takeDigit(QChar c) {
  if (complete)
    return;
  if (!isDigit(c)) {
    wholeLineNeeded = complete = true;
    return;
  }
  if ((c != '0' || !digits.isEmpty()) && digits.size() <= MaxDigits)
    digits += c;
}

QString LineHead::fieldText() const {
  if (!longNumber)
    return field;
  if (digits.size() > MaxDigits)
    return sign + "1" + QString(MaxDigits, '0');
  return sign + (digits.isEmpty() ? QString("0") : digits);
}

void LineHead::endField() {
  kept += fieldText() + ' ';
  field.clear();
  longNumber = false;
  sign.clear();
  digits.clear();
  inField = false;
  complete = fields == FieldsRead;
}
