#include "parameters/DMFlagParametersSet.h"

#include "parameters/ModeKeys.h"

#include <string>
#include <vector>

using orvane::detail::ModeKeys;

namespace {

// TestWholeFrame, TestDRZLines, TestArea, RetestWholeFrame.
void SetTests(DMFlagParameters& r, bool wholeFrame, bool drzLines, bool area, bool retest) {
    r.TestWholeFrame = wholeFrame;
    r.TestDRZLines = drzLines;
    r.TestArea = area;
    r.RetestWholeFrame = retest;
}

// The ratios of the rows that test the whole frame: 0.1 there, 0.05 on the area and
// in the retest.
void SetWholeFrameRatios(DMFlagParameters& r) {
    r.HorizontalRatio = 0.1f;
    r.VerticalRatio = 0.1f;
    r.AreaHorizontalRatio = 0.05f;
    r.AreaVerticalRatio = 0.05f;
    r.RetestHorizontalRatio = 0.05f;
    r.RetestVerticalRatio = 0.05f;
}

struct Bands {
    std::int32_t FirstColumn, FirstCount, SecondColumn, SecondCount;
};

}  // namespace

DMFlagParametersSet::DMFlagParametersSet() {
    row("").TestArea = true;

    // Rows that test their area only, with one ratio both ways.
    const auto areaOnly = [this](const std::vector<std::string>& keys, float ratio, const ROI& area) {
        for (const std::string& key : keys) {
            DMFlagParameters& r = row(key);
            r.AreaHorizontalRatio = ratio;
            r.AreaVerticalRatio = ratio;
            r.Area = area;
        }
    };
    areaOnly({"Birch"}, 0.1f, {60, 60, 3001, 3001});
    DMFlagParameters& birch = row("Birch");
    birch.SplitRows = true;
    birch.SplitRow = 1560;
    birch.SplitColumns = true;
    birch.SplitColumn = 1560;

    areaOnly({"Cedar"}, 0.3f, {20, 3, 2840, 2873});
    row("Cedar").SplitRows = true;
    row("Cedar").SplitRow = 1440;
    DMFlagParameters& cedarM8 = row("Cedar.*.m8");
    SetTests(cedarM8, true, false, true, true);
    SetWholeFrameRatios(cedarM8);
    cedarM8.Area = ROI(7, 2, 946, 955);
    cedarM8.SplitRow = 480;

    areaOnly({"Maple", "MapleK"}, 0.1f, {0, 0, 2400, 3000});
    areaOnly({"MapleQ"}, 0.03f, {30, 50, 2820, 2300});
    areaOnly({"MapleQ.*.m8"}, 0.03f, {10, 17, 940, 766});
    areaOnly({"MapleQa", "MapleQb"}, 0.03f, {7, 25, 2866, 2350});
    areaOnly({"MapleQa.*.m8", "MapleQb.*.m8"}, 0.03f, {3, 9, 954, 782});
    areaOnly({"Rowan"}, 0.03f, {20, 0, 1520, 1920});
    areaOnly({"Rowan.*.m8"}, 0.03f, {7, 0, 506, 640});
    areaOnly({"LarchA", "LarchB"}, 0.03f, {2, 30, 2875, 2775});
    areaOnly({"CedarTa", "CedarTb"}, 0.03f, {2, 11, 2875, 2869});

    // The families: the family row first, so that its modes start from it.
    for (const char* family : {"Hazel", "Aspen", "Willow"}) {
        DMFlagParameters& r = row(family);
        SetTests(r, true, true, true, true);
        SetWholeFrameRatios(r);
        r.DRZRatio = 0.125f;
    }
    row("Aspen").SplitRows = true;  // the seam row stays 0 (see the header)
    DMFlagParameters& hazelW = row("HazelW");
    SetTests(hazelW, false, true, true, false);
    hazelW.DRZRatio = 0.125f;
    hazelW.AreaHorizontalRatio = 0.05f;
    hazelW.AreaVerticalRatio = 0.05f;
    DMFlagParameters& cedarHi = row("CedarHi");
    SetTests(cedarHi, true, false, true, true);
    SetWholeFrameRatios(cedarHi);

    // Area and DRZ bands of the modes; the modes without DRZ test keep no bands.
    const auto mode = [this](const std::vector<std::string>& keys, const ROI& area,
                             const Bands& bands = Bands{0, 0, 0, 0}) {
        for (const std::string& key : keys) {
            DMFlagParameters& r = row(key);
            r.Area = area;
            r.DRZFirstColumn = bands.FirstColumn;
            r.DRZFirstCount = bands.FirstCount;
            r.DRZSecondColumn = bands.SecondColumn;
            r.DRZSecondCount = bands.SecondCount;
        }
    };
    //   keys                                        Area: top, left, height, width    DRZ bands
    mode(ModeKeys("Hazel", {1, 2, 6, 8}),           {70, 120, 1420, 1560},            {0, 60, 1740, 60});
    mode(ModeKeys("Hazel", {3, 4, 5, 7, 9}),        {65, 60, 710, 780},               {0, 30, 870, 30});
    mode(ModeKeys("HazelW", {1, 2, 6, 8}),          {70, 10, 1420, 1560},             {0, 0, 1680, 120});
    mode(ModeKeys("HazelW", {3, 4, 5, 7}),          {65, 5, 710, 780},                {0, 0, 840, 60});
    mode(ModeKeys("Aspen", {1, 2, 3, 4, 11, 12}),   {68, 30, 1904, 2580},             {0, 24, 2616, 24});
    mode(ModeKeys("Aspen", {5, 6, 7, 8, 13, 14}),   {64, 15, 952, 1290},              {0, 12, 1308, 12});
    mode(ModeKeys("Aspen", {9, 10, 15, 16}),        {63, 10, 634, 860},               {0, 8, 872, 8});
    mode(ModeKeys("CedarHi", {1}),                  {20, 3, 2840, 2874});
    mode(ModeKeys("CedarHi", {7, 10}),              {7, 2, 946, 956});
    mode(ModeKeys("CedarHi", {3}),                  {10, 2, 1420, 1436});
    mode(ModeKeys("CedarHi", {9}),                  {0, 1, 1440, 1398});
    mode(ModeKeys("CedarHi", {2, 5}),               {0, 1, 2880, 2866});
    mode(ModeKeys("CedarHi", {4, 6}),               {0, 1, 1440, 1426});
    mode(ModeKeys("CedarHi", {11}),                 {1, 0, 918, 960});
    mode(ModeKeys("CedarHi", {8}),                  {0, 1, 960, 946});
    mode(ModeKeys("Willow", {1, 2, 4, 8}),          {60, 12, 1344, 1344},             {0, 12, 1356, 12});
    mode(ModeKeys("Willow", {3, 5, 9, 11}),         {60, 6, 672, 672},                {0, 6, 678, 6});
    mode(ModeKeys("Willow", {10}),                  {60, 4, 448, 448},                {0, 4, 452, 4});
    mode(ModeKeys("Willow", {12}),                  {60, 3, 336, 336},                {0, 3, 339, 3});

    // The seams of the split modes.
    for (const std::string& key : ModeKeys("Aspen", {1, 2, 3, 4, 11, 12})) row(key).SplitRow = 1020;
    for (const std::string& key : ModeKeys("Aspen", {5, 6, 7, 8, 13, 14})) row(key).SplitRow = 540;
    for (const std::string& key : ModeKeys("Aspen", {9, 10, 15, 16})) row(key).SplitRow = 380;
}
