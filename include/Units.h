//===- Units.h - Units, values with units and the expression evaluator --*- C++ -*-===//
//
// Every number in the input files may carry a unit and may be an expression
// ("2*3.5mm+1in", "if(a,1m,2m)"). The unit table relates the units of one type by
// their factors; Value carries a number with its unit through arithmetic; value()
// evaluates an expression and converts the result into the unit the caller asks for.
//
// Compound units are single names in which "p" means "per" ("Vpm", "mps"), except in
// "ps" (picosecond). There is no unit algebra: a product carries at most one unit.
//
// One class, five sources: the unit table in Units.cpp, Value in UnitsValue.cpp, the
// formatting and conversion of whole texts (evaluate(), convertAll(), check()) in
// UnitsText.cpp, and the expression evaluator (value(), its operand and operator
// stacks) in Evaluator.cpp, with its operators and functions (doit()) in
// EvaluatorOperators.cpp.
//
//===----------------------------------------------------------------------------===//
#ifndef NEXIL_UNITS_H
#define NEXIL_UNITS_H

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

namespace Nexil {

/// The unit table and the expression evaluator; all members are class-wide.
class Units {
public:
  /// A number together with the name of its unit.
  class Value {
  public:
    /// The number, in unitName.
    double number;
    /// The unit's name ("mm"), empty for a pure number.
    QString unitName;

    /// A pure zero.
    Value() : number(0.0) {}
    /// The number in the named unit.
    Value(double number, QString unitName) : number(number), unitName(unitName) {}
    /// Parses one number with an optional unit ("-2.5e3mm"); reports and gives 0 otherwise.
    explicit Value(QString text);

    /// The number, in unit().
    double value() const { return number; }
    /// The unit's name, empty for a pure number.
    QString unit() const { return unitName; }
    /// The number in toUnit; a type mismatch is reported (ok null) or flagged (ok set).
    double convert(QString toUnit, bool *ok);
    /// The number printed with the format, optionally followed by the unit name.
    QString to_s(QString format = "%g", bool withUnit = false) const;
    /// Adds other, converted into this value's unit (a mismatch is reported).
    Value &add(Value other);
    /// Subtracts other, converted into this value's unit.
    Value &sub(Value other);
    /// Multiplies by other; at most one of the two may carry a unit, which the
    /// product keeps (two units are reported).
    Value &mul(Value other);
    /// Divides by other: by a pure number the unit stays, by a quantity (converted
    /// into this unit) the quotient is a pure number.
    Value &div(Value other);
    /// Changes the sign.
    Value &neg();
    /// Whether |number| < 1e-12.
    bool isZero() const;
  };

  /// Binding strength of the evaluator's operators; the driver compares the numbers.
  enum Precedence {
    Start = 0,
    Function = 1,
    Paren = 2,
    Comma = 3,
    Conditional = 4,
    Or = 5,
    And = 6,
    Compare = 7,
    Additive = 8,
    Multiplicative = 9,
    Power = 10,
    Unary = 11
  };

  /// An operator token, or a function name, with its precedence.
  class Operator {
  public:
    /// The operator's text ("+", "&&") or the function's name.
    QString token;
    /// How strongly it binds.
    Precedence precedence;
    /// The start marker at the bottom of the operator stack.
    Operator() : precedence(Start) {}
    /// The token with its precedence.
    Operator(QString token, Precedence precedence) : token(token), precedence(precedence) {}
  };

  /// A thin stack over a list; popping an empty stack reports and gives a default element.
  template <typename T> class Stack {
  public:
    /// The elements, the top last.
    QList<T> list;
    /// Puts the item on top.
    void push(const T &item) { list.append(item); }
    /// The top element; the stack must not be empty.
    T &top() { return list.last(); }
    /// Takes the top element off; an empty stack is reported and gives T().
    T pop() {
      if (list.isEmpty()) {
        reportEmptyStack();
        return T();
      }
      return list.takeLast();
    }
    /// Empties the stack.
    void clear() { list.clear(); }
    /// The number of elements.
    int size() const { return int(list.size()); }
    /// The number of elements (the same as size()).
    int length() const { return int(list.size()); }
  };

  /// The type index of every unit name: its type's place in the table, 0 (no unit)
  /// for unknown names.
  static QHash<QString, int> typeHash;
  /// The factor of every unit name to its type's reference unit.
  static QHash<QString, double> factorHash;
  /// The unit names of every type, by the type's name ("length").
  static QHash<QString, QStringList> types;
  /// The standard unit of each type ("mm", "ns", "MeV", ...).
  static QStringList standardUnits;
  /// Fills the tables during static initialisation.
  static Units initializer;

  /// The expression being evaluated, as the caller passed it; messages quote it.
  static QString currentExpression;
  /// The evaluator's operands.
  static Stack<Value> val;
  /// The evaluator's pending operators.
  static Stack<Operator> op;
  /// Commas applied since the last closing parenthesis: a function's arguments - 1.
  static int commaCount;

  /// Fills the unit table (once, however often it is constructed).
  Units();

  /// The type index of a unit; an unknown name is entered with type 0.
  static int type(QString unit);
  /// The factor of a unit; an unknown name is entered with factor 0.0.
  static double factor(QString unit);
  /// The standard unit of the unit's type; a type without one gives the unit itself.
  static QString standardUnit(QString unit);
  /// A listing of the known units by type.
  static QString inspect();

  /// Evaluates the expression in requestedUnit (a unit, "-" for none, "*" for standard).
  static double value(QString expression, QString requestedUnit, bool *ok = nullptr);
  /// The unit of the expression's result.
  static QString unit(QString expression);
  /// How many a make one b.
  static double factor(QString a, QString b);
  /// Applies one operator or function to the operand stack.
  static void doit(Operator op);

  /// The expression's value in unit, printed with the format ("-": with its unit).
  static QString evaluate(QString format, QString expression, QString unit);
  /// Rewrites every number with a unit in the text into unit ("*": standard units).
  static QString convertAll(QString text, QString unit);
  /// Whether the whole text is read by the evaluator's tokenizer.
  static bool isFloat(QString text);
  /// Reports when the exponent texts of the two value strings are of different types.
  static void check(QString a, QString b);

  /// The number printed with a user-given format of one floating-point conversion; any
  /// other format is reported and "%g" used instead.
  static QString formatNumber(QString format, double number);

private:
  static void ensureTable();
  static void reportEmptyStack();
};

} // namespace Nexil

#endif // NEXIL_UNITS_H
