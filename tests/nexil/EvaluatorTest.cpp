//===- EvaluatorTest.cpp - Expressions with units --------------------------===//

#include "Units.h"

#include "Geometry.h"
#include "Macro.h"
#include "TestSupport.h"

#include <cmath>
#include <gtest/gtest.h>

using namespace Nexil;

namespace {

const double Inf = INFINITY;
const double NaN = NAN;

struct Row {
  const char *expression;
  const char *unit;
  double value;
  const char *resultUnit;
  const char *messages;
};

// One row per behaviour: value, unit left on top of the operand stack, and the exact
// messages of the banners printed (joined by "|").
const Row Rows[] = {
    // Precedence and associativity.
    {"1+2*3", "-", 7, "", ""},
    {"(1+2)*3", "-", 9, "", ""},
    {"2^3^2", "-", 512, "", ""},
    {"-2^2", "-", 4, "", ""},
    {"2^-1", "-", 0.5, "", ""},
    {"+3", "-", 3, "", ""},
    {"--3", "-", -3, "", "X:Syntax error in '--3'"},
    {"2*-3", "-", -6, "", ""},
    {"-(1+2)", "-", -3, "", ""},
    {"1-2-3", "-", -4, "", ""},
    {"8/4/2", "-", 1, "", ""},
    {"10/5*2", "-", 4, "", ""},
    {"10-5+2", "-", 7, "", ""},
    {"2*3+4*5", "-", 26, "", ""},
    {"2+3*4^2", "-", 50, "", ""},
    {"2^3*2", "-", 16, "", ""},
    {"2*3^2", "-", 18, "", ""},
    {"2-3^2", "-", -7, "", ""},
    {"-3^2", "-", 9, "", ""},
    {"-2*3", "-", -6, "", ""},
    {"2*-3^2", "-", 18, "", ""},
    {"2*(3+4)", "-", 14, "", ""},
    {"((2))", "-", 2, "", ""},
    {"1 2", "-", 12, "", ""},
    {" 1 + 2 * 3 ", "-", 7, "", ""},
    {"1+2<4", "-", 3, "", "X:Syntax error in '1+2<4'"},
    {"1||0&&0", "-", 1, "", ""},
    {"0&&1||1", "-", 1, "", ""},
    {"1+1&&0", "-", 0, "", ""},
    // Numbers.
    {"1e3", "-", 1000, "", ""},
    {".5", "-", 0.5, "", ""},
    {"1.5e-3", "-", 0.0015, "", ""},
    {"1E2", "-", 100, "", ""},
    {"2e", "-", 2, "e", ""},
    {"3ps", "-", 3, "ps", ""},
    {"2x", "-", 2, "x", ""},
    {"1.5e+2mm", "-", 150, "mm", ""},
    // Units through arithmetic.
    {"1+2mm", "-", 3, "", "Units Conversion Error from mm to "},
    {"1 + 2 mm", "-", 3, "", "Units Conversion Error from mm to "},
    {"2mm+1in", "-", 27.4, "mm", ""},
    {"1in+2mm", "-", 1.0787401574803150, "in", ""},
    {"3mm-1in", "-", -22.4, "mm", ""},
    {"1m/1mm", "-", 1000, "", ""},
    {"1/1mm", "-", 1, "", "Units Conversion Error from mm to "},
    {"10mm/1cm", "-", 1, "", ""},
    {"10mm/2", "-", 5, "mm", ""},
    {"3*2mm", "-", 6, "mm", ""},
    {"2mm*3", "-", 6, "mm", ""},
    {"2mm*3mm", "-", 6, "mm", "U:Invalid units in '2mm*3mm'"},
    {"1-1mm", "-", 0, "", "Units Conversion Error from mm to "},
    {"-1mm", "-", -1, "mm", ""},
    {"2kG*3", "-", 6, "kG", ""},
    {"3km+1m", "-", 3.001, "km", ""},
    {"1m+1deg", "-", 2, "m", "Units Conversion Error from deg to m"},
    {"2x+1", "-", Inf, "x", ""},
    {"4/0", "-", Inf, "", ""},
    {"0/0", "-", NaN, "", ""},
    // Requested units.
    {"1in", "mm", 25.4, "mm", ""},
    {"1in", "*", 25.4, "mm", ""},
    {"90deg", "*", Pi / 2, "rad", ""},
    {"1kmph", "*", 0.277778, "mps", ""},
    {"5kg", "*", 5, "kg", ""},
    {"3", "*", 3, "", ""},
    {"5mm", "deg", 5, "deg", "Units Conversion Error from mm to deg"},
    {"1500", "mm", 1500, "mm", "Units Conversion Error from (none) to mm"},
    {"0", "m", 0, "m", "Units Conversion Error from (none) to m"},
    {"5xyz", "", 0, "", ""},
    {"1", "xyz2", Inf, "xyz2", ""},
    {"2*3", "", 6, "", ""},
    {"1.5m", "mm", 1500, "mm", ""},
    {"30deg", "rad", Pi / 6, "rad", ""},
    // Conditionals.
    {"1?2:3", "-", 2, "", ""},
    {"0?2:3", "-", 3, "", ""},
    {"1e-13?2:3", "-", 3, "", ""},
    {"1?2mm:3m", "-", 2, "mm", ""},
    {"0?2mm:3m", "-", 3, "m", ""},
    {"1mm?2:3", "-", 0, "<empty>",
     "J:Units conversion error in '1mm?2:3'|D:Syntax Error in '1mm?2:3'"},
    {"1?2", "-", 0, "", "J:Syntax  error in '1?2'|D:Syntax Error in '1?2'"},
    {"1?2:0?4:5", "-", 4, "", ""},
    {"0?2:3?4:5", "-", 4, "", ""},
    {"1?2?3:4:5", "-", 0, "", "J:Syntax  error in '1?2?3:4:5'|D:Syntax Error in '1?2?3:4:5'"},
    {"1:2", "-", 0, "", "D:Syntax Error in '1:2'"},
    {"1>0?5:6", "-", 5, "", "X:Syntax error in '1>0?5:6'"},
    // Logical operators.
    {"1&&0", "-", 0, "", ""},
    {"1&&1", "-", 1, "", ""},
    {"0&&1", "-", 0, "", ""},
    {"2||0", "-", 1, "", ""},
    {"0||1e-13", "-", 0, "", ""},
    {"1mm&&2m", "-", 1, "", ""},
    {"&&1", "-", 1, "", "X:Syntax error in '&&1'"},
    {"1||", "-", 1, "", "X:Syntax error in '1||'"},
    // Comparisons: outermost they fail, after an earlier argument they work.
    {"1<2", "-", 1, "", "X:Syntax error in '1<2'"},
    {"1==1", "-", 1, "", "X:Syntax error in '1==1'"},
    {"max(0,1<2)", "-", 1, "", ""},
    {"max(0,2<1)", "-", 0, "", ""},
    {"max(0,2==2)", "-", 1, "", ""},
    {"max(0,2==3)", "-", 0, "", ""},
    {"max(-1,2!=2)", "-", 0, "", ""},
    {"max(-1,2!=3)", "-", 1, "", ""},
    {"min(5,3>2)", "-", 1, "", ""},
    {"min(5,3>3)", "-", 0, "", ""},
    {"min(5,3>=3)", "-", 1, "", ""},
    {"min(5,2>=3)", "-", 0, "", ""},
    {"min(5,3<=2)", "-", 0, "", ""},
    {"min(5,3<=3)", "-", 1, "", ""},
    {"min(5,1in==25.4mm)", "-", 0, "", ""}, // equality is exact, 25.4mm is not 1in
    {"max(0,1<2mm)", "-", 1, "", "Units Conversion Error from mm to "},
    {"max(0,0/0==0)", "-", 0, "", ""},
    {"max(0,0/0!=0)", "-", 1, "", ""},
    {"max(0,0/0<0)", "-", 1, "", ""},
    {"max(0,0/0>0)", "-", 1, "", ""},
    {"max(0,0/0<=0)", "-", 1, "", ""},
    {"max(0,0/0>=0)", "-", 1, "", ""},
    {"max(0,1+1>1)", "-", 1, "", ""},
    {"<", "-", 0, "<empty>", "Syntax Error in '<'|X:Syntax error in '<'|D:Syntax Error in '<'"},
    // Functions.
    {"if(1mm,2,3)", "-", 2, "", ""},
    {"if(0,2mm,3mm)", "-", 3, "mm", ""},
    {"if(1,2)", "-", 0, "", "M:Syntax Error in 'if(1,2)'|D:Syntax Error in 'if(1,2)'"},
    {"pow(2,10)", "-", 1024, "", ""},
    {"pow(2mm,2)", "-", 0, "<empty>",
     "Q:Invalid units in 'pow(2mm,2)'|D:Syntax Error in 'pow(2mm,2)'"},
    {"pow(2)", "-", 2, "", "P:Syntax Error in 'pow(2)'"},
    {"2mm^2", "-", 2, "mm", "S:Invalid units in '2mm^2'"},
    {"2^0.5", "-", 1.4142135623730951, "", ""},
    {"min(1in,30mm)", "-", 1, "in", ""},
    {"max(1in,30mm)", "-", 1.1811023622047243, "in", ""},
    {"min(30mm,1in)", "-", 25.4, "mm", ""},
    {"max(1,2,3)", "-", 0, "", "O:Syntax Error in 'max(1,2,3)'|D:Syntax Error in 'max(1,2,3)'"},
    {"min(1mm,2deg)", "-", 1, "mm", "Units Conversion Error from deg to mm"},
    {"atan2(1,1)", "-", Pi / 4, "", ""},
    {"atan2(1mm,1in)", "-", 0.039349756388605321, "", ""},
    {"atan2(1)", "-", 1, "", "O:Syntax Error in 'atan2(1)'"},
    {"sqrt(4)", "-", 2, "", ""},
    {"sqrt(4mm)", "-", 4, "mm", "H:Units conversion error in 'sqrt(4mm)'"},
    {"sqrt()", "-", 0, "<empty>", "G:Syntax Error in 'sqrt()'|D:Syntax Error in 'sqrt()'"},
    {"sqrt(4", "-", 2, "", ""},
    {"foo(1)", "-", 1, "", "Unknown function foo in 'foo(1)'"},
    {"foo(1,2)", "-", 0, "", "G:Syntax Error in 'foo(1,2)'|D:Syntax Error in 'foo(1,2)'"},
    {"foo(1mm)", "-", 1, "mm", "H:Units conversion error in 'foo(1mm)'"},
    {"sin(30deg)", "-", 30, "deg", "H:Units conversion error in 'sin(30deg)'"},
    {"sin(30deg/1rad)", "-", 0.49999999999999994, "", ""},
    {"sin(0)", "-", 0, "", ""},
    {"cos(0)", "-", 1, "", ""},
    {"tan(0)", "-", 0, "", ""},
    {"asin(1)", "-", Pi / 2, "", ""},
    {"acos(1)", "-", 0, "", ""},
    {"atan(1)", "-", Pi / 4, "", ""},
    {"exp(0)", "-", 1, "", ""},
    {"sinh(0)", "-", 0, "", ""},
    {"cosh(0)", "-", 1, "", ""},
    {"tanh(0)", "-", 0, "", ""},
    {"log(1)", "-", 0, "", ""},
    {"log10(1000)", "-", 3, "", ""},
    {"ceil(2.1)", "-", 3, "", ""},
    {"floor(2.7)", "-", 2, "", ""},
    {"abs(-3)", "-", 3, "", ""},
    {"fabs(-2.5)", "-", 2.5, "", ""},
    {"sqrt(max(9,4))", "-", 3, "", ""},
    {"max(1,2)*min(3,4)", "-", 6, "", ""},
    {"if(1,max(1,2),3)", "-", 2, "", ""},
    // Failures of the tokenizer and of the final stack.
    {"1,2", "-", 0, "", "D:Syntax Error in '1,2'"},
    {"(1,2)", "-", 0, "", "D:Syntax Error in '(1,2)'"},
    {"2#3", "-", 0, "", "D:Syntax Error in '2#3'"},
    {")", "-", 0, "<empty>", "D:Syntax Error in ')'"},
    {"1+2)", "-", 0, "", "D:Syntax Error in '1+2)'"},
    {"(1", "-", 1, "", "I:Syntax Error in '(1'"},
    {"2(3)", "-", 0, "", "D:Syntax Error in '2(3)'"},
    {"1+", "-", 1, "", "X:Syntax error in '1+'"},
    {"*2", "-", 2, "", "X:Syntax error in '*2'"},
    {"^2", "-", 2, "", "X:Syntax error in '^2'"},
    {"-", "-", 0, "<empty>", "X:Syntax error in '-'|D:Syntax Error in '-'"},
    {"1.2.3", "-", 0, "", "D:Syntax Error in '1.2.3'"},
};

class EvaluatorTest : public ::testing::Test {
protected:
  void SetUp() override { Macro::hash.clear(); }
  void TearDown() override { Macro::hash.clear(); }
};

void expectValue(double got, double expected, const char *expression) {
  if (std::isnan(expected))
    EXPECT_TRUE(std::isnan(got)) << expression;
  else if (std::isinf(expected))
    EXPECT_EQ(got, expected) << expression;
  else
    EXPECT_NEAR(got, expected, 1e-12 * std::max(1.0, fabs(expected))) << expression;
}

TEST_F(EvaluatorTest, tableOfExpressions) {
  for (const Row &row : Rows) {
    double result = 0;
    std::string err = stderrOf([&] { result = Units::value(row.expression, row.unit, nullptr); });
    expectValue(result, row.value, row.expression);
    EXPECT_EQ(bannerMessages(err), row.messages) << row.expression;
    QString top = Units::val.size() > 0 ? Units::val.top().unit() : QString("<empty>");
    EXPECT_EQ(top, row.resultUnit) << row.expression;
  }
}

TEST_F(EvaluatorTest, everyMessageQuotesTheExpressionAsPassed) {
  std::string err = stderrOf([] { Units::value(" 1 , 2 ", "-", nullptr); });
  EXPECT_EQ(bannerMessages(err), "D:Syntax Error in ' 1 , 2 '");
}

TEST_F(EvaluatorTest, identifiersExpandToMacroValues) {
  Macro::define("w", "2mm");
  Macro::define("a", "b+1");
  Macro::define("b", "2");
  Macro::define("len", "w*3");
  EXPECT_EQ(Units::value("w", "-", nullptr), 2.0);
  EXPECT_EQ(Units::unit("w"), "mm");
  EXPECT_EQ(Units::value("$w", "-", nullptr), 2.0);
  // Braces are no token: "$" is dropped and the text fails at "{".
  std::string err = stderrOf([] { EXPECT_EQ(Units::value("${w}", "-", nullptr), 0.0); });
  EXPECT_EQ(bannerMessages(err), "D:Syntax Error in '${w}'");
  // The value text replaces the name, so "a*2" reads "b+1*2".
  EXPECT_EQ(Units::value("a*2", "-", nullptr), 4.0);
  EXPECT_EQ(Units::value("len", "mm", nullptr), 6.0);
  EXPECT_EQ(Units::value("len+1in", "in", nullptr), 6.0 / 25.4 + 1.0);
}

TEST_F(EvaluatorTest, undefinedNameLeavesAnEmptyExpression) {
  std::string err = stderrOf([] { EXPECT_EQ(Units::value("zz", "-", nullptr), 0.0); });
  EXPECT_EQ(bannerMessages(err), "D:Syntax Error in 'zz'");
}

TEST_F(EvaluatorTest, emptyExpressionReturnsZeroSilentlyAndKeepsTheStacks) {
  Units::value("7mm", "-", nullptr);
  bool ok = false;
  std::string err = stderrOf([&] {
    EXPECT_EQ(Units::value("", "mm", &ok), 0.0);
    EXPECT_EQ(Units::value("  \t ", "mm", nullptr), 0.0);
    EXPECT_EQ(Units::value("$", "mm", nullptr), 0.0);
  });
  EXPECT_EQ(err, "");
  EXPECT_FALSE(ok); // the flag is not touched
  ASSERT_EQ(Units::val.size(), 1);
  EXPECT_EQ(Units::val.top().number, 7.0);
}

TEST_F(EvaluatorTest, okPointerSilencesTheDriverAndConversion) {
  struct OkRow {
    const char *expression;
    const char *unit;
    double value;
    bool flag;
    const char *messages;
  };
  const OkRow rows[] = {
      {"1,2", "-", 0, true, ""},
      {"2#3", "-", 0, false, ""},
      {")", "-", 0, false, ""},
      {"5mm", "deg", 5, false, ""},
      {"1in", "mm", 25.4, true, ""},
      {"1<2", "-", 1, true, "X:Syntax error in '1<2'"},
      {"1mm?2:3", "-", 0, true, "J:Units conversion error in '1mm?2:3'"},
      {"1+2mm", "-", 3, true, "Units Conversion Error from mm to "},
      {"1500", "mm", 1500, false, ""},
  };
  for (const OkRow &row : rows) {
    bool ok = !row.flag;
    double result = 0;
    std::string err = stderrOf([&] { result = Units::value(row.expression, row.unit, &ok); });
    expectValue(result, row.value, row.expression);
    EXPECT_EQ(ok, row.flag) << row.expression;
    EXPECT_EQ(bannerMessages(err), row.messages) << row.expression;
  }
}

TEST_F(EvaluatorTest, starWithEmptyExpressionConvertsThePreviousTop) {
  Units::value("1in", "-", nullptr);
  EXPECT_NEAR(Units::value("", "*", nullptr), 25.4, 1e-12);
  EXPECT_EQ(Units::val.top().unit(), "mm");
}

TEST_F(EvaluatorTest, starWithFailingExpressionConvertsWhatIsLeftOnTheStack) {
  bool ok = true;
  // The failed inner evaluation left the number 2 on the stack, which is converted.
  EXPECT_EQ(Units::value("2#3", "*", &ok), 2.0);
  EXPECT_FALSE(ok);
}

TEST_F(EvaluatorTest, unitOfTheResult) {
  EXPECT_EQ(Units::unit("3km+1m"), "km");
  EXPECT_EQ(Units::unit("2kG*3"), "kG");
  EXPECT_EQ(Units::unit("2*3"), "");
  EXPECT_EQ(Units::unit("3km"), "km");
  EXPECT_EQ(Units::unit(""), "km"); // an empty expression leaves the stacks as they were
}

TEST_F(EvaluatorTest, factorOfTwoUnits) {
  EXPECT_NEAR(Units::factor("mm", "in"), 25.4, 1e-12);
  EXPECT_NEAR(Units::factor("mm", "m"), 1000, 1e-9);
  EXPECT_NEAR(Units::factor("m", "mm"), 0.001, 1e-18);
  EXPECT_NEAR(Units::factor("rad", "deg"), Pi / 180, 1e-18);
}

TEST_F(EvaluatorTest, evaluatingTwiceLeavesNoState) {
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(Units::value("max(1,2)+3", "-", nullptr), 5.0);
    EXPECT_EQ(Units::val.size(), 1);
    EXPECT_EQ(Units::op.size(), 0);
    EXPECT_EQ(Units::commaCount, 1);
  }
}

TEST_F(EvaluatorTest, resultStaysOnTheStackInTheRequestedUnit) {
  Units::value("1in", "mm", nullptr);
  ASSERT_EQ(Units::val.size(), 1);
  EXPECT_EQ(Units::val.top().unit(), "mm");
  EXPECT_NEAR(Units::val.top().number, 25.4, 1e-12);
  EXPECT_EQ(Units::currentExpression, "1in");
}

TEST_F(EvaluatorTest, precedenceLevelsHaveTheirNumbers) {
  EXPECT_EQ(Units::Start, 0);
  EXPECT_EQ(Units::Function, 1);
  EXPECT_EQ(Units::Paren, 2);
  EXPECT_EQ(Units::Comma, 3);
  EXPECT_EQ(Units::Conditional, 4);
  EXPECT_EQ(Units::Or, 5);
  EXPECT_EQ(Units::And, 6);
  EXPECT_EQ(Units::Compare, 7);
  EXPECT_EQ(Units::Additive, 8);
  EXPECT_EQ(Units::Multiplicative, 9);
  EXPECT_EQ(Units::Power, 10);
  EXPECT_EQ(Units::Unary, 11);
}

TEST_F(EvaluatorTest, poppingAnEmptyStackReportsAndGivesADefault) {
  Units::currentExpression = "expr";
  Units::Stack<Units::Value> values;
  Units::Stack<Units::Operator> operators;
  Units::Value v;
  Units::Operator o;
  std::string err = stderrOf([&] {
    v = values.pop();
    o = operators.pop();
  });
  EXPECT_EQ(bannerMessages(err), "Syntax Error in 'expr'|Syntax Error in 'expr'");
  EXPECT_EQ(v.number, 0.0);
  EXPECT_EQ(v.unitName, "");
  EXPECT_EQ(o.token, "");
  EXPECT_EQ(o.precedence, Units::Start);
  values.push(Units::Value(1, "mm"));
  EXPECT_EQ(values.size(), 1);
  EXPECT_EQ(values.length(), 1);
  values.clear();
  EXPECT_EQ(values.size(), 0);
}

TEST_F(EvaluatorTest, doitOfOperatorsWithUnexpectedTokens) {
  Units::currentExpression = "e";
  Units::val.clear();
  Units::val.push(Units::Value(1, ""));
  Units::val.push(Units::Value(2, ""));
  std::string err = stderrOf([] { Units::doit(Units::Operator("%", Units::Additive)); });
  EXPECT_EQ(bannerMessages(err), "L:Syntax Error in 'e'");
  Units::val.push(Units::Value(2, ""));
  err = stderrOf([] { Units::doit(Units::Operator("%", Units::Multiplicative)); });
  EXPECT_EQ(bannerMessages(err), "R:Syntax Error in 'e'");
  Units::val.push(Units::Value(2, ""));
  Units::val.push(Units::Value(3, ""));
  err = stderrOf([] { Units::doit(Units::Operator("<>", Units::Compare)); });
  EXPECT_EQ(bannerMessages(err), "K:Syntax Error in 'e'");
  err = stderrOf([] { Units::doit(Units::Operator("!", Units::Unary)); });
  EXPECT_EQ(bannerMessages(err), "T:Syntax Error in 'e'");
  err = stderrOf([] { Units::doit(Units::Operator("(", Units::Paren)); });
  EXPECT_EQ(bannerMessages(err), "I:Syntax Error in 'e'");
  int before = Units::val.size();
  err = stderrOf([] { Units::doit(Units::Operator("--start--", Units::Start)); });
  EXPECT_EQ(err, "");
  EXPECT_EQ(Units::val.size(), before);
}

TEST(EvaluatorDeathTest, commaWithAnotherTokenStopsTheProgram) {
  EXPECT_DEATH(Units::doit(Units::Operator(";", Units::Comma)), "op.token == \",\"");
  EXPECT_DEATH(Units::doit(Units::Operator("!", Units::Conditional)), "op.token == \"\\?\"");
  EXPECT_DEATH(Units::doit(Units::Operator("|", Units::Or)), "op.token == \"\\|\\|\"");
  EXPECT_DEATH(Units::doit(Units::Operator("&", Units::And)), "op.token == \"&&\"");
}

} // namespace
