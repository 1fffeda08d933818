//===- EnvelopePlot.cpp - The beam's envelope along s, drawn ---------------===//

#include "EnvelopePlot.h"

#include "BCSegment.h"
#include "BeamlineCoordinates.h"

#include "Picture.h"

#include <QPainter>
#include <cmath>

namespace {

const int Width = 1200, PanelHeight = 355;
const int Left = 90, Right = 30, Top = 60, Gap = 70, Bottom = 60;

/// One curve of a panel: a column, its error column (or none), how it is drawn.
struct Series {
  const char *column;
  const char *error;
  const char *label;
  QColor colour;
  bool markers; ///< a marker at every plane (the measured quantities), else a dashed line
};

/// A panel: its curves and the label of its value axis.
struct Panel {
  QList<Series> series;
  QString label;
};

/// True when some row has a value in one of the columns.
bool hasValues(const QList<OpticsRow> &rows, const QStringList &columns) {
  for (const OpticsRow &row : rows)
    for (const QString &column : columns)
      if (std::isfinite(row.value(column)))
        return true;
  return false;
}

/// The panels drawn, top to bottom: the widths and the betas always; the dispersion where
/// the beam's momentum spread let it be measured; the 4D emittance beside the 2D ones
/// where the 4D measure gives it.
QList<Panel> panelsOf(const QList<OpticsRow> &rows) {
  const QColor blue(31, 119, 180), red(214, 39, 40), green(44, 160, 44);
  QList<Panel> panels = {{{{"sigma_x_mm", "sigma_x_mm_err", "sigma x", blue, true},
                           {"sigma_y_mm", "sigma_y_mm_err", "sigma y", red, true},
                           {"mean_x_mm", nullptr, "mean x", blue, false},
                           {"mean_y_mm", nullptr, "mean y", red, false}},
                          "r.m.s. width and mean [mm]"},
                         {{{"beta_x_m", "beta_x_m_err", "beta x", blue, true},
                           {"beta_y_m", "beta_y_m_err", "beta y", red, true}},
                          "beta [m]"}};
  if (hasValues(rows, {"disp_x_m", "disp_y_m"}))
    panels.append({{{"disp_x_m", "disp_x_m_err", "D x", blue, true},
                    {"disp_y_m", "disp_y_m_err", "D y", red, true}},
                   "dispersion [m]"});
  if (hasValues(rows, {"emitn_4d_mm_mrad"}))
    panels.append({{{"emitn_4d_mm_mrad", "emitn_4d_mm_mrad_err", "emitn 4D", green, true},
                    {"emitn_x_mm_mrad", "emitn_x_mm_mrad_err", "emitn x", blue, true},
                    {"emitn_y_mm_mrad", "emitn_y_mm_mrad_err", "emitn y", red, true}},
                   "normalised emittance [mm mrad]"});
  return panels;
}

/// The picture's height for this many panels.
int heightFor(int panels) {
  return Top + panels * PanelHeight + (panels - 1) * Gap + Bottom;
}

/// A panel's frame: the pixel rectangle and the ranges it shows.
struct Frame {
  QRectF area;
  double sMin, sMax, yMin, yMax;
  QPointF at(double s, double y) const {
    return {area.left() + (s - sMin) / (sMax - sMin) * area.width(),
            area.bottom() - (y - yMin) / (yMax - yMin) * area.height()};
  }
};

/// The range of the values of the series (with their error bars), padded a little.
QPair<double, double> valueRange(const QList<OpticsRow> &rows, const QList<Series> &series) {
  double low = INFINITY, high = -INFINITY;
  for (const OpticsRow &row : rows)
    for (const Series &s : series) {
      double v = row.value(s.column), e = s.error ? row.value(s.error) : 0;
      if (!std::isfinite(v))
        continue;
      e = std::isfinite(e) ? e : 0;
      low = std::min(low, v - e);
      high = std::max(high, v + e);
    }
  if (!std::isfinite(low))
    return {0, 1};
  if (high - low < 1e-12)
    return {low - 1, high + 1};
  double pad = 0.05 * (high - low);
  return {low - pad, high + pad};
}

void drawAxes(QPainter &p, const Frame &f, const QString &yLabel, bool sLabels) {
  p.setPen(QPen(Qt::black, 1));
  p.drawRect(f.area);
  QFontMetricsF metrics(p.font());
  double sStep = tickStep(f.sMax - f.sMin, 8);
  for (double s = std::ceil(f.sMin / sStep) * sStep; s <= f.sMax + 1e-9 * sStep; s += sStep) {
    QPointF base = f.at(s, f.yMin);
    p.drawLine(base, base - QPointF(0, 6));
    if (sLabels) {
      QString text = QString::number(s, 'g', 6);
      p.drawText(base + QPointF(-metrics.horizontalAdvance(text) / 2, 18), text);
    }
  }
  double yStep = tickStep(f.yMax - f.yMin, 5);
  for (double y = std::ceil(f.yMin / yStep) * yStep; y <= f.yMax + 1e-9 * yStep; y += yStep) {
    QPointF base = f.at(f.sMin, y);
    p.drawLine(base, base + QPointF(6, 0));
    QString text = QString::number(std::fabs(y) < 1e-9 * yStep ? 0 : y, 'g', 6);
    p.drawText(base + QPointF(-metrics.horizontalAdvance(text) - 6, 5), text);
  }
  p.save();
  p.translate(f.area.left() - 70, f.area.center().y());
  p.rotate(-90);
  p.drawText(QPointF(-metrics.horizontalAdvance(yLabel) / 2, 0), yLabel);
  p.restore();
  if (sLabels) {
    QString text = "s [m]";
    p.drawText(
        QPointF(f.area.center().x() - metrics.horizontalAdvance(text) / 2, f.area.bottom() + 40),
        text);
  }
}

/// Bends shaded along the whole panel, kinks as a line.
void drawMarks(QPainter &p, const Frame &f, const BeamlineMarks &marks) {
  p.save();
  p.setClipRect(f.area);
  for (const auto &[from, to] : marks.arcs) {
    QPointF a = f.at(from, f.yMax), b = f.at(to, f.yMin);
    p.fillRect(QRectF(a, b), QColor(255, 200, 120, 90));
  }
  p.setPen(QPen(QColor(200, 120, 0), 1.5, Qt::DashLine));
  for (double s : marks.kinks)
    p.drawLine(f.at(s, f.yMin), f.at(s, f.yMax));
  p.restore();
}

void drawSeries(QPainter &p, const Frame &f, const QList<OpticsRow> &rows, const Series &s) {
  p.save();
  p.setClipRect(f.area.adjusted(-5, -5, 5, 5));
  QPolygonF line;
  for (const OpticsRow &row : rows) {
    double v = row.value(s.column), at = row.value("s_mm") / 1000;
    if (std::isfinite(v))
      line << f.at(at, v);
  }
  p.setPen(QPen(s.colour, 1.5, s.markers ? Qt::SolidLine : Qt::DashLine));
  p.drawPolyline(line);
  if (s.markers) {
    for (const OpticsRow &row : rows) {
      double v = row.value(s.column), e = row.value(s.error), at = row.value("s_mm") / 1000;
      if (!std::isfinite(v))
        continue;
      if (std::isfinite(e) && e > 0)
        p.drawLine(f.at(at, v - e), f.at(at, v + e));
      p.setBrush(s.colour);
      p.drawEllipse(f.at(at, v), 3.5, 3.5);
    }
  }
  p.restore();
}

/// The values of the panel's curves in a band of the panel: [top, bottom] in pixels,
/// from its left edge to 160 pixels right of it.
int pointsIn(const Frame &f, const QList<OpticsRow> &rows, const QList<Series> &series, double top,
             double bottom) {
  const QRectF band(f.area.left(), top, 160, bottom - top);
  int points = 0;
  for (const OpticsRow &row : rows)
    for (const Series &s : series) {
      const double v = row.value(s.column);
      points += std::isfinite(v) && band.contains(f.at(row.value("s_mm") / 1000, v));
    }
  return points;
}

/// The legend in the upper left corner, where a beam that grows along s leaves room, or
/// in the lower left one where fewer of the values lie there (a dispersion that starts
/// at zero and falls); the bends and kinks last, when there are any.
void drawLegend(QPainter &p, const Frame &f, const QList<OpticsRow> &rows,
                const QList<Series> &series, const BeamlineMarks &marks) {
  const int entries = series.size() + !marks.arcs.isEmpty() + !marks.kinks.isEmpty();
  const double height = 18 * entries;
  double y = f.area.top() + 18;
  if (pointsIn(f, rows, series, f.area.bottom() - height - 10, f.area.bottom()) <
      pointsIn(f, rows, series, f.area.top(), f.area.top() + height + 10))
    y = f.area.bottom() - height + 8;
  const double x = f.area.left() + 45;
  auto entry = [&](const QPen &pen, const QString &label) {
    p.setPen(pen);
    p.drawLine(QPointF(x - 35, y - 4), QPointF(x - 8, y - 4));
    p.setPen(Qt::black);
    p.drawText(QPointF(x, y), label);
    y += 18;
  };
  for (const Series &s : series)
    entry(QPen(s.colour, 2, s.markers ? Qt::SolidLine : Qt::DashLine), s.label);
  if (!marks.arcs.isEmpty())
    entry(QPen(QColor(255, 200, 120), 8), "bend");
  if (!marks.kinks.isEmpty())
    entry(QPen(QColor(200, 120, 0), 1.5, Qt::DashLine), "kink");
}

void drawPanel(QPainter &p, const QRectF &area, const QList<OpticsRow> &rows, const Panel &panel,
               bool sLabels, const BeamlineMarks &marks, double sMin, double sMax) {
  auto [low, high] = valueRange(rows, panel.series);
  Frame f{area, sMin, sMax, low, high};
  drawMarks(p, f, marks);
  for (const Series &s : panel.series)
    drawSeries(p, f, rows, s);
  drawAxes(p, f, panel.label, sLabels);
  drawLegend(p, f, rows, panel.series, marks);
}

void draw(QPainter &p, const QList<OpticsRow> &rows, const QList<Panel> &panels,
          const QString &title, const BeamlineMarks &marks) {
  p.setRenderHint(QPainter::Antialiasing);
  QFont font("DejaVu Sans");
  font.setPixelSize(14);
  p.setFont(font);
  double sMin = INFINITY, sMax = -INFINITY;
  for (const OpticsRow &row : rows) {
    sMin = std::min(sMin, row.value("s_mm") / 1000);
    sMax = std::max(sMax, row.value("s_mm") / 1000);
  }
  if (!(sMax > sMin)) { // one plane, or none
    sMin = std::isfinite(sMin) ? sMin - 0.5 : 0;
    sMax = sMin + 1;
  }
  double pad = 0.03 * (sMax - sMin);
  sMin -= pad;
  sMax += pad;
  p.setPen(Qt::black);
  QFont bold = font;
  bold.setPixelSize(16);
  bold.setBold(true);
  p.setFont(bold);
  p.drawText(QRectF(0, 10, Width, 30), Qt::AlignCenter, title);
  p.setFont(font);
  for (qsizetype i = 0; i < panels.size(); ++i) {
    QRectF area(Left, Top + i * (PanelHeight + Gap), Width - Left - Right, PanelHeight);
    drawPanel(p, area, rows, panels[i], i == panels.size() - 1, marks, sMin, sMax);
  }
}

} // namespace

BeamlineMarks beamlineMarks() {
  BeamlineMarks marks;
  for (Nexil::BCSegment *segment : Nexil::BeamlineCoordinates::segments) {
    if (auto *arc = dynamic_cast<Nexil::ArcBCSegment *>(segment))
      marks.arcs.append({arc->s_min, arc->s_max});
    else if (auto *straight = dynamic_cast<Nexil::StraightBCSegment *>(segment);
             straight && straight->angle != 0 && !dynamic_cast<Nexil::StartBCSegment *>(segment))
      marks.kinks.append(straight->s_min);
  }
  return marks;
}

QByteArray envelopePlot(const QString &path, const QList<OpticsRow> &rows, const QString &title,
                        const BeamlineMarks &marks) {
  const QList<Panel> panels = panelsOf(rows);
  return pictureBytes(path, QSize(Width, heightFor(panels.size())), title,
                      [&](QPainter &painter) { draw(painter, rows, panels, title, marks); });
}
