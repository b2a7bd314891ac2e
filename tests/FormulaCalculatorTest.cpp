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
    std::int32_t X0 = 0;
    std::int32_t Y0 = 200;
    std::int32_t Height = 1000;
    std::int32_t Width = 300;
    std::string Yc = "@(Y0+(Height/2))";
    std::string Thlc = "(@(Yc/modSize))*modSize";
    std::int32_t modSize = 120;
    std::int32_t nc = 5;
    std::string nc1 = "nc*2";
    float H = 0.1f;
    std::string Third = "1/3";
    std::string Loop = "Loop+1";
    std::string A = "B*2";
    std::string B = "A+3";
    std::string Double = "Double+Double";
};

// Registers the variables as a zoom set's constructor would, before any test runs.
struct ZoomVariables {
    ZoomVariables() {
        auto& registry = parameter_func<Zoom>::instance();
        registry.add_variable("X0", &Zoom::X0);
        registry.add_variable("Y0", &Zoom::Y0);
        registry.add_variable("Height", &Zoom::Height);
        registry.add_variable("Width", &Zoom::Width);
        registry.add_variable("Yc", &Zoom::Yc);
        registry.add_variable("Thlc", &Zoom::Thlc);
        registry.add_variable("modSize", &Zoom::modSize);
        registry.add_variable("nc", &Zoom::nc);
        registry.add_variable("nc1", &Zoom::nc1);
        registry.add_variable("H", &Zoom::H);  // after "Height": the longer name still wins
        registry.add_variable("Third", &Zoom::Third);
        registry.add_variable("Loop", &Zoom::Loop);
        registry.add_variable("A", &Zoom::A);
        registry.add_variable("B", &Zoom::B);
        registry.add_variable("Double", &Zoom::Double);
    }
} zoomVariables;

float Eval(const std::string& formula, const Zoom& record = Zoom()) { return evaluate_formula(formula, record); }

// Each formula against its value, bit for bit (NaN matches NaN).
void ExpectValues(std::initializer_list<std::pair<const char*, float>> rows) {
    for (const auto& row : rows) {
        const float value = Eval(row.first);
        if (std::isnan(row.second)) {
            EXPECT_TRUE(std::isnan(value)) << '"' << row.first << '"';
        } else {
            EXPECT_EQ(row.second, value) << '"' << row.first << '"';
        }
    }
}

const float inf = std::numeric_limits<float>::infinity();
const float notANumber = std::numeric_limits<float>::quiet_NaN();

}  // namespace

TEST(FormulaCalculator, OperatorTable) {
    ExpectValues({{"2+3", 5}, {"2-3", -1}, {"2*3", 6}, {"7/2", 3.5f}, {"2$3", 3}, {"3$2", 3}, {"2#3", 2},
                  {"3#2", 2}, {"@2.7", 2}, {"@-2.7", -3}, {"-3", -3}, {"+3", 3}, {"(2+3)*4", 20}});
}

TEST(FormulaCalculator, PrecedenceAndLeftToRight) {
    ExpectValues({{"2*3+4", 10}, {"2+3*4", 14}, {"1-2-3", -4}, {"16/2/2", 4}});
}

TEST(FormulaCalculator, MaxAndMinBindLikePlusAndMinus) {
    ExpectValues({{"2+3$10", 10}, {"2$3+10", 13}, {"2$3#1", 1}, {"2#3$1", 2}, {"-2$1", 1},
                  {"Width$Height", 1000}, {"Width#Height", 300}});
}

TEST(FormulaCalculator, PrefixOperatorsTakeOneFactorAndNest) {
    ExpectValues({{"--3", 3}, {"@@2.5", 2}, {"-2*3", -6}, {"2*-3", -6}, {"2--3", 5}, {"@1.5+@1.5", 2},
                  {"@1.5*2", 2}, {"2*@2.7", 4}, {"@7/2", 3.5f}, {"-Width", -300}, {"+Width", 300}});
}

TEST(FormulaCalculator, NaNOperandOfMaxAndMin) {
    ExpectValues({{"(0/0)$1", notANumber}, {"1$(0/0)", 1}, {"(0/0)#1", 1}, {"1#(0/0)", notANumber}});
}

TEST(FormulaCalculator, InfinityAndNaNPassThrough) {
    ExpectValues({{"1/0", inf}, {"1/0+1", inf}, {"@(1/0)", inf}, {"-1/0", -inf}, {"0/0", notANumber}});
}

TEST(FormulaCalculator, NumberLexemes) {
    ExpectValues({{"1.5E2", 150}, {"5.e1", 50}, {"1e+2", 100}, {".5", 0.5f}, {"-.5", -0.5f}, {"5.", 5},
                  {"1e400", inf}, {"1e-400", 0}, {"16777217", 16777216}});  // the result is a float
    EXPECT_FLOAT_EQ(0.01f, Eval("1e-2"));
    EXPECT_FLOAT_EQ(static_cast<float>(0.1 + 0.2), Eval("0.1+0.2"));
}

TEST(FormulaCalculator, FractionDigitsAreScaledByAPowerOfTen) {
    // 0.3 is 3 * 10^-1, which equals 3 * 0.1 exactly; the double nearest 0.3 would
    // leave (0.3 - 3 * 0.1) * 1e17 at about -2.78.
    EXPECT_EQ(0.0f, Eval("(0.3-3*0.1)*1e17"));
}

TEST(FormulaCalculator, ExponentMarkerWithoutDigitsIsNoNumber) {
    ExpectValues({{"1e", 0}, {"1.5e", 0}, {"1e+", 0}, {"1E-", 0}, {"-1e", 0}, {"2*1e", 2}});
}

TEST(FormulaCalculator, PartialParsesGiveTheLongestLeadingExpression) {
    ExpectValues({{"", 0}, {" \t", 0}, {"foo", 0}, {"(1", 0}, {"(1+2", 0}, {"$3", 0}, {"*3", 0}, {"@", 0},
                  {"0x10", 0}, {"1+", 1}, {"1)", 1}, {"1 2", 1}, {"2^3", 2}, {"1,5", 1}, {"3$", 3},
                  {"Width*", 300}, {"1+(2", 1}, {"1.5.2", 1.5f}, {"Wid th", 0}});
}

TEST(FormulaCalculator, WhiteSpaceIsSkippedBeforeEveryToken) {
    ExpectValues({{"3+ (Width/2)-30", 123}, {"\t2\n*\v3\f+\r1", 7}, {"- 3", -3}, {" 2 * 3 ", 6}});
}

TEST(FormulaCalculator, IncompleteParseIsLoggedWhereItStopped) {
    orvane::test::LogCapture log;
    for (const char* formula : {" 2 * 3 ", "1+(2", "  foo", "", "3+ (Width/2)-30"}) Eval(formula);
    const std::vector<std::string> expected = {"I error parsing \" 2 * 3 \" at 6\n",
                                               "I error parsing \"1+(2\" at 1\n",
                                               "I error parsing \"  foo\" at 2\n"};
    EXPECT_EQ(expected, log.lines);
}

TEST(FormulaCalculator, VariablesAreTheLongestRegisteredPrefixCaseSensitive) {
    ExpectValues({{"nc", 5}, {"nc1", 10}, {"nc12", 10}, {"Widthx", 300}, {"Height", 1000}, {"Heigh", 0.1f},
                  {"width", 0}});
    EXPECT_FLOAT_EQ(static_cast<float>(300.0 / 1000.0), Eval("Width/Height"));
}

TEST(FormulaCalculator, MembersEnterAsFloat) {
    ExpectValues({{"H", 0.1f}, {"H*10-1", static_cast<float>(static_cast<double>(0.1f) * 10.0 - 1.0)}});
    Zoom wide;
    wide.Width = 16777217;  // 16777216 as a float
    EXPECT_EQ(0.0f, Eval("Width-16777216", wide));
}

TEST(FormulaCalculator, FormulaVariablesEvaluateTheirOwnString) {
    const double third = static_cast<float>(1.0 / 3.0);  // the outer formula sees the float
    ExpectValues({{"Yc", 700}, {"Thlc", 600}, {"Thlc+Yc", 1300}, {"Third*3-1", static_cast<float>(third * 3 - 1)}});
    Zoom moved;
    moved.Y0 = 500;  // Yc 1000, Thlc 960
    EXPECT_EQ(960.0f, Eval("Thlc", moved));
}

TEST(FormulaCalculator, CycleReadsZeroInsideItself) {
    // Loop+1 with the inner Loop 0; each read afresh; (0+3)*2; 0*2+3; 0+0 without blowing up.
    ExpectValues({{"Loop", 1}, {"Loop+Loop", 2}, {"A", 6}, {"B", 3}, {"Double", 0}});
}

TEST(ROIFormula, EachFieldTruncatedTowardZeroToItsLow16Bits) {
    EXPECT_EQ(ROI(1, 299, 65535, 7), evaluate_formula(ROIFormula{"3/2", "Width-0.5", "-1.5", "65536+7"}, Zoom()));
    EXPECT_EQ(ROI(600, 0, 0, 0), evaluate_formula(ROIFormula{"Thlc", "", "", ""}, Zoom()));
}

TEST(ROIFormula, ValuesWithoutA32BitIntegerStoreZero) {
    EXPECT_EQ(ROI(0, 0, 0, 0), evaluate_formula(ROIFormula{"1/0", "0/0", "-1/0", "4294967296"}, Zoom()));
}
