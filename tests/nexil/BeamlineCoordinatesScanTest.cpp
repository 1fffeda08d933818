//===- BeamlineCoordinatesScanTest.cpp - Coordinates from a simulation ----===//

#include "BeamlineCoordinates.h"

#include "BeamlineFixture.h"
#include "Main.h"
#include "SimFile.h"
#include "TestSupport.h"

#include <cmath>

using namespace Nexil;

namespace {

class UpdateNextSTest : public BeamlineFixture {
protected:
  double place(const QString &line, std::string *err = nullptr) {
    std::string printed = stderrOf([&] { BeamlineCoordinates::updateNextS(ArgHash(line)); });
    if (err)
      *err = printed;
    else
      EXPECT_EQ(printed, "") << line.toStdString();
    return BeamlineCoordinates::nextS;
  }
};

TEST_F(UpdateNextSTest, boxUnrotatedAndTurnedBack) {
  EXPECT_DOUBLE_EQ(place("%box width=2m height=2m length=3m _PARENT_S=10m z=0m"), 13);
  EXPECT_DOUBLE_EQ(place("%box width=2m height=2m length=3m _PARENT_S=10m z=0m rotation=X180"), 10);
}

TEST_F(UpdateNextSTest, placementOffsetAlongThePath) {
  EXPECT_DOUBLE_EQ(place("%box width=2m height=2m length=3m _PARENT_S=10m z=500mm"), 13.5);
}

TEST_F(UpdateNextSTest, coneSamplesOnlyItsFarFace) {
  EXPECT_DOUBLE_EQ(place("%cone radius=1m length=3m _PARENT_S=10m"), 13);
  EXPECT_DOUBLE_EQ(place("%cone radius=1m length=3m _PARENT_S=10m rotation=X180"), 10);
}

TEST_F(UpdateNextSTest, sphereLiesBetweenZeroAndTwoRadii) {
  EXPECT_DOUBLE_EQ(place("%sphere radius=1m _PARENT_S=0m"), 2);
  // Turned sideways, its points reach r along z but none at exactly r + r.
  double sideways = place("%sphere radius=1m _PARENT_S=0m rotation=Y90");
  EXPECT_NEAR(sideways, 1, 1e-12);
}

TEST_F(UpdateNextSTest, cylinderAndTubeHaveTwoRings) {
  EXPECT_DOUBLE_EQ(place("%cylinder radius=1m length=3m _PARENT_S=10m"), 13);
  EXPECT_DOUBLE_EQ(place("%tube outerRadius=1m length=3m _PARENT_S=10m"), 13);
  // Turned by 90 degrees about x, the ring's sin(a) becomes z: the largest is 1.
  EXPECT_NEAR(place("%cylinder radius=1m length=3m _PARENT_S=10m rotation=X90"), 11, 1e-12);
  EXPECT_NEAR(place("%tube outerRadius=1m length=3m _PARENT_S=10m rotation=X-90"), 11, 1e-12);
}

TEST_F(UpdateNextSTest, rectangularTube) {
  EXPECT_DOUBLE_EQ(place("%rtube outerWidth=2m outerHeight=4m length=3m _PARENT_S=1m"), 4);
  EXPECT_NEAR(place("%rtube outerWidth=2m outerHeight=4m length=3m _PARENT_S=1m rotation=Y90"), 2,
              1e-12);
  EXPECT_NEAR(place("%rtube outerWidth=2m outerHeight=4m length=3m _PARENT_S=1m rotation=X90"), 3,
              1e-12);
}

TEST_F(UpdateNextSTest, everyCommandRotatedAboutEachAxisMatchesItsPoints) {
  const double step = 0.2617993877991494; // 15 degrees, accumulated as the scan does
  QList<Point> box, cylinder, cone, sphere, rtube;
  for (int k = 0; k < 8; ++k)
    box << Point(k & 1 ? -1 : 1, k & 2 ? -1.5 : 1.5, k & 4 ? 0 : 3);
  double a = 0;
  for (int i = 0; i < 48; ++i, a += step)
    cylinder << Point(0.5 * cos(a), 0.5 * sin(a), i < 24 ? 2 : 0);
  for (a = 0; a <= 2 * Pi; a += step)
    cone << Point(0.5 * cos(a), 0.5 * sin(a), 2);
  for (double theta = 0; theta <= Pi; theta += step)
    for (double phi = 0; phi <= 2 * Pi; phi += step)
      sphere << Point(0.7 * sin(theta) * cos(phi), 0.7 * sin(theta) * sin(phi),
                      0.7 + 0.7 * cos(theta));
  for (double z : {0.0, 2.5})
    for (int k = 0; k < 4; ++k)
      rtube << Point(k & 1 ? -0.5 : 0.5, k & 2 ? -1 : 1, z);
  ASSERT_EQ(cone.size(), 25);
  ASSERT_EQ(sphere.size(), 12 * 25);
  struct Element {
    const char *args;
    QList<Point> points;
  };
  const Element elements[] = {{"%box width=2m height=3m length=3m", box},
                              {"%cylinder radius=0.5m length=2m", cylinder},
                              {"%tube outerRadius=0.5m length=2m", cylinder},
                              {"%cone radius=0.5m length=2m", cone},
                              {"%sphere radius=0.7m", sphere},
                              {"%rtube outerWidth=1m outerHeight=2m length=2.5m", rtube}};
  for (const Element &element : elements) {
    for (const char *rotation : {"X90", "Y90", "Z90", "X-90", "Y-90", "Z-90", "X45,Y30"}) {
      Transform t = Transform::create(Point(0, 0, 0.25), rotation);
      double maxZ = 0;
      for (const Point &p : element.points)
        maxZ = std::max(maxZ, (t * p).z);
      QString line = QString("%1 _PARENT_S=5m z=0.25m rotation=%2").arg(element.args, rotation);
      EXPECT_NEAR(place(line), 5 + maxZ, 1e-12) << line.toStdString();
    }
  }
}

TEST_F(UpdateNextSTest, unlistedCommandsStopAtTheirStart) {
  EXPECT_DOUBLE_EQ(place("%bcbend radius=2m angle=0.5rad _PARENT_S=7m z=1m"), 7);
  EXPECT_DOUBLE_EQ(place("%box width=1m _PARENT_S=3m z=-5m"), 3); // maxZ starts at 0
}

TEST_F(UpdateNextSTest, withoutParentSNothingChanges) {
  BeamlineCoordinates::nextS = 42;
  EXPECT_EQ(place("%box width=2m height=2m length=3m"), 42);
}

TEST_F(UpdateNextSTest, tessellatedSolidIsReportedEveryTime) {
  std::string err;
  EXPECT_EQ(place("%tess _PARENT_S=2m", &err), 2);
  EXPECT_EQ(err, "UNIMPLEMENTED updateMaxLocalZ for %tess\n");
  place("%tess _PARENT_S=2m", &err);
  EXPECT_EQ(err, "UNIMPLEMENTED updateMaxLocalZ for %tess\n");
}

TEST_F(UpdateNextSTest, extrusionAndPolyconeOnlyWhenRotated) {
  std::string err;
  EXPECT_EQ(place("%extrusion length=2m _PARENT_S=1m", &err), 1);
  EXPECT_EQ(bannerMessages(err),
            "%extrusion cannot be rotated relative to the Beamline Coordinates.");
  EXPECT_NEAR(place("%extrusion length=2m _PARENT_S=1m rotation=X60"), 2, 1e-12);
  EXPECT_EQ(place("%polycone zs=0m,1m,2m _PARENT_S=1m", &err), 1);
  EXPECT_EQ(bannerMessages(err),
            "%polycone cannot be rotated relative to the Beamline Coordinates.");
  EXPECT_NEAR(place("%polycone zs=0m,1m,2000mm, _PARENT_S=1m rotation=X60"), 2, 1e-12);
}

TEST_F(UpdateNextSTest, bendingIronIsReportedOnce) {
  std::string first, second;
  EXPECT_DOUBLE_EQ(place("%sbendiron angle=0.5rad centerRadius=2m _PARENT_S=1m", &first), 2);
  place("%sbendiron angle=0.5rad centerRadius=2m _PARENT_S=1m z=1m", &second);
  EXPECT_DOUBLE_EQ(BeamlineCoordinates::nextS, 3);
  EXPECT_EQ(first + second, "UNIMPLEMENTED %sbendiron assumed co-located with %bcbend\n");
}

/// A file of another class than the simulation's own.
class OtherFile : public SimFile {};

class ScanTest : public BeamlineFixture {
protected:
  void TearDown() override {
    Main::currentSimulation = nullptr;
    BeamlineFixture::TearDown();
  }
};

TEST_F(ScanTest, fileWithoutGeometryLeavesTheSystemEmpty) {
  Simulation simulation;
  Main::currentSimulation = &simulation;
  BeamlineCoordinates::addSegment(new StartBCSegment(0, Transform()));
  BeamlineCoordinates::sampleS.insert(1, 2);
  BeamlineCoordinates::scan(&simulation, ArgHash());
  EXPECT_TRUE(BeamlineCoordinates::segments.isEmpty());
  EXPECT_TRUE(BeamlineCoordinates::segmentPoints.isEmpty());
  EXPECT_TRUE(BeamlineCoordinates::sampleS.isEmpty());
}

TEST_F(ScanTest, otherFileClassStartsAtTheOrigin) {
  OtherFile file;
  file.geometryLines << Cmdline{"%box"};
  Main::currentSimulation = &file;
  bool passRan = false;
  file.passHandlers["BeamlineCoordinates"] = [&](ArgHash) { passRan = true; };
  BeamlineCoordinates::scan(&file, ArgHash());
  EXPECT_TRUE(passRan);
  ASSERT_EQ(BeamlineCoordinates::segments.size(), 1);
  EXPECT_EQ(BeamlineCoordinates::segments[0]->s_min, 0.0);
  EXPECT_EQ(BeamlineCoordinates::segments[0]->s_max, 1e6);
  expectNear(BeamlineCoordinates::getTransform(4).origin(), 0, 0, 4);
}

TEST_F(ScanTest, simulationStartsFromItsStartCommandAndPlacesItsElements) {
  Simulation simulation;
  simulation.geometryLines << Cmdline{"%bcstart"} << Cmdline{"%box"};
  Main::currentSimulation = &simulation;
  ArgHash seen;
  bool sampling = false;
  simulation.passHandlers["BCstart"] = [](ArgHash) {
    BeamlineCoordinates::addSegment(new StartBCSegment(2, Transform::translate(1, 0, 0)));
  };
  simulation.passHandlers["BeamlineCoordinates"] = [&](ArgHash args) {
    seen = args;
    sampling = BeamlineCoordinates::enableSampleS;
    EXPECT_EQ(BeamlineCoordinates::nextS, 2.0);
    BeamlineCoordinates::updateNextS(ArgHash("%box width=1m height=1m length=3m _PARENT_S=2m"));
    BeamlineCoordinates::addSegment(new StraightBCSegment(BeamlineCoordinates::nextS, 0.1, 0));
  };
  ArgHash args("_PARENTXFORM=0x1 _PARENT_S=4m keep=1");
  BeamlineCoordinates::scan(&simulation, args);
  EXPECT_TRUE(sampling);
  EXPECT_FALSE(BeamlineCoordinates::enableSampleS);
  EXPECT_FALSE(seen.contains("_PARENTXFORM"));
  EXPECT_FALSE(seen.contains("_PARENT_S"));
  EXPECT_EQ(seen["keep"], "1");
  ASSERT_EQ(BeamlineCoordinates::segments.size(), 2);
  EXPECT_EQ(BeamlineCoordinates::initialS(), 2.0);
  EXPECT_EQ(BeamlineCoordinates::segments[1]->s_min, 5.0);
  expectNear(BeamlineCoordinates::getTransform(2).origin(), 1, 0, 0);
}

TEST_F(ScanTest, severalStartCommandsAreReported) {
  Simulation simulation;
  simulation.geometryLines << Cmdline{"%bcstart"};
  Main::currentSimulation = &simulation;
  simulation.passHandlers["BCstart"] = [](ArgHash) {
    BeamlineCoordinates::addSegment(new StartBCSegment(0, Transform()));
    BeamlineCoordinates::addSegment(new StartBCSegment(3, Transform()));
  };
  std::string err = stderrOf([&] { BeamlineCoordinates::scan(&simulation, ArgHash()); });
  // The scan's own report, then the second start's when it is completed.
  EXPECT_EQ(bannerMessages(err), "multiple %bcstart commands|Multiple %bcstart commands");
}

TEST_F(ScanTest, startPassWithoutSegmentsLeavesTheSystemEmpty) {
  Simulation simulation;
  simulation.geometryLines << Cmdline{"%box"};
  Main::currentSimulation = &simulation;
  BeamlineCoordinates::scan(&simulation, ArgHash());
  EXPECT_TRUE(BeamlineCoordinates::segments.isEmpty());
  EXPECT_TRUE(BeamlineCoordinates::factors.isEmpty());
}

TEST_F(ScanTest, startThatIsNotTheSmallestSFailsFinishing) {
  Simulation simulation;
  simulation.geometryLines << Cmdline{"%bcstart"};
  Main::currentSimulation = &simulation;
  simulation.passHandlers["BCstart"] = [](ArgHash) {
    BeamlineCoordinates::addSegment(new StartBCSegment(5, Transform()));
  };
  simulation.passHandlers["BeamlineCoordinates"] = [](ArgHash) {
    BeamlineCoordinates::addSegment(new StraightBCSegment(1, 0, 0));
  };
  try {
    BeamlineCoordinates::scan(&simulation, ArgHash());
    FAIL();
  } catch (const QString &e) {
    EXPECT_EQ(e, "INTERNAL ERROR: %bcstart not smallest value of s");
  }
}

} // namespace
