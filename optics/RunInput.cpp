//===- RunInput.cpp - The beamline and the planes of a run -----------------===//

#include "RunInput.h"

#include "ArgHash.h"
#include "BeamlineCoordinates.h"
#include "Console.h"
#include "ExactNumber.h"
#include "Failure.h"
#include "InputFile.h"
#include "Units.h"

#include <QFile>
#include <QFileInfo>
#include <cmath>
#include <cstdio>
#include <limits>

namespace {

const double NoField = std::numeric_limits<double>::quiet_NaN();

/// "FILE:LINE: " or "FILE: " where no line is to blame.
QString place(const QString &path, int line) {
  return line > 0 ? QString("%1:%2: ").arg(path).arg(line) : path + ": ";
}

/// The coordinate system's thrown messages, without their prefix for internal errors.
QString withoutPrefix(QString message) {
  const QString prefix = "INTERNAL ERROR: ";
  return message.startsWith(prefix) ? message.mid(prefix.size()) : message;
}

/// Ends the run for a problem at a line, or warns of it when lenient.
void complain(const QString &path, int line, const QString &what, bool lenient) {
  if (!lenient)
    throw InputError(place(path, line) + what);
  fprintf(stderr, "twiss-optics: warning: %s\n", qPrintable(place(path, line) + what));
}

/// Runs a step of the reading with the library's banners and thrown messages caught.
template <typename Body> void checked(const QString &path, int line, bool lenient, Body body) {
  Nexil::MessageCapture capture;
  try {
    body();
  } catch (const QString &message) {
    throw InputError(place(path, line) + withoutPrefix(message).trimmed());
  }
  for (const QString &message : capture.takeMessages())
    complain(path, line, message.trimmed(), lenient);
}

void openText(QFile &file) {
  if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
    throw InputError(file.fileName() + ": cannot be read");
}

void throwIfFailed(const QString &path, const TextLines &lines) {
  if (!lines.failure().isEmpty())
    throw InputError::unreadable(path, lines.failure());
}

} // namespace

bool readQuantity(const QString &text, const char *unit, double &value) {
  Nexil::MessageCapture capture;
  value = Nexil::Units::value(text, unit, nullptr);
  return capture.takeMessages().isEmpty() && std::isfinite(value) && !text.trimmed().isEmpty();
}

void checkInputFile(const QString &path) {
  QFileInfo info(path);
  if (!info.exists())
    throw InputError(path + ": no such file");
  if (info.isDir())
    throw InputError(path + ": is a directory, not a file");
  if (!info.isReadable())
    throw InputError(path + ": cannot be read");
  // A pipe tells its size only once it is read.
  if (info.size() == 0 && info.isFile())
    throw InputError(path + ": empty file");
}

void readCoordinates(const QString &path, bool lenient) {
  checkInputFile(path);
  QFile file(path);
  openText(file);
  TextLines lines(file);
  QString text;
  for (int line = 1; lines.next(text); ++line)
    checked(path, line, lenient, [&] { Nexil::BeamlineCoordinates::readCommand(text); });
  throwIfFailed(path, lines);
  // Finishing an empty system is an assertion of the library, not a message.
  if (Nexil::BeamlineCoordinates::segments.isEmpty())
    throw InputError(path + ": no %bcstart line: the beamline has no start");
  checked(path, 0, lenient, [] { Nexil::BeamlineCoordinates::scan(nullptr, Nexil::ArgHash()); });
}

QList<PlaneLine> readPlaneLines(const QString &path, bool lenient) {
  checkInputFile(path);
  QFile file(path);
  openText(file);
  TextLines lines(file);
  QList<PlaneLine> planes;
  QString text;
  for (int line = 1; lines.next(text); ++line) {
    text = text.simplified();
    // Comments are skipped; a blank line is a plane at s = 0 without a cut for twiss,
    // and nothing here unless lenient.
    if (text.startsWith("#") || (text.isEmpty() && !lenient))
      continue;
    Nexil::ArgHash args(text);
    PlaneLine plane{line, 0, 0, args["bothDirections"].toLower().startsWith("t"), NoField};
    checked(path, line, lenient, [&] {
      plane.sMillimetres = Nexil::Units::value(args["0"], "mm", nullptr);
      plane.radiusCut = Nexil::Units::value(args["1"], "mm", nullptr);
    });
    // 7250mm is 7250, not the 7250.000000000001 that the conversion by way of inches gives.
    readExactLength(args["0"], plane.sMillimetres);
    if (args["1"].isEmpty())
      complain(path, line, "no radius cut: a plane without one counts no crossing", lenient);
    if (args.contains("Bz") && !readQuantity(args["Bz"], "T", plane.bz)) {
      plane.bz = NoField;
      complain(path, line,
               "Bz=" + args["Bz"] + " is not a magnetic field (a number with a unit: 4T, 40kG)",
               lenient);
    }
    planes.append(plane);
  }
  throwIfFailed(path, lines);
  if (planes.isEmpty())
    throw InputError(path + ": no planes");
  return planes;
}

std::vector<std::unique_ptr<BCSample>> placePlanes(const QList<PlaneLine> &lines,
                                                   const QString &path) {
  // The coordinate system dumps itself before it throws: the message says enough.
  Nexil::MessageCapture quiet;
  std::vector<std::unique_ptr<BCSample>> planes;
  for (const PlaneLine &line : lines) {
    try {
      planes.push_back(
          std::make_unique<BCSample>(line.sMillimetres, line.radiusCut, line.bothDirections));
    } catch (const QString &message) {
      throw InputError(
          place(path, line.line) +
          QString::asprintf("the plane at s=%gmm is not on the beamline (", line.sMillimetres) +
          withoutPrefix(message).trimmed() + ")");
    }
  }
  return planes;
}
