//===- ArgHash.h - Name=value argument sets --------------------*- C++ -*-===//
//
// The library's parameter set: named arguments under their names and positional
// words under the keys "0", "1", ... in order of appearance. Values stay text.
//
//===----------------------------------------------------------------------------===//
#ifndef NEXIL_ARGHASH_H
#define NEXIL_ARGHASH_H

#include <QFile>
#include <QHash>
#include <QString>

namespace Nexil {

/// A hash from argument name to value text.
class ArgHash : public QHash<QString, QString> {
public:
  /// No arguments.
  ArgHash() = default;
  /// Parses one argument string: name=value pairs (bare or quoted) and positional words.
  explicit ArgHash(QString s);
  /// Reads a parameter file, one name=value per line; an unreadable file gives nothing.
  explicit ArgHash(QFile &f);
  /// Reads a command line; elements without "=" are positional.
  ArgHash(int argc, char **argv);
};

} // namespace Nexil

#endif // NEXIL_ARGHASH_H
