//===- EnvelopePlotTest.cpp - The picture of the beam along s --------------===//
//
// The bundled example drawn by twiss-optics as PNG and SVG: the image's size, a plot
// area that is not blank, one marker per plane and measured quantity, the title, the
// bend and the kink marked; and the plot's command-line errors.
//
//===----------------------------------------------------------------------------===//

#include "RunDirectoryTest.h"

#include <QDir>
#include <QFont>
#include <QFontMetricsF>
#include <QGuiApplication>
#include <QImage>
#include <QRegularExpression>
#include <gtest/gtest.h>

namespace {

class EnvelopePlotTest : public RunDirectoryTest {
protected:
  void SetUp() override { copyExample(); }
};

/// Pixels of the image's rectangle that are not white.
int inkIn(const QImage &image, const QRect &area) {
  int ink = 0;
  for (int y = area.top(); y <= area.bottom(); ++y)
    for (int x = area.left(); x <= area.right(); ++x)
      ink += image.pixel(x, y) != qRgb(255, 255, 255);
  return ink;
}

TEST_F(EnvelopePlotTest, pngOfTheExample) {
  ToolRun r = runOpticsTool(dir.path(), {"-q", "--plot", "envelope.png"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");
  QImage image(path("envelope.png"));
  ASSERT_FALSE(image.isNull());
  EXPECT_EQ(image.size(), QSize(1200, 900));
  // Both panels hold curves, markers and the shaded bend; the margin right of them is
  // white.
  EXPECT_GT(inkIn(image, QRect(100, 70, 1000, 280)), 20000);
  EXPECT_GT(inkIn(image, QRect(100, 500, 1000, 280)), 20000);
  EXPECT_EQ(inkIn(image, QRect(1175, 0, 25, 900)), 0);
  // The bend (2 m to 3.05 m of the example's 0.25-7.25 m) shaded in the upper panel: its
  // colour (255, 200, 120) at 90/255 over white.
  EXPECT_EQ(image.pixel(430, 380), qRgb(255, 236, 207)) << std::hex << image.pixel(430, 380);
}

TEST_F(EnvelopePlotTest, svgHasOneMarkerPerPlaneAndQuantity) {
  ToolRun r = runOpticsTool(dir.path(), {"-q", "--plot", "envelope.svg", "--species", "-13,e-"});
  ASSERT_EQ(r.status, 0) << r.err;
  QString svg = QString::fromStdString(readFile(path("envelope.svg")));
  ASSERT_TRUE(svg.startsWith("<?xml")) << svg.left(100).toStdString();
  // 15 planes; sigma x, sigma y, beta x, beta y each with a marker at every plane.
  EXPECT_EQ(svg.count("<circle"), 4 * 15);
  EXPECT_TRUE(svg.contains(QDir(dir.path()).absolutePath() + " (species mu+,e-, weighted)"));
  for (const char *text : {">s [m]<", ">beta [m]<", ">r.m.s. width and mean [mm]<", ">sigma x<",
                           ">beta y<", ">bend<", ">kink<"})
    EXPECT_TRUE(svg.contains(text)) << text;
}

/// The numbers of every match of the pattern's captures, one list a match.
QList<QList<double>> numbersOf(const QString &svg, const QString &pattern) {
  QList<QList<double>> all;
  for (const QRegularExpressionMatch &m : QRegularExpression(pattern).globalMatch(svg)) {
    QList<double> numbers;
    for (int i = 1; i <= m.lastCapturedIndex(); ++i)
      numbers << m.captured(i).toDouble();
    all << numbers;
  }
  return all;
}

/// Texts with their position: (x, y) and the text.
/// The width of a text in the plot's font (DejaVu Sans, 14 pixels), measured as the tool
/// measures it, on the offscreen platform.
double plotTextWidth(const QString &text) {
  // The platform's notes (no runtime directory) are not the test's concern.
  QtMessageHandler previous =
      qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
  qputenv("QT_QPA_PLATFORM", "offscreen");
  int argc = 1;
  char name[] = "EnvelopePlotTest";
  char *argv[] = {name, nullptr};
  QGuiApplication application(argc, argv);
  QFont font("DejaVu Sans");
  font.setPixelSize(14);
  const double width = QFontMetricsF(font).horizontalAdvance(text);
  qInstallMessageHandler(previous);
  return width;
}

QList<QPair<QPointF, QString>> textsOf(const QString &svg) {
  QList<QPair<QPointF, QString>> texts;
  QRegularExpression text(R"re(<text [^>]* x="([-\d.]+)" y="([-\d.]+)"[^>]*\s*>([^<]*)</text>)re");
  for (const QRegularExpressionMatch &m : text.globalMatch(svg))
    texts.append({QPointF(m.captured(1).toDouble(), m.captured(2).toDouble()), m.captured(3)});
  return texts;
}

/// The texts alone, in the order they are drawn.
QStringList labelsOf(const QString &svg) {
  QStringList labels;
  for (const auto &[at, text] : textsOf(svg))
    labels << text;
  return labels;
}

/// The attributes of the group that holds the first element with this text.
QString styleOf(const QString &svg, const QString &element) {
  qsizetype at = svg.indexOf(element);
  if (at < 0)
    return "(" + element + " not found)";
  qsizetype group = svg.lastIndexOf("<g ", at);
  return svg.mid(group, svg.indexOf('>', group) - group);
}

TEST_F(EnvelopePlotTest, layoutOfTheExampleWorkedByHand) {
  ASSERT_EQ(runOpticsTool(dir.path(), {"-q", "--plot", "e.svg"}).status, 0);
  QString svg = QString::fromStdString(readFile(path("e.svg")));
  // Two panels 1200 - 90 - 30 = 1080 wide and (900 - 60 - 70 - 60) / 2 = 355 high, from
  // y = 60 and y = 60 + 355 + 70 = 485. The planes span 0.25 to 7.25 m, padded by 3 %
  // (0.21 m) on each side: s = 0.04 m at x = 90, 1080 / 7.42 pixels a metre. The bend
  // runs from 2 m for 2 m x 30 degrees = 1.0472 m: x = 90 + 1.96 * 145.553 = 375.283,
  // 152.422 wide.
  // The file gives six significant digits: 0.005 pixels past x = 1000.
  const double perMetre = 1080 / 7.42;
  auto xAt = [&](double s) { return 90 + (s - 0.04) * perMetre; };
  QList<QList<double>> rects =
      numbersOf(svg, R"re(<rect x="([\d.]+)" y="([\d.]+)" width="([\d.]+)" height="([\d.]+)"/>)re");
  ASSERT_EQ(rects.size(), 4);
  for (int panel = 0; panel < 2; ++panel) {
    double top = panel ? 485 : 60;
    QList<double> bend = rects[2 * panel], frame = rects[2 * panel + 1];
    EXPECT_NEAR(bend[0], 375.283, 1e-3);
    EXPECT_EQ(bend[1], top);
    EXPECT_NEAR(bend[2], 152.422, 1e-3);
    EXPECT_EQ(bend[3], 355);
    EXPECT_EQ(frame, (QList<double>{90, top, 1080, 355}));
  }
  // Ticks 6 pixels long at every metre along both panels' lower edges, labelled 18
  // pixels below the lower panel's; ticks 6 pixels long into each panel from its left edge.
  QList<QList<double>> segments =
      numbersOf(svg, R"re(points="([\d.]+),([\d.]+) ([\d.]+),([\d.]+) ")re");
  QList<double> sTicks[2], yTicks[2];
  for (const QList<double> &p : segments) {
    if (p[0] == p[2] && p[3] == p[1] - 6 && (p[1] == 415 || p[1] == 840))
      sTicks[p[1] == 840] << p[0];
    if (p[0] == 90 && p[2] == 96 && p[1] == p[3])
      yTicks[p[1] > 450] << p[1];
  }
  for (const QList<double> &ticks : sTicks) {
    ASSERT_EQ(ticks.size(), 7);
    for (int k = 1; k <= 7; ++k)
      EXPECT_NEAR(ticks[k - 1], xAt(k), 5e-3) << k << " m";
  }
  QList<QPair<QPointF, QString>> texts = textsOf(svg);
  EXPECT_EQ(labelsOf(svg),
            (QStringList{QDir(dir.path()).absolutePath() + " (all species, weighted)",
                         "0",
                         "5",
                         "10",
                         "15",
                         "r.m.s. width and mean [mm]",
                         "sigma x",
                         "sigma y",
                         "mean x",
                         "mean y",
                         "bend",
                         "kink",
                         "1",
                         "2",
                         "3",
                         "4",
                         "5",
                         "6",
                         "7",
                         "10",
                         "20",
                         "30",
                         "beta [m]",
                         "s [m]",
                         "beta x",
                         "beta y",
                         "bend",
                         "kink"}));
  ASSERT_EQ(texts.size(), 28);
  EXPECT_GT(texts[0].first.y(), 10);
  EXPECT_LT(texts[0].first.y(), 40);
  ASSERT_EQ(yTicks[0].size(), 4);
  ASSERT_EQ(yTicks[1].size(), 3);
  for (int i = 0; i < 4; ++i) // 0, 5, 10, 15 mm: 5 pixels below the tick, left of it
    EXPECT_EQ(texts[1 + i].first.y(), yTicks[0][i] + 5);
  for (int k = 1; k <= 7; ++k) {
    EXPECT_EQ(texts[11 + k].first.y(), 858);
    EXPECT_NEAR(texts[11 + k].first.x() + 4.45, xAt(k), 0.1) << k; // a digit: 8.9 pixels
  }
  for (int i = 0; i < 3; ++i) // 10, 20, 30 m
    EXPECT_EQ(texts[19 + i].first.y(), yTicks[1][i] + 5);
  EXPECT_EQ(texts[23].first.y(), 880); // "s [m]", 40 pixels below the panel
  // The legends: a line from 55 to 28 pixels left of the label, 4 pixels above its
  // base line; entries 18 pixels apart from 18 pixels below the panel's top.
  for (int i = 0; i < 6; ++i)
    EXPECT_EQ(texts[6 + i].first, QPointF(135, 78 + 18 * i)) << i;
  for (int i = 0; i < 4; ++i)
    EXPECT_EQ(texts[24 + i].first, QPointF(135, 503 + 18 * i)) << i;
  EXPECT_TRUE(svg.contains(R"re(points="100,74 127,74 ")re"));
  EXPECT_TRUE(svg.contains(R"re(points="100,553 127,553 ")re"));
  // The vertical labels 70 pixels left of the panels, turned a quarter, at their middle:
  // each begins half its width before the turned origin.
  EXPECT_TRUE(svg.contains("transform=\"matrix(0,-1,1,0,20,237.5)\""));
  EXPECT_TRUE(svg.contains("transform=\"matrix(0,-1,1,0,20,662.5)\""));
  for (int i : {5, 22})
    EXPECT_NEAR(texts[i].first.x(), -plotTextWidth(texts[i].second) / 2, 0.01)
        << texts[i].second.toStdString();
  // The frames in thin black, the bends filled at 90/255 opacity, the kink at 5 m a
  // dashed line 1.5 pixels wide (dashes of 4 and gaps of 2 widths).
  EXPECT_TRUE(styleOf(svg, R"re(<rect x="90" y="60")re")
                  .contains(R"re(stroke="#000000" stroke-opacity="1" stroke-width="1" )re"));
  EXPECT_TRUE(styleOf(svg, R"re(<rect x="375.283" y="485")re")
                  .contains(R"re(fill="#ffc878" fill-opacity="0.352941" stroke="none")re"));
  EXPECT_TRUE(styleOf(svg, R"re(points="811.941,840 811.941,485 ")re")
                  .contains(R"re(stroke="#c87800" stroke-opacity="1" stroke-dasharray="6,3" )re"
                            R"re(stroke-dashoffset="0" stroke-width="1.5" )re"));
  // Their legend entries, the third and fourth of the lower panel: the bend's colour
  // opaque in a line 8 pixels wide, the kink's line as drawn.
  EXPECT_TRUE(styleOf(svg, R"re(points="100,535 127,535 ")re")
                  .contains(R"re(stroke="#ffc878" stroke-opacity="1" stroke-width="8" )re"));
  EXPECT_TRUE(styleOf(svg, R"re(points="100,553 127,553 ")re")
                  .contains(R"re(stroke="#c87800" stroke-opacity="1" stroke-dasharray="6,3" )re"
                            R"re(stroke-dashoffset="0" stroke-width="1.5" )re"));
  // Every marker where the axes' ticks put the table's value: sigma x and y, then beta
  // x and y, the planes in order.
  QList<QHash<QString, QString>> rows = csvRows(readFile(path("twiss.optics.csv")));
  ASSERT_EQ(rows.size(), 15);
  QList<QList<double>> circles =
      numbersOf(svg, R"re(<circle cx="([\d.]+)" cy="([\d.]+)" r="([\d.]+)"/>)re");
  ASSERT_EQ(circles.size(), 60);
  const char *columns[] = {"sigma_x_mm", "sigma_y_mm", "beta_x_m", "beta_y_m"};
  for (int c = 0; c < 4; ++c) {
    // The first tick stands at 0 mm (widths) or 10 m (betas), the next one 5 mm or 10 m on.
    const QList<double> &ticks = yTicks[c / 2];
    double first = c < 2 ? 0 : 10, step = c < 2 ? 5 : 10;
    double pixelsPerUnit = (ticks[0] - ticks[1]) / step;
    for (int i = 0; i < 15; ++i) {
      const QList<double> &circle = circles[15 * c + i];
      double s = rows[i]["s_mm"].toDouble() / 1000, v = rows[i][columns[c]].toDouble();
      EXPECT_NEAR(circle[0], xAt(s), 5e-3) << columns[c] << " " << i;
      EXPECT_NEAR(circle[1], ticks[0] - (v - first) * pixelsPerUnit, 2e-3)
          << columns[c] << " " << i;
      EXPECT_EQ(circle[2], 3.5);
    }
  }
}

TEST_F(EnvelopePlotTest, panelsWithoutValuesShowZeroToOne) {
  // No proton crosses a plane: every value is empty, both panels span 0 to 1 in steps
  // of 0.2, without a marker.
  ASSERT_EQ(runOpticsTool(dir.path(), {"-q", "--species", "proton", "--plot", "e.svg"}).status, 0);
  QString svg = QString::fromStdString(readFile(path("e.svg")));
  QStringList labels = labelsOf(svg);
  const QStringList unit = {"0", "0.2", "0.4", "0.6", "0.8", "1"};
  EXPECT_EQ(labels.mid(1, 6), unit);
  EXPECT_EQ(labels.mid(21, 6), unit);
  EXPECT_EQ(labels.size(), 33);
  EXPECT_EQ(svg.count("<circle"), 0);
}

TEST_F(EnvelopePlotTest, bothFormatsAtOnceAndAMergedTable) {
  ASSERT_EQ(runOpticsTool(dir.path(),
                          {"-q", "--save-moments", "m.json", "--plot", "a.png", "--plot", "b.SVG"})
                .status,
            0);
  EXPECT_FALSE(QImage(path("a.png")).isNull());
  EXPECT_EQ(QString::fromStdString(readFile(path("b.SVG"))).count("<circle"), 60);
  ToolRun merged =
      runOpticsTool(dir.path(), {"--merge", "m.json", "-o", "merged.csv", "--plot", "m.svg"});
  ASSERT_EQ(merged.status, 0) << merged.err;
  QString svg = QString::fromStdString(readFile(path("m.svg")));
  EXPECT_EQ(svg.count("<circle"), 60);
  EXPECT_TRUE(svg.contains(">moments of " + QDir(dir.path()).absoluteFilePath("m.json")));
}

TEST_F(EnvelopePlotTest, errors) {
  ToolRun r = runOpticsTool(dir.path(), {"--plot", "envelope.pdf"});
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err, "twiss-optics: error: --plot: 'envelope.pdf' is not a .png or .svg file\n"
                   "Try 'twiss-optics --help'.\n");
  r = runOpticsTool(dir.path(), {"-q", "--plot", "nowhere/envelope.png"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "twiss-optics: error: nowhere/envelope.png: cannot be written (No such file "
                   "or directory)\n");
  // The plot is written first: no table after a plot that failed.
  EXPECT_FALSE(QFileInfo::exists(path("twiss.optics.csv")));
}

} // namespace
