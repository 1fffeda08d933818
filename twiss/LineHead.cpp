//===- LineHead.cpp - The part of an overlong line that is read -----------===//

#include "LineHead.h"

namespace {

bool isDigit(QChar c) {
  return c >= '0' && c <= '9';
}

} // namespace

void LineHead::append(const char *data, size_t size) {
  if (complete)
    return;
  // Text mode deletes every carriage return, even inside a character's bytes; the
  // decoder keeps an unfinished character for the next piece.
  QByteArray bytes;
  bytes.reserve(qsizetype(size));
  for (const char *p = data; p < data + size; ++p)
    if (*p != '\r')
      bytes.append(*p);
  QString decoded = decoder(bytes);
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
