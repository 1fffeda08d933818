//===- ExactNumber.cpp - Doubles written and read without loss -------------===//

#include "ExactNumber.h"

#include <cstdio>
#include <cstdlib>

QString exactText(double value) {
  // Qt's own formatting has no hexadecimal floats.
  char text[64];
  snprintf(text, sizeof text, "%a", value);
  return QString::fromLatin1(text);
}

bool readExact(const QString &text, double &number) {
  QByteArray bytes = text.toLatin1();
  char *end = nullptr;
  number = strtod(bytes.constData(), &end);
  return !bytes.isEmpty() && *end == '\0';
}

bool readExact(const QJsonValue &value, double &number) {
  return value.isString() && readExact(value.toString(), number);
}
