#include "TestImages.h"

#include "parameters/FormulaCalculator.h"
#include "parameters/ROIFormula.h"

#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>
#include <limits>
#include <utility>

namespace {

struct Zoom {
    std::int32_t Y0 = 200, Height = 1000, Width = 300, modSize = 120, nc = 5;
    float H = 0.1f;
    std::string Yc = "@(Y0+(Height/2))", Thlc = "(@(Yc/modSize))*modSize", nc1 = "nc*2";
    std::string Loop = "Loop+1", A = "B*2", B = "A+3", Double = "Double+Double";
};

// Registers the variables as a zoom set's constructor would, before any test runs. "H"
// comes after "Height" (the longer name still wins), a second "Width" is never read.
struct ZoomVariables {
    ZoomVariables() {
        auto& r = parameter_func<Zoom>::instance();
        r.add_variable("Y0", &Zoom::Y0); r.add_variable("Height", &Zoom::Height); r.add_variable("Width", &Zoom::Width);
        r.add_variable("Yc", &Zoom::Yc); r.add_variable("Thlc", &Zoom::Thlc); r.add_variable("modSize", &Zoom::modSize);
        r.add_variable("nc", &Zoom::nc); r.add_variable("nc1", &Zoom::nc1); r.add_variable("H", &Zoom::H);
        r.add_variable("Loop", &Zoom::Loop); r.add_variable("A", &Zoom::A); r.add_variable("B", &Zoom::B);
        r.add_variable("Double", &Zoom::Double); r.add_variable("Width", &Zoom::Height);
    }
} zoomVariables;

float Eval(const std::string& formula, const Zoom& record = Zoom()) { return evaluate_formula(formula, record); }

// Each formula against its value, bit for bit (NaN matches NaN).
void ExpectValues(std::initializer_list<std::pair<const char*, float>> rows) {
    for (const auto& row : rows) {
        const float value = Eval(row.first);
        EXPECT_TRUE(value == row.second || (std::isnan(value) && std::isnan(row.second)))
            << '"' << row.first << "\" gives " << value;
    }
}

const float inf = std::numeric_limits<float>::infinity();
const float notANumber = std::numeric_limits<float>::quiet_NaN();

}  // namespace

TEST(FormulaCalculator, OperatorsPrecedencePrefixesAndNumbers) {
    ExpectValues({{"2+3", 5}, {"2-3", -1}, {"2*3", 6}, {"7/2", 3.5f}, {"2$3", 3}, {"3$2", 3}, {"2#3", 2},
                  {"3#2", 2}, {"@2.7", 2}, {"@-2.7", -3}, {"-3", -3}, {"+3", 3}, {"(2+3)*4", 20},
                  // * and / bind tighter; + - $ # are one level, all left to right
                  {"2*3+4", 10}, {"2+3*4", 14}, {"1-2-3", -4}, {"16/2/2", 4}, {"2+3$10", 10},
                  {"2$3+10", 13}, {"2$3#1", 1}, {"2#3$1", 2}, {"-2$1", 1}, {"Width#Height", 300},
                  // a prefix takes one factor and nests
                  {"--3", 3}, {"@@2.5", 2}, {"2*-3", -6}, {"2--3", 5}, {"@1.5+@1.5", 2}, {"@1.5*2", 2},
                  {"2*@2.7", 4}, {"@7/2", 3.5f}, {"-Width", -300}, {"+Width", 300},
                  // a NaN operand gives a for $ and b for #; infinities and NaN pass through
                  {"(0/0)$1", notANumber}, {"1$(0/0)", 1}, {"(0/0)#1", 1}, {"1#(0/0)", notANumber},
                  {"1/0", inf}, {"1/0+1", inf}, {"@(1/0)", inf}, {"-1/0", -inf}, {"0/0", notANumber},
                  // number lexemes
                  {"1.5E2", 150}, {"5.e1", 50}, {"1e+2", 100}, {".5", 0.5f}, {"-.5", -0.5f}, {"5.", 5},
                  {"1e400", inf}, {"1e-400", 0}, {"16777217", 16777216},  // the result is a float
                  // an exponent marker without digits makes no number at all
                  {"1e", 0}, {"1.5e", 0}, {"1e+", 0}, {"1E-", 0}, {"-1e", 0}, {"2*1e", 2}});
    // 0.3 is 3 * 10^-1, which equals 3 * 0.1 exactly; the double nearest 0.3 would
    // leave (0.3 - 3 * 0.1) * 1e17 at about -2.78.
    EXPECT_EQ(0.0f, Eval("(0.3-3*0.1)*1e17"));
}

TEST(FormulaCalculator, LongestLeadingExpressionAndTheLineWhereItStopped) {
    ExpectValues({{"", 0}, {" \t", 0}, {"foo", 0}, {"(1", 0}, {"(1+2", 0}, {"$3", 0}, {"*3", 0}, {"@", 0},
                  {"0x10", 0}, {"1+", 1}, {"1)", 1}, {"1 2", 1}, {"2^3", 2}, {"1,5", 1}, {"3$", 3},
                  {"Width*", 300}, {"1+(2", 1}, {"1.5.2", 1.5f}, {"Wid th", 0},
                  // white space is skipped before every token
                  {"3+ (Width/2)-30", 123}, {"\t2\n*\v3\f+\r1", 7}, {"- 3", -3}, {" 2 * 3 ", 6}});
    orvane::test::LogCapture log;
    for (const char* formula : {" 2 * 3 ", "1+(2", "Width*", "  foo", "", "3+ (Width/2)-30"}) Eval(formula);
    const std::vector<std::string> expected = {
        "I error parsing \" 2 * 3 \" at 6\n", "I error parsing \"1+(2\" at 1\n",
        "I error parsing \"Width*\" at 5\n", "I error parsing \"  foo\" at 2\n"};
    EXPECT_EQ(expected, log.lines);
}

TEST(FormulaCalculator, VariablesAreTheLongestRegisteredPrefixReadAsFloat) {
    ExpectValues({{"nc", 5}, {"nc1", 10}, {"nc12", 10}, {"Widthx", 300}, {"Height", 1000}, {"Heigh", 0.1f},
                  {"width", 0}, {"H*10-1", static_cast<float>(static_cast<double>(0.1f) * 10.0 - 1.0)},
                  {"Yc", 700}, {"Thlc", 600}, {"Thlc+Yc", 1300},
                  // a cycle reads 0 inside itself, each read afresh: Loop+1 with the inner Loop 0;
                  // (0+3)*2; 0*2+3; 0+0 without blowing up
                  {"Loop", 1}, {"Loop+Loop", 2}, {"A", 6}, {"B", 3}, {"Double", 0}});
    Zoom other;
    other.Width = 16777217;  // 16777216 as a float
    other.Y0 = 500;          // Yc 1000, Thlc 960
    EXPECT_EQ(0.0f, Eval("Width-16777216", other));
    EXPECT_EQ(960.0f, Eval("Thlc", other));
}

TEST(ROIFormula, EachFieldTruncatedTowardZeroToItsLow16BitsOrZero) {
    const Zoom zoom{};
    EXPECT_EQ(ROI(1, 299, 65535, 7), evaluate_formula(ROIFormula{"3/2", "Width-0.5", "-1.5", "65536+7"}, zoom));
    EXPECT_EQ(ROI(600, 0, 0, 0), evaluate_formula(ROIFormula{"Thlc", "", "", ""}, zoom));
    EXPECT_EQ(ROI(0, 0, 0, 0), evaluate_formula(ROIFormula{"1/0", "0/0", "-1/0", "4294967296"}, zoom));
}
