//===- MomentsFileTest.cpp - A run's moments, saved for a merge -------------===//
//
// The binary form must hold every number of the text form exactly, in the layout
// its documentation gives (checked here byte by byte, with zlib's CRC-32 as a reader
// would compute it), and every kind of damage must be named.
//
//===----------------------------------------------------------------------------===//

#include "MomentsFile.h"

#include <QJsonDocument>
#include <QtEndian>
#include <gtest/gtest.h>
#include <random>
#include <zlib.h>

namespace {

/// A run of three planes with crossings of two species, weighted, far off axis in y.
OpticsRun sampleRun() {
  OpticsRun run;
  run.directories = {"job-1"};
  run.selection.species = {-13, 11};
  run.reference.fixed = true;
  run.reference.momentum = 200.5;
  run.coordinatesDigest = QString(64, 'a');
  run.planesDigest = QString(64, 'b');
  run.planeS = {100, 7250.25, 1e-3};
  run.totals.lines.steps = 1234;
  run.totals.tracks = 17;
  run.totals.bytes = 99999;
  run.statistics.resize(3);
  std::mt19937 random(5);
  std::normal_distribution<double> gauss;
  for (size_t plane = 0; plane < 3; ++plane)
    for (int i = 0; i < 50 + int(plane); ++i) {
      OpticsCrossing c{};
      c.x = gauss(random);
      c.xp = gauss(random);
      c.y = 1e4 + gauss(random);
      c.yp = gauss(random);
      c.p = 200 + gauss(random);
      c.px = c.py = 0.1;
      c.pz = c.p;
      c.qx = gauss(random);
      c.qy = gauss(random);
      c.t = 3 + gauss(random);
      c.kinetic = 120 + gauss(random);
      c.weight = 0.5 + (i % 3);
      c.pdgid = i % 7 == 0 ? 11 : -13;
      c.massKnown = true;
      run.statistics[plane].add(c);
    }
  run.statistics[1].nBack = 4;
  run.statistics[2].leftOut = 2;
  return run;
}

QByteArray momentsText(const OpticsRun &run) {
  return QJsonDocument(run.toMomentsJson()).toJson();
}

template <typename T> T at(const QByteArray &bytes, qsizetype offset) {
  return qFromLittleEndian<T>(bytes.constData() + offset);
}

/// The message of the InputError that reading the bytes throws.
std::string refusal(const QByteArray &bytes) {
  try {
    readMomentsFile("m.bin", bytes);
  } catch (const InputError &error) {
    return error.message.toStdString();
  }
  return "";
}

/// The bytes with their last four replaced by the CRC-32 of the others.
QByteArray resealed(QByteArray bytes) {
  quint32 crc =
      quint32(crc32(0, reinterpret_cast<const Bytef *>(bytes.constData()), uInt(bytes.size() - 4)));
  qToLittleEndian(crc, bytes.data() + bytes.size() - 4);
  return bytes;
}

TEST(MomentsFileTest, theBinaryFormHoldsEveryNumberOfTheText) {
  const OpticsRun run = sampleRun();
  const QByteArray bytes = momentsFileBytes(run, "m.bin");
  EXPECT_EQ(momentsText(readMomentsFile("m.bin", bytes)), momentsText(run));
}

TEST(MomentsFileTest, theBinaryLayoutIsTheDocumentedOne) {
  const OpticsRun run = sampleRun();
  const QByteArray bytes = momentsFileBytes(run, "jobs/m.bin");
  ASSERT_EQ(bytes.left(8), QByteArray("\x89TWM\r\n\x1a\n"));
  EXPECT_EQ(at<quint32>(bytes, 8), 1u);
  const qsizetype header = at<quint32>(bytes, 12);
  EXPECT_EQ((16 + header) % 8, 0);
  QJsonDocument document = QJsonDocument::fromJson(bytes.mid(16, header));
  EXPECT_EQ(document.object(), run.momentsHeader());
  // 3 planes of 7 counts, then 48 + 48 + 23 + 23 + 14 numbers a plane, then the CRC.
  const qsizetype counts = 16 + header;
  ASSERT_EQ(bytes.size(), counts + 3 * 7 * 8 + 3 * 156 * 8 + 4);
  const qint64 second[] = {51, 4, 0, 1, 11, 1, 0}; // the first crossing is an electron
  for (int column = 0; column < 7; ++column)
    EXPECT_EQ(at<qint64>(bytes, counts + (7 + column) * 8), second[column]) << column;
  // The horizontal set of the second plane begins with the mean of x.
  const qsizetype horizontal = counts + 3 * 7 * 8;
  quint64 bits = at<quint64>(bytes, horizontal + 48 * 8);
  double meanX;
  memcpy(&meanX, &bits, sizeof meanX);
  EXPECT_EQ(meanX, run.statistics[1].horizontal().mean(PlaneStatistics::Position));
  // The time set of the third plane ends the numbers, with its last squared-weight sum.
  const qsizetype time = horizontal + 3 * (48 + 48 + 23 + 23) * 8;
  bits = at<quint64>(bytes, time + 3 * 14 * 8 - 8);
  double last;
  memcpy(&last, &bits, sizeof last);
  EXPECT_EQ(last, run.statistics[2].momentState(4).back());
  EXPECT_EQ(at<quint32>(bytes, bytes.size() - 4),
            quint32(crc32(0, reinterpret_cast<const Bytef *>(bytes.constData()),
                          uInt(bytes.size() - 4))));
}

TEST(MomentsFileTest, theTextFormComesAPlaneAtATime) {
  OpticsRun run = sampleRun();
  // A directory whose name reads as the planes' key does not move them.
  run.directories = {"\"planes\":[]", "job-2"};
  QByteArrayList pieces;
  forEachMomentsPiece(run, "m.json", [&](const QByteArray &piece) { pieces << piece; });
  ASSERT_EQ(pieces.size(), 5);
  EXPECT_EQ(pieces.join(), QJsonDocument(run.toMomentsJson()).toJson(QJsonDocument::Compact));
  EXPECT_TRUE(pieces[0].endsWith("\"planes\":[")) << pieces[0].toStdString();
  for (int k = 1; k <= 3; ++k)
    EXPECT_EQ(
        pieces[k],
        (k > 1 ? "," : "") +
            QJsonDocument(run.statistics[size_t(k - 1)].toJson()).toJson(QJsonDocument::Compact));
  EXPECT_TRUE(pieces[4].startsWith("],")) << pieces[4].toStdString();
  pieces.clear();
  forEachMomentsPiece(run, "m.bin", [&](const QByteArray &piece) { pieces << piece; });
  EXPECT_EQ(pieces, QByteArrayList{binaryMomentsBytes(run)});
}

TEST(MomentsFileTest, otherNamesGetTheTextForm) {
  const OpticsRun run = sampleRun();
  for (const char *name : {"m.json", "m.txt", "m.bin.json", "bin"})
    EXPECT_EQ(momentsFileBytes(run, name),
              QJsonDocument(run.toMomentsJson()).toJson(QJsonDocument::Compact))
        << name;
  // Either form is read, whatever the name.
  EXPECT_EQ(momentsText(readMomentsFile("m.json", momentsFileBytes(run, "x.bin"))),
            momentsText(run));
  EXPECT_EQ(momentsText(readMomentsFile("m.bin", momentsFileBytes(run, "x.json"))),
            momentsText(run));
}

TEST(MomentsFileTest, damageIsNamed) {
  const QByteArray bytes = momentsFileBytes(sampleRun(), "m.bin");
  const std::string prefix = "m.bin: not a moments file of twiss-optics (";
  EXPECT_EQ(refusal(bytes.left(19)), prefix + "cut short: 19 bytes)");
  EXPECT_EQ(refusal(bytes.left(200)), prefix + "cut short: 200 bytes)");
  QByteArray version = bytes;
  version[8] = 2;
  EXPECT_EQ(refusal(version), prefix + "binary form version 2)");
  QByteArray longHeader = bytes;
  qToLittleEndian(quint32(bytes.size() - 19), longHeader.data() + 12);
  EXPECT_EQ(refusal(longHeader), prefix + "cut short: " + std::to_string(bytes.size()) + " bytes)");
  QByteArray notJson = bytes;
  notJson[16] = 'x';
  EXPECT_EQ(refusal(notJson), prefix + "its header: illegal value)");
  QByteArray otherFormat = bytes;
  otherFormat.replace("twiss-optics moments", "twiss-optics momentz");
  EXPECT_EQ(refusal(otherFormat), prefix + "no format line)");
  const std::string sizes = std::to_string(bytes.size());
  EXPECT_EQ(refusal(bytes.left(bytes.size() - 1)), prefix + std::to_string(bytes.size() - 1) +
                                                       " bytes where its planes take " + sizes +
                                                       ")");
  EXPECT_EQ(refusal(bytes + '\0'), prefix + std::to_string(bytes.size() + 1) +
                                       " bytes where its planes take " + sizes + ")");
  for (qsizetype offset : {qsizetype(20), bytes.size() - 100, bytes.size() - 1}) {
    QByteArray flipped = bytes;
    flipped[offset] = char(flipped[offset] ^ 0x10);
    EXPECT_EQ(refusal(flipped).substr(prefix.size()), "its checksum does not match its bytes)")
        << offset;
  }
  // Resealed, a damaged number is read as it stands: the checksum is what catches it.
  QByteArray resealedDamage = bytes;
  resealedDamage[bytes.size() - 100] = char(resealedDamage[bytes.size() - 100] ^ 0x10);
  EXPECT_EQ(refusal(resealed(resealedDamage)), "");
}

TEST(MomentsFileTest, countsAreWholeNumbersUpToTwoToThe53) {
  const QByteArray bytes = momentsFileBytes(sampleRun(), "m.bin");
  const qsizetype counts = 16 + at<quint32>(bytes, 12);
  const std::string refused = "m.bin: not a moments file of twiss-optics (plane 1: a count out "
                              "of range)";
  // n of the second plane: -1, then 2^53 + 1; its species beyond an int.
  for (qint64 bad : {qint64(-1), (qint64(1) << 53) + 1}) {
    QByteArray changed = bytes;
    qToLittleEndian(bad, changed.data() + counts + 7 * 8);
    EXPECT_EQ(refusal(resealed(changed)), refused) << bad;
  }
  QByteArray species = bytes;
  qToLittleEndian(qint64(1) << 40, species.data() + counts + (7 + 4) * 8);
  EXPECT_EQ(refusal(resealed(species)), refused);
  QByteArray largest = bytes;
  qToLittleEndian(qint64(1) << 53, largest.data() + counts + 7 * 8);
  EXPECT_EQ(refusal(resealed(largest)), "");
  // In the text form: negative, fractional and huge counts; the totals likewise.
  for (const char *bad : {"-1", "1.5", "1e300", "\"7\""}) {
    QByteArray text = QJsonDocument(sampleRun().toMomentsJson()).toJson(QJsonDocument::Compact);
    text.replace("\"n\":51,", QByteArray("\"n\":") + bad + ",");
    EXPECT_EQ(refusal(text), "m.bin: not a moments file of twiss-optics (plane 1)") << bad;
    QByteArray totals = QJsonDocument(sampleRun().toMomentsJson()).toJson(QJsonDocument::Compact);
    totals.replace("\"tracks\":17,", QByteArray("\"tracks\":") + bad + ",");
    EXPECT_EQ(refusal(totals), "m.bin: not a moments file of twiss-optics (no totals)") << bad;
  }
}

TEST(MomentsFileTest, aMergeRefusesCountsBeyondTwoToThe53) {
  OpticsRun large = sampleRun();
  large.statistics[2].n = (long(1) << 53) - 10;
  const QByteArray bytes = momentsFileBytes(large, "m.bin");
  OpticsRun run = readMomentsFile("a.bin", bytes);
  EXPECT_THROW(addMomentsPart(run, readMomentsPart("b.bin", bytes), "b.bin"), InputError);
  try {
    addMomentsPart(run, readMomentsPart("b.bin", bytes), "b.bin");
  } catch (const InputError &error) {
    EXPECT_EQ(error.message, "b.bin: cannot be merged: its counts and those before it add up to "
                             "more than 2^53");
  }
  OpticsRun manyBytes = sampleRun();
  manyBytes.totals.bytes = (1LL << 53) - 1;
  OpticsRun text = readMomentsFile("a.json", momentsFileBytes(manyBytes, "a.json"));
  EXPECT_THROW(text.merge(manyBytes, "c.json"), InputError);
  // Up to the limit, they add.
  OpticsRun fits = sampleRun();
  fits.statistics[2].n = 1LL << 52;
  OpticsRun sum = readMomentsFile("a.bin", momentsFileBytes(fits, "a.bin"));
  addMomentsPart(sum, readMomentsPart("b.bin", momentsFileBytes(fits, "b.bin")), "b.bin");
  EXPECT_EQ(sum.statistics[2].n, 1LL << 53);
}

TEST(MomentsFileTest, textDamageKeepsItsMessage) {
  EXPECT_EQ(refusal("{\"format\": 1"),
            "m.bin: not a moments file of twiss-optics (invalid termination by number)");
  EXPECT_EQ(refusal(""), "m.bin: not a moments file of twiss-optics (illegal value)");
}

} // namespace
