//===- Macro.cpp - Named text values and counters --------------------------===//

#include "Macro.h"

#include "Constinit.h"

#include <algorithm>

namespace Nexil {

NEXIL_CONSTINIT QHash<QString, QString> Macro::hash;
NEXIL_CONSTINIT QHash<QString, QString> Macro::globalHash;
NEXIL_CONSTINIT QList<QHash<QString, QString>> Macro::stack;

void Macro::define(QString name, QString value) { hash.insert(name, value); }

void Macro::deleteName(QString name) { hash.remove(name); }

bool Macro::isDefined(QString name) { return hash.contains(name) || globalHash.contains(name); }

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
