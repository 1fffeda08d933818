//===- SimFileTest.cpp - The simulation file as the coordinate scan sees it ===//

#include "SimFile.h"
#include "ArgHash.h"
#include "Main.h"

#include <gtest/gtest.h>

using namespace Nexil;

namespace {

TEST(SimFileTest, noSimulationIsCurrentInTheTools) {
  EXPECT_EQ(Main::currentSimulation, nullptr);
  EXPECT_EQ(Main::simulation(), nullptr);
  Simulation simulation;
  Main::currentSimulation = &simulation;
  EXPECT_EQ(Main::simulation(), &simulation);
  Main::currentSimulation = nullptr;
}

TEST(SimFileTest, geometryIsTheLinesAlreadyHeld) {
  SimFile file;
  EXPECT_TRUE(file.geometry_bc().isEmpty());
  file.geometryLines.append(Cmdline{"bcstart z=1m"});
  file.geometryLines.append(Cmdline{"bcbend angle=30"});
  QList<Cmdline> lines = file.geometry_bc();
  ASSERT_EQ(lines.size(), 2);
  EXPECT_EQ(lines[0].text, "bcstart z=1m");
  EXPECT_EQ(lines[1].text, "bcbend angle=30");
  // Reading, clearing, dumping and preparing a scan do nothing in the tools.
  ArgHash args;
  file.prepareScan(args);
  file.clear();
  file.dump("/nonexistent/dump.txt");
  EXPECT_EQ(file.geometry_bc().size(), 2);
}

TEST(SimFileTest, aPassRunsItsHandlerWithTheArguments) {
  Simulation simulation;
  QString seen;
  simulation.passHandlers["BCstart"] = [&](ArgHash args) { seen = args.value("z", "?"); };
  ArgHash args;
  args["z"] = "2m";
  simulation.parse("BeamlineCoordinates", args); // no handler: nothing happens
  EXPECT_EQ(seen, "");
  simulation.parse("BCstart", args);
  EXPECT_EQ(seen, "2m");
}

} // namespace
