//===- ArgHash.cpp - Name=value argument sets ------------------------------===//

#include "ArgHash.h"

#include "Console.h"
#include "Macro.h"
#include "RegExp.h"

#include <QTextStream>

namespace Nexil {

namespace {

/// The token patterns of an argument string, tried in this order.
struct TokenPattern {
  const char *pattern;
  bool named;
};

const TokenPattern TokenPatterns[] = {
    {"^([A-Za-z0-9_]+)=\"([^\"]*)\"", true},
    {"^([A-Za-z0-9_]+)='([^']*)'", true},
    {"^([A-Za-z0-9_]+)=([^\\s]*)\\s", true},
    {"^([A-Za-z0-9_]+)=([^\\s]*)$", true},
    {"^\"([^\"]+)\"", false},
    {"^'([^']+)'", false},
    {"^([^\\s]+)\\s", false},
    {"^([^\\s]+)$", false},
};

/// Removes one pair of surrounding double quotes, then one pair of single quotes.
QString stripQuotes(QString value) {
  if (RE.match("^\"(.*)\"$", value))
    value = RE[1];
  if (RE.match("^'(.*)'$", value))
    value = RE[1];
  return value;
}

/// A name=value text as a file line or a command-line element writes it.
bool splitAssignment(const QString &text, QString &name, QString &value) {
  if (!RE.match("([A-Za-z0-9_]+)=(.*)$", text))
    return false;
  name = RE[1];
  value = stripQuotes(RE[2]);
  return true;
}

} // namespace

ArgHash::ArgHash(QString s) {
  QString counter = "0";
  // The text is read from an offset that moves past each token, never cut from the
  // front: linear in its length however many tokens it holds. The length test comes
  // before the white space is skipped, so trailing white space leaves an empty rest
  // that no pattern matches: one report with an empty message.
  int at = 0;
  while (at < s.length()) {
    RE.matchAt("^\\s*", s, at);
    at += RE.length();
    if (RE.matchAt("^#", s, at))
      break;
    bool matched = false;
    for (const TokenPattern &token : TokenPatterns) {
      if (!RE.matchAt(token.pattern, s, at))
        continue;
      QString first = RE[1], second = RE[2];
      at += RE.length();
      if (token.named) {
        insert(first, second);
      } else {
        insert(counter, first);
        counter = Macro::successor(counter);
      }
      matched = true;
      break;
    }
    if (!matched)
      Error::syntax("", s.mid(at), -1);
  }
}

ArgHash::ArgHash(QFile &f) {
  if (!f.open(QIODevice::ReadOnly | QIODevice::Text))
    return;
  QTextStream stream(&f);
  while (!stream.atEnd()) {
    QString line = stream.readLine().trimmed();
    if (line.startsWith("#"))
      continue;
    QString name, value;
    if (splitAssignment(line, name, value))
      insert(name, value);
  }
  f.close();
}

ArgHash::ArgHash(int argc, char **argv) {
  int positional = 0;
  for (int i = 0; i < argc; ++i) {
    QString element(argv[i]);
    QString name, value;
    if (splitAssignment(element, name, value))
      insert(name, value);
    else
      insert(QString::number(positional++), stripQuotes(element));
  }
}

} // namespace Nexil
