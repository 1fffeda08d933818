//===- ParticleTableTest.cpp - The start-up particle table in full ---------===//
//
// A process of its own, so that the table holds exactly the start-up species.
//
//===----------------------------------------------------------------------------===//

#include "Particle.h"

#include "TestSupport.h"

#include <gtest/gtest.h>

using namespace Nexil;

namespace {

TEST(ParticleTableTest, startUpTableInFull) {
  EXPECT_EQ(Particle::inspect().toStdString(), "  Particle Name       PDGid  Mass (MeV)\n"
                                               "  -------------       -----  ----------\n"
                                               "        Unknown           0  0.000000MeV\n"
                                               "          alpha  1000020040  3727.379000MeV\n"
                                               "     anti_alpha -1000020040  3727.379000MeV\n"
                                               "  anti_deuteron -1000010020  1875.613000MeV\n"
                                               "     anti_kaon0        -311  497.614000MeV\n"
                                               "    anti_lambda       -3122  1115.683000MeV\n"
                                               "   anti_neutron       -2112  939.565379MeV\n"
                                               "      anti_nu_e         -12  0.000000MeV\n"
                                               "     anti_nu_mu         -14  0.000000MeV\n"
                                               "    anti_nu_tau         -16  0.000000MeV\n"
                                               "    anti_proton       -2212  938.272046MeV\n"
                                               "    anti_triton -1000010030  2808.921000MeV\n"
                                               "       deuteron  1000010020  1875.613000MeV\n"
                                               "             e+         -11  0.510999MeV\n"
                                               "             e-          11  0.510999MeV\n"
                                               "          gamma          22  0.000000MeV\n"
                                               "          kaon+         321  493.677000MeV\n"
                                               "          kaon-        -321  493.677000MeV\n"
                                               "          kaon0         311  497.614000MeV\n"
                                               "         kaon0L         130  497.614000MeV\n"
                                               "         kaon0S         310  497.614000MeV\n"
                                               "         lambda        3122  1115.683000MeV\n"
                                               "            mu+         -13  105.658372MeV\n"
                                               "            mu-          13  105.658372MeV\n"
                                               "        neutron        2112  939.565379MeV\n"
                                               "           nu_e          12  0.000000MeV\n"
                                               "          nu_mu          14  0.000000MeV\n"
                                               "         nu_tau          16  0.000000MeV\n"
                                               "            pi+         211  139.570180MeV\n"
                                               "            pi-        -211  139.570100MeV\n"
                                               "            pi0         111  134.976600MeV\n"
                                               "         proton        2212  938.272046MeV\n"
                                               "           tau+         -15  1776.820000MeV\n"
                                               "           tau-          15  1776.820000MeV\n"
                                               "         triton  1000010030  2808.921000MeV\n");
  EXPECT_EQ(Particle::name2particle.size(), 35);
  EXPECT_EQ(Particle::pdgid2particle.size(), 35);
}

TEST(ParticleTableTest, everyRowInEveryColumn) {
  // Charges from physics (units of e); masses in MeV as the table states them, the
  // negative pion's shorter on purpose.
  struct Row {
    const char *name;
    int pdgid;
    double mass;
    int charge;
  } rows[] = {{"Unknown", 0, 0, 0},
              {"proton", 2212, 938.272046, 1},
              {"anti_proton", -2212, 938.272046, -1},
              {"neutron", 2112, 939.565379, 0},
              {"anti_neutron", -2112, 939.565379, 0},
              {"deuteron", 1000010020, 1875.613, 1},
              {"anti_deuteron", -1000010020, 1875.613, -1},
              {"triton", 1000010030, 2808.921, 1},
              {"anti_triton", -1000010030, 2808.921, -1},
              {"alpha", 1000020040, 3727.379, 2},
              {"anti_alpha", -1000020040, 3727.379, -2},
              {"lambda", 3122, 1115.683, 0},
              {"anti_lambda", -3122, 1115.683, 0},
              {"gamma", 22, 0, 0},
              {"e-", 11, 0.510998928, -1},
              {"e+", -11, 0.510998928, 1},
              {"mu-", 13, 105.6583715, -1},
              {"mu+", -13, 105.6583715, 1},
              {"tau-", 15, 1776.82, -1},
              {"tau+", -15, 1776.82, 1},
              {"pi+", 211, 139.57018, 1},
              {"pi-", -211, 139.5701, -1},
              {"pi0", 111, 134.9766, 0},
              {"kaon+", 321, 493.677, 1},
              {"kaon-", -321, 493.677, -1},
              {"kaon0", 311, 497.614, 0},
              {"kaon0L", 130, 497.614, 0},
              {"kaon0S", 310, 497.614, 0},
              {"anti_kaon0", -311, 497.614, 0},
              {"nu_e", 12, 0, 0},
              {"anti_nu_e", -12, 0, 0},
              {"nu_mu", 14, 0, 0},
              {"anti_nu_mu", -14, 0, 0},
              {"nu_tau", 16, 0, 0},
              {"anti_nu_tau", -16, 0, 0}};
  EXPECT_EQ(std::size(rows), size_t(Particle::name2particle.size()));
  for (const Row &row : rows) {
    const Particle *byName = Particle::name2particle.value(row.name);
    ASSERT_NE(byName, nullptr) << row.name;
    EXPECT_EQ(Particle::pdgid2particle.value(row.pdgid), byName) << row.name;
    EXPECT_EQ(byName->name(), row.name);
    EXPECT_EQ(byName->pdgid(), row.pdgid) << row.name;
    EXPECT_EQ(byName->mass(), row.mass) << row.name;
    EXPECT_EQ(byName->charge, row.charge) << row.name;
  }
}

} // namespace
