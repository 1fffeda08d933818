//===- Macro.cpp - Named text values and counters --------------------------===//

#include "Macro.h"

#include "Constinit.h"
#include "RegExp.h"
#include "TextSyntax.h"
#include "Units.h"

#include <algorithm>

namespace Nexil {

NEXIL_CONSTINIT QHash<QString, QString> Macro::hash;
NEXIL_CONSTINIT QHash<QString, QString> Macro::globalHash;
NEXIL_CONSTINIT QList<QHash<QString, QString>> Macro::stack;

void Macro::define(QString name, QString value) {
  hash.insert(name, value);
}

void Macro::deleteName(QString name) {
  hash.remove(name);
}

bool Macro::isDefined(QString name) {
  return hash.contains(name) || globalHash.contains(name);
}

QString Macro::value(QString name) {
  if (hash.contains(name))
    return hash.value(name);
  return globalHash.value(name);
}

void Macro::pushDefinitions(bool clear) {
  stack.append(hash);
  if (clear)
    hash.clear();
}

void Macro::popDefinitions() {
  if (!stack.isEmpty())
    hash = stack.takeLast();
}

void Macro::pushAndDefine(QHash<QString, QString> definitions) {
  pushDefinitions(true);
  for (auto it = definitions.cbegin(); it != definitions.cend(); ++it)
    define(it.key(), it.value());
}

namespace {

/// Replaces every match of a reference pattern by the macro's value; false (after a
/// report) at the first undefined name. Every search starts again at the front, so
/// values are expanded in turn.
bool replaceReferences(QString &work, const char *pattern) {
  while (RE.match(pattern, work)) {
    QString name = RE[1];
    int pos = RE.pos(), length = RE.length();
    if (!Macro::isDefined(name)) {
      reportSyntax(QString("Undefined macro '%1'").arg(name));
      return false;
    }
    work.replace(pos, length, Macro::value(name));
  }
  return true;
}

/// Replaces ${name++} by the current value and steps the name's counter.
bool replaceCounters(QString &work) {
  while (RE.match("\\$\\{([A-Za-z0-9_]*)\\+\\+\\}", work)) {
    QString name = RE[1];
    int pos = RE.pos(), length = RE.length();
    // Only the current definitions count; a global one cannot be stepped.
    if (!Macro::hash.contains(name)) {
      reportSyntax(QString("Undefined macro '%1'").arg(name));
      return false;
    }
    QString current = Macro::hash.value(name);
    work.replace(pos, length, current);
    Macro::hash.insert(name, Macro::successor(current));
  }
  return true;
}

/// Replaces ${format;expression;unit} by the expression's value, formatted.
void replaceExpressions(QString &work) {
  while (RE.match("\\$\\{([^}]*)\\}", work)) {
    QString expression = RE[1];
    int pos = RE.pos(), length = RE.length();
    QString format = "%g";
    if (RE.match("^(%[^;]+);", expression)) {
      format = RE[1];
      expression.remove(0, RE.length());
    }
    QString unit = "-";
    if (RE.match(";([A-Za-z]*)$", expression)) {
      unit = RE[1];
      expression.remove(RE.pos(), RE.length());
    }
    work.replace(pos, length, Units::evaluate(format, expression, unit));
  }
}

} // namespace

QString Macro::expand(QString text) {
  QString work = text;
  if (!replaceReferences(work, "\\$([A-Za-z0-9_]+)") ||
      !replaceReferences(work, "\\$\\{([A-Za-z0-9_]*)\\}") || !replaceCounters(work))
    return QString();
  replaceExpressions(work);
  if (RE.match("\\$\\{", work)) {
    reportSyntax(QString("unbalanced ${ in '%1'").arg(text));
    return QString();
  }
  return work;
}

QString Macro::successor(QString s) {
  if (s.isEmpty())
    return s;
  // Each position carries in its own alphabet: digits, upper or lower case letters.
  for (int i = s.size() - 1;; --i) {
    ushort code = ushort(s[i].unicode() + 1);
    QChar restart;
    if (code == '9' + 1)
      restart = '0';
    else if (code == 'Z' + 1)
      restart = 'A';
    else if (code == 'z' + 1)
      restart = 'a';
    else {
      s[i] = QChar(code);
      return s;
    }
    s[i] = restart;
    if (i == 0)
      return QString(restart == '0' ? QChar('1') : restart) + s;
  }
}

namespace {

void listSorted(QString &text, const QHash<QString, QString> &table) {
  QStringList names = table.keys();
  std::sort(names.begin(), names.end());
  for (const QString &name : names)
    text += "  " + name + "=>" + table.value(name) + "\n";
}

} // namespace

QString Macro::inspect() {
  QString text = "{\n";
  listSorted(text, hash);
  if (!globalHash.isEmpty()) {
    text += "Globals:\n";
    listSorted(text, globalHash);
  }
  text += "}\n";
  return text;
}

} // namespace Nexil
