//===- RegExp.h - Cached regular expressions for the text parsers --*- C++ -*-===//
//
// The parsers of the library match literal patterns in tight loops over every input
// line. Each distinct pattern is compiled once and kept for the life of the process;
// the captures of the last search are read back through the global matcher RE.
//
//===----------------------------------------------------------------------------===//
#ifndef NEXIL_REGEXP_H
#define NEXIL_REGEXP_H

#include <QHash>
#include <QRegExp>
#include <QString>

namespace Nexil {

/// Regular-expression helper over a process-wide cache of compiled patterns.
class RegExp {
public:
  /// Every compiled pattern, by its text; entries are never removed.
  static QHash<QString, QRegExp *> hash;
  /// The pattern that the last search used; its match state answers pos, length and [].
  static QRegExp *prev;

  /// The position of the first match of the pattern in the text, or -1.
  int find(QString pattern, QString text);
  /// Whether the pattern matches somewhere in the text.
  bool match(QString pattern, QString text);
  /// Whether the pattern matches at the offset, where "^" then matches; lets a parser
  /// consume a long text from the front without copying what is left of it.
  bool matchAt(QString pattern, const QString &text, int offset);
  /// A copy of the text with its first match replaced literally.
  QString replace(QString pattern, QString text, QString replacement);
  /// Replaces the first match inside the text; returns whether there was one.
  bool substitute(QString pattern, QString &text, QString replacement);
  /// Replaces matches again and again from the start, at most 10001 times.
  QString replaceAll(QString pattern, QString text, QString replacement);
  /// Capture n of the last match (0 is the whole match).
  QString operator[](int n);
  /// Position of the last match.
  int pos();
  /// Length of the whole last match.
  int length();
};

/// The matcher through which the parsers run their patterns.
extern RegExp RE;

} // namespace Nexil

#endif // NEXIL_REGEXP_H
