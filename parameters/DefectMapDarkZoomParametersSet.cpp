#include "parameters/DefectMapDarkZoomParametersSet.h"

#include "parameters/FormulaCalculator.h"
#include "parameters/ModeKeys.h"

#include <vector>

using orvane::detail::ModeKeys;

DefectMapDarkZoomParametersSet::DefectMapDarkZoomParametersSet() {
    auto& registry = parameter_func<DefectMapDarkZoomParameters>::instance();
    if (registry.variables().empty()) {
        registry.add_variable("Height", &DefectMapDarkZoomParameters::Height);
        registry.add_variable("Width", &DefectMapDarkZoomParameters::Width);
    }

    // The model rows come first: each mode row starts as a copy of its model's row.
    for (const char* model : {"Hazel", "HazelW", "Aspen", "CedarHi", "Willow"}) {
        DefectMapDarkZoomParameters& r = row(model);
        r.ThresholdMin = 327.68f;
        r.ThresholdMax = 42598.4f;
    }

    // Rows from the top of the image at `top`, of its height, and its width plus the margins.
    const auto set = [this](const std::vector<std::string>& keys, const char* top, const char* width) {
        for (const std::string& key : keys) {
            row(key).Area = ROIFormula{top, "0", "Height", width};
        }
    };
    set(ModeKeys("Hazel", {1, 2, 6, 8}), "60", "Width+240");
    set(ModeKeys("Hazel", {3, 4, 5, 7, 9}), "60", "Width+120");
    set(ModeKeys("HazelW", {1, 2, 6, 8}), "60", "Width+120");
    set(ModeKeys("HazelW", {3, 4, 5, 7}), "60", "Width+60");
    set(ModeKeys("Aspen", {1, 2, 3, 4, 11, 12, 17, 18}), "60", "Width+48");
    set(ModeKeys("Aspen", {5, 6, 7, 8, 13, 14, 19, 20}), "60", "Width+24");
    set(ModeKeys("Willow", {1, 2, 4, 8}), "60", "Width+24");
    set(ModeKeys("Aspen", {9, 10, 15, 16, 21, 22}), "60", "Width+16");
    set(ModeKeys("CedarHi", {9, 2, 4, 5, 6, 8, 11}), "0", "Width");
    set(ModeKeys("Willow", {3, 5, 9, 11}), "60", "Width+12");
    set(ModeKeys("Willow", {10}), "60", "Width+8");
    set(ModeKeys("Willow", {12}), "60", "Width+6");
}

const DefectMapDarkParameters DefectMapDarkZoomParametersSet::get(const std::string& key, int width, int height) {
    DefectMapDarkZoomParameters zoom = lookup(key);
    zoom.Height = height;
    zoom.Width = width;

    DefectMapDarkParameters p;
    p.Area = evaluate_formula(zoom.Area, zoom);
    p.ThresholdMin = zoom.ThresholdMin;
    p.ThresholdMax = zoom.ThresholdMax;
    return p;
}
