#include "parameters/DefectMapDarkParametersSet.h"

#include "parameters/ModeKeys.h"

#include <string>
#include <vector>

using orvane::detail::ModeKeys;

DefectMapDarkParametersSet::DefectMapDarkParametersSet() {
    // The model rows come first: each mode row starts as a copy of its model's row.
    for (const char* model : {"Hazel", "HazelW", "Aspen", "CedarHi", "Willow"}) {
        DefectMapDarkParameters& r = row(model);
        r.ThresholdMin = 327.68f;
        r.ThresholdMax = 42598.4f;
    }

    const auto set = [this](const std::vector<std::string>& keys, const ROI& area) {
        for (const std::string& key : keys) {
            row(key).Area = area;
        }
    };
    //                                                   top left height width
    set(ModeKeys("Hazel", {1, 2, 6, 8}),                {60, 0, 1440, 1800});
    set(ModeKeys("HazelW", {1, 2, 6, 8}),               {60, 0, 1440, 1800});
    set(ModeKeys("Hazel", {3, 4, 5, 7, 9}),             {60, 0, 720, 900});
    set(ModeKeys("HazelW", {3, 4, 5, 7}),               {60, 0, 720, 900});
    set(ModeKeys("Aspen", {1, 2, 3, 4, 11, 12}),        {60, 0, 1920, 2640});
    set(ModeKeys("Aspen", {5, 6, 7, 8, 13, 14}),        {60, 0, 960, 1320});
    set(ModeKeys("Aspen", {9, 10, 15, 16}),             {60, 0, 640, 880});
    set(ModeKeys("CedarHi", {1}),                       {0, 0, 2880, 2880});
    set(ModeKeys("CedarHi", {7, 10}),                   {0, 0, 960, 960});
    set(ModeKeys("CedarHi", {3, 9}),                    {0, 0, 1440, 1440});
    set(ModeKeys("CedarHi", {2, 5}),                    {0, 0, 2868, 2880});
    set(ModeKeys("CedarHi", {4, 6}),                    {0, 0, 1428, 1440});
    set(ModeKeys("CedarHi", {11}),                      {0, 0, 640, 640});
    set(ModeKeys("CedarHi", {8}),                       {0, 0, 948, 960});
    set(ModeKeys("Willow", {1, 2, 4, 8}),               {60, 0, 1344, 1368});
    set(ModeKeys("Willow", {3, 5, 9, 11}),              {60, 0, 672, 684});
    set(ModeKeys("Willow", {10}),                       {60, 0, 448, 456});
    set(ModeKeys("Willow", {12}),                       {60, 0, 336, 342});
}
