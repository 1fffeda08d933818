//===- Macro.h - Named text values and counters ----------------*- C++ -*-===//
//
// Macros are named texts: the expression evaluator reads them as variables and
// expand() replaces references to them inside input text. There is one macro state
// per process, with a stack of saved scopes.
//
//===----------------------------------------------------------------------------===//
#ifndef NEXIL_MACRO_H
#define NEXIL_MACRO_H

#include <QHash>
#include <QList>
#include <QString>

namespace Nexil {

/// The process-wide macro definitions.
class Macro {
public:
  /// The current (innermost) definitions.
  static QHash<QString, QString> hash;
  /// Global definitions, consulted after hash.
  static QHash<QString, QString> globalHash;
  /// Saved copies of hash for nested scopes.
  static QList<QHash<QString, QString>> stack;

  /// Sets the name's value in the current definitions.
  static void define(QString name, QString value);
  /// Removes the name from the current definitions only.
  static void deleteName(QString name);
  /// Whether the name has a current or a global definition.
  static bool isDefined(QString name);
  /// The current value, else the global one, else the empty text.
  static QString value(QString name);
  /// Saves the current definitions; clears them when clear is true.
  static void pushDefinitions(bool clear);
  /// Restores the last saved definitions; ignored when none are saved.
  static void popDefinitions();
  /// Opens an empty scope holding the given definitions.
  static void pushAndDefine(QHash<QString, QString> definitions);
  /// Replaces $name, ${name}, ${name++} and ${expression} references in the text.
  static QString expand(QString text);
  /// The next value of a counter: an odometer over digits and letters ("az" -> "ba").
  static QString successor(QString s);
  /// A listing of every definition, sorted by name.
  static QString inspect();
};

} // namespace Nexil

#endif // NEXIL_MACRO_H
