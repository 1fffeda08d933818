//===- ExactNumber.h - Doubles written and read without loss ---*- C++ -*-===//
#ifndef OPTICS_EXACTNUMBER_H
#define OPTICS_EXACTNUMBER_H

#include <QJsonValue>
#include <QString>

/// The double as a C hexadecimal float ("0x1.8p+1"): every bit, any locale.
QString exactText(double value);

/// Reads a string written by exactText (or any number strtod reads whole); false if
/// the value is not such a string.
bool readExact(const QJsonValue &value, double &number);

#endif // OPTICS_EXACTNUMBER_H
