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

// Stored rows other than "" (a lookup that falls through may add that one).
template <typename Set>
size_t KeyedRows(const Set& set) {
    return set.GetBaseRows().size() - set.GetBaseRows().count("");
}

template <typename R>
std::vector<int> Scalars(const R& p) {
    return {int(p.ClipMax), int(p.ClipMin), p.SpareLevel, p.LogScale, p.GfaMin, p.GfaMax, p.ExcludeSigmas,
            p.GfaSigmas, int(p.GfaTolerance * 100), p.QuantLevels};
}
const std::vector<int> kSharedScalars{65135, -400, 3000, 1000, 100, 1500, 6, 3, 5, 65536};

bool StartsWith(const std::string& key, const char* model) { return key.rfind(model, 0) == 0; }

// The readout of a mode: its dark area, the lines at full length.
const ROI* Readout(const std::string& key) {
    const auto& rows = s_DefectMapDarkParametersSet.GetBaseRows();
    const auto it = rows.find(key);
    return it == rows.end() || it->second.Area.width == 0 ? nullptr : &it->second.Area;
}

}  // namespace

TEST(DefectMapParameterSets, RowCountsAndDefaultRows) {
    EXPECT_EQ(66u, KeyedRows(s_defectMapParametersSet));
    EXPECT_EQ(56u, KeyedRows(s_defectMapZoomParametersSet));
    EXPECT_EQ(26u, KeyedRows(s_defectMapGainParametersSet));
    EXPECT_EQ(59u, KeyedRows(s_DefectMapDarkParametersSet));
    EXPECT_EQ(61u, KeyedRows(s_defectMapDarkZoomParametersSet));
    EXPECT_EQ(4u, KeyedRows(s_DefectMapUntypicalParametersSet));
    EXPECT_EQ(2u, KeyedRows(s_automaticDefectParametersSet));
    // No model row for the moded families: an unknown mode ends at the default row,
    // whose area is empty.
    for (const char* key : {"Oak", "Hazel.A12.m99", "Aspen.A1.m17", "CedarHi.A1.m12"}) {
        const DefectMapParameters& p = s_defectMapParametersSet.lookup(key);
        EXPECT_EQ(&s_defectMapParametersSet.lookup(""), &p) << key;
        EXPECT_EQ(0, p.Width + p.Height + p.MedianWidth) << key;
    }
    const DefectMapParameters zoomed = s_defectMapZoomParametersSet.get("CedarHi.A1.m1", 2880, 2880);
    EXPECT_EQ(0, zoomed.X0 + zoomed.Y0 + zoomed.Width + zoomed.Height);
    EXPECT_EQ(0, s_defectMapGainParametersSet.lookup("Cedar.A1.m1").Width);
}

TEST(DefectMapParameterSets, SharedValuesInEveryRow) {
    for (const auto& [key, p] : s_defectMapParametersSet.GetBaseRows()) {
        if (key != "Birch") { EXPECT_EQ(kSharedScalars, Scalars(p)) << key; }
    }
    EXPECT_EQ(std::vector<int>({16283, -100, 3000, 1000, 100, 1500, 5, 3, 5, 16384}),
              Scalars(s_defectMapParametersSet.lookup("Birch.x.m1")));
    for (const auto& [key, p] : s_defectMapZoomParametersSet.GetBaseRows()) EXPECT_EQ(kSharedScalars, Scalars(p)) << key;
    for (const auto& [key, p] : s_defectMapGainParametersSet.GetBaseRows()) {
        EXPECT_EQ(std::vector<float>({0.25f, 4, 0.53f, 2, 65536}),
                  std::vector<float>({p.ClipMin, p.ClipMax, p.ThresholdMin, p.ThresholdMax, float(p.QuantLevels)}))
            << key;
        EXPECT_EQ(p.MedianWidth, p.MedianHeight) << key;
    }
    for (const auto& [key, p] : s_DefectMapDarkParametersSet.GetBaseRows()) {
        if (!key.empty()) { EXPECT_EQ(std::vector<float>({327.68f, 42598.4f}), std::vector<float>({p.ThresholdMin, p.ThresholdMax})) << key; }
    }
    for (const auto& [key, p] : s_DefectMapUntypicalParametersSet.GetBaseRows()) {
        if (!key.empty()) { EXPECT_EQ(std::vector<int>({11, 11, 65536, 3, 10}),
                                    std::vector<int>({p.MedianWidth, p.MedianHeight, p.QuantLevels, p.GfaSigmas, p.ExcludeSigmas})) << key; }
    }
}

// Each area lies inside the readout of its mode, where the dark table gives one.
TEST(DefectMapParameterSets, AreasLieInsideTheReadout) {
    int checked = 0;
    for (const auto& [key, p] : s_defectMapParametersSet.GetBaseRows()) {
        const ROI* readout = Readout(key);
        if (!readout || StartsWith(key, "CedarHi")) continue;  // the dark rows there are not square
        ++checked;
        EXPECT_LE(p.X0 + p.Width, readout->left + readout->width) << key;
        EXPECT_LE(p.Y0 + p.Height, readout->top + readout->height) << key;
        EXPECT_GT(p.Width, 0) << key;
    }
    EXPECT_EQ(43, checked);
    // Gain rows whose position or size differs from their neighbours'.
    const DefectMapGainParameters& willow = s_defectMapGainParametersSet.lookup("Willow.A1.m12");
    EXPECT_EQ(std::vector<int>({60, 3, 336, 336, 15}), std::vector<int>({willow.X0, willow.Y0, willow.Width, willow.Height, willow.MedianWidth}));
    const DefectMapGainParameters& cedar = s_defectMapGainParametersSet.lookup("CedarHi.*.m9");
    EXPECT_EQ(std::vector<int>({0, 0, 1400, 1440}), std::vector<int>({cedar.X0, cedar.Y0, cedar.Width, cedar.Height}));
}

// At the readout size a zoom row gives the row of the whole-frame table, but where
// the tables differ on purpose: Aspen's left edge, Willow's median windows.
TEST(DefectMapParameterSets, DoseZoomAtTheReadoutSizeGivesThePlainRow) {
    int checked = 0;
    for (const auto& [key, zoom] : s_defectMapZoomParametersSet.GetBaseRows()) {
        const auto plainRow = s_defectMapParametersSet.GetBaseRows().find(key);
        if (key.empty() || plainRow == s_defectMapParametersSet.GetBaseRows().end()) continue;
        const DefectMapParameters& plain = plainRow->second;
        const int height = StartsWith(key, "CedarHi") ? plain.Height : Readout(key)->height;
        const DefectMapParameters p = s_defectMapZoomParametersSet.get(key, plain.Width, height);
        ++checked;
        EXPECT_EQ(plain.Y0, p.Y0) << key;
        EXPECT_EQ(plain.Width, p.Width) << key;
        EXPECT_EQ(plain.Height, p.Height) << key;
        if (!StartsWith(key, "Aspen")) { EXPECT_EQ(plain.X0, p.X0) << key; }
        const bool ownWindow = StartsWith(key, "Willow") && plain.MedianWidth == 31 && key != "Willow.*.m10";
        if (!ownWindow) { EXPECT_EQ(plain.MedianWidth, p.MedianWidth) << key; }
        EXPECT_EQ(p.MedianWidth, p.MedianHeight) << key;
        EXPECT_EQ(kSharedScalars, Scalars(p)) << key;
    }
    EXPECT_EQ(50, checked);
    EXPECT_EQ(31, s_defectMapParametersSet.lookup("Willow.A1.m12").MedianWidth);
    EXPECT_EQ(41, s_defectMapZoomParametersSet.get("Willow.A1.m9", 672, 672).MedianWidth);
    EXPECT_EQ(21, s_defectMapZoomParametersSet.get("Willow.A1.m12", 336, 336).MedianWidth);
    // Formulas: at least 3 rows kept out at each end; truncation toward zero.
    const DefectMapParameters hazel = s_defectMapZoomParametersSet.get("Hazel.B7.m1", 1560, 1000);
    EXPECT_EQ(std::vector<int>({120, 63, 1560, 994}), std::vector<int>({hazel.X0, hazel.Y0, hazel.Width, hazel.Height}));
    const DefectMapParameters aspen = s_defectMapZoomParametersSet.get("Aspen.A1.m17", 2580, 1921);
    EXPECT_EQ(std::vector<int>({24, 68, 2580, 1904}), std::vector<int>({aspen.X0, aspen.Y0, aspen.Width, aspen.Height}));
    EXPECT_EQ(1904, s_defectMapZoomParametersSet.get("Aspen.A1.m1", 2580, 1904).Height);
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
        EXPECT_EQ(std::vector<float>({327.68f, 42598.4f}), std::vector<float>({p.ThresholdMin, p.ThresholdMax})) << key;
    }
    EXPECT_EQ(50, checked);
    EXPECT_EQ(ROI(60, 0, 1000, 204), s_defectMapDarkZoomParametersSet.get("Hazel.A1.m1", 65500, 1000).Area);
    EXPECT_EQ(ROI(60, 0, 640, 880), s_defectMapDarkZoomParametersSet.get("Aspen.A1.m21", 864, 640).Area);
    EXPECT_EQ(ROI(0, 0, 960, 948), s_defectMapDarkZoomParametersSet.get("CedarHi.*.m8", 948, 960).Area);
    EXPECT_EQ(ROI(0, 0, 0, 0), s_defectMapDarkZoomParametersSet.get("Hazel", 1560, 1440).Area);
}

TEST(DefectMapParameterSets, EveryZoomFormulaParses) {
    orvane::test::LogCapture log;
    for (auto [key, zoom] : s_defectMapZoomParametersSet.GetBaseRows()) {
        zoom.Width = 1000;
        zoom.Height = 800;
        for (const std::string* f : {&zoom.X0Formula, &zoom.Y0Formula, &zoom.WidthFormula, &zoom.HeightFormula})
            evaluate_formula(*f, zoom);
    }
    for (const auto& [key, zoom] : s_defectMapDarkZoomParametersSet.GetBaseRows()) evaluate_formula(zoom.Area, zoom);
    EXPECT_TRUE(log.lines.empty()) << log.lines.front();
}

TEST(DefectMapParameterSets, UntypicalAndAutomaticRows) {
    EXPECT_EQ(ROI(2, 30, 2875, 2775), s_DefectMapUntypicalParametersSet.lookup("LarchB").Area);
    EXPECT_EQ(ROI(2, 11, 2875, 2869), s_DefectMapUntypicalParametersSet.lookup("CedarTa").Area);
    const AutomaticDefectParameters& cedar = s_automaticDefectParametersSet.lookup("Cedar.A1.m8");
    EXPECT_EQ(ROI(0, 0, 2880, 2880), cedar.Area);
    EXPECT_EQ(std::vector<int>({7, 49, 4000, -4000, 2}),
              std::vector<int>({cedar.WindowSize, cedar.WindowPixels, cedar.ThresholdHigh, cedar.ThresholdLow, cedar.MinHits}));
    EXPECT_EQ(1000, s_automaticDefectParametersSet.lookup("Birch").ThresholdHigh);
}

// Sets without a default row gain an all-zero one for an unknown model.
TEST(DefectMapParameterSets, UnknownModelsOfSetsWithoutDefaultRowGetZeros) {
    EXPECT_EQ(ROI(0, 0, 0, 0), s_DefectMapDarkParametersSet.lookup("Oak.A1.m1").Area);
    EXPECT_EQ(0.0f, s_DefectMapDarkParametersSet.lookup("Oak").ThresholdMax);
    EXPECT_EQ(ROI(0, 0, 0, 0), s_defectMapDarkZoomParametersSet.get("Oak", 1000, 800).Area);
    EXPECT_EQ(0, s_DefectMapUntypicalParametersSet.lookup("Birch").MedianWidth);
    EXPECT_EQ(0, s_automaticDefectParametersSet.lookup("Hazel.A1.m3").WindowSize);
    EXPECT_EQ(7, s_automaticDefectParametersSet.lookup("Birch.x.m1").WindowSize);
}
