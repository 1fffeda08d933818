//===- LineHead.cpp - The part of an overlong line that is read -----------===//

#include "LineHead.h"

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

void LineHead::take(QChar c) {
  if (!c.isSpace()) {
    if (!inField)
      ++fields;
    inField = true;
    kept += c;
    return;
  }
  if (!inField)
    return; // leading white space, or more of the run that ends a field
  inField = false;
  kept += ' ';
  complete = fields == FieldsRead;
}
