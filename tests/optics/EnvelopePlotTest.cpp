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
  // Three panels, the dispersion's the third: 60 + 3 x 355 + 2 x 70 + 60 pixels high.
  EXPECT_EQ(image.size(), QSize(1200, 1325));
  // Every panel holds curves, markers and the shaded bend; the margin right of them is
  // white.
  EXPECT_GT(inkIn(image, QRect(100, 70, 1000, 280)), 20000);
  EXPECT_GT(inkIn(image, QRect(100, 500, 1000, 280)), 20000);
  EXPECT_GT(inkIn(image, QRect(100, 925, 1000, 280)), 20000);
  EXPECT_EQ(inkIn(image, QRect(1175, 0, 25, 1325)), 0);
  // The bend (2 m to 3.05 m of the example's 0.25-7.25 m) shaded in the upper panel: its
  // colour (255, 200, 120) at 90/255 over white.
  EXPECT_EQ(image.pixel(430, 380), qRgb(255, 236, 207)) << std::hex << image.pixel(430, 380);
}

TEST_F(EnvelopePlotTest, svgHasOneMarkerPerPlaneAndQuantity) {
  ToolRun r = runOpticsTool(dir.path(), {"-q", "--plot", "envelope.svg", "--species", "-13,e-"});
  ASSERT_EQ(r.status, 0) << r.err;
  QString svg = QString::fromStdString(readFile(path("envelope.svg")));
  ASSERT_TRUE(svg.startsWith("<?xml")) << svg.left(100).toStdString();
  // 15 planes; sigma x, sigma y, beta x, beta y, D x, D y each with a marker at every plane.
  EXPECT_EQ(svg.count("<circle"), 6 * 15);
  EXPECT_TRUE(svg.contains(QDir(dir.path()).absolutePath() + " (species mu+,e-, weighted)"));
  for (const char *text : {">s [m]<", ">beta [m]<", ">r.m.s. width and mean [mm]<", ">sigma x<",
                           ">beta y<", ">bend<", ">kink<", ">dispersion [m]<", ">D x<", ">D y<"})
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
  // Three panels 1200 - 90 - 30 = 1080 wide and 355 high, 70 apart: from y = 60, 485
  // and 910. The planes span 0.25 to 7.25 m, padded by 3 % (0.21 m) on each side: s =
  // 0.04 m at x = 90, 1080 / 7.42 pixels a metre. The bend runs from 2 m for 2 m x 30
  // degrees = 1.0472 m: x = 90 + 1.96 * 145.553 = 375.283, 152.422 wide.
  // The file gives six significant digits: 0.005 pixels past x = 1000.
  const double perMetre = 1080 / 7.42;
  auto xAt = [&](double s) { return 90 + (s - 0.04) * perMetre; };
  const double tops[] = {60, 485, 910};
  QList<QList<double>> rects =
      numbersOf(svg, R"re(<rect x="([\d.]+)" y="([\d.]+)" width="([\d.]+)" height="([\d.]+)"/>)re");
  ASSERT_EQ(rects.size(), 6);
  for (int panel = 0; panel < 3; ++panel) {
    QList<double> bend = rects[2 * panel], frame = rects[2 * panel + 1];
    EXPECT_NEAR(bend[0], 375.283, 1e-3);
    EXPECT_EQ(bend[1], tops[panel]);
    EXPECT_NEAR(bend[2], 152.422, 1e-3);
    EXPECT_EQ(bend[3], 355);
    EXPECT_EQ(frame, (QList<double>{90, tops[panel], 1080, 355}));
  }
  // Ticks 6 pixels long at every metre along every panel's lower edge, labelled 18
  // pixels below the lowest one's; ticks 6 pixels long into each panel from its left edge.
  QList<QList<double>> segments =
      numbersOf(svg, R"re(points="([\d.]+),([\d.]+) ([\d.]+),([\d.]+) ")re");
  QList<double> sTicks[3], yTicks[3];
  for (const QList<double> &p : segments) {
    if (p[0] == p[2] && p[3] == p[1] - 6 && (p[1] == 415 || p[1] == 840 || p[1] == 1265))
      sTicks[int(p[1] - 415) / 425] << p[0];
    if (p[0] == 90 && p[2] == 96 && p[1] == p[3])
      yTicks[int(p[1] - 60) / 425] << p[1];
  }
  for (const QList<double> &ticks : sTicks) {
    ASSERT_EQ(ticks.size(), 7);
    for (int k = 1; k <= 7; ++k)
      EXPECT_NEAR(ticks[k - 1], xAt(k), 5e-3) << k << " m";
  }
  // The dispersion spans -2.734 m (D x at 7.25 m less its error) to 0.120 m, padded by
  // 5 %: 3.140 m, cut in steps of 1 m.
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
                         "10",
                         "20",
                         "30",
                         "beta [m]",
                         "beta x",
                         "beta y",
                         "bend",
                         "kink",
                         "1",
                         "2",
                         "3",
                         "4",
                         "5",
                         "6",
                         "7",
                         "-2",
                         "-1",
                         "0",
                         "dispersion [m]",
                         "s [m]",
                         "D x",
                         "D y",
                         "bend",
                         "kink"}));
  ASSERT_EQ(texts.size(), 36);
  EXPECT_GT(texts[0].first.y(), 10);
  EXPECT_LT(texts[0].first.y(), 40);
  ASSERT_EQ(yTicks[0].size(), 4);
  ASSERT_EQ(yTicks[1].size(), 3);
  ASSERT_EQ(yTicks[2].size(), 3);
  for (int i = 0; i < 4; ++i) // 0, 5, 10, 15 mm: 5 pixels below the tick, left of it
    EXPECT_EQ(texts[1 + i].first.y(), yTicks[0][i] + 5);
  for (int i = 0; i < 3; ++i) { // 10, 20, 30 m; -2, -1, 0 m
    EXPECT_EQ(texts[12 + i].first.y(), yTicks[1][i] + 5);
    EXPECT_EQ(texts[27 + i].first.y(), yTicks[2][i] + 5);
  }
  for (int k = 1; k <= 7; ++k) {
    EXPECT_EQ(texts[19 + k].first.y(), 1283);
    EXPECT_NEAR(texts[19 + k].first.x() + 4.45, xAt(k), 0.1) << k; // a digit: 8.9 pixels
  }
  EXPECT_EQ(texts[31].first.y(), 1305); // "s [m]", 40 pixels below the lowest panel
  // The legends: a line from 55 to 28 pixels left of the label, 4 pixels above its
  // base line; entries 18 pixels apart from 18 pixels below the panel's top. The
  // dispersion starts at zero, near the top: its legend's four entries end 10 pixels
  // above the panel's bottom instead (1265 - 4 x 18 + 8 = 1201 the first).
  for (int i = 0; i < 6; ++i)
    EXPECT_EQ(texts[6 + i].first, QPointF(135, 78 + 18 * i)) << i;
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(texts[16 + i].first, QPointF(135, 503 + 18 * i)) << i;
    EXPECT_EQ(texts[32 + i].first, QPointF(135, 1201 + 18 * i)) << i;
  }
  EXPECT_TRUE(svg.contains(R"re(points="100,74 127,74 ")re"));
  EXPECT_TRUE(svg.contains(R"re(points="100,553 127,553 ")re"));
  EXPECT_TRUE(svg.contains(R"re(points="100,1197 127,1197 ")re"));
  // The vertical labels 70 pixels left of the panels, turned a quarter, at their middle:
  // each begins half its width before the turned origin.
  EXPECT_TRUE(svg.contains("transform=\"matrix(0,-1,1,0,20,237.5)\""));
  EXPECT_TRUE(svg.contains("transform=\"matrix(0,-1,1,0,20,662.5)\""));
  EXPECT_TRUE(svg.contains("transform=\"matrix(0,-1,1,0,20,1087.5)\""));
  for (int i : {5, 15, 30})
    EXPECT_NEAR(texts[i].first.x(), -plotTextWidth(texts[i].second) / 2, 0.01)
        << texts[i].second.toStdString();
  // The frames in thin black, the bends filled at 90/255 opacity, the kink at 5 m a
  // dashed line 1.5 pixels wide (dashes of 4 and gaps of 2 widths) in every panel.
  EXPECT_TRUE(styleOf(svg, R"re(<rect x="90" y="60")re")
                  .contains(R"re(stroke="#000000" stroke-opacity="1" stroke-width="1" )re"));
  EXPECT_TRUE(styleOf(svg, R"re(<rect x="375.283" y="485")re")
                  .contains(R"re(fill="#ffc878" fill-opacity="0.352941" stroke="none")re"));
  for (const char *kink :
       {R"re(points="811.941,415 811.941,60 ")re", R"re(points="811.941,840 811.941,485 ")re",
        R"re(points="811.941,1265 811.941,910 ")re"})
    EXPECT_TRUE(styleOf(svg, kink).contains(R"re(stroke="#c87800" stroke-opacity="1" )re"
                                            R"re(stroke-dasharray="6,3" stroke-dashoffset="0" )re"
                                            R"re(stroke-width="1.5" )re"))
        << kink;
  // Their legend entries, the third and fourth of the lower panels: the bend's colour
  // opaque in a line 8 pixels wide, the kink's line as drawn.
  EXPECT_TRUE(styleOf(svg, R"re(points="100,535 127,535 ")re")
                  .contains(R"re(stroke="#ffc878" stroke-opacity="1" stroke-width="8" )re"));
  EXPECT_TRUE(styleOf(svg, R"re(points="100,553 127,553 ")re")
                  .contains(R"re(stroke="#c87800" stroke-opacity="1" stroke-dasharray="6,3" )re"
                            R"re(stroke-dashoffset="0" stroke-width="1.5" )re"));
  // Every marker where the axes' ticks put the table's value: sigma x and y, beta x and
  // y, then D x and y, the planes in order.
  QList<QHash<QString, QString>> rows = csvRows(readFile(path("twiss.optics.csv")));
  ASSERT_EQ(rows.size(), 15);
  QList<QList<double>> circles =
      numbersOf(svg, R"re(<circle cx="([\d.]+)" cy="([\d.]+)" r="([\d.]+)"/>)re");
  ASSERT_EQ(circles.size(), 90);
  const char *columns[] = {"sigma_x_mm", "sigma_y_mm", "beta_x_m",
                           "beta_y_m",   "disp_x_m",   "disp_y_m"};
  // The first tick of each panel stands at 0 mm, 10 m or -2 m, the next 5 mm, 10 m or 1 m on.
  // The file gives three decimals below y = 1000 and two from there: the scale from the
  // outermost ticks is good to 3e-3 and 0.01 pixels over a panel.
  const double first[] = {0, 10, -2}, step[] = {5, 10, 1};
  for (int c = 0; c < 6; ++c) {
    const QList<double> &ticks = yTicks[c / 2];
    double pixelsPerUnit = (ticks.first() - ticks.last()) / (step[c / 2] * (ticks.size() - 1));
    for (int i = 0; i < 15; ++i) {
      const QList<double> &circle = circles[15 * c + i];
      double s = rows[i]["s_mm"].toDouble() / 1000, v = rows[i][columns[c]].toDouble();
      EXPECT_NEAR(circle[0], xAt(s), 5e-3) << columns[c] << " " << i;
      EXPECT_NEAR(circle[1], ticks[0] - (v - first[c / 2]) * pixelsPerUnit,
                  circle[1] < 1000 ? 4e-3 : 0.02)
          << columns[c] << " " << i;
      EXPECT_EQ(circle[2], 3.5);
    }
  }
}

TEST_F(EnvelopePlotTest, theFourDimensionalMeasureAddsAPanelOfEmittances) {
  ASSERT_EQ(
      runOpticsTool(dir.path(), {"-q", "--measures", "2d,4d", "--plot", "e.svg", "--plot", "e.png"})
          .status,
      0);
  EXPECT_EQ(QImage(path("e.png")).size(), QSize(1200, 1750)); // four panels
  QString svg = QString::fromStdString(readFile(path("e.svg")));
  QStringList labels = labelsOf(svg);
  const QStringList tail = {
      "normalised emittance [mm mrad]", "s [m]", "emitn 4D", "emitn x", "emitn y", "bend", "kink"};
  EXPECT_EQ(labels.mid(labels.size() - 7), tail);
  EXPECT_TRUE(svg.contains("transform=\"matrix(0,-1,1,0,20,1512.5)\""));
  // The fourth panel's markers, 4D then x then y: each where the panel's ticks put the
  // table's value. A tick's label stands 5 pixels below it, left of x = 84.
  QList<QPair<double, double>> ticks; // (pixel, value)
  for (const auto &[at, text] : textsOf(svg))
    if (at.x() > 0 && at.x() < 84 && at.y() > 1335 && at.y() < 1700)
      ticks.append({at.y() - 5, text.toDouble()});
  ASSERT_GE(ticks.size(), 2);
  // Below y = 1000 the file gives two decimals: the scale from the outermost ticks is
  // good to 0.01 / 280, 0.01 pixels over the panel.
  const double pixelsPerUnit =
      (ticks.first().first - ticks.last().first) / (ticks.last().second - ticks.first().second);
  // The three planes of mixed species have no normalised emittance, nor a marker.
  QList<QHash<QString, QString>> rows = csvRows(readFile(path("twiss.optics.csv")));
  QList<QList<double>> circles =
      numbersOf(svg, R"re(<circle cx="([\d.]+)" cy="([\d.]+)" r="([\d.]+)"/>)re");
  ASSERT_EQ(circles.size(), 6 * 15 + 3 * 12);
  const char *columns[] = {"emitn_4d_mm_mrad", "emitn_x_mm_mrad", "emitn_y_mm_mrad"};
  qsizetype next = 90;
  for (const char *column : columns)
    for (const QHash<QString, QString> &row : rows) {
      if (row[column].isEmpty()) {
        EXPECT_EQ(row["status"], "mixed-species");
        continue;
      }
      const double v = row[column].toDouble();
      EXPECT_NEAR(circles[next++][1], ticks[0].first - (v - ticks[0].second) * pixelsPerUnit, 0.02)
          << column << " " << row["s_mm"].toStdString();
    }
  EXPECT_EQ(next, circles.size());
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
  // With no value anywhere the legends keep the upper left corners.
  const QList<QPair<QPointF, QString>> texts = textsOf(svg);
  EXPECT_EQ(texts[8], (QPair<QPointF, QString>(QPointF(135, 78), "sigma x")));
  EXPECT_EQ(texts[29], (QPair<QPointF, QString>(QPointF(135, 503), "beta x")));
  // Nor is there a dispersion to show: two panels, 900 pixels high.
  EXPECT_FALSE(svg.contains("dispersion"));
  EXPECT_TRUE(svg.contains(R"re(viewBox="0 0 1200 900")re")) << svg.left(400).toStdString();
}

TEST_F(EnvelopePlotTest, bothFormatsAtOnceAndAMergedTable) {
  ASSERT_EQ(runOpticsTool(dir.path(),
                          {"-q", "--save-moments", "m.json", "--plot", "a.png", "--plot", "b.SVG"})
                .status,
            0);
  EXPECT_FALSE(QImage(path("a.png")).isNull());
  EXPECT_EQ(QString::fromStdString(readFile(path("b.SVG"))).count("<circle"), 90);
  ToolRun merged =
      runOpticsTool(dir.path(), {"--merge", "m.json", "-o", "merged.csv", "--plot", "m.svg"});
  ASSERT_EQ(merged.status, 0) << merged.err;
  QString svg = QString::fromStdString(readFile(path("m.svg")));
  EXPECT_EQ(svg.count("<circle"), 90);
  EXPECT_TRUE(svg.contains(">merge of " + QDir(dir.path()).absoluteFilePath("m.json")));
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
