#include "parameters/DefectMapGainParametersSet.h"

#include "parameters/ModeKeys.h"

#include <string>
#include <vector>

using orvane::detail::ModeKeys;

namespace {

struct Geometry {
    std::int32_t X0, Y0, Width, Height, Median;
};

}  // namespace

DefectMapGainParametersSet::DefectMapGainParametersSet() {
    // Every later row starts as a copy of this one.
    DefectMapGainParameters& common = row("");
    common.ClipMin = 0.25f;
    common.ClipMax = 4.0f;
    common.ThresholdMin = 0.53f;
    common.ThresholdMax = 2.0f;
    common.QuantLevels = 65536;
    common.MedianWidth = 21;
    common.MedianHeight = 21;

    const auto set = [this](const std::vector<std::string>& keys, const Geometry& g) {
        for (const std::string& key : keys) {
            DefectMapGainParameters& r = row(key);
            r.X0 = g.X0;
            r.Y0 = g.Y0;
            r.Width = g.Width;
            r.Height = g.Height;
            r.MedianWidth = g.Median;
            r.MedianHeight = g.Median;
        }
    };
    //                                                           X0  Y0  Width Height Median
    set({"Cedar.*.m8"},                                         {7, 2, 946, 955, 21});
    set({"MapleQ.*.m8"},                                        {17, 10, 766, 940, 21});
    set({"MapleQa.*.m8", "MapleQb.*.m8"},                       {9, 3, 782, 954, 21});
    set({"Rowan.*.m8"},                                         {0, 7, 640, 506, 21});
    set(ModeKeys("CedarHi", {1}),                               {0, 0, 2880, 2880, 21});
    set(ModeKeys("CedarHi", {7, 10}),                           {0, 0, 960, 960, 21});
    set(ModeKeys("CedarHi", {3}),                               {0, 0, 1440, 1440, 21});
    set(ModeKeys("CedarHi", {9}),                               {0, 0, 1400, 1440, 21});
    set(ModeKeys("CedarHi", {2, 5}),                            {0, 0, 2868, 2880, 21});
    set(ModeKeys("CedarHi", {4, 6}),                            {0, 0, 1428, 1440, 21});
    set(ModeKeys("CedarHi", {11}),                              {0, 0, 920, 960, 21});
    set(ModeKeys("CedarHi", {8}),                               {0, 0, 948, 960, 21});
    set(ModeKeys("Willow", {1, 2, 4, 8}),                       {60, 12, 1344, 1344, 61});
    set(ModeKeys("Willow", {3, 5, 9, 11}),                      {60, 6, 672, 672, 31});
    set(ModeKeys("Willow", {10}),                               {60, 4, 448, 448, 21});
    set(ModeKeys("Willow", {12}),                               {60, 3, 336, 336, 15});
}
