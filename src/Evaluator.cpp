//===- Evaluator.cpp - The operator-precedence expression evaluator --------===//
//
// A shunting-yard evaluator over two class-wide stacks: operands (values with units)
// and operators. Tokens are cut from the front of the expression one at a time; an
// identifier that is not a function call is replaced by its macro value and scanned
// in its place.
//
//===----------------------------------------------------------------------------===//

#include "Units.h"

#include "Constinit.h"
#include "Macro.h"
#include "RegExp.h"
#include "TextSyntax.h"

namespace Nexil {

NEXIL_CONSTINIT QString Units::currentExpression;
NEXIL_CONSTINIT Units::Stack<Units::Value> Units::val;
NEXIL_CONSTINIT Units::Stack<Units::Operator> Units::op;
int Units::commaCount = 0;

namespace {

/// The flag value() writes when its caller passed none.
bool privateFlag = false;

/// Applies operators from the top of the stack while they bind tighter than p.
void reduceAbove(int p) {
  while (Units::op.top().precedence > p)
    Units::doit(Units::op.pop());
}

/// The expression being cut into tokens from its front. The text already read is
/// skipped by an offset rather than removed, so a long expression is never copied.
struct Tokenizer {
  QString work;
  int offset = 0;
  bool expectOperand = true;

  bool atEnd() const { return offset >= work.size(); }
  /// Consumes the pattern's match at the front; its captures are then in RE.
  bool take(const QString &pattern);
  /// Cuts one token from the front of the work text; false when none fits.
  bool next();
  bool binary(const char *pattern, int reduce, Units::Precedence precedence);
  bool closeParenthesis();
};

bool Tokenizer::take(const QString &pattern) {
  if (!RE.matchAt(pattern, work, offset))
    return false;
  offset += RE.length();
  return true;
}

bool Tokenizer::binary(const char *pattern, int reduce, Units::Precedence precedence) {
  if (!take(pattern))
    return false;
  QString token = RE[0];
  reduceAbove(reduce);
  Units::op.push(Units::Operator(token, precedence));
  expectOperand = true;
  return true;
}

bool Tokenizer::closeParenthesis() {
  Units::commaCount = 0;
  reduceAbove(Units::Paren);
  expectOperand = false;
  if (Units::op.top().token == "(") {
    Units::op.pop();
    return true;
  }
  if (Units::op.top().precedence != Units::Function)
    return false;
  Units::doit(Units::op.pop());
  return true;
}

bool Tokenizer::next() {
  if (take("^([A-Za-z_][A-Za-z_0-9]*)\\(")) {
    Units::op.push(Units::Operator(RE[1], Units::Function));
    expectOperand = true;
    return true;
  }
  if (take("^([A-Za-z_][A-Za-z_0-9]*)")) {
    // The macro's value is scanned in place of its name.
    work = Macro::value(RE[1]) + work.mid(offset);
    offset = 0;
    return true;
  }
  static const QString NumberWithUnit = "^" + unsignedNumberPattern() + "([A-Za-z]+)?";
  if (take(NumberWithUnit)) {
    Units::val.push(Units::Value(RE[0]));
    expectOperand = false;
    return true;
  }
  if (take("^\\(")) {
    Units::op.push(Units::Operator("(", Units::Paren));
    expectOperand = true;
    return true;
  }
  if (binary("^,", Units::Comma, Units::Comma) || binary("^\\?", Units::Comma, Units::Conditional))
    return true;
  if (take("^:")) {
    reduceAbove(Units::Conditional);
    if (Units::op.top().token != "?")
      return false;
    Units::op.push(Units::Operator(":", Units::Conditional));
    expectOperand = true;
    return true;
  }
  if (binary("^\\|\\|", Units::Conditional, Units::Or) || binary("^\\&\\&", Units::Or, Units::And))
    return true;
  for (const char *compare : {"^==", "^>=", "^<=", "^>", "^<", "^!="})
    if (binary(compare, Units::And, Units::Compare))
      return true;
  if (take("^\\+")) {
    if (expectOperand) {
      reduceAbove(Units::Power); // a unary plus changes nothing
    } else {
      reduceAbove(Units::Compare);
      Units::op.push(Units::Operator("+", Units::Additive));
    }
    expectOperand = true;
    return true;
  }
  if (take("^-")) {
    if (expectOperand) {
      reduceAbove(Units::Power);
      Units::op.push(Units::Operator("-", Units::Unary));
    } else {
      reduceAbove(Units::Compare);
      Units::op.push(Units::Operator("-", Units::Additive));
    }
    expectOperand = true;
    return true;
  }
  if (binary("^\\*", Units::Additive, Units::Multiplicative) ||
      binary("^/", Units::Additive, Units::Multiplicative) ||
      binary("^\\^", Units::Power, Units::Power))
    return true;
  if (take("^\\)"))
    return closeParenthesis();
  return false;
}

} // namespace

void Units::reportEmptyStack() {
  reportExpressionSyntax("Syntax Error in '%1'");
}

double Units::value(QString expression, QString requestedUnit, bool *ok) {
  const bool callerPassedNull = ok == nullptr;
  bool *flag = callerPassedNull ? &privateFlag : ok;

  if (requestedUnit == "*") {
    value(expression, "-", ok);
    if (val.size() == 0)
      return 0.0;
    Value &top = val.top();
    QString standard = standardUnit(top.unit());
    double converted = top.convert(standard, nullptr);
    top.number = converted;
    top.unitName = standard;
    return converted;
  }

  currentExpression = expression;
  Tokenizer tokens;
  tokens.work = RE.replaceAll("\\s", expression, "");
  tokens.work = RE.replaceAll("\\$", tokens.work, "");
  if (tokens.work.isEmpty())
    return 0.0;

  val.clear();
  op.clear();
  op.push(Operator("--start--", Start));
  commaCount = 0;
  *flag = true;
  while (*flag && !tokens.atEnd())
    *flag = tokens.next();

  if (*flag) {
    while (op.size() > 0)
      doit(op.pop());
    if (val.size() == 1) {
      Value &result = val.top();
      if (requestedUnit != "-") {
        double converted = result.convert(requestedUnit, ok);
        result.number = converted;
        result.unitName = requestedUnit;
      }
      return result.number;
    }
  }
  // A tokenizer failure clears the flag; several or no values leave it set.
  if (callerPassedNull)
    reportExpressionSyntax("D:Syntax Error in '%1'");
  return 0.0;
}

QString Units::unit(QString expression) {
  value(expression, "-", nullptr);
  if (val.size() >= 1)
    return val.top().unit();
  return QString();
}

double Units::factor(QString a, QString b) {
  return value("1.0" + b, a, nullptr);
}

} // namespace Nexil
