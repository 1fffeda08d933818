//===- EvaluatorOperators.cpp - Operators and functions of the evaluator ---===//
//
// doit() pops the operands an operator needs from the operand stack and pushes or
// rewrites its result. After a reported error it returns at once: operands already
// popped stay popped, and the evaluation carries on with what is left.
//
//===----------------------------------------------------------------------------===//

#include "Units.h"

#include "Assert.h"
#include "TextSyntax.h"

#include <cmath>

namespace Nexil {

namespace {

using Value = Units::Value;

bool unitless(const Value &v) {
  return v.unitName.isEmpty();
}

Value truth(bool b) {
  return Value(b ? 1.0 : 0.0, QString());
}

/// Checks that at least n operands are there; reports the message otherwise.
bool need(int n, const char *message) {
  if (Units::val.size() >= n)
    return true;
  reportExpressionSyntax(message);
  return false;
}

void conditional(const Units::Operator &op) {
  if (op.token == ":")
    return;
  NEXIL_ASSERT(op.token == "?");
  if (!need(3, "J:Syntax  error in '%1'"))
    return;
  Value otherwise = Units::val.pop();
  Value then = Units::val.pop();
  Value condition = Units::val.pop();
  if (!unitless(condition)) {
    reportExpressionSyntax("J:Units conversion error in '%1'");
    return;
  }
  Units::val.push(condition.isZero() ? otherwise : then);
}

void logical(const Units::Operator &op) {
  if (!need(2, "X:Syntax error in '%1'"))
    return;
  Value right = Units::val.pop();
  Value &left = Units::val.top();
  if (op.precedence == Units::Or)
    left = truth(!left.isZero() || !right.isZero());
  else
    left = truth(!left.isZero() && !right.isZero());
}

void compare(const Units::Operator &op) {
  // The right operand is popped before the count is checked, so a comparison needs a
  // further value beneath its left operand: "1<2" alone fails, "max(0,1<2)" works.
  Value right = Units::val.pop();
  if (!need(2, "X:Syntax error in '%1'"))
    return;
  Value &left = Units::val.top();
  left.sub(right);
  double d = left.number;
  if (op.token == "==")
    left = truth(d == 0.0);
  else if (op.token == "!=")
    left = truth(d != 0.0);
  else if (op.token == "<")
    left = truth(!(d >= 0.0));
  else if (op.token == ">")
    left = truth(!(d <= 0.0));
  else if (op.token == "<=")
    left = truth(!(d > 0.0));
  else if (op.token == ">=")
    left = truth(!(d < 0.0));
  else
    reportExpressionSyntax("K:Syntax Error in '%1'");
}

void additive(const Units::Operator &op) {
  if (!need(2, "X:Syntax error in '%1'"))
    return;
  Value right = Units::val.pop();
  if (op.token == "+")
    Units::val.top().add(right);
  else if (op.token == "-")
    Units::val.top().sub(right);
  else
    reportExpressionSyntax("L:Syntax Error in '%1'");
}

void multiplicative(const Units::Operator &op) {
  if (!need(2, "X:Syntax error in '%1'"))
    return;
  Value right = Units::val.pop();
  if (op.token == "*")
    Units::val.top().mul(right);
  else if (op.token == "/")
    Units::val.top().div(right);
  else
    reportExpressionSyntax("R:Syntax Error in '%1'");
}

void power() {
  if (!need(2, "X:Syntax error in '%1'"))
    return;
  Value exponent = Units::val.pop();
  Value &base = Units::val.top();
  if (!unitless(base) || !unitless(exponent)) {
    reportExpressionSyntax("S:Invalid units in '%1'");
    return;
  }
  base.number = pow(base.number, exponent.number);
}

void unary(const Units::Operator &op) {
  if (!need(1, "X:Syntax error in '%1'"))
    return;
  if (op.token != "-") {
    reportExpressionSyntax("T:Syntax Error in '%1'");
    return;
  }
  Units::val.top().neg();
}

/// Checks the argument count of a two- or three-argument function.
bool arguments(int count, const char *message) {
  if (Units::commaCount == count - 1 && Units::val.size() >= count)
    return true;
  reportExpressionSyntax(message);
  return false;
}

typedef double (*MathFunction)(double);

MathFunction mathFunction(const QString &name) {
  static const struct {
    const char *name;
    MathFunction function;
  } table[] = {{"sqrt", sqrt}, {"sin", sin},   {"cos", cos},     {"tan", tan},   {"asin", asin},
               {"acos", acos}, {"atan", atan}, {"exp", exp},     {"sinh", sinh}, {"cosh", cosh},
               {"tanh", tanh}, {"log", log},   {"log10", log10}, {"ceil", ceil}, {"floor", floor},
               {"abs", fabs},  {"fabs", fabs}};
  for (const auto &entry : table)
    if (name == entry.name)
      return entry.function;
  return nullptr;
}

void function(const Units::Operator &op) {
  Units::Stack<Value> &val = Units::val;
  const QString &name = op.token;
  if (name == "if") {
    if (!arguments(3, "M:Syntax Error in '%1'"))
      return;
    Value c = val.pop(), b = val.pop(), a = val.pop();
    val.push(a.isZero() ? c : b);
  } else if (name == "atan2") {
    if (!arguments(2, "O:Syntax Error in '%1'"))
      return;
    Value x = val.pop(), y = val.pop();
    val.push(Value(atan2(y.number, x.convert(y.unitName, nullptr)), QString()));
  } else if (name == "pow") {
    if (!arguments(2, "P:Syntax Error in '%1'"))
      return;
    Value e = val.pop(), b = val.pop();
    if (!unitless(b) || !unitless(e)) {
      reportExpressionSyntax("Q:Invalid units in '%1'");
      return;
    }
    val.push(Value(pow(b.number, e.number), QString()));
  } else if (name == "min" || name == "max") {
    if (!arguments(2, "O:Syntax Error in '%1'"))
      return;
    Value b = val.pop(), a = val.pop();
    double c = b.convert(a.unitName, nullptr);
    bool takeC = name == "min" ? c <= a.number : a.number <= c;
    val.push(Value(takeC ? c : a.number, a.unitName));
  } else {
    if (Units::commaCount != 0 || val.size() < 1) {
      reportExpressionSyntax("G:Syntax Error in '%1'");
      return;
    }
    if (!unitless(val.top())) {
      reportExpressionSyntax("H:Units conversion error in '%1'");
      return;
    }
    MathFunction f = mathFunction(name);
    if (!f) {
      reportSyntax(QString("Unknown function %1 in '%2'").arg(name, Units::currentExpression));
      return;
    }
    val.top().number = f(val.top().number);
  }
}

} // namespace

void Units::doit(Operator op) {
  switch (op.precedence) {
  case Start:
    break;
  case Function:
    function(op);
    break;
  case Paren:
    reportExpressionSyntax("I:Syntax Error in '%1'");
    break;
  case Comma:
    NEXIL_ASSERT(op.token == ",");
    ++commaCount;
    break;
  case Conditional:
    conditional(op);
    break;
  case Or:
    NEXIL_ASSERT(op.token == "||");
    logical(op);
    break;
  case And:
    NEXIL_ASSERT(op.token == "&&");
    logical(op);
    break;
  case Compare:
    compare(op);
    break;
  case Additive:
    additive(op);
    break;
  case Multiplicative:
    multiplicative(op);
    break;
  case Power:
    power();
    break;
  case Unary:
    unary(op);
    break;
  }
}

} // namespace Nexil
