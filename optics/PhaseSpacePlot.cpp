//===- PhaseSpacePlot.cpp - The crossings of one plane, drawn --------------===//

#include "PhaseSpacePlot.h"

#include "Picture.h"

#include <QImage>
#include <QPainter>
#include <QPainterPath>
#include <cmath>

namespace {

const int Width = 1200, Height = 1040;
const int Left = 90, Right = 30, Top = 60, Gap = 90, Bottom = 80, Middle = 110;
/// The decades of the density's colour scale.
const double Decades = 3;

/// Viridis, sparse density dark to dense light, at t in [0, 1].
QColor densityColour(double t) {
  const QColor stops[] = {
      {68, 1, 84}, {59, 82, 139}, {33, 145, 140}, {94, 201, 98}, {253, 231, 37}};
  const double at = std::clamp(t, 0.0, 1.0) * 4;
  const int i = std::min(int(at), 3);
  const double f = at - i;
  auto mix = [&](int a, int b) { return int(std::lround(a + (b - a) * f)); };
  return QColor(mix(stops[i].red(), stops[i + 1].red()),
                mix(stops[i].green(), stops[i + 1].green()),
                mix(stops[i].blue(), stops[i + 1].blue()));
}

/// A panel's frame: the pixel rectangle and the ranges it shows.
struct Frame {
  QRectF area;
  double xMin, xMax, yMin, yMax;
  QPointF at(double x, double y) const {
    return {area.left() + (x - xMin) / (xMax - xMin) * area.width(),
            area.bottom() - (y - yMin) / (yMax - yMin) * area.height()};
  }
};

/// The panel's frame in the pixel rectangle.
Frame frameOf(const QRectF &area, const PhasePanel &panel) {
  return {area, panel.xMin, panel.xMax, panel.yMin, panel.yMax};
}

/// The density of the crossings in the frame, as an image of PhaseBins by PhaseBins
/// pixels: white where there is none, else coloured by the log of the weight over the
/// largest.
QImage densityImage(const PhasePanel &panel) {
  const std::vector<double> &weights = panel.weights;
  const double largest = *std::max_element(weights.begin(), weights.end());
  QImage image(PhaseBins, PhaseBins, QImage::Format_RGB32);
  for (int row = 0; row < PhaseBins; ++row)
    for (int column = 0; column < PhaseBins; ++column) {
      const double w = weights[size_t(row * PhaseBins + column)];
      image.setPixelColor(column, PhaseBins - 1 - row,
                          w > 0 ? densityColour(1 + std::log10(w / largest) / Decades)
                                : QColor(Qt::white));
    }
  return image;
}

/// The ellipse d^T C^-1 d = q about the ellipsoid's mean.
QPainterPath ellipse(const Frame &f, const Ellipsoid &e, double q) {
  const double a = e.covariance[0][0], b = e.covariance[0][1], c = e.covariance[1][1];
  QPainterPath path;
  if (!(a > 0) || !(a * c - b * b > 0) || !(q > 0))
    return path;
  // C = L L^T: the circle of radius sqrt(q) through L.
  const double l11 = std::sqrt(a), l21 = b / l11, l22 = std::sqrt(c - l21 * l21);
  for (int k = 0; k <= 200; ++k) {
    const double phase = 2 * M_PI * k / 200, u = std::sqrt(q) * std::cos(phase),
                 v = std::sqrt(q) * std::sin(phase);
    const QPointF p = f.at(e.mean[0] + l11 * u, e.mean[1] + l21 * u + l22 * v);
    k == 0 ? path.moveTo(p) : path.lineTo(p);
  }
  return path;
}

void drawAxes(QPainter &p, const Frame &f, const PhasePair &pair) {
  p.setPen(QPen(Qt::black, 1));
  p.setBrush(Qt::NoBrush);
  p.drawRect(f.area);
  const QFontMetricsF metrics(p.font());
  const double xStep = tickStep(f.xMax - f.xMin, 5), yStep = tickStep(f.yMax - f.yMin, 5);
  for (double x = std::ceil(f.xMin / xStep) * xStep; x <= f.xMax; x += xStep) {
    const QPointF at = f.at(x, f.yMin);
    p.drawLine(at, at - QPointF(0, 6));
    const QString text = QString::number(std::fabs(x) < xStep * 1e-9 ? 0 : x, 'g', 6);
    p.drawText(QPointF(at.x() - metrics.horizontalAdvance(text) / 2, at.y() + 18), text);
  }
  for (double y = std::ceil(f.yMin / yStep) * yStep; y <= f.yMax; y += yStep) {
    const QPointF at = f.at(f.xMin, y);
    p.drawLine(at, at + QPointF(6, 0));
    const QString text = QString::number(std::fabs(y) < yStep * 1e-9 ? 0 : y, 'g', 6);
    p.drawText(QPointF(at.x() - 6 - metrics.horizontalAdvance(text), at.y() + 5), text);
  }
  p.drawText(QPointF(f.area.center().x() - metrics.horizontalAdvance(pair.xLabel) / 2,
                     f.area.bottom() + 40),
             pair.xLabel);
  p.save();
  p.translate(f.area.left() - 70, f.area.center().y());
  p.rotate(-90);
  p.drawText(QPointF(-metrics.horizontalAdvance(pair.yLabel) / 2, 0), pair.yLabel);
  p.restore();
}

void drawPanel(QPainter &p, const QRectF &area, const PhasePanel &panel) {
  const Frame f = frameOf(area, panel);
  p.drawImage(area, densityImage(panel));
  p.save();
  p.setClipRect(area);
  p.setBrush(Qt::NoBrush);
  p.setPen(QPen(Qt::black, 2));
  p.drawPath(ellipse(f, panel.rms, 1));
  p.setPen(QPen(QColor(214, 39, 40), 2, Qt::DashLine));
  p.drawPath(ellipse(f, panel.core, panel.core.boundary));
  p.restore();
  drawAxes(p, f, panel.pair);
}

void draw(QPainter &p, const PhaseSpaceView &view, const QString &title) {
  p.setRenderHint(QPainter::Antialiasing);
  p.setRenderHint(QPainter::SmoothPixmapTransform, false);
  QFont font("DejaVu Sans");
  font.setPixelSize(14);
  QFont bold = font;
  bold.setPixelSize(16);
  bold.setBold(true);
  p.setFont(bold);
  p.setPen(Qt::black);
  p.drawText(QRectF(0, 10, Width, 30), Qt::AlignCenter, title);
  p.setFont(font);
  const double w = (Width - Left - Right - Middle) / 2.0, h = (Height - Top - Gap - Bottom) / 2.0;
  for (int i = 0; i < 4; ++i) {
    const QRectF area(Left + (i % 2) * (w + Middle), Top + (i / 2) * (h + Gap), w, h);
    drawPanel(p, area, view[size_t(i)]);
  }
  // The legend, under the panels.
  const double y = Height - 22;
  p.setPen(QPen(Qt::black, 2));
  p.drawLine(QPointF(Left, y - 5), QPointF(Left + 30, y - 5));
  p.drawText(QPointF(Left + 38, y), "r.m.s. ellipse");
  p.setPen(QPen(QColor(214, 39, 40), 2, Qt::DashLine));
  p.drawLine(QPointF(Left + 180, y - 5), QPointF(Left + 210, y - 5));
  p.setPen(Qt::black);
  p.drawText(QPointF(Left + 218, y), "90 % core");
  for (int k = 0; k < 40; ++k) {
    p.fillRect(QRectF(Left + 360 + 5 * k, y - 12, 5, 12), densityColour(k / 39.0));
  }
  p.drawText(QPointF(Left + 570, y), "weight per bin, 1/1000 of the largest to the largest");
}

} // namespace

QByteArray phaseSpacePlot(const QString &path, const PhaseSpaceView &view, const QString &title) {
  return pictureBytes(path, QSize(Width, Height), title,
                      [&](QPainter &painter) { draw(painter, view, title); });
}
