// The stored linear-gain and line/column flagging tables, row by row, and what their
// zoom sets make of a region. The expected rows are written here by hand, grouped as
// the rows share their values, so that a slip in a stored table shows as a failure.

#include "parameters/DMFlagParametersSet.h"
#include "parameters/DMFlagZoomParametersSet.h"
#include "parameters/GainLinearParametersSet.h"
#include "parameters/GainLinearStandardZoomParametersSet.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <ostream>
#include <set>
#include <string>
#include <vector>

void PrintTo(const ROI& roi, std::ostream* os) {
    *os << "(top " << roi.top << ", left " << roi.left << ", " << roi.height << " x " << roi.width << ")";
}

namespace {

constexpr int kAny = -1;          // the row leaves the value unset: not checked
constexpr float kAnyRatio = -1;   // the same for a ratio
constexpr int kOff = -2;          // the split in question is off

using GainZoom = GainLinearZoomParameters;
using FlagZoom = DMFlagZoomParameters;

std::vector<std::string> Modes(const std::string& model, std::initializer_list<int> modes) {
    std::vector<std::string> keys;
    for (int mode : modes) keys.push_back(model + ".*.m" + std::to_string(mode));
    return keys;
}

// The key with a concrete middle component, or with an unknown mode, that the
// nearest-key search must bring back to the stored key.
std::string ViaSearch(const std::string& key) {
    const auto star = key.find(".*.");
    if (star != std::string::npos) return key.substr(0, star) + ".A1." + key.substr(star + 3);
    return key.empty() ? "Unknown.A1.m1" : key + ".A1.m99";
}

template <typename Rows>
std::set<std::string> TableKeys(const Rows& rows) {
    std::set<std::string> keys;
    for (const auto& row : rows) keys.insert(row.keys.begin(), row.keys.end());
    return keys;
}

template <typename Set>
std::set<std::string> StoredKeys(const Set& set) {
    std::set<std::string> keys;
    for (const auto& entry : set.GetBaseRows()) keys.insert(entry.first);
    return keys;
}

// A grid of square measure areas: every left for each top (by rows) or every top for
// each left (by columns).
enum Order { kByRows, kByColumns };
struct Grid {
    int size;
    std::vector<int> tops;
    std::vector<int> lefts;
    Order order;
};

std::vector<ROI> Areas(const Grid& grid) {
    std::vector<ROI> areas;
    const auto add = [&](int top, int left) {
        areas.emplace_back(static_cast<unsigned short>(top), static_cast<unsigned short>(left),
                           static_cast<unsigned short>(grid.size), static_cast<unsigned short>(grid.size));
    };
    if (grid.order == kByRows) {
        for (int top : grid.tops) for (int left : grid.lefts) add(top, left);
    } else {
        for (int left : grid.lefts) for (int top : grid.tops) add(top, left);
    }
    return areas;
}

std::string Text(const ROIFormula& area) {
    return area.top + " | " + area.left + " | " + area.height + " | " + area.width;
}

std::vector<std::string> Texts(const std::vector<ROIFormula>& areas) {
    std::vector<std::string> texts;
    for (const auto& area : areas) texts.push_back(Text(area));
    return texts;
}

std::string Flags(std::initializer_list<bool> flags) {
    std::string text;
    for (bool flag : flags) text += flag ? '1' : '0';
    return text;
}

template <typename R>
std::string Tests(const R& r) {
    return Flags({r.TestWholeFrame, r.TestDRZLines, r.TestArea, r.RetestWholeFrame});
}

// The region variables of a zoom row, as a ROI.
template <typename R>
ROI RegionOf(const R& r) {
    const auto us = [](int value) { return static_cast<unsigned short>(value); };
    return ROI(us(r.Y0), us(r.X0), us(r.Height), us(r.Width));
}

template <typename R>
void ExpectClipAndFit(const R& record) {
    EXPECT_FLOAT_EQ(0.25f, record.ClipMin);
    EXPECT_FLOAT_EQ(4.0f, record.ClipMax);
    EXPECT_EQ(3, record.GfaSigmas);
    EXPECT_FLOAT_EQ(0.05f, record.GfaTolerance);
}

void ExpectValue(int expected, int actual, const char* field) {
    if (expected != kAny) {
        EXPECT_EQ(expected, actual) << field;
    }
}

// ---------------------------------------------------------------- linear gain, plain

struct GainRow {
    std::vector<std::string> keys;
    int invert;  // 0, 1 or kAny
    int y0, height, x0, width;
    Grid areas;  // size 0: none
};

const Grid kNone{0, {}, {}, kByRows};

const std::vector<GainRow> kGainRows = {
    {{""}, kAny, kAny, kAny, kAny, kAny, kNone},
    {{"Birch"}, 0, 0, 3121, 0, 3121, {120, {1320, 1440, 1561, 1681}, {1320, 1440, 1561, 1681}, kByRows}},
    {{"Cedar", "LarchA", "LarchB", "CedarTa", "CedarTb"}, 0, 0, 2880, 0, 2880,
     {120, {1200, 1320, 1440, 1560}, {1200, 1320, 1440, 1560}, kByRows}},
    {{"Cedar.*.m8"}, 0, 0, 960, 0, 960, {40, {400, 440, 480, 520}, {400, 440, 480, 520}, kByRows}},
    {{"Maple", "MapleK"}, 0, 0, 2400, 0, 3000, {120, {960, 1080, 1200, 1320}, {1200, 1320, 1440, 1560, 1680}, kByRows}},
    {{"MapleQ", "MapleQa", "MapleQb"}, 0, 0, 2880, 0, 2400,
     {120, {1200, 1320, 1440, 1560}, {960, 1080, 1200, 1320}, kByRows}},
    {{"MapleQ.*.m8", "MapleQa.*.m8", "MapleQb.*.m8"}, 0, 0, 960, 0, 800,
     {40, {400, 440, 480, 520}, {320, 360, 400, 440}, kByRows}},
    {{"Rowan"}, 0, 0, 1560, 0, 1920, {120, {600, 720, 840}, {720, 840, 960, 1080}, kByRows}},
    {{"Rowan.*.m8"}, 0, 0, 520, 0, 640, {40, {200, 240, 280}, {240, 280, 320, 360}, kByRows}},
    {{"Hazel", "HazelW", "Aspen"}, 1, 60, kAny, kAny, kAny, kNone},
    {Modes("Hazel", {1, 2, 6, 8}), 1, 60, 1440, 120, 1560, {120, {660, 780}, {720, 840, 960}, kByRows}},
    {Modes("Hazel", {3, 4, 5, 7, 9}), 1, 60, 720, 60, 780, {60, {360, 420}, {360, 420, 480}, kByRows}},
    {Modes("HazelW", {1, 2, 6, 8}), 1, 60, 1440, 0, 1570, {120, {660, 780}, {600, 720, 840}, kByRows}},
    {Modes("HazelW", {3, 4, 5, 7}), 1, 60, 720, 0, 785, {60, {360, 420}, {300, 360, 420}, kByRows}},
    {Modes("Aspen", {1, 2, 3, 4, 11, 12}), 1, 60, 1920, 30, 2580,
     {120, {780, 900, 1020, 1140}, {1080, 1200, 1320, 1440}, kByColumns}},
    {Modes("Aspen", {5, 6, 7, 8, 13, 14}), 1, 60, 960, 15, 1290,
     {60, {420, 480, 540, 600}, {540, 600, 660, 720}, kByColumns}},
    {Modes("Aspen", {9, 10, 15, 16}), 1, 60, 640, 10, 860, {40, {300, 340, 380, 420}, {360, 400, 440, 480}, kByColumns}},
    {{"CedarHi", "Willow"}, 1, kAny, kAny, kAny, kAny, kNone},
    {Modes("CedarHi", {1}), 1, 0, 2880, 0, 2880, {120, {1200, 1320, 1440, 1560}, {1200, 1320, 1440, 1560}, kByRows}},
    {Modes("CedarHi", {2, 5}), 1, 0, 2868, 0, 2880, {120, {1194, 1314, 1434, 1554}, {1200, 1320, 1440, 1560}, kByRows}},
    {Modes("CedarHi", {3}), 1, 0, 1440, 0, 1440, {60, {600, 660, 720, 780}, {600, 660, 720, 780}, kByRows}},
    {Modes("CedarHi", {4, 6}), 1, 0, 1428, 0, 1440, {60, {594, 654, 714, 774}, {600, 660, 720, 780}, kByRows}},
    {Modes("CedarHi", {7, 10}), 1, 0, 960, 0, 960, {40, {400, 440, 480, 520}, {400, 440, 480, 520}, kByRows}},
    {Modes("CedarHi", {8}), 1, 0, 948, 0, 960, {40, {394, 434, 474, 514}, {400, 440, 480, 520}, kByRows}},
    {Modes("CedarHi", {9}), 1, 0, 1400, 0, 1440, {60, {580, 640, 700, 760}, {600, 660, 720, 780}, kByRows}},
    {Modes("CedarHi", {11}), 1, 0, 920, 0, 960, {40, {380, 420, 460, 500}, {400, 440, 480, 520}, kByRows}},
    {Modes("Willow", {1, 2, 4, 8}), 1, 60, 1344, 12, 1344, {120, {552, 672}, {564, 684}, kByRows}},
    {Modes("Willow", {3, 5, 9, 11}), 1, 60, 672, 6, 672, {60, {276, 336}, {282, 342}, kByRows}},
    {Modes("Willow", {10}), 1, 60, 448, 4, 448, {40, {184, 224}, {188, 228}, kByRows}},
    {Modes("Willow", {12}), 1, 60, 336, 3, 336, {30, {138, 168}, {141, 171}, kByRows}},
};

void ExpectGainRow(const GainRow& row, const GainLinearParameters& record) {
    if (row.invert != kAny) {
        EXPECT_EQ(row.invert == 1, record.InvertGain);
    }
    ExpectValue(row.y0, record.Y0, "Y0");
    ExpectValue(row.height, record.Height, "Height");
    ExpectValue(row.x0, record.X0, "X0");
    ExpectValue(row.width, record.Width, "Width");
    ExpectClipAndFit(record);
    EXPECT_EQ(Areas(row.areas), record.MeasureAreas);
}

// ---------------------------------------------------------------- linear gain, zoom

enum Form { k2x2, k2x3, k4x4, kModule };

std::vector<std::string> FormTexts(Form form) {
    if (form == kModule) {
        return {"l1+60 | c1 | nl1 | nc1", "l1+60 | c2 | nl1 | nc2", "l1+60 | c3 | nl1 | nc3",
                "l2+60 | c1 | nl2 | nc1", "l2+60 | c2 | nl2 | nc2", "l2+60 | c3 | nl2 | nc3"};
    }
    const int rows = form == k4x4 ? 4 : 2;
    const int columns = form == k4x4 ? 4 : form == k2x3 ? 3 : 2;
    std::vector<std::string> texts;
    for (int l = 1; l <= rows; ++l) {
        for (int c = 1; c <= columns; ++c) {
            texts.push_back(Text({"l" + std::to_string(l), "c" + std::to_string(c), "nl", "nc"}));
        }
    }
    return texts;
}

struct ZoomGridRow {
    std::vector<std::string> keys;
    int areaY0, areaX0;
    int n;  // nl as text, nc as integer; kAny on stem rows
    std::vector<std::string> ls, cs;
    Form form;
};

const std::vector<std::string> kHazelLs = {"(Height/2)-(1*nl)+60", "(Height/2)-(0*nl)+60"};

const std::vector<ZoomGridRow> kZoomGridRows = {
    {{"Hazel"}, 60, kAny, kAny, kHazelLs, {}, k2x3},
    {{"Aspen"}, 60, kAny, kAny, {}, {}, k4x4},
    {{"CedarHi"}, 0, kAny, kAny, {}, {}, k4x4},
    {{"Willow"}, 60, kAny, kAny, {}, {}, k2x2},
    {Modes("Hazel", {1, 2, 6, 8}), 60, 120, 120, kHazelLs,
     {"(Width/2)-(1.5*nc)+120", "(Width/2)-(0.5*nc)+120", "(Width/2)+(0.5*nc)+120"}, k2x3},
    {Modes("Hazel", {3, 4, 5, 7, 9}), 60, 60, 60, kHazelLs,
     {"(Width/2)-(1.5*nc)+60", "(Width/2)-(0.5*nc)+60", "(Width/2)+(0.5*nc)+60"}, k2x3},
    {Modes("Aspen", {1, 2, 3, 4, 11, 12, 17, 18}), 60, 24, 120,
     {"60+(Height/2)-240", "60+(Height/2)-120", "60+(Height/2)", "60+(Height/2)+120"},
     {"(Width/2)-240", "(Width/2)-120", "(Width/2)", "(Width/2)+120"}, k4x4},
    {Modes("Aspen", {5, 6, 7, 8, 13, 14, 19, 20}), 60, 12, 60,
     {"60+(Height/2)-120", "60+(Height/2)-60", "60+(Height/2)", "60+(Height/2)+60"},
     {"(Width/2)-120", "(Width/2)-60", "(Width/2)", "(Width/2)+60"}, k4x4},
    {Modes("Aspen", {9, 10, 15, 16, 21, 22}), 60, 8, 40,
     {"60+(Height/2)-80", "60+(Height/2)-40", "60+(Height/2)", "60+(Height/2)+40"},
     {"(Width/2)-80", "(Width/2)-40", "(Width/2)", "(Width/2)+40"}, k4x4},
    {Modes("CedarHi", {9, 4, 6}), 0, 0, 60, {"(Height/2)-120", "(Height/2)-60", "(Height/2)", "(Height/2)+60"},
     {"(Width/2)-120", "(Width/2)-60", "(Width/2)", "(Width/2)+60"}, k4x4},
    {Modes("CedarHi", {2, 5}), 0, 0, 120, {"(Height/2)-240", "(Height/2)-120", "(Height/2)", "(Height/2)+120"},
     {"(Width/2)-240", "(Width/2)-120", "(Width/2)", "(Width/2)+120"}, k4x4},
    {Modes("CedarHi", {11, 8}), 0, 0, 40, {"(Height/2)-80", "(Height/2)-40", "(Height/2)", "(Height/2)+40"},
     {"(Width/2)-80", "(Width/2)-40", "(Width/2)", "(Width/2)+40"}, k4x4},
    {Modes("Willow", {1, 2, 4, 8}), 60, 12, 120, {"(Height/2)-120", "(Height/2)"}, {"12+ (Width/2)-120", "12+(Width/2)"}, k2x2},
    {Modes("Willow", {3, 5, 9, 11}), 60, 6, 60, {"(Height/2)-60", "(Height/2)"}, {"6+ (Width/2)-60", "6+(Width/2)"}, k2x2},
    {Modes("Willow", {10}), 60, 4, 40, {"(Height/2)-40", "(Height/2)"}, {"4+ (Width/2)-40", "4+(Width/2)"}, k2x2},
    {Modes("Willow", {12}), 60, 3, 30, {"(Height/2)-30", "(Height/2)"}, {"3+ (Width/2)-30", "3+(Width/2)"}, k2x2},
};

struct ModuleRow {
    std::vector<std::string> keys;
    int modSize;
    std::string cLeftLimit, lTopLimit, cRightLimit, lBotLimit;
};

const std::vector<ModuleRow> kModuleRows = {
    {{"HazelW"}, kAny, "", "", "", ""},
    {Modes("HazelW", {1, 2, 6, 8}), 120, "0$(10-X0)", "3$(10-Y0)", "(Width)#(1800-230-X0)", "(Height-3)#(1440-10-Y0)"},
    {Modes("HazelW", {3, 4, 5, 7}), 60, "0$(5-X0)", "3$(5-Y0)", "(Width)#(900-115-X0)", "(Height-3)#(720-5-Y0)"},
};

// The formulas that all module rows share, in pairs as they go together.
const std::vector<std::pair<std::string GainZoom::*, const char*>> kModuleFormulas = {
    {&GainZoom::Xc, "@(X0+(Width/2))"}, {&GainZoom::Yc, "@(Y0+(Height/2))"},
    {&GainZoom::Mpxc, "(@(Xc/modSize))*modSize"}, {&GainZoom::Thlc, "(@(Yc/modSize))*modSize"},
    {&GainZoom::l1, "(Thlc-modSize-Y0)$lTopLimit"}, {&GainZoom::l2, "(Thlc-Y0)$lTopLimit"},
    {&GainZoom::c1, "(Mpxc-modSize-X0)$cLeftLimit"}, {&GainZoom::c2, "(Mpxc-X0)$cLeftLimit"},
    {&GainZoom::c3, "(Mpxc+modSize-X0)$cLeftLimit"},
    {&GainZoom::nl1, "((Thlc-Y0)#(lBotLimit))-l1"}, {&GainZoom::nl2, "((Thlc+modSize-Y0)#(lBotLimit))-l2"},
    {&GainZoom::nc1, "((Mpxc-X0)#(cRightLimit))-c1"}, {&GainZoom::nc2, "((Mpxc+modSize-X0)#(cRightLimit))-c2"},
    {&GainZoom::nc3, "((Mpxc+2*modSize-X0)#(cRightLimit))-c3"},
};

std::string GainZoom::*const kLs[] = {&GainZoom::l1, &GainZoom::l2, &GainZoom::l3, &GainZoom::l4};
std::string GainZoom::*const kCs[] = {&GainZoom::c1, &GainZoom::c2, &GainZoom::c3, &GainZoom::c4};

void ExpectZoomCommon(const GainZoom& row) {
    EXPECT_TRUE(row.InvertGain);
    EXPECT_EQ("Height", row.AreaHeight);
    EXPECT_EQ("Width", row.AreaWidth);
    ExpectClipAndFit(row);
}

void ExpectZoomGridRow(const ZoomGridRow& expected, const GainZoom& row) {
    ExpectZoomCommon(row);
    EXPECT_EQ(expected.areaY0, row.AreaY0);
    ExpectValue(expected.areaX0, row.AreaX0, "AreaX0");
    if (expected.n != kAny) {
        EXPECT_EQ(std::to_string(expected.n), row.nl);
        EXPECT_EQ(expected.n, row.nc);
    }
    for (size_t i = 0; i < expected.ls.size(); ++i) EXPECT_EQ(expected.ls[i], row.*kLs[i]) << "l" << i + 1;
    for (size_t i = 0; i < expected.cs.size(); ++i) EXPECT_EQ(expected.cs[i], row.*kCs[i]) << "c" << i + 1;
    EXPECT_EQ(FormTexts(expected.form), Texts(row.MeasureAreaFormulas));
}

void ExpectModuleRow(const ModuleRow& expected, const GainZoom& row) {
    ExpectZoomCommon(row);
    EXPECT_EQ(60, row.AreaY0);
    EXPECT_EQ(0, row.AreaX0);
    for (const auto& field : kModuleFormulas) EXPECT_EQ(field.second, row.*field.first);
    ExpectValue(expected.modSize, row.modSize, "modSize");
    EXPECT_EQ(expected.cLeftLimit, row.cLeftLimit);
    EXPECT_EQ(expected.lTopLimit, row.lTopLimit);
    EXPECT_EQ(expected.cRightLimit, row.cRightLimit);
    EXPECT_EQ(expected.lBotLimit, row.lBotLimit);
    EXPECT_EQ(FormTexts(kModule), Texts(row.MeasureAreaFormulas));
}

template <typename Row, typename Check>
void ForEachKey(const std::vector<Row>& rows, Check check) {
    for (const auto& row : rows) {
        for (const auto& key : row.keys) {
            SCOPED_TRACE(key);
            check(row, key);
        }
    }
}

// ---------------------------------------------------------------- flagging, plain

struct FlagRow {
    std::vector<std::string> keys;
    const char* tests;  // whole frame, DRZ lines, area, retest
    float ratio, drzRatio, areaRatio, retestRatio;  // horizontal and vertical alike
    ROI area;
    int drz1, drz1Count, drz2, drz2Count;
    int splitRow, splitColumn;  // kOff, kAny (on, unset) or the seam
};

const float A = kAnyRatio;
const std::vector<FlagRow> kFlagRows = {
    {{""}, "0010", A, A, A, A, ROI(0, 0, 0, 0), kAny, kAny, kAny, kAny, kOff, kOff},
    {{"Birch"}, "0010", A, A, 0.1f, A, ROI(60, 60, 3001, 3001), kAny, kAny, kAny, kAny, 1560, 1560},
    {{"Cedar"}, "0010", A, A, 0.3f, A, ROI(20, 3, 2840, 2873), kAny, kAny, kAny, kAny, 1440, kOff},
    {{"Cedar.*.m8"}, "1011", 0.1f, A, 0.05f, 0.05f, ROI(7, 2, 946, 955), kAny, kAny, kAny, kAny, 480, kOff},
    {{"Maple", "MapleK"}, "0010", A, A, 0.1f, A, ROI(0, 0, 2400, 3000), kAny, kAny, kAny, kAny, kOff, kOff},
    {{"MapleQ"}, "0010", A, A, 0.03f, A, ROI(30, 50, 2820, 2300), kAny, kAny, kAny, kAny, kOff, kOff},
    {{"MapleQ.*.m8"}, "0010", A, A, 0.03f, A, ROI(10, 17, 940, 766), kAny, kAny, kAny, kAny, kOff, kOff},
    {{"MapleQa", "MapleQb"}, "0010", A, A, 0.03f, A, ROI(7, 25, 2866, 2350), kAny, kAny, kAny, kAny, kOff, kOff},
    {{"MapleQa.*.m8", "MapleQb.*.m8"}, "0010", A, A, 0.03f, A, ROI(3, 9, 954, 782), kAny, kAny, kAny, kAny, kOff, kOff},
    {{"Rowan"}, "0010", A, A, 0.03f, A, ROI(20, 0, 1520, 1920), kAny, kAny, kAny, kAny, kOff, kOff},
    {{"Rowan.*.m8"}, "0010", A, A, 0.03f, A, ROI(7, 0, 506, 640), kAny, kAny, kAny, kAny, kOff, kOff},
    {{"LarchA", "LarchB"}, "0010", A, A, 0.03f, A, ROI(2, 30, 2875, 2775), kAny, kAny, kAny, kAny, kOff, kOff},
    {{"CedarTa", "CedarTb"}, "0010", A, A, 0.03f, A, ROI(2, 11, 2875, 2869), kAny, kAny, kAny, kAny, kOff, kOff},
    {{"Hazel"}, "1111", 0.1f, 0.125f, 0.05f, 0.05f, ROI(0, 0, 0, 0), kAny, kAny, kAny, kAny, kOff, kOff},
    {Modes("Hazel", {1, 2, 6, 8}), "1111", 0.1f, 0.125f, 0.05f, 0.05f, ROI(70, 120, 1420, 1560), 0, 60, 1740, 60, kOff, kOff},
    {Modes("Hazel", {3, 4, 5, 7, 9}), "1111", 0.1f, 0.125f, 0.05f, 0.05f, ROI(65, 60, 710, 780), 0, 30, 870, 30, kOff, kOff},
    {{"HazelW"}, "0110", A, 0.125f, 0.05f, A, ROI(0, 0, 0, 0), kAny, kAny, kAny, kAny, kOff, kOff},
    {Modes("HazelW", {1, 2, 6, 8}), "0110", A, 0.125f, 0.05f, A, ROI(70, 10, 1420, 1560), 0, 0, 1680, 120, kOff, kOff},
    {Modes("HazelW", {3, 4, 5, 7}), "0110", A, 0.125f, 0.05f, A, ROI(65, 5, 710, 780), 0, 0, 840, 60, kOff, kOff},
    {{"Aspen"}, "1111", 0.1f, 0.125f, 0.05f, 0.05f, ROI(0, 0, 0, 0), kAny, kAny, kAny, kAny, kAny, kOff},
    {Modes("Aspen", {1, 2, 3, 4, 11, 12}), "1111", 0.1f, 0.125f, 0.05f, 0.05f, ROI(68, 30, 1904, 2580), 0, 24, 2616, 24, 1020, kOff},
    {Modes("Aspen", {5, 6, 7, 8, 13, 14}), "1111", 0.1f, 0.125f, 0.05f, 0.05f, ROI(64, 15, 952, 1290), 0, 12, 1308, 12, 540, kOff},
    {Modes("Aspen", {9, 10, 15, 16}), "1111", 0.1f, 0.125f, 0.05f, 0.05f, ROI(63, 10, 634, 860), 0, 8, 872, 8, 380, kOff},
    {{"CedarHi"}, "1011", 0.1f, A, 0.05f, 0.05f, ROI(0, 0, 0, 0), kAny, kAny, kAny, kAny, kOff, kOff},
    {Modes("CedarHi", {1}), "1011", 0.1f, A, 0.05f, 0.05f, ROI(20, 3, 2840, 2874), kAny, kAny, kAny, kAny, kOff, kOff},
    {Modes("CedarHi", {7, 10}), "1011", 0.1f, A, 0.05f, 0.05f, ROI(7, 2, 946, 956), kAny, kAny, kAny, kAny, kOff, kOff},
    {Modes("CedarHi", {3}), "1011", 0.1f, A, 0.05f, 0.05f, ROI(10, 2, 1420, 1436), kAny, kAny, kAny, kAny, kOff, kOff},
    {Modes("CedarHi", {9}), "1011", 0.1f, A, 0.05f, 0.05f, ROI(0, 1, 1440, 1398), kAny, kAny, kAny, kAny, kOff, kOff},
    {Modes("CedarHi", {2, 5}), "1011", 0.1f, A, 0.05f, 0.05f, ROI(0, 1, 2880, 2866), kAny, kAny, kAny, kAny, kOff, kOff},
    {Modes("CedarHi", {4, 6}), "1011", 0.1f, A, 0.05f, 0.05f, ROI(0, 1, 1440, 1426), kAny, kAny, kAny, kAny, kOff, kOff},
    {Modes("CedarHi", {11}), "1011", 0.1f, A, 0.05f, 0.05f, ROI(1, 0, 918, 960), kAny, kAny, kAny, kAny, kOff, kOff},
    {Modes("CedarHi", {8}), "1011", 0.1f, A, 0.05f, 0.05f, ROI(0, 1, 960, 946), kAny, kAny, kAny, kAny, kOff, kOff},
    {{"Willow"}, "1111", 0.1f, 0.125f, 0.05f, 0.05f, ROI(0, 0, 0, 0), kAny, kAny, kAny, kAny, kOff, kOff},
    {Modes("Willow", {1, 2, 4, 8}), "1111", 0.1f, 0.125f, 0.05f, 0.05f, ROI(60, 12, 1344, 1344), 0, 12, 1356, 12, kOff, kOff},
    {Modes("Willow", {3, 5, 9, 11}), "1111", 0.1f, 0.125f, 0.05f, 0.05f, ROI(60, 6, 672, 672), 0, 6, 678, 6, kOff, kOff},
    {Modes("Willow", {10}), "1111", 0.1f, 0.125f, 0.05f, 0.05f, ROI(60, 4, 448, 448), 0, 4, 452, 4, kOff, kOff},
    {Modes("Willow", {12}), "1111", 0.1f, 0.125f, 0.05f, 0.05f, ROI(60, 3, 336, 336), 0, 3, 339, 3, kOff, kOff},
};

void ExpectRatio(float expected, float actual, const char* field) {
    if (expected != kAnyRatio) {
        EXPECT_FLOAT_EQ(expected, actual) << field;
    }
}

void ExpectSplit(int expected, bool on, int seam, const char* field) {
    EXPECT_EQ(expected != kOff, on) << field;
    if (expected != kOff) ExpectValue(expected, seam, field);
}

void ExpectFlagRow(const FlagRow& row, const DMFlagParameters& record) {
    EXPECT_EQ(row.tests, Tests(record));
    ExpectRatio(row.ratio, record.HorizontalRatio, "HorizontalRatio");
    ExpectRatio(row.ratio, record.VerticalRatio, "VerticalRatio");
    ExpectRatio(row.drzRatio, record.DRZRatio, "DRZRatio");
    ExpectRatio(row.areaRatio, record.AreaHorizontalRatio, "AreaHorizontalRatio");
    ExpectRatio(row.areaRatio, record.AreaVerticalRatio, "AreaVerticalRatio");
    ExpectRatio(row.retestRatio, record.RetestHorizontalRatio, "RetestHorizontalRatio");
    ExpectRatio(row.retestRatio, record.RetestVerticalRatio, "RetestVerticalRatio");
    EXPECT_EQ(row.area, record.Area);
    ExpectValue(row.drz1, record.DRZFirstColumn, "DRZFirstColumn");
    ExpectValue(row.drz1Count, record.DRZFirstCount, "DRZFirstCount");
    ExpectValue(row.drz2, record.DRZSecondColumn, "DRZSecondColumn");
    ExpectValue(row.drz2Count, record.DRZSecondCount, "DRZSecondCount");
    ExpectSplit(row.splitRow, record.SplitRows, record.SplitRow, "SplitRow");
    ExpectSplit(row.splitColumn, record.SplitColumns, record.SplitColumn, "SplitColumn");
}

// ---------------------------------------------------------------- flagging, zoom

struct FlagZoomRow {
    std::vector<std::string> keys;
    const char* tests;
    const char* splits;  // SplitRows, SplitColumns
    bool regionRatios;   // the ratios rise for small regions
    ROIFormula area;
    int drz1, drz1Count;
    std::string drz2;
    int drz2Count;
    std::string splitRow;
    int splitColumn;
};

const ROIFormula kEmptyArea{"", "", "", ""};
const std::vector<FlagZoomRow> kFlagZoomRows = {
    {{"Hazel"}, "1111", "00", true, kEmptyArea, kAny, kAny, "", kAny, "1500", 1800},
    {Modes("Hazel", {1, 2, 6, 8}), "1111", "00", true,
     {"60+(((Height-1420)/2)$3)", "120", "Height-((Height-1420)$6)", "Width"}, 0, 60, "Width+180", 60, "1500", 1800},
    {Modes("Hazel", {3, 4, 5, 7, 9}), "1111", "00", true,
     {"60+(((Height-710)/2)$3)", "60", "Height-((Height-710)$6)", "Width"}, 0, 30, "Width+90", 30, "1500", 1800},
    {{"HazelW"}, "0110", "00", true, kEmptyArea, kAny, kAny, "", kAny, "1500", 1800},
    {Modes("HazelW", {1, 2, 6, 8}), "0110", "00", true,
     {"(3$(10-Y0))+60", "0$(10-X0)", "((Height-3)#(1440-10-Y0))-(3$(10-Y0))", "((Width-0)#(1800-230-X0))-(0$(10-X0))"},
     0, 0, "Width", 120, "1500", 1800},
    {Modes("HazelW", {3, 4, 5, 7}), "0110", "00", true,
     {"(3$(5-Y0))+60", "0$(5-X0)", "((Height-3)#(720-5-Y0))-(3$(5-Y0))", "((Width-0)#(900-115-X0))-(0$(5-X0))"},
     0, 0, "Width", 60, "1500", 1800},
    {{"Aspen"}, "1111", "10", true, kEmptyArea, kAny, kAny, "", kAny, "60+Height/2", 2640},
    {Modes("Aspen", {1, 2, 3, 4, 11, 12, 17, 18}), "1111", "10", true,
     {"60+(((Height/2)-952)$0)", "24", "Height-2*(((Height/2)-952)$0)", "Width"}, 0, 24, "Width+24", 24, "60+Height/2", 2640},
    {Modes("Aspen", {5, 6, 7, 8, 13, 14, 19, 20}), "1111", "10", true,
     {"60+(((Height/2)-476)$0)", "12", "Height-2*(((Height/2)-476)$0)", "Width"}, 0, 12, "Width+12", 12, "60+Height/2", 2640},
    {Modes("Aspen", {9, 10, 15, 16, 21, 22}), "1111", "10", true,
     {"60+(((Height/2)-317)$0)", "8", "Height-2*(((Height/2)-317)$0)", "Width"}, 0, 8, "Width+8", 8, "60+Height/2", 2640},
    {{"CedarHi"}, "1011", "00", false, {"1", "0", "Height-2", "Width"}, kAny, kAny, "", kAny, "", kAny},
    {{"Willow"}, "1111", "00", false, kEmptyArea, kAny, kAny, "", kAny, "", kAny},
    {Modes("Willow", {1, 2, 4, 8}), "1111", "00", false, {"60", "12", "Height", "Width"}, 0, 12, "Width+12", 12, "", kAny},
    {Modes("Willow", {3, 5, 9, 11}), "1111", "00", false, {"60", "6", "Height", "Width"}, 0, 6, "Width+6", 6, "", kAny},
    {Modes("Willow", {10}), "1111", "00", false, {"60", "3", "Height", "Width"}, 0, 3, "Width+3", 3, "", kAny},
};

void ExpectFlagZoomRow(const FlagZoomRow& expected, const FlagZoom& row) {
    EXPECT_EQ(expected.tests, Tests(row));
    EXPECT_EQ(expected.splits, Flags({row.SplitRows, row.SplitColumns}));
    EXPECT_EQ(expected.regionRatios ? "(20/Width)$0.10" : "0.10", row.HorizontalRatio);
    EXPECT_EQ(expected.regionRatios ? "(20/Height)$0.10" : "0.10", row.VerticalRatio);
    EXPECT_EQ(expected.regionRatios ? "(10/Width)$0.05" : "0.05", row.AreaHorizontalRatio);
    EXPECT_EQ(expected.regionRatios ? "(10/Width)$0.05" : "0.05", row.RetestHorizontalRatio);
    EXPECT_EQ(expected.regionRatios ? "(10/Height)$0.05" : "0.05", row.AreaVerticalRatio);
    EXPECT_EQ(expected.regionRatios ? "(10/Height)$0.05" : "0.05", row.RetestVerticalRatio);
    EXPECT_FLOAT_EQ(0.125f, row.DRZRatio);
    EXPECT_EQ(Text(expected.area), Text(row.Area));
    ExpectValue(expected.drz1, row.DRZFirstColumn, "DRZFirstColumn");
    ExpectValue(expected.drz1Count, row.DRZFirstCount, "DRZFirstCount");
    EXPECT_EQ(expected.drz2, row.DRZSecondColumn);
    ExpectValue(expected.drz2Count, row.DRZSecondCount, "DRZSecondCount");
    EXPECT_EQ(expected.splitRow, row.SplitRow);
    ExpectValue(expected.splitColumn, row.SplitColumn, "SplitColumn");
}

}  // namespace

// ---------------------------------------------------------------- tests

TEST(GainLinearParametersSet, EveryRowOfTheTable) {
    EXPECT_EQ(77u, s_gainLinearParametersSet.GetBaseRows().size());
    EXPECT_EQ(TableKeys(kGainRows), StoredKeys(s_gainLinearParametersSet));
    ForEachKey(kGainRows, [](const GainRow& row, const std::string& key) {
        ExpectGainRow(row, s_gainLinearParametersSet.lookup(key));
        EXPECT_EQ(&s_gainLinearParametersSet.lookup(key), &s_gainLinearParametersSet.lookup(ViaSearch(key)));
    });
    for (const auto& entry : s_gainLinearParametersSet.GetBaseRows()) {
        SCOPED_TRACE(entry.first);
        ExpectClipAndFit(entry.second);
    }
    // No mode row "Cedar.*.m3": the search ends at the model row.
    EXPECT_EQ(&s_gainLinearParametersSet.lookup("Cedar"), &s_gainLinearParametersSet.lookup("Cedar.A1.m3"));
    EXPECT_EQ(77u, s_gainLinearParametersSet.GetBaseRows().size());
}

TEST(GainLinearZoomParametersSet, EveryRowOfTheTable) {
    auto& set = s_gainLinearStandardZoomParametersSet;
    EXPECT_EQ(62u, set.GetBaseRows().size());
    std::set<std::string> keys = TableKeys(kZoomGridRows);
    for (const auto& key : TableKeys(kModuleRows)) keys.insert(key);
    keys.insert("");
    EXPECT_EQ(keys, StoredKeys(set));

    const GainZoom& standard = set.lookup("");
    ExpectClipAndFit(standard);
    EXPECT_EQ("", standard.AreaHeight);
    EXPECT_EQ("", standard.AreaWidth);
    EXPECT_TRUE(standard.MeasureAreaFormulas.empty());

    ForEachKey(kZoomGridRows, [&](const ZoomGridRow& row, const std::string& key) {
        ExpectZoomGridRow(row, set.lookup(key));
        EXPECT_EQ(&set.lookup(key), &set.lookup(ViaSearch(key)));
    });
    ForEachKey(kModuleRows, [&](const ModuleRow& row, const std::string& key) {
        ExpectModuleRow(row, set.lookup(key));
        EXPECT_EQ(&set.lookup(key), &set.lookup(ViaSearch(key)));
    });
    EXPECT_EQ(62u, set.GetBaseRows().size());
}

TEST(GainLinearZoomParametersSet, RegistersTheFormulaVariablesInOrder) {
    const std::vector<std::string> names = {"X0", "Y0", "Height", "Width", "Xc", "Yc", "Mpxc",
        "Thlc", "modSize", "cLeftLimit", "lTopLimit", "cRightLimit", "lBotLimit", "l1", "l2", "l3",
        "l4", "c1", "c2", "c3", "c4", "nl", "nc", "nl1", "nl2", "nc1", "nc2", "nc3"};
    const std::set<std::string> integers = {"X0", "Y0", "Height", "Width", "modSize", "nc"};
    const auto& variables = parameter_func<GainZoom>::instance().variables();
    ASSERT_EQ(names.size(), variables.size());
    for (size_t i = 0; i < names.size(); ++i) {
        EXPECT_EQ(names[i], variables[i].name);
        EXPECT_EQ(integers.count(names[i]) ? 1 : 2, variables[i].member.which()) << names[i];
    }
}

TEST(GainLinearZoomParametersSet, MeasureAreasOfRegions) {
    struct Case {
        const char* key;
        ROI region;
        int y0, x0;
        std::vector<ROI> areas;
    };
    const auto us = [](int value) { return static_cast<unsigned short>(value); };
    const std::vector<Case> cases = {
        {"Hazel.A1.m1", ROI(0, 0, 1440, 1560), 60, 120, Areas({120, {660, 780}, {720, 840, 960}, kByRows})},
        {"Hazel.A1.m3", ROI(0, 0, 720, 780), 60, 60, Areas({60, {360, 420}, {360, 420, 480}, kByRows})},
        {"HazelW.A1.m1", ROI(0, 0, 1440, 1570), 60, 0, Areas({120, {660, 780}, {600, 720, 840}, kByRows})},
        {"HazelW.A1.m1", ROI(300, 500, 600, 700), 60, 0, Areas({120, {240, 360}, {220, 340, 460}, kByRows})},
        {"HazelW.A1.m3", ROI(0, 0, 720, 785), 60, 0, Areas({60, {360, 420}, {300, 360, 420}, kByRows})},
        // Centre in the first module row: both rows start at the top limit, the first is
        // 10 rows short of nothing, the last column is cut at the right edge.
        {"HazelW.A1.m1", ROI(0, 0, 200, 250), 60, 0,
         {ROI(70, 10, us(-10), 110), ROI(70, 120, us(-10), 120), ROI(70, 240, us(-10), 10),
          ROI(70, 10, 110, 110), ROI(70, 120, 110, 120), ROI(70, 240, 110, 10)}},
        {"Aspen.A1.m1", ROI(0, 0, 1920, 2580), 60, 24,
         Areas({120, {780, 900, 1020, 1140}, {1050, 1170, 1290, 1410}, kByRows})},
        {"CedarHi.A1.m8", ROI(0, 0, 947, 961), 0, 0, Areas({40, {393, 433, 473, 513}, {400, 440, 480, 520}, kByRows})},
        {"Willow.A1.m3", ROI(0, 0, 672, 672), 60, 6, Areas({60, {276, 336}, {282, 342}, kByRows})},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.key);
        const GainLinearParameters record = s_gainLinearStandardZoomParametersSet.get(c.key, c.region);
        EXPECT_TRUE(record.InvertGain);
        EXPECT_EQ(c.y0, record.Y0);
        EXPECT_EQ(c.x0, record.X0);
        EXPECT_EQ(c.region.height, record.Height);
        EXPECT_EQ(c.region.width, record.Width);
        ExpectClipAndFit(record);
        EXPECT_EQ(c.areas, record.MeasureAreas);
    }
}

TEST(GainLinearZoomParametersSet, ModuleCornerOfTheRegionCentre) {
    GainZoom work = s_gainLinearStandardZoomParametersSet.lookup("HazelW.*.m1");
    const auto value = [&](const std::string GainZoom::*member) { return evaluate_formula(work.*member, work); };
    work.X0 = 0;
    work.Y0 = 0;
    work.Height = 1440;
    work.Width = 1570;
    EXPECT_FLOAT_EQ(785, value(&GainZoom::Xc));
    EXPECT_FLOAT_EQ(720, value(&GainZoom::Yc));
    EXPECT_FLOAT_EQ(720, value(&GainZoom::Mpxc));
    EXPECT_FLOAT_EQ(720, value(&GainZoom::Thlc));
    EXPECT_FLOAT_EQ(10, value(&GainZoom::cLeftLimit));
    EXPECT_FLOAT_EQ(10, value(&GainZoom::lTopLimit));
    EXPECT_FLOAT_EQ(1570, value(&GainZoom::cRightLimit));
    EXPECT_FLOAT_EQ(1430, value(&GainZoom::lBotLimit));
    work.Width = 1571;
    EXPECT_FLOAT_EQ(785, value(&GainZoom::Xc));
    work.X0 = 500;
    work.Y0 = 300;
    work.Height = 600;
    work.Width = 700;
    EXPECT_FLOAT_EQ(850, value(&GainZoom::Xc));
    EXPECT_FLOAT_EQ(600, value(&GainZoom::Yc));
    EXPECT_FLOAT_EQ(840, value(&GainZoom::Mpxc));
    EXPECT_FLOAT_EQ(600, value(&GainZoom::Thlc));
}

TEST(GainLinearZoomParametersSet, WholeNormalisingAreaGivesThePlainRecord) {
    // For these models the zoom rows place the plain rows' grids for a region that
    // covers the plain normalising area.
    std::set<std::string> keys = TableKeys(kModuleRows);
    for (const auto& key : TableKeys(kZoomGridRows)) {
        if (key.rfind("Aspen", 0) != 0) keys.insert(key);
    }
    for (const auto& key : keys) {
        if (key.find('*') == std::string::npos) continue;
        SCOPED_TRACE(key);
        const GainLinearParameters& plain = s_gainLinearParametersSet.lookup(key);
        const ROI region(0, 0, static_cast<unsigned short>(plain.Height), static_cast<unsigned short>(plain.Width));
        const GainLinearParameters zoomed = s_gainLinearStandardZoomParametersSet.get(ViaSearch(key), region);
        EXPECT_EQ(plain.InvertGain, zoomed.InvertGain);
        EXPECT_EQ(plain.Y0, zoomed.Y0);
        EXPECT_EQ(plain.X0, zoomed.X0);
        EXPECT_EQ(plain.Height, zoomed.Height);
        EXPECT_EQ(plain.Width, zoomed.Width);
        EXPECT_EQ(plain.MeasureAreas, zoomed.MeasureAreas);
    }
}

TEST(GainLinearZoomParametersSet, GetLeavesTheStoredRowsAlone) {
    auto& set = s_gainLinearStandardZoomParametersSet;
    const GainZoom before = set.lookup("HazelW.*.m1");
    const GainLinearParameters small = set.get("HazelW.A1.m1", ROI(300, 500, 600, 700));
    const GainLinearParameters large = set.get("HazelW.A1.m1", ROI(0, 0, 1440, 1570));
    EXPECT_NE(small.Height, large.Height);
    EXPECT_NE(small.MeasureAreas, large.MeasureAreas);
    EXPECT_EQ(small.MeasureAreas, set.get("HazelW.A1.m1", ROI(300, 500, 600, 700)).MeasureAreas);
    const GainZoom& after = set.lookup("HazelW.*.m1");
    EXPECT_EQ(RegionOf(before), RegionOf(after));
    EXPECT_EQ(before.Xc, after.Xc);
    EXPECT_EQ(Texts(before.MeasureAreaFormulas), Texts(after.MeasureAreaFormulas));
}

TEST(DMFlagParametersSet, EveryRowOfTheTable) {
    EXPECT_EQ(77u, s_DMFlagParametersSet.GetBaseRows().size());
    EXPECT_EQ(TableKeys(kFlagRows), StoredKeys(s_DMFlagParametersSet));
    ForEachKey(kFlagRows, [](const FlagRow& row, const std::string& key) {
        ExpectFlagRow(row, s_DMFlagParametersSet.lookup(key));
        EXPECT_EQ(&s_DMFlagParametersSet.lookup(key), &s_DMFlagParametersSet.lookup(ViaSearch(key)));
    });
    // No mode row "Cedar.*.m1": the model row answers.
    EXPECT_EQ(&s_DMFlagParametersSet.lookup("Cedar"), &s_DMFlagParametersSet.lookup("Cedar.A1.m1"));
    EXPECT_EQ(77u, s_DMFlagParametersSet.GetBaseRows().size());
}

TEST(DMFlagZoomParametersSet, EveryRowOfTheTable) {
    auto& set = s_DMFlagZoomParametersSet;
    EXPECT_EQ(53u, set.GetBaseRows().size());
    EXPECT_EQ(TableKeys(kFlagZoomRows), StoredKeys(set));
    ForEachKey(kFlagZoomRows, [&](const FlagZoomRow& row, const std::string& key) {
        ExpectFlagZoomRow(row, set.lookup(key));
        EXPECT_EQ(&set.lookup(key), &set.lookup(ViaSearch(key)));
    });
    EXPECT_EQ(53u, set.GetBaseRows().size());

    const std::vector<std::string> names = {"X0", "Y0", "Height", "Width"};
    const auto& variables = parameter_func<FlagZoom>::instance().variables();
    ASSERT_EQ(names.size(), variables.size());
    for (size_t i = 0; i < names.size(); ++i) {
        EXPECT_EQ(names[i], variables[i].name);
        EXPECT_EQ(1, variables[i].member.which()) << names[i];
    }
}

TEST(DMFlagZoomParametersSet, RecordsOfRegions) {
    struct Case {
        const char* key;
        ROI region;
        float horizontal, vertical, areaHorizontal, areaVertical;
        ROI area;
        int drz2, splitRow;
    };
    const std::vector<Case> cases = {
        {"Hazel.A1.m1", ROI(0, 0, 1500, 1560), 0.1f, 0.1f, 0.05f, 0.05f, ROI(100, 120, 1420, 1560), 1740, 1500},
        {"Hazel.A1.m1", ROI(0, 0, 1420, 1560), 0.1f, 0.1f, 0.05f, 0.05f, ROI(63, 120, 1414, 1560), 1740, 1500},
        {"Hazel.A1.m3", ROI(0, 0, 150, 100), 0.2f, 20.0f / 150, 0.1f, 10.0f / 150, ROI(63, 60, 144, 100), 190, 1500},
        {"Aspen.A1.m1", ROI(0, 0, 1904, 2580), 0.1f, 0.1f, 0.05f, 0.05f, ROI(60, 24, 1904, 2580), 2604, 1012},
        {"Aspen.A1.m9", ROI(0, 0, 635, 860), 0.1f, 0.1f, 0.05f, 0.05f, ROI(60, 8, 634, 860), 868, 377},
        {"HazelW.A1.m1", ROI(20, 5, 1420, 1560), 0.1f, 0.1f, 0.05f, 0.05f, ROI(63, 5, 1407, 1555), 1560, 1500},
        {"HazelW.A1.m3", ROI(0, 0, 720, 785), 0.1f, 0.1f, 0.05f, 0.05f, ROI(65, 5, 710, 780), 785, 1500},
        {"CedarHi.A1.m1", ROI(0, 0, 960, 960), 0.1f, 0.1f, 0.05f, 0.05f, ROI(1, 0, 958, 960), 0, 0},
        {"Willow.A1.m10", ROI(0, 0, 448, 448), 0.1f, 0.1f, 0.05f, 0.05f, ROI(60, 3, 448, 448), 451, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.key);
        const DMFlagParameters record = s_DMFlagZoomParametersSet.get(c.key, c.region);
        EXPECT_FLOAT_EQ(c.horizontal, record.HorizontalRatio);
        EXPECT_FLOAT_EQ(c.vertical, record.VerticalRatio);
        EXPECT_FLOAT_EQ(c.areaHorizontal, record.AreaHorizontalRatio);
        EXPECT_FLOAT_EQ(c.areaVertical, record.AreaVerticalRatio);
        EXPECT_FLOAT_EQ(c.areaHorizontal, record.RetestHorizontalRatio);
        EXPECT_FLOAT_EQ(c.areaVertical, record.RetestVerticalRatio);
        EXPECT_EQ(c.area, record.Area);
        EXPECT_EQ(c.drz2, record.DRZSecondColumn);
        EXPECT_EQ(c.splitRow, record.SplitRow);
        // The rest is copied from the row.
        const FlagZoom& row = s_DMFlagZoomParametersSet.lookup(c.key);
        EXPECT_EQ(Tests(row), Tests(record));
        EXPECT_EQ(Flags({row.SplitRows, row.SplitColumns}), Flags({record.SplitRows, record.SplitColumns}));
        EXPECT_FLOAT_EQ(0.125f, record.DRZRatio);
        EXPECT_EQ(row.DRZFirstColumn, record.DRZFirstColumn);
        EXPECT_EQ(row.DRZFirstCount, record.DRZFirstCount);
        EXPECT_EQ(row.DRZSecondCount, record.DRZSecondCount);
        EXPECT_EQ(row.SplitColumn, record.SplitColumn);
    }
}

TEST(DMFlagZoomParametersSet, GetLeavesTheStoredRowsAlone) {
    auto& set = s_DMFlagZoomParametersSet;
    const FlagZoom before = set.lookup("HazelW.*.m1");
    const DMFlagParameters first = set.get("HazelW.A1.m1", ROI(20, 5, 1420, 1560));
    const DMFlagParameters second = set.get("HazelW.A1.m1", ROI(0, 0, 1440, 1570));
    EXPECT_NE(first.Area, second.Area);
    EXPECT_EQ(ROI(70, 10, 1420, 1560), second.Area);
    EXPECT_EQ(1570, second.DRZSecondColumn);
    EXPECT_EQ(first.Area, set.get("HazelW.A1.m1", ROI(20, 5, 1420, 1560)).Area);
    const FlagZoom& after = set.lookup("HazelW.*.m1");
    EXPECT_EQ(RegionOf(before), RegionOf(after));
    EXPECT_EQ(Text(before.Area), Text(after.Area));
}

// Runs last: the flag zoom set has no default row and gains one here.
TEST(ParameterSetsFallThrough, UnknownModelsGetTheDefaultRow) {
    const GainLinearParameters& gain = s_gainLinearParametersSet.lookup("Unknown.A1.m3");
    EXPECT_EQ(&s_gainLinearParametersSet.lookup(""), &gain);
    EXPECT_TRUE(gain.MeasureAreas.empty());
    ExpectClipAndFit(gain);
    EXPECT_EQ(77u, s_gainLinearParametersSet.GetBaseRows().size());

    const GainLinearParameters zoomed = s_gainLinearStandardZoomParametersSet.get("Maple.A1.m1", ROI(0, 0, 600, 700));
    EXPECT_EQ(0, zoomed.Height);
    EXPECT_EQ(0, zoomed.Width);
    EXPECT_TRUE(zoomed.MeasureAreas.empty());
    ExpectClipAndFit(zoomed);
    EXPECT_EQ(62u, s_gainLinearStandardZoomParametersSet.GetBaseRows().size());

    const DMFlagParameters& flag = s_DMFlagParametersSet.lookup("Unknown");
    EXPECT_EQ(&s_DMFlagParametersSet.lookup(""), &flag);
    EXPECT_EQ("0010", Tests(flag));
    EXPECT_EQ(ROI(0, 0, 0, 0), flag.Area);
    EXPECT_EQ(77u, s_DMFlagParametersSet.GetBaseRows().size());

    auto& zoomSet = s_DMFlagZoomParametersSet;
    EXPECT_EQ(0u, zoomSet.GetBaseRows().count(""));
    const size_t before = zoomSet.GetBaseRows().size();
    const DMFlagParameters none = zoomSet.get("Birch.A1.m1", ROI(10, 20, 600, 700));
    EXPECT_EQ(before + 1, zoomSet.GetBaseRows().size());
    EXPECT_EQ(1u, zoomSet.GetBaseRows().count(""));
    EXPECT_FLOAT_EQ(0.0f, none.HorizontalRatio);
    EXPECT_FLOAT_EQ(0.0f, none.VerticalRatio);
    EXPECT_FLOAT_EQ(0.0f, none.AreaHorizontalRatio);
    EXPECT_FLOAT_EQ(0.0f, none.RetestVerticalRatio);
    EXPECT_EQ(ROI(0, 0, 0, 0), none.Area);
    EXPECT_EQ(0, none.DRZSecondColumn);
    EXPECT_EQ(0, none.SplitRow);
}
