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

bool readExact(const QJsonValue &value, double &number) {
  if (!value.isString())
    return false;
  QByteArray text = value.toString().toLatin1();
  char *end = nullptr;
  number = strtod(text.constData(), &end);
  return !text.isEmpty() && *end == '\0';
}
