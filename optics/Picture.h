//===- Picture.h - Pictures drawn with Qt's painting -----------*- C++ -*-===//
//
// The tool's pictures are drawn with Qt's own painting on the offscreen platform, so they
// need no display: a PNG through a QImage, an SVG through QSvgGenerator, by the
// extension of the file asked for.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_PICTURE_H
#define OPTICS_PICTURE_H

#include <QByteArray>
#include <QSize>
#include <QString>
#include <functional>

class QPainter;

/// The bytes of a picture of this size drawn by `draw`: a PNG or an SVG file, the format
/// that `path`'s extension names.
QByteArray pictureBytes(const QString &path, QSize size, const QString &title,
                        const std::function<void(QPainter &)> &draw);

/// A round step (1, 2 or 5 times a power of ten) that cuts the span into about n parts.
double tickStep(double span, int n);

#endif // OPTICS_PICTURE_H
