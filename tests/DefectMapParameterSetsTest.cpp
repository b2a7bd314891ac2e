#include "TestImages.h"

#include "parameters/AutomaticDefectParametersSet.h"
#include "parameters/DefectMapDarkParametersSet.h"
#include "parameters/DefectMapDarkZoomParametersSet.h"
#include "parameters/DefectMapGainParametersSet.h"
#include "parameters/DefectMapParametersSet.h"
#include "parameters/DefectMapUntypicalParametersSet.h"
#include "parameters/DefectMapZoomParametersSet.h"

#include <gtest/gtest.h>

// Invariants of the defect-map tables, plus spot rows where a slip is likely.

namespace {

using Ints = std::vector<int>;
using Floats = std::vector<float>;

// Stored rows other than "", which a lookup that falls through may add.
template <typename Set>
int KeyedRows(const Set& set) { return int(set.GetBaseRows().size() - set.GetBaseRows().count("")); }

template <typename R>
Ints Scalars(const R& p) {
    return {int(p.ClipMax), int(p.ClipMin), p.SpareLevel, p.LogScale, p.GfaMin, p.GfaMax, p.ExcludeSigmas,
            p.GfaSigmas, int(p.GfaTolerance * 100), p.QuantLevels};
}
const Ints kSharedScalars{65135, -400, 3000, 1000, 100, 1500, 6, 3, 5, 65536};

template <typename R>
Ints Box(const R& p) { return {p.X0, p.Y0, p.Width, p.Height, p.MedianWidth, p.MedianHeight}; }

bool StartsWith(const std::string& key, const char* model) { return key.rfind(model, 0) == 0; }

// The readout of a mode: its dark area, the lines at full length, or null.
const ROI* Readout(const std::string& key) {
    const auto& rows = s_DefectMapDarkParametersSet.GetBaseRows();
    const auto it = rows.find(key);
    return it == rows.end() || it->second.Area.width == 0 ? nullptr : &it->second.Area;
}

}  // namespace

// Sets without a default row gain an all-zero one on a lookup that falls through, in
// whatever order the tests run.
TEST(DefectMapParameterSets, RowCountsAndUnknownKeys) {
    EXPECT_EQ(Ints({66, 56, 26, 59, 61, 4, 2}),
              Ints({KeyedRows(s_defectMapParametersSet), KeyedRows(s_defectMapZoomParametersSet),
                    KeyedRows(s_defectMapGainParametersSet), KeyedRows(s_DefectMapDarkParametersSet),
                    KeyedRows(s_defectMapDarkZoomParametersSet), KeyedRows(s_DefectMapUntypicalParametersSet),
                    KeyedRows(s_automaticDefectParametersSet)}));
    // No model rows for the moded families: an unknown mode ends at the empty default row.
    for (const char* key : {"Oak", "Hazel.A12.m99", "Aspen.A1.m17", "CedarHi.A1.m12"}) {
        EXPECT_EQ(&s_defectMapParametersSet.lookup(""), &s_defectMapParametersSet.lookup(key)) << key;
    }
    EXPECT_EQ(Ints({0, 0, 0, 0, 0, 0}), Box(s_defectMapParametersSet.lookup("Oak")));
    const Ints zoomed = Box(s_defectMapZoomParametersSet.get("CedarHi.A1.m1", 2880, 2880));
    EXPECT_EQ(Ints({0, 0, 0, 0}), Ints(zoomed.begin(), zoomed.begin() + 4));
    EXPECT_EQ(Ints({0, 0, 0, 0, 21, 21}), Box(s_defectMapGainParametersSet.lookup("Cedar.A1.m1")));
    EXPECT_EQ(ROI(0, 0, 0, 0), s_defectMapDarkZoomParametersSet.get("Oak", 1000, 800).Area);
    EXPECT_EQ(Ints({0, 0, 0, 7}), Ints({int(s_DefectMapDarkParametersSet.lookup("Oak.A1.m1").ThresholdMax),
                                        s_DefectMapUntypicalParametersSet.lookup("Birch").MedianWidth,
                                        s_automaticDefectParametersSet.lookup("Hazel.A1.m3").WindowSize,
                                        s_automaticDefectParametersSet.lookup("Birch.x.m1").WindowSize}));
}

TEST(DefectMapParameterSets, SharedValuesAndSpotRows) {
    for (const auto& [key, p] : s_defectMapParametersSet.GetBaseRows()) {
        if (key != "Birch") { EXPECT_EQ(kSharedScalars, Scalars(p)) << key; }
    }
    EXPECT_EQ(Ints({16283, -100, 3000, 1000, 100, 1500, 5, 3, 5, 16384}), Scalars(s_defectMapParametersSet.lookup("Birch")));
    EXPECT_EQ(Ints({25, 7, 2350, 2866, 61, 61}), Box(s_defectMapParametersSet.lookup("MapleQb.x.m8")));
    for (const auto& [key, p] : s_defectMapZoomParametersSet.GetBaseRows()) EXPECT_EQ(kSharedScalars, Scalars(p)) << key;
    for (const auto& [key, p] : s_defectMapGainParametersSet.GetBaseRows()) {
        EXPECT_EQ(Floats({0.25f, 4, 0.53f, 2, 65536, 0}), Floats({p.ClipMin, p.ClipMax, p.ThresholdMin, p.ThresholdMax,
                                                                  float(p.QuantLevels), float(p.MedianWidth - p.MedianHeight)})) << key;
    }
    // Gain rows whose position, size or window differs from their neighbours'.
    EXPECT_EQ(Ints({60, 3, 336, 336, 15, 15}), Box(s_defectMapGainParametersSet.lookup("Willow.A1.m12")));
    EXPECT_EQ(Ints({0, 0, 1400, 1440, 21, 21}), Box(s_defectMapGainParametersSet.lookup("CedarHi.*.m9")));
    EXPECT_EQ(Ints({7, 2, 946, 955, 21, 21}), Box(s_defectMapGainParametersSet.lookup("Cedar.*.m8")));
    for (const auto& [key, p] : s_DefectMapDarkParametersSet.GetBaseRows()) {
        if (!key.empty()) { EXPECT_EQ(Floats({327.68f, 42598.4f}), Floats({p.ThresholdMin, p.ThresholdMax})) << key; }
    }
    EXPECT_EQ(ROI(0, 0, 640, 640), s_DefectMapDarkParametersSet.lookup("CedarHi.A1.m11").Area);
    for (const auto& [key, p] : s_DefectMapUntypicalParametersSet.GetBaseRows()) {
        if (!key.empty()) { EXPECT_EQ(Ints({11, 11, 65536, 3, 10}), Ints({p.MedianWidth, p.MedianHeight, p.QuantLevels, p.GfaSigmas, p.ExcludeSigmas})) << key; }
    }
    EXPECT_EQ(ROI(2, 30, 2875, 2775), s_DefectMapUntypicalParametersSet.lookup("LarchB").Area);
    const AutomaticDefectParameters& cedar = s_automaticDefectParametersSet.lookup("Cedar.A1.m8");
    EXPECT_EQ(ROI(0, 0, 2880, 2880), cedar.Area);
    EXPECT_EQ(Ints({7, 49, 4000, -4000, 2}), Ints({cedar.WindowSize, cedar.WindowPixels, cedar.ThresholdHigh, cedar.ThresholdLow, cedar.MinHits}));
}

// At the readout size a zoom row gives the row of the whole-frame table, but where
// the tables differ on purpose: Aspen's left edge, Willow's median windows.
TEST(DefectMapParameterSets, DoseZoomAtTheReadoutSizeGivesThePlainRow) {
    int checked = 0;
    for (const auto& [key, zoom] : s_defectMapZoomParametersSet.GetBaseRows()) {
        const auto plainRow = s_defectMapParametersSet.GetBaseRows().find(key);
        if (key.empty() || plainRow == s_defectMapParametersSet.GetBaseRows().end()) continue;
        SCOPED_TRACE(key);
        ++checked;
        Ints plain = Box(plainRow->second);
        const ROI* readout = StartsWith(key, "CedarHi") ? nullptr : Readout(key);
        const int height = readout ? readout->height : plain[3];
        const DefectMapParameters p = s_defectMapZoomParametersSet.get(key, plain[2], height);
        if (StartsWith(key, "Aspen")) plain[0] = p.X0;
        if (StartsWith(key, "Willow") && plain[4] == 31 && key != "Willow.*.m10") plain[4] = plain[5] = p.MedianWidth;
        EXPECT_EQ(plain, Box(p));
        EXPECT_EQ(kSharedScalars, Scalars(p));
    }
    EXPECT_EQ(9 + 8 + 16 + 7 + 10, checked);
    EXPECT_EQ(31, s_defectMapParametersSet.lookup("Willow.A1.m12").MedianWidth);
    EXPECT_EQ(41, s_defectMapZoomParametersSet.get("Willow.A1.m9", 672, 672).MedianWidth);
    EXPECT_EQ(21, s_defectMapZoomParametersSet.get("Willow.A1.m12", 336, 336).MedianWidth);
    // At least 3 rows kept out at each end; truncation toward zero.
    EXPECT_EQ(Ints({120, 63, 1560, 994, 61, 61}), Box(s_defectMapZoomParametersSet.get("Hazel.B7.m1", 1560, 1000)));
    EXPECT_EQ(Ints({24, 68, 2580, 1904, 61, 61}), Box(s_defectMapZoomParametersSet.get("Aspen.A1.m17", 2580, 1921)));
    EXPECT_EQ(Ints({24, 60, 2580, 1904, 61, 61}), Box(s_defectMapZoomParametersSet.get("Aspen.A1.m1", 2580, 1904)));
}

TEST(DefectMapParameterSets, DarkZoomAtTheReadoutSizeGivesThePlainRow) {
    int checked = 0;
    for (const auto& [key, zoom] : s_defectMapDarkZoomParametersSet.GetBaseRows()) {
        const ROI* readout = Readout(key);
        if (!readout) continue;
        // The image is the readout without the margins that the width formula adds back.
        const int margin = int(evaluate_formula(zoom.Area.width, zoom)) - zoom.Width;
        const DefectMapDarkParameters p = s_defectMapDarkZoomParametersSet.get(key, readout->width - margin, readout->height);
        ++checked;
        EXPECT_EQ(*readout, p.Area) << key;
        EXPECT_EQ(Floats({327.68f, 42598.4f}), Floats({p.ThresholdMin, p.ThresholdMax})) << key;
    }
    EXPECT_EQ(9 + 8 + 16 + 7 + 10, checked);
    EXPECT_EQ(ROI(60, 0, 1000, 204), s_defectMapDarkZoomParametersSet.get("Hazel.A1.m1", 65500, 1000).Area);
    EXPECT_EQ(ROI(60, 0, 640, 880), s_defectMapDarkZoomParametersSet.get("Aspen.A1.m21", 864, 640).Area);
    EXPECT_EQ(ROI(0, 0, 0, 0), s_defectMapDarkZoomParametersSet.get("Hazel", 1560, 1440).Area);
}

TEST(DefectMapParameterSets, EveryZoomFormulaParses) {
    orvane::test::LogCapture log;
    for (const auto& row : s_defectMapZoomParametersSet.GetBaseRows()) s_defectMapZoomParametersSet.get(row.first, 1000, 800);
    for (const auto& row : s_defectMapDarkZoomParametersSet.GetBaseRows()) s_defectMapDarkZoomParametersSet.get(row.first, 1000, 800);
    EXPECT_TRUE(log.lines.empty()) << log.lines.front();
}
