//===- PhaseSpacePlot.h - The crossings of one plane, drawn ----*- C++ -*-===//
//
// Where the particles are at one plane: the density of the crossings in (x, u_x),
// (y, u_y), (x, y) and (t, kinetic energy), on a logarithmic colour scale, with the
// r.m.s. ellipse of each pair and the contour of its 90 % core.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_PHASESPACEPLOT_H
#define OPTICS_PHASESPACEPLOT_H

#include "PhaseSpaceView.h"

#include <QByteArray>
#include <QString>

/// The picture of a plane's crossings under `title`, as the bytes of a PNG or SVG file:
/// the format that `path`'s extension names.
QByteArray phaseSpacePlot(const QString &path, const PhaseSpaceView &view, const QString &title);

#endif // OPTICS_PHASESPACEPLOT_H
