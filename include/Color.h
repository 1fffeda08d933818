//===- Color.h - Display colours -------------------------------*- C++ -*-===//
//
// Tools with a display give colours by name; this tool has none, so a colour given by
// name is a blank placeholder (empty name, components zero). Only the default colour,
// white, carries values.
//
//===----------------------------------------------------------------------------===//
#ifndef NEXIL_COLOR_H
#define NEXIL_COLOR_H

#include <QString>

namespace Nexil {

/// A display colour: red, green, blue and alpha, and a name.
class Color {
public:
  /// The components, 0 to 1.
  float red, green, blue, alpha;
  /// The colour's name ("white"), empty for a placeholder.
  QString name;

  /// White.
  Color() : red(1), green(1), blue(1), alpha(1), name("white") {}
  /// A blank placeholder: nothing of the name is kept without a display.
  explicit Color(QString) : red(0), green(0), blue(0), alpha(0) {}
};

} // namespace Nexil

#endif // NEXIL_COLOR_H
