#include "parameters/DefectMapZoomParametersSet.h"

#include "image/BufferExpression.h"
#include "parameters/FormulaCalculator.h"
#include "parameters/ModeKeys.h"

#include <vector>

using orvane::detail::ModeKeys;

namespace {

struct Geometry {
    const char* X0;
    const char* Y0;
    const char* Width;
    const char* Height;
    std::int32_t Median;
};

}  // namespace

DefectMapZoomParametersSet::DefectMapZoomParametersSet() {
    auto& registry = parameter_func<DefectMapZoomParameters>::instance();
    if (registry.variables().empty()) {
        registry.add_variable("Height", &DefectMapZoomParameters::Height);
        registry.add_variable("Width", &DefectMapZoomParameters::Width);
    }

    // Every later row starts as a copy of this one.
    DefectMapZoomParameters& common = row("");
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
            DefectMapZoomParameters& r = row(key);
            r.X0Formula = g.X0;
            r.Y0Formula = g.Y0;
            r.WidthFormula = g.Width;
            r.HeightFormula = g.Height;
            r.MedianWidth = g.Median;
            r.MedianHeight = g.Median;
        }
    };
    set(ModeKeys("Hazel", {1, 2, 6, 8}),
        {"120", "60+(((Height-1420)/2)$3)", "Width", "Height-((Height-1420)$6)", 61});
    set(ModeKeys("Hazel", {3, 4, 5, 7, 9}),
        {"60", "60+(((Height-710)/2)$3)", "Width", "Height-((Height-710)$6)", 31});
    set(ModeKeys("HazelW", {1, 2, 6, 8}), {"0", "60", "Width", "Height", 61});
    set(ModeKeys("HazelW", {3, 4, 5, 7}), {"0", "60", "Width", "Height", 31});
    set(ModeKeys("Aspen", {1, 2, 3, 4, 11, 12, 17, 18}),
        {"24", "60+(((Height/2)-952)$0)", "Width", "Height-2*(((Height/2)-952)$0)", 61});
    set(ModeKeys("Aspen", {5, 6, 7, 8, 13, 14, 19, 20}),
        {"12", "60+(((Height/2)-476)$0)", "Width", "Height-2*(((Height/2)-476)$0)", 31});
    set(ModeKeys("Aspen", {9, 10, 15, 16, 21, 22}),
        {"8", "60+(((Height/2)-317)$0)", "Width", "Height-2*(((Height/2)-317)$0)", 21});
    set(ModeKeys("CedarHi", {2, 5}), {"0", "0", "Width", "Height", 61});
    set(ModeKeys("CedarHi", {4, 6, 9}), {"0", "0", "Width", "Height", 31});
    set(ModeKeys("CedarHi", {8, 11}), {"0", "0", "Width", "Height", 21});
    set(ModeKeys("Willow", {1, 2, 4, 8}), {"12", "60", "Width", "Height", 61});
    set(ModeKeys("Willow", {3, 5, 9, 11}), {"6", "60", "Width", "Height", 41});
    set(ModeKeys("Willow", {10}), {"4", "60", "Width", "Height", 31});
    set(ModeKeys("Willow", {12}), {"3", "60", "Width", "Height", 21});
}

const DefectMapParameters DefectMapZoomParametersSet::get(const std::string& key, int width, int height) {
    using orvane::detail::Store;
    DefectMapZoomParameters zoom = lookup(key);
    zoom.Height = height;
    zoom.Width = width;

    DefectMapParameters p;
    p.X0 = Store<std::int32_t>(evaluate_formula(zoom.X0Formula, zoom));
    p.Y0 = Store<std::int32_t>(evaluate_formula(zoom.Y0Formula, zoom));
    p.Width = Store<std::int32_t>(evaluate_formula(zoom.WidthFormula, zoom));
    p.Height = Store<std::int32_t>(evaluate_formula(zoom.HeightFormula, zoom));
    p.ClipMax = zoom.ClipMax;
    p.ClipMin = zoom.ClipMin;
    p.MedianWidth = zoom.MedianWidth;
    p.MedianHeight = zoom.MedianHeight;
    p.SpareLevel = zoom.SpareLevel;
    p.LogScale = zoom.LogScale;
    p.GfaMin = zoom.GfaMin;
    p.GfaMax = zoom.GfaMax;
    p.ExcludeSigmas = zoom.ExcludeSigmas;
    p.GfaSigmas = zoom.GfaSigmas;
    p.GfaTolerance = zoom.GfaTolerance;
    p.QuantLevels = zoom.QuantLevels;
    return p;
}
