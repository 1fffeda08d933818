//===- RegExp.cpp - Cached regular expressions for the text parsers ---------===//

#include "RegExp.h"

#include "Assert.h"
#include "Constinit.h"

namespace Nexil {

NEXIL_CONSTINIT QHash<QString, QRegExp *> RegExp::hash;
QRegExp *RegExp::prev = nullptr;
RegExp RE;

namespace {

/// Frees the compiled patterns when the process ends, after every other use.
struct CacheRelease {
  ~CacheRelease() {
    qDeleteAll(RegExp::hash);
    RegExp::hash.clear();
    RegExp::prev = nullptr;
  }
} cacheRelease;

} // namespace

namespace {

QRegExp *compiled(const QString &pattern) {
  QRegExp *compiled = RegExp::hash.value(pattern, nullptr);
  if (!compiled) {
    compiled = new QRegExp(pattern, Qt::CaseSensitive, QRegExp::RegExp);
    RegExp::hash.insert(pattern, compiled);
  }
  return compiled;
}

} // namespace

int RegExp::find(QString pattern, QString text) {
  prev = compiled(pattern);
  NEXIL_ASSERT(prev != 0);
  return prev->indexIn(text, 0);
}

bool RegExp::matchAt(QString pattern, const QString &text, int offset) {
  prev = compiled(pattern);
  NEXIL_ASSERT(prev != 0);
  return prev->indexIn(text, offset, QRegExp::CaretAtOffset) == offset;
}

bool RegExp::match(QString pattern, QString text) {
  return find(pattern, text) >= 0;
}

QString RegExp::replace(QString pattern, QString text, QString replacement) {
  substitute(pattern, text, replacement);
  return text;
}

bool RegExp::substitute(QString pattern, QString &text, QString replacement) {
  int i = find(pattern, text);
  if (i < 0)
    return false;
  NEXIL_ASSERT(prev != 0);
  text.replace(i, prev->cap(0).length(), replacement);
  return true;
}

QString RegExp::replaceAll(QString pattern, QString text, QString replacement) {
  QString result = text;
  if (pattern.isEmpty())
    return result;
  // Every pass searches the changed text from its start again, so a replacement that
  // matches itself, or a pattern that matches nothing, would never end without the cap.
  int count = 0;
  for (;;) {
    int i = find(pattern, result);
    if (i < 0)
      break;
    NEXIL_ASSERT(prev != 0);
    result.replace(i, prev->cap(0).length(), replacement);
    if (++count > 10000)
      break;
  }
  return result;
}

QString RegExp::operator[](int n) {
  return prev->cap(n);
}

int RegExp::pos() {
  return prev->pos(0);
}

int RegExp::length() {
  return prev->cap(0).length();
}

} // namespace Nexil
