//===- ExactNumber.h - Doubles written and read without loss ---*- C++ -*-===//
#ifndef OPTICS_EXACTNUMBER_H
#define OPTICS_EXACTNUMBER_H

#include <QJsonValue>
#include <QString>
#include <vector>

/// The double as a C hexadecimal float ("0x1.8p+1"): every bit, any locale.
QString exactText(double value);

/// Reads a text written by exactText (or any number strtod reads whole); false if it
/// is not one.
bool readExact(const QString &text, double &number);

/// Reads a string value written by exactText; false if it is not one.
bool readExact(const QJsonValue &value, double &number);

/// The largest count a moments file may hold: a double holds every whole number up to
/// it, and the counts of a thousand such files still add up within 64 bits.
constexpr long long LargestCount = 1LL << 53;

/// Whether a count is a whole number from 0 to LargestCount.
inline bool isCount(long long count) {
  return count >= 0 && count <= LargestCount;
}

/// Reads a count: a JSON number that is a whole number from 0 to LargestCount; false
/// for anything else.
bool readCount(const QJsonValue &value, long long &count);

/// Whether counts, each within LargestCount, still are once added.
inline bool sumIsCount(long long a, long long b) {
  return isCount(a + b);
}

/// Reads texts of exactText separated by blanks; false if one is not such a text.
bool readExactList(const QString &text, std::vector<double> &numbers);

/// Reads a decimal number with a metric length unit (mm, cm, m, um, micron, km; mm when
/// none: "7250mm", "7.25m", "-1.5e3") as the double nearest its value in millimetres,
/// where the library's unit conversion (by way of inches) may be a rounding off it.
/// False for anything else: an expression, another unit.
bool readExactLength(const QString &text, double &millimetres);

#endif // OPTICS_EXACTNUMBER_H
