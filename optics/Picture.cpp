//===- Picture.cpp - Pictures drawn with Qt's painting ---------------------===//

#include "Picture.h"

#include <QBuffer>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QSvgGenerator>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <memory>

namespace {

/// Painting text needs a GUI application object; the offscreen platform needs no
/// display. The application object sets the locale's number format, which the number
/// parsing of the library relies on: it is set back to C.
void ensureGuiApplication() {
  if (QGuiApplication::instance())
    return;
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
    qputenv("QT_QPA_PLATFORM", "offscreen");
  static int argc = 1;
  static char name[] = "twiss-optics";
  static char *argv[] = {name, nullptr};
  static std::unique_ptr<QGuiApplication> application(new QGuiApplication(argc, argv));
  setlocale(LC_NUMERIC, "C");
}

} // namespace

double tickStep(double span, int n) {
  double raw = span / n, power = std::pow(10.0, std::floor(std::log10(raw)));
  for (double m : {1.0, 2.0, 5.0})
    if (raw <= m * power)
      return m * power;
  return 10 * power;
}

QByteArray pictureBytes(const QString &path, QSize size, const QString &title,
                        const std::function<void(QPainter &)> &draw) {
  // The platform's notes (no runtime directory, no session) are not the user's concern.
  QtMessageHandler previous = qInstallMessageHandler(
      [](QtMsgType type, const QMessageLogContext &, const QString &message) {
        if (type == QtFatalMsg)
          fprintf(stderr, "%s\n", qPrintable(message));
      });
  ensureGuiApplication();
  QBuffer buffer;
  buffer.open(QIODevice::WriteOnly);
  if (QFileInfo(path).suffix().toLower() == "svg") {
    QSvgGenerator svg;
    svg.setOutputDevice(&buffer);
    svg.setSize(size);
    svg.setViewBox(QRect(QPoint(0, 0), size));
    svg.setTitle(title);
    QPainter painter(&svg);
    draw(painter);
  } else {
    QImage image(size, QImage::Format_ARGB32);
    image.fill(Qt::white);
    {
      QPainter painter(&image);
      draw(painter);
    }
    image.save(&buffer, "PNG");
  }
  qInstallMessageHandler(previous);
  return buffer.data();
}
