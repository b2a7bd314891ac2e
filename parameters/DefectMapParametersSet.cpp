#include "parameters/DefectMapParametersSet.h"

#include "parameters/ModeKeys.h"

#include <string>
#include <vector>

using orvane::detail::ModeKeys;

namespace {

struct Geometry {
    std::int32_t X0, Y0, Width, Height, Median;
};

}  // namespace

DefectMapParametersSet::DefectMapParametersSet() {
    // Every later row starts as a copy of this one.
    DefectMapParameters& common = row("");
    common.ClipMax = 65135;
    common.ClipMin = -400;
    common.SpareLevel = 3000;
    common.LogScale = 1000;
    common.GfaMin = 100;
    common.GfaMax = 1500;
    common.ExcludeSigmas = 6;
    common.GfaSigmas = 3;
    common.GfaTolerance = 0.05f;
    common.QuantLevels = 65536;

    const auto set = [this](const std::vector<std::string>& keys, const Geometry& g) {
        for (const std::string& key : keys) {
            DefectMapParameters& r = row(key);
            r.X0 = g.X0;
            r.Y0 = g.Y0;
            r.Width = g.Width;
            r.Height = g.Height;
            r.MedianWidth = g.Median;
            r.MedianHeight = g.Median;
        }
    };
    //                                                           X0  Y0  Width Height Median
    set({"Birch"},                                              {60, 60, 3001, 3001, 61});
    set({"Cedar"},                                              {20, 3, 2840, 2873, 61});
    set({"Maple", "MapleK"},                                    {0, 0, 3000, 2400, 61});
    set({"MapleQ"},                                             {50, 30, 2300, 2820, 61});
    set({"MapleQa", "MapleQb"},                                 {25, 7, 2350, 2866, 61});
    set({"Rowan"},                                              {0, 20, 1920, 1520, 61});
    set({"LarchA", "LarchB"},                                   {30, 2, 2775, 2875, 61});
    set({"CedarTa", "CedarTb"},                                 {11, 2, 2869, 2875, 61});
    set(ModeKeys("Hazel", {1, 2, 6, 8}),                        {120, 70, 1560, 1420, 61});
    set(ModeKeys("Hazel", {3, 4, 5, 7, 9}),                     {60, 65, 780, 710, 31});
    set(ModeKeys("HazelW", {1, 2, 6, 8}),                       {0, 60, 1570, 1440, 61});
    set(ModeKeys("HazelW", {3, 4, 5, 7}),                       {0, 60, 785, 720, 31});
    set(ModeKeys("Aspen", {1, 2, 3, 4, 11, 12}),                {30, 68, 2580, 1904, 61});
    set(ModeKeys("Aspen", {5, 6, 7, 8, 13, 14}),                {15, 64, 1290, 952, 31});
    set(ModeKeys("Aspen", {9, 10, 15, 16}),                     {10, 63, 860, 634, 21});
    set(ModeKeys("CedarHi", {1, 2, 5}),                         {0, 0, 2880, 2880, 61});
    set(ModeKeys("CedarHi", {3, 4, 6, 9}),                      {0, 0, 1440, 1440, 31});
    set(ModeKeys("CedarHi", {7, 8, 10, 11}),                    {0, 0, 960, 960, 21});
    set(ModeKeys("Willow", {1, 2, 4, 8}),                       {12, 60, 1344, 1344, 61});
    set(ModeKeys("Willow", {3, 5, 9, 11}),                      {6, 60, 672, 672, 31});
    set(ModeKeys("Willow", {10}),                               {4, 60, 448, 448, 31});
    set(ModeKeys("Willow", {12}),                               {3, 60, 336, 336, 31});

    // The one row with its own clipping, band and quantisation.
    DefectMapParameters& birch = row("Birch");
    birch.ClipMax = 16283;
    birch.ClipMin = -100;
    birch.ExcludeSigmas = 5;
    birch.QuantLevels = 16384;
}
