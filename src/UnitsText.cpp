//===- UnitsText.cpp - Units applied to whole strings ----------------------===//

#include "Units.h"

#include "RegExp.h"
#include "TextSyntax.h"

namespace Nexil {

QString Units::formatNumber(QString format, double number) {
  // A format from user text must hold exactly one floating-point conversion: anything
  // else ("%s", "%n", two conversions) would read arguments that are not there.
  static const char *const Valid =
      "^([^%]|%%)*%[-+ #0]*[0-9]{0,3}(\\.[0-9]{0,3})?l?[aAeEfFgG]([^%]|%%)*$";
  if (!RE.match(Valid, format)) {
    reportSyntax(QString("Invalid number format '%1', using '%g'").arg(format));
    format = "%g";
  }
  return QString::asprintf(format.toLocal8Bit().constData(), number);
}

QString Units::evaluate(QString format, QString expression, QString unit) {
  double result = value(expression, unit, nullptr);
  if (val.size() == 0)
    val.push(Value(result, unit));
  Value &top = val.top();
  if (unit != "-")
    return formatNumber(format, top.convert(unit, nullptr));
  return formatNumber(format, top.number) + top.unitName;
}

QString Units::convertAll(QString text, QString unit) {
  QString result;
  while (!text.isEmpty()) {
    RE.match("^[^0-9.]*", text);
    QString lead = RE[0];
    result += lead;
    text.remove(0, lead.length());
    if (text.isEmpty())
      break;
    static const QString NumberAndUnit = "^(" + unsignedNumberPattern() + ")([A-Za-z]+)";
    static const QString Number = "^" + unsignedNumberPattern();
    if (RE.match(NumberAndUnit, text)) {
      QString whole = RE[0], unitOfNumber = RE[3];
      QString target = unit;
      if (unit == "*") {
        for (const QString &standard : standardUnits) {
          if (type(standard) == type(unitOfNumber)) {
            target = standard;
            break;
          }
        }
      }
      result += type(unitOfNumber) == type(target) ? evaluate("%.12g", whole, target) : whole;
      text.remove(0, whole.length());
    } else if (RE.match(Number, text)) {
      QString number = RE[0];
      result += number;
      text.remove(0, number.length());
    } else {
      result += text[0];
      text.remove(0, 1);
    }
  }
  return result;
}

bool Units::isFloat(QString text) {
  bool flag = false;
  value(text, "*", &flag);
  return flag;
}

void Units::check(QString a, QString b) {
  if (!RE.match(numberWithOptionalUnitPattern(), a))
    return;
  // Capture 2 is the exponent ("e5"), not the unit letters; the check compares the
  // types of these texts, which for ordinary values are both type 0.
  QString unitA = RE[2];
  QString unitB = "-";
  if (RE.match(numberWithOptionalUnitPattern(), b))
    unitB = RE[2];
  if (type(unitA) != type(unitB))
    reportSyntax(QString("Units Conversion Error from %1 to %2")
                     .arg(unitB.isEmpty() ? QString("(none)") : unitB, unitA));
}

} // namespace Nexil
