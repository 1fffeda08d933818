//===- TextSyntax.cpp - What the text readers share -----------------------===//

#include "TextSyntax.h"

#include "Console.h"
#include "Units.h"

namespace Nexil {

const QString &unsignedNumberPattern() {
  static const QString pattern = "[0-9]*\\.?[0-9]+([eE][-+]?[0-9]+)?";
  return pattern;
}

const QString &numberWithOptionalUnitPattern() {
  static const QString pattern = "^([-+]?" + unsignedNumberPattern() + ")([A-Za-z]+)?$";
  return pattern;
}

void reportSyntax(const QString &message) {
  Error::syntax(message, "", -1);
}

void reportExpressionSyntax(const char *message) {
  reportSyntax(QString(message).arg(Units::currentExpression));
}

} // namespace Nexil
