//===- UnitsValue.cpp - Numbers with units ---------------------------------===//
//
// Units never combine: a product carries at most one unit, and the quotient of two
// compatible quantities is a pure number.
//
//===----------------------------------------------------------------------------===//

#include "Units.h"

#include "RegExp.h"
#include "TextSyntax.h"

#include <cmath>

namespace Nexil {

Units::Value::Value(QString text) {
  if (RE.match(numberWithOptionalUnitPattern(), text)) {
    number = RE[1].toDouble();
    unitName = RE[3];
    return;
  }
  reportSyntax(QString("A:Invalid string with units '%1'").arg(text));
  number = 0.0;
}

double Units::Value::convert(QString toUnit, bool *ok) {
  if (type(unitName) != type(toUnit)) {
    if (ok)
      *ok = false;
    else
      reportSyntax(QString("Units Conversion Error from %1 to %2")
                       .arg(unitName.isEmpty() ? QString("(none)") : unitName, toUnit));
    return number;
  }
  if (ok)
    *ok = true;
  return number * factor(unitName) / factor(toUnit);
}

QString Units::Value::to_s(QString format, bool withUnit) const {
  QString text = formatNumber(format, number);
  if (withUnit)
    text += unitName;
  return text;
}

Units::Value &Units::Value::add(Value other) {
  number += other.convert(unitName, nullptr);
  return *this;
}

Units::Value &Units::Value::sub(Value other) {
  number -= other.convert(unitName, nullptr);
  return *this;
}

Units::Value &Units::Value::mul(Value other) {
  if (other.unitName.isEmpty()) {
    number *= other.number;
  } else if (unitName.isEmpty()) {
    number *= other.number;
    unitName = other.unitName;
  } else {
    reportSyntax(QString("U:Invalid units in '%1'").arg(currentExpression));
    number *= other.number;
  }
  return *this;
}

Units::Value &Units::Value::div(Value other) {
  if (other.unitName.isEmpty()) {
    number /= other.number;
  } else {
    number /= other.convert(unitName, nullptr);
    unitName = QString();
  }
  return *this;
}

Units::Value &Units::Value::neg() {
  number = -number;
  return *this;
}

bool Units::Value::isZero() const {
  return fabs(number) < 1e-12;
}

} // namespace Nexil
