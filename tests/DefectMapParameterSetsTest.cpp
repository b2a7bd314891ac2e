#include "parameters/AutomaticDefectParametersSet.h"
#include "parameters/DefectMapDarkParametersSet.h"
#include "parameters/DefectMapDarkZoomParametersSet.h"
#include "parameters/DefectMapGainParametersSet.h"
#include "parameters/DefectMapParametersSet.h"
#include "parameters/DefectMapUntypicalParametersSet.h"
#include "parameters/DefectMapZoomParametersSet.h"
#include "parameters/FormulaCalculator.h"
#include "parameters/ROIFormula.h"

#include <boost/variant/get.hpp>
#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <set>
#include <string>
#include <vector>

// The defect-map tables written out independently of the sets' constructors: each group
// of keys with equal values is one line, and every key of every group is checked.

namespace {

using Keys = std::vector<std::string>;

// "<model>.*.m<n>" for each mode, in the order given.
Keys Modes(const std::string& model, std::initializer_list<int> modes) {
    Keys keys;
    for (int mode : modes) keys.push_back(model + ".*.m" + std::to_string(mode));
    return keys;
}

Keys Join(Keys first, const Keys& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// The key a detector presents for a stored key: a concrete middle component in place of
// '*', or an unknown mode behind a model key (or behind an unknown model for "").
std::string Concrete(const std::string& key) {
    if (key.empty()) return "Oak.A1.m99";
    const std::string::size_type star = key.find(".*.");
    if (star == std::string::npos) return key + ".A1.m99";
    return key.substr(0, star) + ".A1" + key.substr(star + 2);
}

// The stored keys are exactly those of the table, and there are `count` of them.
template <typename Set, typename Row>
void ExpectExactlyTheseKeys(const Set& set, const std::vector<Row>& table, std::size_t count) {
    std::set<std::string> keys;
    std::size_t listed = 0;
    for (const Row& row : table) {
        for (const std::string& key : row.keys) {
            ++listed;
            keys.insert(key);
            EXPECT_EQ(1u, set.GetBaseRows().count(key)) << "missing row " << key;
        }
    }
    EXPECT_EQ(count, listed);
    EXPECT_EQ(count, keys.size());
    EXPECT_EQ(count, set.GetBaseRows().size());
}

// Every key of the table, exact and through a concrete key, against its row.
template <typename Set, typename Row, typename Check>
void WalkTable(Set& set, const std::vector<Row>& table, Check check) {
    for (const Row& row : table) {
        for (const std::string& key : row.keys) {
            {
                SCOPED_TRACE(key);
                check(set.lookup(key), row);
            }
            const std::string concrete = Concrete(key);
            SCOPED_TRACE(concrete);
            check(set.lookup(concrete), row);
        }
    }
}

// ---- dose map ---------------------------------------------------------------------------

struct DoseScalars {
    float clipMax, clipMin;
    int spareLevel, logScale, gfaMin, gfaMax, excludeSigmas, gfaSigmas;
    float gfaTolerance;
    int quantLevels;
};
const DoseScalars kDoseShared{65135.0f, -400.0f, 3000, 1000, 100, 1500, 6, 3, 0.05f, 65536};
const DoseScalars kDoseBirch{16283.0f, -100.0f, 3000, 1000, 100, 1500, 5, 3, 0.05f, 16384};

// For DefectMapParameters and DefectMapZoomParameters alike.
template <typename R>
void ExpectDoseScalars(const R& p, const DoseScalars& e) {
    EXPECT_FLOAT_EQ(e.clipMax, p.ClipMax);
    EXPECT_FLOAT_EQ(e.clipMin, p.ClipMin);
    EXPECT_EQ(e.spareLevel, p.SpareLevel);
    EXPECT_EQ(e.logScale, p.LogScale);
    EXPECT_EQ(e.gfaMin, p.GfaMin);
    EXPECT_EQ(e.gfaMax, p.GfaMax);
    EXPECT_EQ(e.excludeSigmas, p.ExcludeSigmas);
    EXPECT_EQ(e.gfaSigmas, p.GfaSigmas);
    EXPECT_FLOAT_EQ(e.gfaTolerance, p.GfaTolerance);
    EXPECT_EQ(e.quantLevels, p.QuantLevels);
}

struct DoseRow {
    Keys keys;
    int x0, y0, width, height, median;
};

const std::vector<DoseRow> kDoseTable = {
    {{""}, 0, 0, 0, 0, 0},
    {{"Birch"}, 60, 60, 3001, 3001, 61},
    {{"Cedar"}, 20, 3, 2840, 2873, 61},
    {{"Maple", "MapleK"}, 0, 0, 3000, 2400, 61},
    {{"MapleQ"}, 50, 30, 2300, 2820, 61},
    {{"MapleQa", "MapleQb"}, 25, 7, 2350, 2866, 61},
    {{"Rowan"}, 0, 20, 1920, 1520, 61},
    {{"LarchA", "LarchB"}, 30, 2, 2775, 2875, 61},
    {{"CedarTa", "CedarTb"}, 11, 2, 2869, 2875, 61},
    {Modes("Hazel", {1, 2, 6, 8}), 120, 70, 1560, 1420, 61},
    {Modes("Hazel", {3, 4, 5, 7, 9}), 60, 65, 780, 710, 31},
    {Modes("HazelW", {1, 2, 6, 8}), 0, 60, 1570, 1440, 61},
    {Modes("HazelW", {3, 4, 5, 7}), 0, 60, 785, 720, 31},
    {Modes("Aspen", {1, 2, 3, 4, 11, 12}), 30, 68, 2580, 1904, 61},
    {Modes("Aspen", {5, 6, 7, 8, 13, 14}), 15, 64, 1290, 952, 31},
    {Modes("Aspen", {9, 10, 15, 16}), 10, 63, 860, 634, 21},
    {Modes("CedarHi", {1, 2, 5}), 0, 0, 2880, 2880, 61},
    {Modes("CedarHi", {3, 4, 6, 9}), 0, 0, 1440, 1440, 31},
    {Modes("CedarHi", {7, 8, 10, 11}), 0, 0, 960, 960, 21},
    {Modes("Willow", {1, 2, 4, 8}), 12, 60, 1344, 1344, 61},
    {Modes("Willow", {3, 5, 9, 11}), 6, 60, 672, 672, 31},
    {Modes("Willow", {10}), 4, 60, 448, 448, 31},
    {Modes("Willow", {12}), 3, 60, 336, 336, 31},
};

void ExpectDoseRecord(const DefectMapParameters& p, int x0, int y0, int width, int height, int median) {
    EXPECT_EQ(x0, p.X0);
    EXPECT_EQ(y0, p.Y0);
    EXPECT_EQ(width, p.Width);
    EXPECT_EQ(height, p.Height);
    if (median >= 0) {
        EXPECT_EQ(median, p.MedianWidth);
        EXPECT_EQ(median, p.MedianHeight);
    }
}

void ExpectDoseRow(const DefectMapParameters& p, const DoseRow& e) {
    ExpectDoseRecord(p, e.x0, e.y0, e.width, e.height, e.median);
    ExpectDoseScalars(p, e.keys.front() == "Birch" ? kDoseBirch : kDoseShared);
}

// ---- dose map, zoomed -------------------------------------------------------------------

const int kNotSet = -1;  // a median window that the table leaves undefined

struct DoseZoomRow {
    Keys keys;
    std::string x0, y0, width, height;
    int median;
};

const std::vector<DoseZoomRow> kDoseZoomTable = {
    {{""}, "", "", "", "", kNotSet},
    {Modes("Hazel", {1, 2, 6, 8}), "120", "60+(((Height-1420)/2)$3)", "Width", "Height-((Height-1420)$6)", 61},
    {Modes("Hazel", {3, 4, 5, 7, 9}), "60", "60+(((Height-710)/2)$3)", "Width", "Height-((Height-710)$6)", 31},
    {Modes("HazelW", {1, 2, 6, 8}), "0", "60", "Width", "Height", 61},
    {Modes("HazelW", {3, 4, 5, 7}), "0", "60", "Width", "Height", 31},
    {Modes("Aspen", {1, 2, 3, 4, 11, 12, 17, 18}), "24", "60+(((Height/2)-952)$0)", "Width",
     "Height-2*(((Height/2)-952)$0)", 61},
    {Modes("Aspen", {5, 6, 7, 8, 13, 14, 19, 20}), "12", "60+(((Height/2)-476)$0)", "Width",
     "Height-2*(((Height/2)-476)$0)", 31},
    {Modes("Aspen", {9, 10, 15, 16, 21, 22}), "8", "60+(((Height/2)-317)$0)", "Width",
     "Height-2*(((Height/2)-317)$0)", 21},
    {Modes("CedarHi", {2, 5}), "0", "0", "Width", "Height", 61},
    {Modes("CedarHi", {4, 6, 9}), "0", "0", "Width", "Height", 31},
    {Modes("CedarHi", {8, 11}), "0", "0", "Width", "Height", 21},
    {Modes("Willow", {1, 2, 4, 8}), "12", "60", "Width", "Height", 61},
    {Modes("Willow", {3, 5, 9, 11}), "6", "60", "Width", "Height", 41},
    {Modes("Willow", {10}), "4", "60", "Width", "Height", 31},
    {Modes("Willow", {12}), "3", "60", "Width", "Height", 21},
};

void ExpectDoseZoomRow(const DefectMapZoomParameters& p, const DoseZoomRow& e) {
    EXPECT_EQ(e.x0, p.X0Formula);
    EXPECT_EQ(e.y0, p.Y0Formula);
    EXPECT_EQ(e.width, p.WidthFormula);
    EXPECT_EQ(e.height, p.HeightFormula);
    if (e.median != kNotSet) {
        EXPECT_EQ(e.median, p.MedianWidth);
        EXPECT_EQ(e.median, p.MedianHeight);
    }
    ExpectDoseScalars(p, kDoseShared);
}

// A get() and its result, computed by hand from the formulas.
struct DoseZoomCase {
    std::string key;
    int width, height;
    int x0, y0, resultWidth, resultHeight, median;
};

// ---- gain map ---------------------------------------------------------------------------

struct GainRow {
    Keys keys;
    int x0, y0, width, height, median;
};

const std::vector<GainRow> kGainTable = {
    {{""}, 0, 0, 0, 0, 21},
    {{"Cedar.*.m8"}, 7, 2, 946, 955, 21},
    {{"MapleQ.*.m8"}, 17, 10, 766, 940, 21},
    {{"MapleQa.*.m8", "MapleQb.*.m8"}, 9, 3, 782, 954, 21},
    {{"Rowan.*.m8"}, 0, 7, 640, 506, 21},
    {Modes("CedarHi", {1}), 0, 0, 2880, 2880, 21},
    {Modes("CedarHi", {7, 10}), 0, 0, 960, 960, 21},
    {Modes("CedarHi", {3}), 0, 0, 1440, 1440, 21},
    {Modes("CedarHi", {9}), 0, 0, 1400, 1440, 21},
    {Modes("CedarHi", {2, 5}), 0, 0, 2868, 2880, 21},
    {Modes("CedarHi", {4, 6}), 0, 0, 1428, 1440, 21},
    {Modes("CedarHi", {11}), 0, 0, 920, 960, 21},
    {Modes("CedarHi", {8}), 0, 0, 948, 960, 21},
    {Modes("Willow", {1, 2, 4, 8}), 60, 12, 1344, 1344, 61},
    {Modes("Willow", {3, 5, 9, 11}), 60, 6, 672, 672, 31},
    {Modes("Willow", {10}), 60, 4, 448, 448, 21},
    {Modes("Willow", {12}), 60, 3, 336, 336, 15},
};

void ExpectGainRow(const DefectMapGainParameters& p, const GainRow& e) {
    EXPECT_EQ(e.x0, p.X0);
    EXPECT_EQ(e.y0, p.Y0);
    EXPECT_EQ(e.width, p.Width);
    EXPECT_EQ(e.height, p.Height);
    EXPECT_EQ(e.median, p.MedianWidth);
    EXPECT_EQ(e.median, p.MedianHeight);
    EXPECT_FLOAT_EQ(0.25f, p.ClipMin);
    EXPECT_FLOAT_EQ(4.0f, p.ClipMax);
    EXPECT_FLOAT_EQ(0.53f, p.ThresholdMin);
    EXPECT_FLOAT_EQ(2.0f, p.ThresholdMax);
    EXPECT_EQ(65536, p.QuantLevels);
}

// ---- dark map ---------------------------------------------------------------------------

const float kDarkMin = 327.68f;   // 0.5 % of 65536
const float kDarkMax = 42598.4f;  // 65 % of 65536

// ROI fields in their own order: top, left, height, width.
struct AreaRow {
    Keys keys;
    ROI area;
};

const Keys kDarkModels = {"Hazel", "HazelW", "Aspen", "CedarHi", "Willow"};

const std::vector<AreaRow> kDarkTable = {
    {kDarkModels, ROI(0, 0, 0, 0)},
    {Join(Modes("Hazel", {1, 2, 6, 8}), Modes("HazelW", {1, 2, 6, 8})), ROI(60, 0, 1440, 1800)},
    {Join(Modes("Hazel", {3, 4, 5, 7, 9}), Modes("HazelW", {3, 4, 5, 7})), ROI(60, 0, 720, 900)},
    {Modes("Aspen", {1, 2, 3, 4, 11, 12}), ROI(60, 0, 1920, 2640)},
    {Modes("Aspen", {5, 6, 7, 8, 13, 14}), ROI(60, 0, 960, 1320)},
    {Modes("Aspen", {9, 10, 15, 16}), ROI(60, 0, 640, 880)},
    {Modes("CedarHi", {1}), ROI(0, 0, 2880, 2880)},
    {Modes("CedarHi", {7, 10}), ROI(0, 0, 960, 960)},
    {Modes("CedarHi", {3, 9}), ROI(0, 0, 1440, 1440)},
    {Modes("CedarHi", {2, 5}), ROI(0, 0, 2868, 2880)},
    {Modes("CedarHi", {4, 6}), ROI(0, 0, 1428, 1440)},
    {Modes("CedarHi", {11}), ROI(0, 0, 640, 640)},
    {Modes("CedarHi", {8}), ROI(0, 0, 948, 960)},
    {Modes("Willow", {1, 2, 4, 8}), ROI(60, 0, 1344, 1368)},
    {Modes("Willow", {3, 5, 9, 11}), ROI(60, 0, 672, 684)},
    {Modes("Willow", {10}), ROI(60, 0, 448, 456)},
    {Modes("Willow", {12}), ROI(60, 0, 336, 342)},
};

// Field by field, so that a failure names the field.
void ExpectArea(const ROI& expected, const ROI& area) {
    EXPECT_EQ(expected.top, area.top);
    EXPECT_EQ(expected.left, area.left);
    EXPECT_EQ(expected.height, area.height);
    EXPECT_EQ(expected.width, area.width);
}

void ExpectDarkRecord(const DefectMapDarkParameters& p, const ROI& area) {
    ExpectArea(area, p.Area);
    EXPECT_FLOAT_EQ(kDarkMin, p.ThresholdMin);
    EXPECT_FLOAT_EQ(kDarkMax, p.ThresholdMax);
}

// ---- dark map, zoomed -------------------------------------------------------------------

struct DarkZoomRow {
    Keys keys;
    std::string top, left, height, width;
};

const std::vector<DarkZoomRow> kDarkZoomTable = {
    {kDarkModels, "", "", "", ""},
    {Modes("Hazel", {1, 2, 6, 8}), "60", "0", "Height", "Width+240"},
    {Join(Modes("Hazel", {3, 4, 5, 7, 9}), Modes("HazelW", {1, 2, 6, 8})), "60", "0", "Height", "Width+120"},
    {Modes("HazelW", {3, 4, 5, 7}), "60", "0", "Height", "Width+60"},
    {Modes("Aspen", {1, 2, 3, 4, 11, 12, 17, 18}), "60", "0", "Height", "Width+48"},
    {Join(Modes("Aspen", {5, 6, 7, 8, 13, 14, 19, 20}), Modes("Willow", {1, 2, 4, 8})), "60", "0", "Height",
     "Width+24"},
    {Modes("Aspen", {9, 10, 15, 16, 21, 22}), "60", "0", "Height", "Width+16"},
    {Modes("CedarHi", {9, 2, 4, 5, 6, 8, 11}), "0", "0", "Height", "Width"},
    {Modes("Willow", {3, 5, 9, 11}), "60", "0", "Height", "Width+12"},
    {Modes("Willow", {10}), "60", "0", "Height", "Width+8"},
    {Modes("Willow", {12}), "60", "0", "Height", "Width+6"},
};

void ExpectDarkZoomRow(const DefectMapDarkZoomParameters& p, const DarkZoomRow& e) {
    EXPECT_EQ(e.top, p.Area.top);
    EXPECT_EQ(e.left, p.Area.left);
    EXPECT_EQ(e.height, p.Area.height);
    EXPECT_EQ(e.width, p.Area.width);
    EXPECT_FLOAT_EQ(kDarkMin, p.ThresholdMin);
    EXPECT_FLOAT_EQ(kDarkMax, p.ThresholdMax);
}

struct DarkZoomCase {
    std::string key;
    int width, height;
    ROI area;
};

// ---- untypical and automatic maps -------------------------------------------------------

const std::vector<AreaRow> kUntypicalTable = {
    {{"LarchB", "LarchA"}, ROI(2, 30, 2875, 2775)},
    {{"CedarTa", "CedarTb"}, ROI(2, 11, 2875, 2869)},
};

struct AutomaticRow {
    Keys keys;
    ROI area;
    int thresholdHigh, thresholdLow, minHits;
};

const std::vector<AutomaticRow> kAutomaticTable = {
    {{"Birch"}, ROI(60, 60, 3001, 3001), 1000, -1000, 5},
    {{"Cedar"}, ROI(0, 0, 2880, 2880), 4000, -4000, 2},
};

// The zoom records expose exactly "Height" then "Width", bound to those int32 members.
template <typename R>
void ExpectSizeVariables() {
    using IntMember = std::int32_t R::*;
    const auto& variables = parameter_func<R>::instance().variables();
    ASSERT_EQ(2u, variables.size());
    EXPECT_EQ("Height", variables[0].name);
    EXPECT_EQ("Width", variables[1].name);
    const IntMember* height = boost::get<IntMember>(&variables[0].member);
    const IntMember* width = boost::get<IntMember>(&variables[1].member);
    ASSERT_NE(nullptr, height);
    ASSERT_NE(nullptr, width);
    EXPECT_TRUE(*height == &R::Height);
    EXPECT_TRUE(*width == &R::Width);

    R record{};
    record.Height = 1234;
    record.Width = 567;
    EXPECT_FLOAT_EQ(1234.0f, evaluate_formula(std::string("Height"), record));
    EXPECT_FLOAT_EQ(567.0f, evaluate_formula(std::string("Width"), record));
}

}  // namespace

// Row counts are checked first in each TEST, before any lookup could add a row.

TEST(DefectMapParameterSets, DoseTable) {
    ExpectExactlyTheseKeys(s_defectMapParametersSet, kDoseTable, 67u);
    WalkTable(s_defectMapParametersSet, kDoseTable, ExpectDoseRow);

    // Unknown models and modes end at the default row; the set has no model rows for
    // the moded families, so an unknown mode of Hazel gets it too.
    const DefectMapParameters* defaults = &s_defectMapParametersSet.lookup("");
    for (const char* key : {"Oak", "Hazel", "Hazel.A12.m99", "Aspen.A1.m17", "CedarHi.A1.m12", "Oak.A1"}) {
        EXPECT_EQ(defaults, &s_defectMapParametersSet.lookup(key)) << key;
    }
    EXPECT_EQ(67u, s_defectMapParametersSet.GetBaseRows().size());
}

TEST(DefectMapParameterSets, DoseZoomTable) {
    ExpectExactlyTheseKeys(s_defectMapZoomParametersSet, kDoseZoomTable, 57u);
    WalkTable(s_defectMapZoomParametersSet, kDoseZoomTable, ExpectDoseZoomRow);

    const DefectMapZoomParameters* defaults = &s_defectMapZoomParametersSet.lookup("");
    for (const char* key : {"Oak", "Birch", "Aspen.A1.m23", "CedarHi.A1.m1", "CedarHi.A1.m3", "Willow.A1.m6"}) {
        EXPECT_EQ(defaults, &s_defectMapZoomParametersSet.lookup(key)) << key;
    }
    EXPECT_EQ(57u, s_defectMapZoomParametersSet.GetBaseRows().size());
}

TEST(DefectMapParameterSets, DoseZoomGet) {
    const std::vector<DoseZoomCase> cases = {
        {"Hazel.*.m1", 1560, 1440, 120, 70, 1560, 1420, 61},    // the row of the whole-frame table
        {"Hazel.*.m1", 1560, 1000, 120, 63, 1560, 994, 61},     // at least 3 rows kept out at each end
        {"Hazel.B7.m6", 1560, 1447, 120, 73, 1560, 1420, 61},   // 73.5 truncated
        {"Hazel.*.m3", 780, 720, 60, 65, 780, 710, 31},
        {"Hazel.*.m9", 800, 711, 60, 63, 800, 705, 31},
        {"HazelW.*.m5", 785, 720, 0, 60, 785, 720, 31},
        {"Aspen.*.m1", 2580, 1920, 24, 68, 2580, 1904, 61},
        {"Aspen.*.m1", 2580, 1904, 24, 60, 2580, 1904, 61},
        {"Aspen.*.m12", 1000, 1000, 24, 60, 1000, 1000, 61},
        {"Aspen.A1.m17", 2580, 1921, 24, 68, 2580, 1904, 61},   // 68.5 truncated, 1921 - 17
        {"Aspen.*.m5", 1290, 961, 12, 64, 1290, 952, 31},
        {"Aspen.*.m21", 860, 640, 8, 63, 860, 634, 21},
        {"CedarHi.*.m2", 2880, 2880, 0, 0, 2880, 2880, 61},
        {"CedarHi.*.m11", 960, 900, 0, 0, 960, 900, 21},
        {"Willow.*.m1", 70000, 1344, 12, 60, 70000, 1344, 61},  // integers, not 16-bit fields
        {"Willow.*.m3", 672, 672, 6, 60, 672, 672, 41},
        {"Willow.*.m10", 448, 500, 4, 60, 448, 500, 31},
        {"Willow.*.m12", 336, 336, 3, 60, 336, 336, 21},
        {"Oak.A1.m1", 1000, 800, 0, 0, 0, 0, kNotSet},           // the default row: an empty area
        {"CedarHi.A1.m1", 2880, 2880, 0, 0, 0, 0, kNotSet},
    };
    for (const DoseZoomCase& c : cases) {
        SCOPED_TRACE(c.key + " " + std::to_string(c.width) + "x" + std::to_string(c.height));
        const DefectMapParameters p = s_defectMapZoomParametersSet.get(c.key, c.width, c.height);
        ExpectDoseRecord(p, c.x0, c.y0, c.resultWidth, c.resultHeight, c.median);
        ExpectDoseScalars(p, kDoseShared);
    }

    // At the native size the result is the whole-frame row, field for field.
    ExpectDoseRow(s_defectMapZoomParametersSet.get("Hazel.*.m1", 1560, 1440), kDoseTable[9]);
    EXPECT_EQ(57u, s_defectMapZoomParametersSet.GetBaseRows().size());
}

TEST(DefectMapParameterSets, DoseZoomGetLeavesTheStoredRowAlone) {
    const DefectMapZoomParameters before = s_defectMapZoomParametersSet.lookup("Aspen.*.m1");
    const DefectMapParameters tall = s_defectMapZoomParametersSet.get("Aspen.*.m1", 2580, 1920);
    const DefectMapParameters flat = s_defectMapZoomParametersSet.get("Aspen.*.m1", 1290, 1000);
    ExpectDoseRecord(tall, 24, 68, 2580, 1904, 61);
    ExpectDoseRecord(flat, 24, 60, 1290, 1000, 61);

    const DefectMapZoomParameters& after = s_defectMapZoomParametersSet.lookup("Aspen.*.m1");
    EXPECT_EQ(before.Height, after.Height);
    EXPECT_EQ(before.Width, after.Width);
    ExpectDoseZoomRow(after, kDoseZoomTable[5]);
}

TEST(DefectMapParameterSets, GainTable) {
    ExpectExactlyTheseKeys(s_defectMapGainParametersSet, kGainTable, 27u);
    WalkTable(s_defectMapGainParametersSet, kGainTable, ExpectGainRow);

    const DefectMapGainParameters* defaults = &s_defectMapGainParametersSet.lookup("");
    for (const char* key : {"Oak", "Cedar", "Cedar.A1.m1", "MapleQ.A1.m3", "Willow.A1.m6", "CedarHi.A1.m12"}) {
        EXPECT_EQ(defaults, &s_defectMapGainParametersSet.lookup(key)) << key;
    }
    EXPECT_EQ(27u, s_defectMapGainParametersSet.GetBaseRows().size());
}

TEST(DefectMapParameterSets, DarkTable) {
    ExpectExactlyTheseKeys(s_DefectMapDarkParametersSet, kDarkTable, 59u);
    WalkTable(s_DefectMapDarkParametersSet, kDarkTable,
              [](const DefectMapDarkParameters& p, const AreaRow& e) { ExpectDarkRecord(p, e.area); });

    // Unknown modes of a known model end at the model row.
    for (const std::string& model : kDarkModels) {
        EXPECT_EQ(&s_DefectMapDarkParametersSet.lookup(model),
                  &s_DefectMapDarkParametersSet.lookup(model + ".A1.m42"))
            << model;
    }
    EXPECT_EQ(59u, s_DefectMapDarkParametersSet.GetBaseRows().size());
}

TEST(DefectMapParameterSets, DarkZoomTable) {
    ExpectExactlyTheseKeys(s_defectMapDarkZoomParametersSet, kDarkZoomTable, 61u);
    WalkTable(s_defectMapDarkZoomParametersSet, kDarkZoomTable, ExpectDarkZoomRow);

    EXPECT_EQ(&s_defectMapDarkZoomParametersSet.lookup("CedarHi"),
              &s_defectMapDarkZoomParametersSet.lookup("CedarHi.A1.m1"));
    EXPECT_EQ(&s_defectMapDarkZoomParametersSet.lookup("Aspen"),
              &s_defectMapDarkZoomParametersSet.lookup("Aspen.A1.m23"));
    EXPECT_EQ(61u, s_defectMapDarkZoomParametersSet.GetBaseRows().size());
}

TEST(DefectMapParameterSets, DarkZoomGet) {
    const std::vector<DarkZoomCase> cases = {
        {"Hazel.*.m1", 1560, 1440, ROI(60, 0, 1440, 1800)},  // the row of the whole-frame table
        {"Hazel.*.m3", 780, 720, ROI(60, 0, 720, 900)},
        {"HazelW.*.m8", 1680, 1440, ROI(60, 0, 1440, 1800)},
        {"HazelW.*.m3", 840, 720, ROI(60, 0, 720, 900)},
        {"Aspen.*.m1", 2592, 1920, ROI(60, 0, 1920, 2640)},
        {"Aspen.A1.m19", 1296, 960, ROI(60, 0, 960, 1320)},
        {"Aspen.*.m21", 864, 640, ROI(60, 0, 640, 880)},
        {"Willow.*.m1", 1344, 1344, ROI(60, 0, 1344, 1368)},
        {"Willow.*.m11", 672, 672, ROI(60, 0, 672, 684)},
        {"Willow.*.m10", 448, 448, ROI(60, 0, 448, 456)},
        {"Willow.*.m12", 336, 336, ROI(60, 0, 336, 342)},
        {"CedarHi.*.m9", 1440, 1440, ROI(0, 0, 1440, 1440)},
        {"CedarHi.*.m8", 948, 960, ROI(0, 0, 960, 948)},
        {"Hazel.*.m1", 65500, 1000, ROI(60, 0, 1000, 204)},  // 65740 keeps its low 16 bits
        {"Hazel", 1560, 1440, ROI(0, 0, 0, 0)},               // model rows: an empty area
        {"CedarHi.A1.m1", 2880, 2880, ROI(0, 0, 0, 0)},
    };
    for (const DarkZoomCase& c : cases) {
        SCOPED_TRACE(c.key + " " + std::to_string(c.width) + "x" + std::to_string(c.height));
        ExpectDarkRecord(s_defectMapDarkZoomParametersSet.get(c.key, c.width, c.height), c.area);
    }

    // Two sizes give two records; the stored row keeps its formulas and variables.
    const DefectMapDarkZoomParameters before = s_defectMapDarkZoomParametersSet.lookup("Aspen.*.m5");
    const DefectMapDarkParameters small = s_defectMapDarkZoomParametersSet.get("Aspen.*.m5", 600, 500);
    const DefectMapDarkParameters large = s_defectMapDarkZoomParametersSet.get("Aspen.*.m5", 1296, 960);
    ExpectArea(ROI(60, 0, 500, 624), small.Area);
    ExpectArea(ROI(60, 0, 960, 1320), large.Area);
    const DefectMapDarkZoomParameters& after = s_defectMapDarkZoomParametersSet.lookup("Aspen.*.m5");
    EXPECT_EQ(before.Height, after.Height);
    EXPECT_EQ(before.Width, after.Width);
    ExpectDarkZoomRow(after, kDarkZoomTable[5]);
    EXPECT_EQ(61u, s_defectMapDarkZoomParametersSet.GetBaseRows().size());
}

TEST(DefectMapParameterSets, ZoomRecordsRegisterHeightThenWidth) {
    ExpectSizeVariables<DefectMapZoomParameters>();
    ExpectSizeVariables<DefectMapDarkZoomParameters>();
}

TEST(DefectMapParameterSets, UntypicalTable) {
    ExpectExactlyTheseKeys(s_DefectMapUntypicalParametersSet, kUntypicalTable, 4u);
    WalkTable(s_DefectMapUntypicalParametersSet, kUntypicalTable,
              [](const DefectMapUntypicalParameters& p, const AreaRow& e) {
                  ExpectArea(e.area, p.Area);
                  EXPECT_EQ(11, p.MedianWidth);
                  EXPECT_EQ(11, p.MedianHeight);
                  EXPECT_EQ(65536, p.QuantLevels);
                  EXPECT_EQ(3, p.GfaSigmas);
                  EXPECT_FLOAT_EQ(0.05f, p.GfaTolerance);
                  EXPECT_EQ(10, p.ExcludeSigmas);
              });
    EXPECT_EQ(4u, s_DefectMapUntypicalParametersSet.GetBaseRows().size());
}

TEST(DefectMapParameterSets, AutomaticTable) {
    ExpectExactlyTheseKeys(s_automaticDefectParametersSet, kAutomaticTable, 2u);
    WalkTable(s_automaticDefectParametersSet, kAutomaticTable,
              [](const AutomaticDefectParameters& p, const AutomaticRow& e) {
                  ExpectArea(e.area, p.Area);
                  EXPECT_EQ(7, p.WindowSize);
                  EXPECT_EQ(49, p.WindowPixels);
                  EXPECT_EQ(e.thresholdHigh, p.ThresholdHigh);
                  EXPECT_EQ(e.thresholdLow, p.ThresholdLow);
                  EXPECT_EQ(e.minHits, p.MinHits);
              });
    EXPECT_EQ(2u, s_automaticDefectParametersSet.GetBaseRows().size());
}

// Last, in a suite of its own: these lookups add a row to the sets without a default row.
TEST(DefectMapParameterSetsFallThrough, SetsWithoutDefaultRowGainAnAllZeroOne) {
    ASSERT_EQ(0u, s_DefectMapDarkParametersSet.GetBaseRows().count(""));
    const DefectMapDarkParameters& dark = s_DefectMapDarkParametersSet.lookup("Oak.A1.m1");
    ExpectArea(ROI(0, 0, 0, 0), dark.Area);
    EXPECT_EQ(0.0f, dark.ThresholdMin);
    EXPECT_EQ(0.0f, dark.ThresholdMax);
    EXPECT_EQ(60u, s_DefectMapDarkParametersSet.GetBaseRows().size());
    EXPECT_EQ(&dark, &s_DefectMapDarkParametersSet.lookup("Birch"));
    EXPECT_EQ(60u, s_DefectMapDarkParametersSet.GetBaseRows().size());

    ASSERT_EQ(0u, s_defectMapDarkZoomParametersSet.GetBaseRows().count(""));
    const DefectMapDarkParameters darkZoomed = s_defectMapDarkZoomParametersSet.get("Oak", 1000, 800);
    ExpectArea(ROI(0, 0, 0, 0), darkZoomed.Area);
    EXPECT_EQ(0.0f, darkZoomed.ThresholdMin);
    EXPECT_EQ(0.0f, darkZoomed.ThresholdMax);
    const DefectMapDarkZoomParameters& darkZoomRow = s_defectMapDarkZoomParametersSet.lookup("");
    EXPECT_TRUE(darkZoomRow.Area.top.empty() && darkZoomRow.Area.left.empty());
    EXPECT_TRUE(darkZoomRow.Area.height.empty() && darkZoomRow.Area.width.empty());
    EXPECT_EQ(62u, s_defectMapDarkZoomParametersSet.GetBaseRows().size());

    ASSERT_EQ(0u, s_DefectMapUntypicalParametersSet.GetBaseRows().count(""));
    const DefectMapUntypicalParameters& untypical = s_DefectMapUntypicalParametersSet.lookup("Birch");
    ExpectArea(ROI(0, 0, 0, 0), untypical.Area);
    EXPECT_TRUE(untypical.MedianWidth == 0 && untypical.MedianHeight == 0 && untypical.QuantLevels == 0);
    EXPECT_TRUE(untypical.GfaSigmas == 0 && untypical.GfaTolerance == 0.0f && untypical.ExcludeSigmas == 0);
    EXPECT_EQ(5u, s_DefectMapUntypicalParametersSet.GetBaseRows().size());

    ASSERT_EQ(0u, s_automaticDefectParametersSet.GetBaseRows().count(""));
    const AutomaticDefectParameters& automatic = s_automaticDefectParametersSet.lookup("Hazel.A1.m3");
    ExpectArea(ROI(0, 0, 0, 0), automatic.Area);
    EXPECT_TRUE(automatic.WindowSize == 0 && automatic.WindowPixels == 0 && automatic.MinHits == 0);
    EXPECT_TRUE(automatic.ThresholdHigh == 0 && automatic.ThresholdLow == 0);
    EXPECT_EQ(3u, s_automaticDefectParametersSet.GetBaseRows().size());
    // The known rows still answer, the new row answers every other model.
    EXPECT_EQ(7, s_automaticDefectParametersSet.lookup("Birch.x.m1").WindowSize);
    EXPECT_EQ(&automatic, &s_automaticDefectParametersSet.lookup("Oak"));
}
