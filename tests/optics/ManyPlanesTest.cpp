//===- ManyPlanesTest.cpp - A thousand and ten thousand planes -------------===//
//
// The table, the record and the moments of a beam through 1000 and 10000 planes, on
// one, two and seven threads, against the digests of the outputs the tool gave before
// its per-plane state was made compact: the same bits, whatever the thread count.
//
//===----------------------------------------------------------------------------===//

#include "OpticsBeam.h"
#include "TestSupport.h"

#include <QCryptographicHash>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

struct Digests {
  const char *table, *record, *moments;
};

class ManyPlanesTest : public ::testing::TestWithParam<int> {
protected:
  QTemporaryDir dir;

  /// The SHA-256 of a file, with the run directory's path taken out (it changes).
  std::string digestOf(const QString &name) const {
    QByteArray bytes = QByteArray::fromStdString(readFile(dir.path() + "/" + name));
    bytes.replace(dir.path().toUtf8(), "RUN");
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex().toStdString();
  }

  void expectDigests(const Digests &expected) {
    const int planeCount = GetParam();
    QList<double> planes;
    for (int i = 0; i < planeCount; ++i)
      planes << 10 + 2080.0 * i / planeCount;
    OpticsBeam beam;
    beam.particles = 200;
    beam.sigmaDelta = 0.002;
    beam.dispX = 0.5;
    beam.offsetX = 3;
    beam.write(dir.path(), planes);
    for (const char *threads : {"1", "2", "7"}) {
      SCOPED_TRACE(std::string(threads) + " threads");
      ToolRun r = runOpticsTool(dir.path(), {"-q", "-j", threads, "--save-moments", "m.json"});
      ASSERT_EQ(r.status, 0) << r.err;
      EXPECT_EQ(digestOf("twiss.optics.csv"), expected.table);
      EXPECT_EQ(digestOf("twiss.optics.json"), expected.record);
      EXPECT_EQ(digestOf("m.json"), expected.moments);
    }
  }
};

TEST_P(ManyPlanesTest, givesTheBitsOfEveryThreadCount) {
  if (GetParam() == 1000)
    expectDigests({"6692b4c491b73fa6a394649bc68740697246410b11acf82b4f62ee52a39afc6d",
                   "f0a0710ff1863bb813fc255fa7641d31993824a683ff566023848245a67e8920",
                   "ddb615595e3518126b41a4aa2afff48a4455ca63d80440fa4b50d19a36a57fd9"});
  else
    expectDigests({"e77e9800bdb8aa7fe3c7600bb420c5f9adb3c132d8fbbf325a8346537859c04d",
                   "da0adef19e9ad7bc2083a0e302337b6903e039f04f59b11fd129981de61efe53",
                   "51157897e5ceb2ad32a0193d74a3f1d71c87643d29a19f7ddc6ae65786304167"});
}

INSTANTIATE_TEST_SUITE_P(Planes, ManyPlanesTest, ::testing::Values(1000, 10000));

} // namespace
