//===- UnitsTest.cpp - The unit table and values with units ----------------===//

#include "Units.h"

#include "Geometry.h"
#include "TestSupport.h"

#include <cmath>
#include <gtest/gtest.h>

using namespace Nexil;

namespace {

// Parsed during static initialisation, before main and in whatever order the linker
// puts this file and the unit table's: the table must already be complete.
const double EarlyMillimetres = Units::value("1in", "mm", nullptr);
const int EarlyTypeOfMetre = Units::type("m");

TEST(UnitsTest, tableIsCompleteBeforeOtherStaticObjectsParse) {
  EXPECT_NEAR(EarlyMillimetres, 25.4, 1e-12);
  EXPECT_EQ(EarlyTypeOfMetre, 1);
}

TEST(UnitsTest, typesOfUnits) {
  EXPECT_EQ(Units::type("m"), 1);
  EXPECT_EQ(Units::type("deg"), 3);
  EXPECT_EQ(Units::type(""), 0);
  EXPECT_EQ(Units::type("Tpm"), 10);
  EXPECT_EQ(Units::type("ka"), 13);
}

TEST(UnitsTest, unknownNameIsEnteredWithTypeZeroAndFactorZero) {
  EXPECT_FALSE(Units::typeHash.contains("furlong"));
  EXPECT_EQ(Units::type("furlong"), 0);
  EXPECT_TRUE(Units::typeHash.contains("furlong"));
  EXPECT_EQ(Units::factor("furlong"), 0.0);
  EXPECT_TRUE(Units::factorHash.contains("furlong"));
  EXPECT_FALSE(Units::inspect().contains("furlong"));
}

TEST(UnitsTest, standardUnits) {
  EXPECT_EQ(Units::standardUnit("km"), "mm");
  EXPECT_EQ(Units::standardUnit("deg"), "rad");
  EXPECT_EQ(Units::standardUnit("kmph"), "mps");
  EXPECT_EQ(Units::standardUnit("kG"), "T");
  EXPECT_EQ(Units::standardUnit("ps"), "ns");
  EXPECT_EQ(Units::standardUnit("kg"), "kg");
  EXPECT_EQ(Units::standardUnit("V"), "V");
  EXPECT_EQ(Units::standardUnit("A"), "A");
  EXPECT_EQ(Units::standardUnit("nosuchunit"), "");
  EXPECT_EQ(Units::standardUnit(""), "");
  EXPECT_EQ(Units::standardUnit("GeV"), "MeV");
  EXPECT_EQ(Units::standardUnit("kVpm"), "MVpm");
  EXPECT_EQ(Units::standardUnit("Gpm"), "Tpm");
  EXPECT_EQ(Units::standardUnits,
            QStringList({"", "mm", "MeV", "T", "ns", "MVpm", "Tpm", "rad", "mps"}));
}

TEST(UnitsTest, exactFactors) {
  EXPECT_EQ(Units::factor("mm"), 0.03937007874015748);
  EXPECT_EQ(Units::factor("kmph"), 0.277778);
  EXPECT_EQ(Units::factor("J"), 6241509340000.0);
  EXPECT_EQ(Units::factor("amu"), 931.494061);
  EXPECT_EQ(Units::factor("coulomb"), 6.241509745e18);
  EXPECT_EQ(Units::factor("deg"), 0.017453292519943295);
  EXPECT_EQ(Units::factor("shakes"), 1e-08);
}

TEST(UnitsTest, conversionsWithTheFactors) {
  EXPECT_NEAR(Units::Value(1, "in").convert("mm", nullptr), 25.4, 1e-12);
  EXPECT_EQ(Units::Value(1, "kmph").convert("mps", nullptr), 0.277778);
  EXPECT_EQ(Units::Value(1, "J").convert("MeV", nullptr), 6.24150934e12);
  EXPECT_EQ(Units::Value(180, "deg").convert("rad", nullptr), Pi);
}

TEST(UnitsTest, everyUnitConvertsToItsStandardUnit) {
  // Expected values in the standard unit, computed by hand from the table.
  struct Row {
    const char *unit;
    double inStandard;
  } rows[] = {{"in", 25.4},
              {"ft", 304.8},
              {"yd", 914.4},
              {"mile", 1609344},
              {"mm", 1},
              {"cm", 10},
              {"m", 1000},
              {"micron", 0.001},
              {"um", 0.001},
              {"km", 1e6},
              {"meter", 1000},
              {"mps", 1},
              {"fps", 0.3048},
              {"kmph", 0.277778},
              {"MPH", 0.44704},
              {"mph", 0.44704},
              {"rad", 1},
              {"deg", Pi / 180},
              {"mr", 0.001},
              {"sec", 1e9},
              {"s", 1e9},
              {"ms", 1e6},
              {"us", 1e3},
              {"shakes", 10},
              {"ns", 1},
              {"ps", 1e-3},
              {"min", 60e9},
              {"hr", 3600e9},
              {"g", 1},
              {"kg", 1},
              {"mg", 1},
              {"ug", 1},
              {"tesla", 1},
              {"T", 1},
              {"gauss", 1e-4},
              {"G", 1e-4},
              {"kilogauss", 0.1},
              {"kG", 0.1},
              {"volt", 1},
              {"V", 1},
              {"kV", 1},
              {"MV", 1},
              {"Vpm", 1e-6},
              {"MVpm", 1},
              {"kVpm", 1e-3},
              {"Vpmm", 1e-3},
              {"gpcc", 1},
              {"Tpm", 1},
              {"Gpm", 1e-4},
              {"MeV", 1},
              {"eV", 1e-6},
              {"keV", 1e-3},
              {"GeV", 1e3},
              {"TeV", 1e6},
              {"joule", 6.24150934e12},
              {"J", 6.24150934e12},
              {"amu", 931.494061},
              {"e", 1},
              {"coulomb", 1},
              {"uC", 1},
              {"nC", 1},
              {"A", 1},
              {"ma", 1},
              {"ka", 1}};
  int count = 0;
  for (const auto &row : rows) {
    QString standard = Units::standardUnit(row.unit);
    double got = Units::Value(1, row.unit).convert(standard, nullptr);
    EXPECT_NEAR(got, row.inStandard, 1e-12 * fabs(row.inStandard)) << row.unit;
    ++count;
  }
  int known = 0;
  for (const QStringList &units : Units::types)
    known += int(units.size());
  EXPECT_EQ(count, known - 1); // every unit but the empty name
}

TEST(UnitsTest, conversionsBetweenUnitsOfEveryTypeFollowTheirDefinitions) {
  // Expected values from the SI prefixes and the units' definitions, not from the
  // table: 1 in = 25.4 mm, 1 ft = 12 in, 1 mile = 5280 ft, 1 mph = 0.44704 m/s,
  // 1 G = 1e-4 T, 1 V/mm = 1000 V/m, 1 J = 1 / 1.602176...e-19 eV (as the table rounds
  // it, 6.24150934e18 eV), 1 C = 6.241509745e18 e, 1 amu = 931.494061 MeV.
  struct Row {
    double amount;
    const char *from, *to;
    double expected;
  } rows[] = {{1, "km", "m", 1000},
              {1, "mile", "ft", 5280},
              {3, "ft", "yd", 1},
              {1, "m", "cm", 100},
              {1, "um", "micron", 1},
              {2.54, "cm", "in", 1},
              {1, "mph", "fps", 0.44704 / 0.3048},
              {3.6, "kmph", "mps", 3.6 * 0.277778},
              {1, "MPH", "mph", 1},
              {1000, "mr", "rad", 1},
              {1, "rad", "deg", 57.29577951308232},
              {1, "hr", "min", 60},
              {1, "min", "sec", 60},
              {1, "s", "ms", 1000},
              {1, "ms", "us", 1000},
              {1, "us", "shakes", 100},
              {1, "ns", "ps", 1000},
              {1, "kg", "g", 1000},
              {1, "g", "mg", 1000},
              {1, "mg", "ug", 1000},
              {1, "T", "G", 1e4},
              {1, "kG", "T", 0.1},
              {1, "kilogauss", "gauss", 1000},
              {1, "tesla", "T", 1},
              {1, "kV", "V", 1000},
              {1, "MV", "kV", 1000},
              {1, "volt", "V", 1},
              {1, "MVpm", "kVpm", 1000},
              {1, "Vpmm", "Vpm", 1000},
              {1, "kVpm", "Vpmm", 1},
              {1, "gpcc", "gpcc", 1},
              {1, "Tpm", "Gpm", 1e4},
              {1, "GeV", "MeV", 1000},
              {1, "TeV", "GeV", 1000},
              {1, "keV", "eV", 1000},
              {1, "MeV", "keV", 1000},
              {1, "J", "eV", 6.24150934e18},
              {1, "joule", "J", 1},
              {1, "amu", "GeV", 0.931494061},
              {1, "coulomb", "nC", 1e9},
              {1, "uC", "nC", 1000},
              {1, "nC", "e", 6.241509745e9},
              {1, "A", "ma", 1000},
              {1, "ka", "A", 1000}};
  for (const Row &row : rows) {
    double got = Units::Value(row.amount, row.from).convert(row.to, nullptr);
    EXPECT_NEAR(got, row.expected, 1e-9 * fabs(row.expected)) << row.from << " to " << row.to;
  }
}

TEST(UnitsTest, inspectListsEveryTypeSorted) {
  EXPECT_EQ(Units::inspect(), "Known Units (note that p means 'per' except in 'ps'):\n"
                              "angle: rad,deg,mr\n"
                              "charge: e,coulomb,uC,nC\n"
                              "current: A,ma,ka\n"
                              "density: gpcc\n"
                              "electricField: Vpm,MVpm,kVpm,Vpmm\n"
                              "energy: MeV,eV,keV,GeV,TeV,joule,J,amu\n"
                              "length: in,ft,yd,mile,mm,cm,m,micron,um,km,meter\n"
                              "magneticField: tesla,T,gauss,G,kilogauss,kG\n"
                              "magneticGradient: Tpm,Gpm\n"
                              "mass: g,kg,mg,ug\n"
                              "speed: mps,fps,kmph,MPH,mph\n"
                              "time: sec,s,ms,us,shakes,ns,ps,min,hr\n"
                              "unitless: \n"
                              "voltage: volt,V,kV,MV\n");
  EXPECT_EQ(Units::types.size(), 14);
}

struct ParseRow {
  const char *text;
  double number;
  const char *unit;
  bool valid;
};

TEST(UnitsTest, parsingValues) {
  const ParseRow rows[] = {{"12", 12, "", true},       {"1e-3m", 0.001, "m", true},
                           {"+.5kV", 0.5, "kV", true}, {"-2.5e3mm", -2500, "mm", true},
                           {".5", 0.5, "", true},      {"10deg", 10, "deg", true},
                           {"1.5 mm", 0, "", false},   {"mm", 0, "", false},
                           {"1.2.3", 0, "", false},    {"", 0, "", false},
                           {"1.", 0, "", false},       {"3E+2xyz", 300, "xyz", true},
                           {"1mm2", 0, "", false},     {"-0", -0.0, "", true}};
  for (const ParseRow &row : rows) {
    Units::Value v;
    std::string err = stderrOf([&] { v = Units::Value(QString(row.text)); });
    EXPECT_EQ(v.number, row.number) << row.text;
    EXPECT_EQ(v.unitName, row.unit) << row.text;
    std::string expected =
        row.valid ? "" : "A:Invalid string with units '" + std::string(row.text) + "'";
    EXPECT_EQ(bannerMessages(err), expected) << row.text;
  }
}

TEST(UnitsTest, accessorsAndConstructors) {
  Units::Value v(2.5, "mm");
  EXPECT_EQ(v.value(), 2.5);
  EXPECT_EQ(v.unit(), "mm");
  Units::Value d;
  EXPECT_EQ(d.value(), 0.0);
  EXPECT_EQ(d.unit(), "");
  Units::Value copy = v;
  EXPECT_EQ(copy.unit(), "mm");
}

TEST(UnitsTest, conversionErrorsAreReportedOrFlagged) {
  std::string err;
  double got = 0;
  err = stderrOf([&] { got = Units::Value(1, "m").convert("deg", nullptr); });
  EXPECT_EQ(got, 1.0);
  EXPECT_EQ(bannerMessages(err), "Units Conversion Error from m to deg");
  bool ok = true;
  err = stderrOf([&] { got = Units::Value(1, "m").convert("deg", &ok); });
  EXPECT_FALSE(ok);
  EXPECT_EQ(err, "");
  err = stderrOf([&] { Units::Value(5, "").convert("mm", nullptr); });
  EXPECT_EQ(bannerMessages(err), "Units Conversion Error from (none) to mm");
  err = stderrOf([&] { Units::Value(5, "mm").convert("", nullptr); });
  EXPECT_EQ(bannerMessages(err), "Units Conversion Error from mm to ");
  ok = false;
  EXPECT_NEAR(Units::Value(1, "m").convert("mm", &ok), 1000, 1e-12);
  EXPECT_TRUE(ok);
}

TEST(UnitsTest, unknownUnitsConvertThroughFactorZero) {
  std::string err = stderrOf([] {
    EXPECT_EQ(Units::Value(5, "xyz").convert("", nullptr), 0.0);
    EXPECT_TRUE(std::isinf(Units::Value(5, "").convert("xyz", nullptr)));
  });
  EXPECT_EQ(err, "");
}

TEST(UnitsTest, arithmeticKeepsTheLeftUnit) {
  Units::Value a(2, "mm");
  a.add(Units::Value(1, "in"));
  EXPECT_NEAR(a.number, 27.4, 1e-12);
  EXPECT_EQ(a.unitName, "mm");
  Units::Value b(1, "in");
  b.add(Units::Value(2, "mm"));
  EXPECT_NEAR(b.number, 1.0787401574803150, 1e-15);
  EXPECT_EQ(b.unitName, "in");
  Units::Value c(5, "mm");
  c.sub(Units::Value(1, "cm"));
  EXPECT_NEAR(c.number, -5, 1e-12);
  Units::Value n(3, "mm");
  n.neg();
  EXPECT_EQ(n.number, -3.0);
  EXPECT_EQ(n.unitName, "mm");
}

TEST(UnitsTest, multiplicationCarriesAtMostOneUnit) {
  Units::Value a(3, "");
  a.mul(Units::Value(2, "mm"));
  EXPECT_EQ(a.number, 6.0);
  EXPECT_EQ(a.unitName, "mm");
  Units::Value b(2, "mm");
  b.mul(Units::Value(3, ""));
  EXPECT_EQ(b.number, 6.0);
  EXPECT_EQ(b.unitName, "mm");
  Units::currentExpression = "2mm*3mm";
  Units::Value c(2, "mm");
  std::string err = stderrOf([&] { c.mul(Units::Value(3, "mm")); });
  EXPECT_EQ(c.number, 6.0);
  EXPECT_EQ(c.unitName, "mm");
  EXPECT_EQ(bannerMessages(err), "U:Invalid units in '2mm*3mm'");
}

TEST(UnitsTest, divisionOfCompatibleQuantitiesIsAPureNumber) {
  Units::Value a(10, "mm");
  a.div(Units::Value(1, "cm"));
  EXPECT_NEAR(a.number, 1, 1e-15);
  EXPECT_EQ(a.unitName, "");
  Units::Value b(10, "mm");
  b.div(Units::Value(2, ""));
  EXPECT_EQ(b.number, 5.0);
  EXPECT_EQ(b.unitName, "mm");
  Units::Value c(1, "");
  std::string err = stderrOf([&] { c.div(Units::Value(0, "")); });
  EXPECT_TRUE(std::isinf(c.number));
  EXPECT_EQ(err, "");
}

TEST(UnitsTest, isZeroThreshold) {
  EXPECT_TRUE(Units::Value(1e-13, "").isZero());
  EXPECT_TRUE(Units::Value(-0.0, "").isZero());
  EXPECT_TRUE(Units::Value(-9e-13, "").isZero());
  EXPECT_FALSE(Units::Value(1e-12, "").isZero());
  EXPECT_FALSE(Units::Value(NAN, "").isZero());
}

TEST(UnitsTest, toStringFormatsTheQtWay) {
  Units::Value v(0.0625, "mm");
  EXPECT_EQ(v.to_s("%.3f", true), "0.063mm");
  EXPECT_EQ(v.to_s("%g", false), "0.0625");
  EXPECT_EQ(v.to_s(), "0.0625");
}

} // namespace
