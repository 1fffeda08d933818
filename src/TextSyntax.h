//===- TextSyntax.h - What the text readers share ---------------*- C++ -*-===//
//
// The unit, expression and macro readers of the library recognise numbers by one
// pattern and report what they cannot read through one error path. Internal to the
// library: not installed.
//
//===----------------------------------------------------------------------------===//
#ifndef NEXIL_TEXTSYNTAX_H
#define NEXIL_TEXTSYNTAX_H

#include <QString>

namespace Nexil {

/// A number without its sign: digits with an optional decimal point and exponent
/// ("7", ".5", "2.5e-3"). Captures the exponent as its one group.
const QString &unsignedNumberPattern();

/// A whole text that is a number with an optional sign and an optional unit ("-2.5mm",
/// "3"): the number is capture 1, the unit capture 3.
const QString &numberWithOptionalUnitPattern();

/// Reports a text that cannot be read in the error banner, without a line number.
void reportSyntax(const QString &message);

/// Reports an error of the expression being evaluated; "%1" in the message stands
/// for the whole expression.
void reportExpressionSyntax(const char *message);

} // namespace Nexil

#endif // NEXIL_TEXTSYNTAX_H
