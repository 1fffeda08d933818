//===- EnvelopePlot.h - The beam's envelope along s, drawn -----*- C++ -*-===//
//
// A picture of the optics table against s in metres, panels one above the other: the
// r.m.s. widths of x and y with their error bars and the means; beta x and beta y; the
// dispersion in x and y where it was measured; the 4D and 2D normalised emittances where
// the 4D measure is on. Each measured value has its error bar; the beamline's bends and
// kinks are marked along the s axis.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_ENVELOPEPLOT_H
#define OPTICS_ENVELOPEPLOT_H

#include "BeamOptics.h"
#include "Picture.h"

#include <QList>
#include <QPair>
#include <QString>

/// Where the beamline bends: arcs as [start, end] and kinks, s in m.
struct BeamlineMarks {
  QList<QPair<double, double>> arcs;
  QList<double> kinks;
};

/// The arcs and kinks of the beamline that BeamlineCoordinates holds now.
BeamlineMarks beamlineMarks();

/// The picture of the rows (s in mm in column s_mm) under `title`, as the bytes of a
/// PNG or SVG file: the format that `path`'s extension names.
QByteArray envelopePlot(const QString &path, const QList<OpticsRow> &rows, const QString &title,
                        const BeamlineMarks &marks);

#endif // OPTICS_ENVELOPEPLOT_H
