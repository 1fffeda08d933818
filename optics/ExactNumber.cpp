//===- ExactNumber.cpp - Doubles written and read without loss -------------===//

#include "ExactNumber.h"

#include <QHash>
#include <QRegularExpression>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

int hexDigit(char c) {
  if (c >= '0' && c <= '9')
    return c - '0';
  if (c >= 'a' && c <= 'f')
    return c - 'a' + 10;
  return -1;
}

/// Reads "[-]0xh.hhhp[+-]d" as printf's %a writes a double, exactly: at most 13
/// fraction digits fit the 53 bits of the significand. False for anything else.
bool readHexFloat(const char *&p, const char *end, double &number) {
  const char *s = p;
  bool negative = s < end && *s == '-';
  s += negative;
  if (end - s < 5 || s[0] != '0' || s[1] != 'x' || (s[2] != '0' && s[2] != '1'))
    return false;
  uint64_t significand = uint64_t(s[2] - '0');
  s += 3;
  int digits = 0;
  if (s < end && *s == '.')
    for (++s; s < end && hexDigit(*s) >= 0 && digits < 13; ++s, ++digits)
      significand = significand << 4 | uint64_t(hexDigit(*s));
  if (s == end || *s != 'p')
    return false;
  char *stop = nullptr;
  long exponent = strtol(s + 1, &stop, 10);
  if (stop == s + 1 || stop > end)
    return false;
  double v = std::ldexp(double(significand), int(exponent) - 4 * digits);
  number = negative ? -v : v;
  p = stop;
  return true;
}

} // namespace

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

bool readCount(const QJsonValue &value, long long &count) {
  const double number = value.toDouble(-1);
  if (!value.isDouble() || !(number >= 0 && number <= double(LargestCount)) ||
      number != std::floor(number))
    return false;
  count = (long long)number;
  return true;
}

bool readExactList(const QString &text, std::vector<double> &numbers) {
  const QByteArray bytes = text.toLatin1();
  const char *p = bytes.constData(), *end = p + bytes.size();
  numbers.clear();
  while (p < end) {
    if (*p == ' ') {
      ++p;
      continue;
    }
    double v;
    const char *word = p;
    if (!readHexFloat(p, end, v)) {
      // Infinities, NaNs and any other spelling strtod reads whole.
      while (p < end && *p != ' ')
        ++p;
      if (!readExact(QString::fromLatin1(word, p - word), v))
        return false;
    } else if (p < end && *p != ' ') {
      return false;
    }
    numbers.push_back(v);
  }
  return true;
}

bool readExactLength(const QString &text, double &millimetres) {
  // The unit's power of ten is added to the number's exponent, so that the one
  // rounding is strtod's of the exact decimal value.
  static const QHash<QString, int> powers = {{"", 0},    {"mm", 0},      {"cm", 1}, {"m", 3},
                                             {"um", -3}, {"micron", -3}, {"km", 6}};
  static const QRegularExpression number(
      "^([+-]?(?:\\d+\\.?\\d*|\\.\\d+))(?:[eE]([+-]?\\d{1,4}))?([a-z]*)$");
  QRegularExpressionMatch match = number.match(text);
  if (!match.hasMatch() || !powers.contains(match.captured(3)))
    return false;
  int exponent = match.captured(2).toInt() + powers.value(match.captured(3));
  QByteArray decimal = (match.captured(1) + "e" + QString::number(exponent)).toLatin1();
  millimetres = strtod(decimal.constData(), nullptr);
  return true;
}
