#include "parameters/GainLinearParametersSet.h"

#include "parameters/MeasureGrid.h"
#include "parameters/ModeKeys.h"

#include <string>
#include <vector>

using orvane::detail::GridOrder;
using orvane::detail::MeasureGrid;
using orvane::detail::ModeKeys;

namespace {

struct Area {
    std::int32_t Y0, Height, X0, Width;
};

}  // namespace

GainLinearParametersSet::GainLinearParametersSet() {
    // Every later row starts as a copy of this one, or of its stem.
    GainLinearParameters& common = row("");
    common.ClipMin = 0.25f;
    common.ClipMax = 4.0f;
    common.GfaSigmas = 3;
    common.GfaTolerance = 0.05f;

    for (const char* stem : {"Hazel", "HazelW", "Aspen", "CedarHi", "Willow"}) {
        row(stem).InvertGain = true;
    }
    for (const char* stem : {"Hazel", "HazelW", "Aspen"}) {
        row(stem).Y0 = 60;
    }

    const auto set = [this](const std::vector<std::string>& keys, const Area& a, const std::vector<ROI>& areas) {
        for (const std::string& key : keys) {
            GainLinearParameters& r = row(key);
            r.Y0 = a.Y0;
            r.Height = a.Height;
            r.X0 = a.X0;
            r.Width = a.Width;
            r.MeasureAreas = areas;
        }
    };
    const GridOrder byColumns = GridOrder::ByColumns;

    // set(keys, {Y0, Height, X0, Width}, MeasureGrid(side, tops, lefts[, byColumns]))
    set({"Birch"}, {0, 3121, 0, 3121}, MeasureGrid(120, {1320, 1440, 1561, 1681}, {1320, 1440, 1561, 1681}));
    set({"Cedar", "LarchA", "LarchB", "CedarTa", "CedarTb"}, {0, 2880, 0, 2880},
        MeasureGrid(120, {1200, 1320, 1440, 1560}, {1200, 1320, 1440, 1560}));
    set({"Cedar.*.m8"}, {0, 960, 0, 960}, MeasureGrid(40, {400, 440, 480, 520}, {400, 440, 480, 520}));
    set({"Maple", "MapleK"}, {0, 2400, 0, 3000},
        MeasureGrid(120, {960, 1080, 1200, 1320}, {1200, 1320, 1440, 1560, 1680}));
    set({"MapleQ", "MapleQa", "MapleQb"}, {0, 2880, 0, 2400},
        MeasureGrid(120, {1200, 1320, 1440, 1560}, {960, 1080, 1200, 1320}));
    set({"MapleQ.*.m8", "MapleQa.*.m8", "MapleQb.*.m8"}, {0, 960, 0, 800},
        MeasureGrid(40, {400, 440, 480, 520}, {320, 360, 400, 440}));
    set({"Rowan"}, {0, 1560, 0, 1920}, MeasureGrid(120, {600, 720, 840}, {720, 840, 960, 1080}));
    set({"Rowan.*.m8"}, {0, 520, 0, 640}, MeasureGrid(40, {200, 240, 280}, {240, 280, 320, 360}));

    set(ModeKeys("Hazel", {1, 2, 6, 8}), {60, 1440, 120, 1560}, MeasureGrid(120, {660, 780}, {720, 840, 960}));
    set(ModeKeys("Hazel", {3, 4, 5, 7, 9}), {60, 720, 60, 780}, MeasureGrid(60, {360, 420}, {360, 420, 480}));
    set(ModeKeys("HazelW", {1, 2, 6, 8}), {60, 1440, 0, 1570}, MeasureGrid(120, {660, 780}, {600, 720, 840}));
    set(ModeKeys("HazelW", {3, 4, 5, 7}), {60, 720, 0, 785}, MeasureGrid(60, {360, 420}, {300, 360, 420}));
    set(ModeKeys("Aspen", {1, 2, 3, 4, 11, 12}), {60, 1920, 30, 2580},
        MeasureGrid(120, {780, 900, 1020, 1140}, {1080, 1200, 1320, 1440}, byColumns));
    set(ModeKeys("Aspen", {5, 6, 7, 8, 13, 14}), {60, 960, 15, 1290},
        MeasureGrid(60, {420, 480, 540, 600}, {540, 600, 660, 720}, byColumns));
    set(ModeKeys("Aspen", {9, 10, 15, 16}), {60, 640, 10, 860},
        MeasureGrid(40, {300, 340, 380, 420}, {360, 400, 440, 480}, byColumns));

    set(ModeKeys("CedarHi", {1}), {0, 2880, 0, 2880},
        MeasureGrid(120, {1200, 1320, 1440, 1560}, {1200, 1320, 1440, 1560}));
    set(ModeKeys("CedarHi", {2, 5}), {0, 2868, 0, 2880},
        MeasureGrid(120, {1194, 1314, 1434, 1554}, {1200, 1320, 1440, 1560}));
    set(ModeKeys("CedarHi", {3}), {0, 1440, 0, 1440}, MeasureGrid(60, {600, 660, 720, 780}, {600, 660, 720, 780}));
    set(ModeKeys("CedarHi", {4, 6}), {0, 1428, 0, 1440},
        MeasureGrid(60, {594, 654, 714, 774}, {600, 660, 720, 780}));
    set(ModeKeys("CedarHi", {7, 10}), {0, 960, 0, 960}, MeasureGrid(40, {400, 440, 480, 520}, {400, 440, 480, 520}));
    set(ModeKeys("CedarHi", {8}), {0, 948, 0, 960}, MeasureGrid(40, {394, 434, 474, 514}, {400, 440, 480, 520}));
    set(ModeKeys("CedarHi", {9}), {0, 1400, 0, 1440}, MeasureGrid(60, {580, 640, 700, 760}, {600, 660, 720, 780}));
    set(ModeKeys("CedarHi", {11}), {0, 920, 0, 960}, MeasureGrid(40, {380, 420, 460, 500}, {400, 440, 480, 520}));

    set(ModeKeys("Willow", {1, 2, 4, 8}), {60, 1344, 12, 1344}, MeasureGrid(120, {552, 672}, {564, 684}));
    set(ModeKeys("Willow", {3, 5, 9, 11}), {60, 672, 6, 672}, MeasureGrid(60, {276, 336}, {282, 342}));
    set(ModeKeys("Willow", {10}), {60, 448, 4, 448}, MeasureGrid(40, {184, 224}, {188, 228}));
    set(ModeKeys("Willow", {12}), {60, 336, 3, 336}, MeasureGrid(30, {138, 168}, {141, 171}));
}
