//===- EnvelopePlotTest.cpp - The picture of the beam along s --------------===//
//
// The bundled example drawn by twiss-optics as PNG and SVG: the image's size, a plot
// area that is not blank, one marker per plane and measured quantity, the title, the
// bend and the kink marked; and the plot's command-line errors.
//
//===----------------------------------------------------------------------------===//

#include "RunDirectoryTest.h"

#include <QDir>
#include <QImage>
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
