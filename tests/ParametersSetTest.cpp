#include "TestImages.h"

#include "parameters/FormulaCalculator.h"
#include "parameters/OffsetDynamicParametersSet.h"
#include "parameters/OffsetTimeGridParametersSet.h"
#include "parameters/ParametersSet.h"
#include "parameters/ROIFormula.h"

#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>
#include <limits>
#include <utility>

namespace {

struct Record {
    int value = 0, other = 0;
};

// A set that writes its rows as differences, in the order given.
class RecordSet : public ParametersSet<Record> {
public:
    RecordSet(std::initializer_list<std::pair<std::string, int>> writes) {
        for (const auto& write : writes) row(write.first).value = write.second;
    }
    Record& Row(const std::string& key) { return row(key); }
};

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

TEST(ParametersSet, NearestKeyTrialsOwnRowsAndRowsCopiedFromAncestorsOrDefaultConstructed) {
    RecordSet set{{"", 1}, {"Hazel", 2}, {"Hazel.A12", 3}, {"Hazel.*.m3", 4}, {"Birch", 5}, {"Cedar", 6}};
    // A wildcard trial that fails ("Birch.*.m1", "Cedar.*.*.m1") gives way to shortening. A
    // row of its own is one the search reaches before the default row.
    const struct { const char* key; int value; bool own; } rows[] = {
        {"Hazel.A12.m3", 4, true}, {"Hazel.A12.m99", 3, true}, {"Hazel.B7.m99", 2, true}, {"Hazel", 2, true},
        {"Aspen.A12.m3", 1, false}, {"Unknown", 1, false}, {"", 1, false}, {"Birch.x.m1", 5, true},
        {"Cedar.*.m1", 6, true}};
    for (const auto& row : rows) {
        EXPECT_EQ(row.value, set.lookup(row.key).value) << row.key;
        EXPECT_EQ(row.own, set.HasOwnRow(row.key)) << row.key;
    }

    // Each trial key of a.b.c.d is stored in turn; removing the winner must reveal the next.
    const std::vector<std::string> order = {"a.b.*.d", "a.*.d", "a.b.c", "a.*.c", "a.b", "a", ""};
    for (size_t first = 0; first < order.size(); ++first) {
        RecordSet trials{};
        for (size_t k = first; k < order.size(); ++k) trials.Row(order[k]).value = static_cast<int>(k) + 1;
        EXPECT_EQ(static_cast<int>(first) + 1, trials.lookup("a.b.c.d").value) << "from " << order[first];
    }

    // Rows are copies of their ancestors at the time of writing.
    RecordSet copies{{"", 1}};
    copies.Row("").other = 10;
    copies.Row("Hazel.*.m1").value = 2;  // copies "" (other 10)
    copies.Row("Hazel").other = 20;      // copies "" too; does not reach Hazel.*.m1
    copies.Row("Hazel.*.m2").value = 3;  // copies Hazel (other 20)
    EXPECT_EQ(10, copies.lookup("Hazel.*.m1").other);
    EXPECT_EQ(1, copies.lookup("Hazel").value);
    EXPECT_EQ(20, copies.lookup("Hazel.X.m2").other);
    EXPECT_EQ(4u, copies.GetBaseRows().size());

    // A set without a default row gains a default-constructed one.
    RecordSet noDefault{{"Birch", 5}};
    EXPECT_FALSE(noDefault.HasOwnRow("Cedar.x.m1"));
    EXPECT_EQ(1u, noDefault.GetBaseRows().size());  // asking inserts nothing
    EXPECT_EQ(0, noDefault.lookup("Cedar.x.m1").value);
    EXPECT_EQ(2u, noDefault.GetBaseRows().size());
    EXPECT_EQ(1u, noDefault.GetBaseRows().count(""));
}

TEST(OffsetParameterSets, RowsOfTheTables) {
    for (const char* key : {"Birch", "Hazel.A12.m3"}) EXPECT_FLOAT_EQ(0.125f, s_OffsetDynamicParametersSet.lookup(key).Weight);
    for (const char* key : {"Birch", "Cedar", "Birch.x.m1"}) {
        const OffsetParameters& grid = s_OffsetTimeGridParametersSet.lookup(key);
        EXPECT_EQ(std::vector<float>({0.5f, 1.0f, 1.5f, 2.0f, 2.5f}), grid.TemperatureSteps) << key;
        EXPECT_EQ(std::vector<int>({20, 40, 60, 80, 100}), grid.TimeSteps) << key;
        EXPECT_EQ(std::vector<float>({0.1f, 0.2f, 0.3f, 0.4f, 0.5f}), grid.Coefficients) << key;
    }
    const OffsetParameters& other = s_OffsetTimeGridParametersSet.lookup("Maple");
    EXPECT_TRUE(other.TemperatureSteps.empty() && other.TimeSteps.empty() && other.Coefficients.empty());
}

TEST(FormulaCalculator, OperatorsNumbersVariablesAndTheLongestLeadingExpression) {
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
                  {"1e", 0}, {"1.5e", 0}, {"1e+", 0}, {"1E-", 0}, {"-1e", 0}, {"2*1e", 2},
                  // the longest leading expression counts
                  {"", 0}, {" \t", 0}, {"foo", 0}, {"(1", 0}, {"(1+2", 0}, {"$3", 0}, {"*3", 0}, {"@", 0},
                  {"0x10", 0}, {"1+", 1}, {"1)", 1}, {"1 2", 1}, {"2^3", 2}, {"1,5", 1}, {"3$", 3},
                  {"Width*", 300}, {"1+(2", 1}, {"1.5.2", 1.5f}, {"Wid th", 0},
                  // white space is skipped before every token
                  {"3+ (Width/2)-30", 123}, {"\t2\n*\v3\f+\r1", 7}, {"- 3", -3}, {" 2 * 3 ", 6}});
    // 0.3 is 3 * 10^-1, which equals 3 * 0.1 exactly; the double nearest 0.3 would
    // leave (0.3 - 3 * 0.1) * 1e17 at about -2.78.
    EXPECT_EQ(0.0f, Eval("(0.3-3*0.1)*1e17"));

    // A formula not read to its end is logged with the position where reading stopped.
    orvane::test::LogCapture log;
    for (const char* formula : {" 2 * 3 ", "1+(2", "Width*", "  foo", "", "3+ (Width/2)-30"}) Eval(formula);
    const std::vector<std::string> expected = {
        "I error parsing \" 2 * 3 \" at 6\n", "I error parsing \"1+(2\" at 1\n",
        "I error parsing \"Width*\" at 5\n", "I error parsing \"  foo\" at 2\n"};
    EXPECT_EQ(expected, log.lines);

    // A variable is the longest registered prefix, read as a float.
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

    // ROI fields: each truncated toward zero to its low 16 bits, or zero.
    EXPECT_EQ(ROI(1, 299, 65535, 7), evaluate_formula(ROIFormula{"3/2", "Width-0.5", "-1.5", "65536+7"}, Zoom()));
    EXPECT_EQ(ROI(960, 0, 0, 0), evaluate_formula(ROIFormula{"Thlc", "", "", ""}, other));
    EXPECT_EQ(ROI(0, 0, 0, 0), evaluate_formula(ROIFormula{"1/0", "0/0", "-1/0", "4294967296"}, Zoom()));

    // Factors nest to a bound; deeper is a parse error like any other, not a stack overflow.
    const auto nested = [](int n) { return std::string(size_t(n), '(') + "7" + std::string(size_t(n), ')'); };
    EXPECT_EQ(7.0f, Eval(nested(orvane::detail::kFormulaDepth - 1)));
    orvane::test::LogCapture deepLog;
    for (const std::string& deep : {nested(orvane::detail::kFormulaDepth), nested(80000), std::string(200000, '-') + "1",
                                    std::string(1000000, '@') + "1"})
        EXPECT_EQ(0.0f, Eval(deep));
    ASSERT_EQ(4u, deepLog.lines.size());
    EXPECT_EQ(0u, deepLog.lines[0].find("I error parsing \"((("));
}
