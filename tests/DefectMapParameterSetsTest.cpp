#include "TestImages.h"

#include "parameters/AutomaticDefectParametersSet.h"
#include "parameters/DMFlagParametersSet.h"
#include "parameters/DMFlagZoomParametersSet.h"
#include "parameters/DefectMapDarkParametersSet.h"
#include "parameters/DefectMapDarkZoomParametersSet.h"
#include "parameters/DefectMapGainParametersSet.h"
#include "parameters/DefectMapParametersSet.h"
#include "parameters/DefectMapUntypicalParametersSet.h"
#include "parameters/DefectMapZoomParametersSet.h"
#include "parameters/GainLinearParametersSet.h"
#include "parameters/GainLinearStandardZoomParametersSet.h"

#include <gtest/gtest.h>

#include <set>

// Invariants of the defect-map, linear-gain and flag tables, and of what their zoom
// sets make of a region, plus spot rows where a slip is likely.

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

// The image of a mode: its readout without the margins that the dark zoom width adds back.
ROI ImageOf(const std::string& key, const ROI& readout) {
    const DefectMapDarkZoomParameters& zoom = s_defectMapDarkZoomParametersSet.GetBaseRows().at(key);
    const int margin = int(evaluate_formula(zoom.Area.width, zoom)) - zoom.Width;
    return ROI(0, 0, readout.height, static_cast<unsigned short>(readout.width - margin));
}

Floats ClipAndFit(const GainLinearParameters& r) { return {r.ClipMin, r.ClipMax, float(r.GfaSigmas), r.GfaTolerance}; }
const Floats kClipAndFit{0.25f, 4, 3, 0.05f};

// The distinct values of one ROI field over the areas, sorted.
Ints Distinct(const std::vector<ROI>& areas, unsigned short ROI::*field) {
    std::set<int> values;
    for (const ROI& area : areas) values.insert(area.*field);
    return Ints(values.begin(), values.end());
}

Ints Bands(const DMFlagParameters& p) {
    return {p.DRZFirstColumn, p.DRZFirstCount, p.DRZSecondColumn, p.DRZSecondCount, p.SplitRows ? p.SplitRow : -1};
}

}  // namespace

// Sets without a default row gain an all-zero one on a lookup that falls through, in
// whatever order the tests run.
TEST(ParameterSets, RowCountsUnknownKeysAndZoomFormulas) {
    EXPECT_EQ(Ints({66, 56, 26, 59, 61, 4, 2, 77, 62, 77, 53}),
              Ints({KeyedRows(s_defectMapParametersSet), KeyedRows(s_defectMapZoomParametersSet),
                    KeyedRows(s_defectMapGainParametersSet), KeyedRows(s_DefectMapDarkParametersSet),
                    KeyedRows(s_defectMapDarkZoomParametersSet), KeyedRows(s_DefectMapUntypicalParametersSet),
                    KeyedRows(s_automaticDefectParametersSet), int(s_gainLinearParametersSet.GetBaseRows().size()),
                    int(s_gainLinearStandardZoomParametersSet.GetBaseRows().size()),
                    int(s_DMFlagParametersSet.GetBaseRows().size()), KeyedRows(s_DMFlagZoomParametersSet)}));
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
    // No mode row "Cedar.*.m3": the search ends at the model row.
    EXPECT_EQ(&s_gainLinearParametersSet.lookup("Cedar"), &s_gainLinearParametersSet.lookup("Cedar.A1.m3"));
    EXPECT_TRUE(s_gainLinearParametersSet.lookup("Oak.A1.m3").MeasureAreas.empty());
    EXPECT_EQ(&s_DMFlagParametersSet.lookup(""), &s_DMFlagParametersSet.lookup("Oak"));

    // Every zoom formula parses.
    orvane::test::LogCapture log;
    for (const ROI& region : {ROI(0, 0, 1440, 1560), ROI(300, 500, 100, 120)}) {
        for (const auto& row : s_gainLinearStandardZoomParametersSet.GetBaseRows()) s_gainLinearStandardZoomParametersSet.get(row.first, region);
        for (const auto& row : s_DMFlagZoomParametersSet.GetBaseRows()) s_DMFlagZoomParametersSet.get(row.first, region);
        for (const auto& row : s_defectMapZoomParametersSet.GetBaseRows()) s_defectMapZoomParametersSet.get(row.first, region.width, region.height);
        for (const auto& row : s_defectMapDarkZoomParametersSet.GetBaseRows()) s_defectMapDarkZoomParametersSet.get(row.first, region.width, region.height);
    }
    EXPECT_TRUE(log.lines.empty()) << log.lines.front();
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
TEST(DefectMapParameterSets, ZoomAtTheReadoutSizeGivesThePlainRow) {
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

    // The dark zoom rows give the readout for the image of the mode.
    checked = 0;
    for (const auto& [key, zoom] : s_defectMapDarkZoomParametersSet.GetBaseRows()) {
        const ROI* readout = Readout(key);
        if (!readout) continue;
        const ROI image = ImageOf(key, *readout);
        const DefectMapDarkParameters p = s_defectMapDarkZoomParametersSet.get(key, image.width, image.height);
        ++checked;
        EXPECT_EQ(*readout, p.Area) << key;
        EXPECT_EQ(Floats({327.68f, 42598.4f}), Floats({p.ThresholdMin, p.ThresholdMax})) << key;
    }
    EXPECT_EQ(9 + 8 + 16 + 7 + 10, checked);
    EXPECT_EQ(ROI(60, 0, 1000, 204), s_defectMapDarkZoomParametersSet.get("Hazel.A1.m1", 65500, 1000).Area);
    EXPECT_EQ(ROI(60, 0, 640, 880), s_defectMapDarkZoomParametersSet.get("Aspen.A1.m21", 864, 640).Area);
}

TEST(GainLinearParametersSet, SharedValuesCentredGridAndZoomRowsThatFollowTheCentre) {
    for (const auto& [key, p] : s_gainLinearParametersSet.GetBaseRows()) {
        SCOPED_TRACE(key);
        EXPECT_EQ(kClipAndFit, ClipAndFit(p));
        const bool inverted = StartsWith(key, "Hazel") || StartsWith(key, "Aspen") || StartsWith(key, "CedarHi") ||
                              StartsWith(key, "Willow");
        EXPECT_EQ(inverted, p.InvertGain);
        // Measure areas: a grid of equal squares inside the normalising area, a square apart
        // (at most a pixel more), round its centre; by rows, or by columns for Aspen.
        const std::vector<ROI>& areas = p.MeasureAreas;
        if (areas.empty()) continue;
        const int size = areas[0].height;
        const Ints tops = Distinct(areas, &ROI::top), lefts = Distinct(areas, &ROI::left);
        EXPECT_EQ(tops.size() * lefts.size(), areas.size());
        for (const ROI& area : areas) {
            EXPECT_EQ(ROI(area.top, area.left, size, size), area);
            EXPECT_TRUE(area.top + size <= p.Y0 + p.Height && area.left + size <= p.X0 + p.Width);
        }
        for (const Ints* values : {&tops, &lefts}) {
            for (size_t i = 1; i < values->size(); ++i) {
                EXPECT_TRUE((*values)[i] - (*values)[i - 1] == size || (*values)[i] - (*values)[i - 1] == size + 1);
            }
        }
        const int top0 = StartsWith(key, "Willow") ? 0 : p.Y0;  // Willow's grid leaves out the top margin
        EXPECT_LE(std::abs(tops.front() + tops.back() + size - 2 * top0 - p.Height), size / 4);
        EXPECT_LE(std::abs(lefts.front() + lefts.back() + size - 2 * p.X0 - p.Width), size / 4);
        const bool byColumns = StartsWith(key, "Aspen");
        EXPECT_EQ(byColumns ? areas[0].left : areas[0].top, byColumns ? areas[1].left : areas[1].top);
    }
    // Rows with a gap, an odd size, a wide grid.
    EXPECT_EQ(ROI(1320, 1561, 120, 120), s_gainLinearParametersSet.lookup("Birch").MeasureAreas[2]);
    EXPECT_EQ(ROI(168, 171, 30, 30), s_gainLinearParametersSet.lookup("Willow.A1.m12").MeasureAreas[3]);
    const GainLinearParameters& maple = s_gainLinearParametersSet.lookup("MapleK");
    EXPECT_EQ(Ints({0, 2400, 0, 3000, 20}), Ints({maple.Y0, maple.Height, maple.X0, maple.Width, int(maple.MeasureAreas.size())}));

    // For a region covering the plain normalising area, the zoom rows give the plain row;
    // Aspen's zoom rows start further left and lay their grid by rows.
    int checked = 0;
    for (const auto& [key, zoom] : s_gainLinearStandardZoomParametersSet.GetBaseRows()) {
        const auto plainRow = s_gainLinearParametersSet.GetBaseRows().find(key);
        if (key.find('*') == std::string::npos || plainRow == s_gainLinearParametersSet.GetBaseRows().end()) continue;
        SCOPED_TRACE(key);
        ++checked;
        const GainLinearParameters& plain = plainRow->second;
        const ROI region(0, 0, static_cast<unsigned short>(plain.Height), static_cast<unsigned short>(plain.Width));
        const GainLinearParameters zoomed = s_gainLinearStandardZoomParametersSet.get(key, region);
        EXPECT_EQ(Ints({1, plain.Y0, plain.Height, plain.Width}), Ints({zoomed.InvertGain, zoomed.Y0, zoomed.Height, zoomed.Width}));
        EXPECT_EQ(kClipAndFit, ClipAndFit(zoomed));
        if (!StartsWith(key, "Aspen")) {
            EXPECT_EQ(plain.X0, zoomed.X0);
            EXPECT_EQ(plain.MeasureAreas, zoomed.MeasureAreas);
        }
    }
    EXPECT_EQ(9 + 8 + 16 + 7 + 10, checked);
    const GainLinearParameters aspen = s_gainLinearStandardZoomParametersSet.get("Aspen.A1.m1", ROI(0, 0, 1920, 2580));
    EXPECT_EQ(24, aspen.X0);
    EXPECT_EQ(ROI(780, 1170, 120, 120), aspen.MeasureAreas[1]);

    // Two module rows by three module columns round the module corner at or before the
    // region's centre; an area leaving the usable part is shortened, not moved.
    auto& set = s_gainLinearStandardZoomParametersSet;
    const GainLinearParameters small = set.get("HazelW.A1.m1", ROI(300, 500, 600, 700));
    EXPECT_EQ(Ints({60, 0, 600, 700, 6}), Ints({small.Y0, small.X0, small.Height, small.Width, int(small.MeasureAreas.size())}));
    EXPECT_EQ(ROI(240, 220, 120, 120), small.MeasureAreas[0]);
    EXPECT_EQ(ROI(360, 460, 120, 120), small.MeasureAreas[5]);
    EXPECT_EQ(set.get("HazelW.A1.m1", ROI(0, 0, 1440, 1570)).MeasureAreas, set.get("HazelW.A1.m1", ROI(0, 0, 1440, 1571)).MeasureAreas);
    EXPECT_EQ(ROI(70, 240, 110, 10), set.get("HazelW.A1.m1", ROI(0, 0, 200, 250)).MeasureAreas[5]);
    EXPECT_TRUE(set.get("Maple.A1.m1", ROI(0, 0, 600, 700)).MeasureAreas.empty());
}

// The flag areas lie inside the readout, the DRZ bands end at its edges and Aspen's
// seam is its middle row. CedarHi's areas are left out: its dark rows are not square.
TEST(DMFlagParametersSet, AreasAndBandsFollowTheReadoutAndZoomRowsGiveThePlainRowOrRaiseTheRatios) {
    int checked = 0;
    for (const auto& [key, p] : s_DMFlagParametersSet.GetBaseRows()) {
        const ROI* readout = Readout(key);
        if (!readout || StartsWith(key, "CedarHi")) continue;
        SCOPED_TRACE(key);
        ++checked;
        EXPECT_LE(p.Area.top + p.Area.height, readout->top + readout->height);
        EXPECT_LE(p.Area.left + p.Area.width, readout->left + readout->width);
        EXPECT_TRUE(p.TestArea && p.TestDRZLines && !p.SplitColumns);
        EXPECT_EQ(Ints({0, readout->width, StartsWith(key, "Aspen") ? readout->top + readout->height / 2 : -1}),
                  Ints({p.DRZFirstColumn, p.DRZSecondColumn + p.DRZSecondCount, Bands(p)[4]}));
    }
    EXPECT_EQ(9 + 8 + 16 + 10, checked);
    const DMFlagParameters& cedar = s_DMFlagParametersSet.lookup("Cedar.A1.m8");
    EXPECT_TRUE(cedar.TestWholeFrame && !cedar.TestDRZLines && cedar.TestArea && cedar.RetestWholeFrame);
    EXPECT_EQ(480, cedar.SplitRow);
    const DMFlagParameters& cedarModel = s_DMFlagParametersSet.lookup("Cedar.A1.m1");
    EXPECT_TRUE(!cedarModel.TestWholeFrame && cedarModel.TestArea && !cedarModel.SplitColumns);
    EXPECT_EQ(Floats({1440, 0.3f}), Floats({float(Bands(cedarModel)[4]), cedarModel.AreaHorizontalRatio}));
    const DMFlagParameters& birch = s_DMFlagParametersSet.lookup("Birch");
    EXPECT_EQ(Ints({1560, 1560}), Ints({Bands(birch)[4], birch.SplitColumns ? birch.SplitColumn : -1}));
    EXPECT_EQ(ROI(0, 1, 1440, 1398), s_DMFlagParametersSet.lookup("CedarHi.*.m9").Area);
    EXPECT_EQ(ROI(30, 50, 2820, 2300), s_DMFlagParametersSet.lookup("MapleQ").Area);

    // For the image of a mode, a zoom row gives the plain row; Aspen's zoom rows start
    // further left and Willow's m10 row has its own left edge and band.
    checked = 0;
    for (const auto& [key, zoom] : s_DMFlagZoomParametersSet.GetBaseRows()) {
        const ROI* readout = Readout(key);
        if (!readout || !s_DMFlagParametersSet.GetBaseRows().count(key)) continue;
        SCOPED_TRACE(key);
        ++checked;
        const DMFlagParameters& plain = s_DMFlagParametersSet.GetBaseRows().at(key);
        const DMFlagParameters p = s_DMFlagZoomParametersSet.get(key, ImageOf(key, *readout));
        const auto flags = [](const DMFlagParameters& r) {
            return Ints({r.TestWholeFrame, r.TestDRZLines, r.TestArea, r.RetestWholeFrame, r.SplitRows, r.SplitColumns});
        };
        const auto ratios = [](const DMFlagParameters& r) {
            return r.TestWholeFrame ? Floats({r.HorizontalRatio, r.VerticalRatio, r.RetestHorizontalRatio, r.RetestVerticalRatio, r.DRZRatio})
                                    : Floats({r.DRZRatio});
        };
        EXPECT_EQ(flags(plain), flags(p));
        EXPECT_EQ(ratios(plain), ratios(p));
        EXPECT_EQ(Floats({plain.AreaHorizontalRatio, plain.AreaVerticalRatio}), Floats({p.AreaHorizontalRatio, p.AreaVerticalRatio}));
        EXPECT_EQ(Ints({plain.Area.top, plain.Area.height}), Ints({p.Area.top, p.Area.height}));
        if (key == "Willow.*.m10") continue;
        EXPECT_EQ(Bands(plain), Bands(p));
        if (!StartsWith(key, "Aspen")) { EXPECT_EQ(plain.Area, p.Area); }
    }
    EXPECT_EQ(9 + 8 + 16 + 9, checked);
    const DMFlagParameters willow = s_DMFlagZoomParametersSet.get("Willow.A1.m10", ROI(0, 0, 448, 448));
    EXPECT_EQ(ROI(60, 3, 448, 448), willow.Area);
    EXPECT_EQ(Ints({0, 3, 451, 3, -1}), Bands(willow));

    // Ratios rise for small regions and positions enter the area.
    const DMFlagParameters hazel = s_DMFlagZoomParametersSet.get("Hazel.A1.m3", ROI(0, 0, 150, 100));
    EXPECT_EQ(Floats({0.2f, 20.0f / 150, 0.1f, 10.0f / 150, 0.1f, 10.0f / 150}),
              Floats({hazel.HorizontalRatio, hazel.VerticalRatio, hazel.AreaHorizontalRatio, hazel.AreaVerticalRatio,
                      hazel.RetestHorizontalRatio, hazel.RetestVerticalRatio}));
    EXPECT_EQ(ROI(63, 60, 144, 100), hazel.Area);
    EXPECT_FLOAT_EQ(0.1f, s_DMFlagZoomParametersSet.get("Willow.A1.m1", ROI(0, 0, 150, 100)).HorizontalRatio);
    EXPECT_EQ(ROI(63, 5, 1407, 1555), s_DMFlagZoomParametersSet.get("HazelW.A1.m1", ROI(20, 5, 1420, 1560)).Area);
    const DMFlagParameters aspen = s_DMFlagZoomParametersSet.get("Aspen.A1.m1", ROI(0, 0, 1904, 2580));
    EXPECT_EQ(ROI(60, 24, 1904, 2580), aspen.Area);
    EXPECT_EQ(1012, aspen.SplitRow);
    EXPECT_EQ(ROI(1, 0, 958, 960), s_DMFlagZoomParametersSet.get("CedarHi.A1.m1", ROI(0, 0, 960, 960)).Area);
    // The set has no default row: an unknown model gains an all-zero one.
    const DMFlagParameters none = s_DMFlagZoomParametersSet.get("Birch.A1.m1", ROI(10, 20, 600, 700));
    EXPECT_EQ(ROI(0, 0, 0, 0), none.Area);
    EXPECT_EQ(Floats({0, 0, 0, 0}), Floats({none.HorizontalRatio, none.AreaVerticalRatio, float(none.TestArea), float(none.SplitRow)}));
}
