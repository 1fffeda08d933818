//===- ParticleTest.cpp - The table of particle species --------------------===//

#include "Particle.h"

#include <gtest/gtest.h>

using namespace Nexil;

namespace {

TEST(ParticleTest, lookupsByNameTextAndIdentifier) {
  Particle *proton = Particle::get("proton");
  ASSERT_NE(proton, nullptr);
  EXPECT_EQ(proton->pdgid(), 2212);
  EXPECT_EQ(proton->mass(), 938.272046);
  EXPECT_EQ(proton->charge, 1);
  EXPECT_EQ(Particle::get("2212"), proton);
  EXPECT_EQ(Particle::get(2212), proton);
  EXPECT_EQ(Particle::get("no such thing")->name(), "Unknown");
  EXPECT_EQ(Particle::get("")->pdgid(), 0);
}

TEST(ParticleTest, startUpMassesAreExact) {
  EXPECT_EQ(Particle::get("pi+")->mass(), 139.57018);
  EXPECT_EQ(Particle::get("pi-")->mass(), 139.5701);
  EXPECT_EQ(Particle::get("e-")->mass(), 0.510998928);
  EXPECT_EQ(Particle::get("mu+")->pdgid(), -13);
  EXPECT_EQ(Particle::get("alpha")->charge, 2);
  EXPECT_EQ(Particle::get(-1000020040)->name(), "anti_alpha");
  EXPECT_EQ(Particle::get("kaon0L")->pdgid(), 130);
}

TEST(ParticleTest, coloursFromCharge) {
  // Named colours are blank placeholders in a tool without a display.
  EXPECT_EQ(Particle::get("proton")->color.name, "");
  EXPECT_EQ(Particle::get("Unknown")->color.name, "");
  Color white;
  EXPECT_EQ(white.name, "white");
  EXPECT_EQ(white.red, 1.0f);
  EXPECT_EQ(white.alpha, 1.0f);
  Color named("blue");
  EXPECT_EQ(named.name, "");
  EXPECT_EQ(named.blue, 0.0f);
}

TEST(ParticleTest, unknownIdentifierIsAddedOnce) {
  Particle *p = Particle::get(999);
  EXPECT_EQ(p->name(), "999");
  EXPECT_EQ(p->mass(), 0.0);
  EXPECT_EQ(p->charge, 0);
  EXPECT_EQ(Particle::get(999), p);
  EXPECT_EQ(Particle::get("999"), p);
}

TEST(ParticleTest, ionsFromTheirCode) {
  Particle *o16 = Particle::get(1000080160);
  EXPECT_EQ(o16->name(), "O(16)");
  EXPECT_EQ(o16->charge, 8);
  EXPECT_EQ(o16->mass(), 16 * 939.494);
  EXPECT_NEAR(o16->mass(), 15031.904, 1e-9);
  EXPECT_EQ(Particle::get(1000080161)->name(), "O(16)*");
  EXPECT_EQ(Particle::get(1010080160)->name(), "O(16)*"); // a strange quark
  EXPECT_EQ(Particle::get(-1000080160), o16);             // filed under the positive code
  EXPECT_EQ(Particle::get(1000010010)->name(), "H(1)");
  EXPECT_EQ(Particle::get(1000260560)->name(), "Fe(56)");
  EXPECT_EQ(Particle::get(1000922380)->name(), "U(238)");
  EXPECT_EQ(Particle::get(1001122770)->name(), "Cn(277)");
  EXPECT_EQ(Particle::get(1001202990)->name(), "1001202990");
  EXPECT_EQ(Particle::get(1001202990)->charge, 120);
  EXPECT_EQ(Particle::get(1000000050)->name(), "1000000050"); // no protons
}

TEST(ParticleTest, antiIonMadeFirstKeepsItsName) {
  Particle *anti = Particle::get(-1000290630);
  EXPECT_EQ(anti->name(), "anti_Cu(63)");
  EXPECT_EQ(anti->charge, -29);
  EXPECT_EQ(anti->pdgid(), 1000290630);
  EXPECT_EQ(Particle::get(1000290630), anti);
  EXPECT_EQ(Particle::createIon(1000290630), anti);
}

TEST(ParticleTest, createReturnsAnExistingIdentifierUnchanged) {
  Particle *p = Particle::create("impostor", 2212, 1, 1);
  EXPECT_EQ(p, Particle::get("proton"));
  EXPECT_EQ(p->name(), "proton");
  EXPECT_EQ(p->mass(), 938.272046);
  EXPECT_FALSE(Particle::name2particle.contains("impostor"));
}

TEST(ParticleTest, inspectListsTheTableSortedByName) {
  Particle::create("a_very_long_particle_name", 77777, 1.25, 0);
  QString text = Particle::inspect();
  QStringList lines = text.split('\n', Qt::SkipEmptyParts);
  EXPECT_EQ(lines[0], "  Particle Name       PDGid  Mass (MeV)");
  EXPECT_EQ(lines[1], "  -------------       -----  ----------");
  EXPECT_TRUE(text.contains("\n        Unknown           0  0.000000MeV\n"));
  EXPECT_TRUE(text.contains("\n         proton        2212  938.272046MeV\n"));
  EXPECT_TRUE(text.contains("\n   anti_neutron       -2112  939.565379MeV\n"));
  EXPECT_TRUE(text.contains("\n            pi-        -211  139.570100MeV\n"));
  EXPECT_TRUE(text.contains("\na_very_long_par       77777  1.250000MeV\n"));
  EXPECT_EQ(lines.size(), Particle::name2particle.size() + 2);
  QStringList names;
  for (int i = 2; i < lines.size(); ++i)
    names << lines[i].left(15).trimmed();
  QStringList sorted = names;
  std::sort(sorted.begin(), sorted.end());
  EXPECT_EQ(names, sorted);
  EXPECT_LT(names.indexOf("Unknown"), names.indexOf("alpha")); // upper case first
}

} // namespace
