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

} // namespace
