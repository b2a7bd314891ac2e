#include "parameters/DMFlagZoomParametersSet.h"

#include "image/BufferExpression.h"
#include "parameters/FormulaCalculator.h"
#include "parameters/ModeKeys.h"

#include <string>
#include <vector>

using orvane::detail::ModeKeys;
using Zoom = DMFlagZoomParameters;

namespace {

void SetTests(Zoom& r, bool wholeFrame, bool drzLines, bool area, bool retest) {
    r.TestWholeFrame = wholeFrame;
    r.TestDRZLines = drzLines;
    r.TestArea = area;
    r.RetestWholeFrame = retest;
}

// Ratios: whole frame, then area and retest, across rows and down columns.
void SetRatios(Zoom& r, const char* horizontal, const char* vertical, const char* areaHorizontal,
               const char* areaVertical) {
    r.HorizontalRatio = horizontal;
    r.VerticalRatio = vertical;
    r.AreaHorizontalRatio = areaHorizontal;
    r.RetestHorizontalRatio = areaHorizontal;
    r.AreaVerticalRatio = areaVertical;
    r.RetestVerticalRatio = areaVertical;
}

// The area and the DRZ bands of a mode; the first band starts at column 0.
struct ModeArea {
    ROIFormula Area;
    std::int32_t FirstCount;
    const char* SecondColumn;
    std::int32_t SecondCount;
};

}  // namespace

DMFlagZoomParametersSet::DMFlagZoomParametersSet() {
    auto& registry = parameter_func<Zoom>::instance();
    if (registry.variables().empty()) {
        registry.add_variable("X0", &Zoom::X0);
        registry.add_variable("Y0", &Zoom::Y0);
        registry.add_variable("Height", &Zoom::Height);
        registry.add_variable("Width", &Zoom::Width);
    }

    // The family rows first, so that their modes start from them.
    const auto family = [this](const char* model, bool wholeFrame, bool retest) -> Zoom& {
        Zoom& r = row(model);
        SetTests(r, wholeFrame, true, true, retest);
        r.DRZRatio = 0.125f;
        return r;
    };
    for (const char* model : {"Hazel", "HazelW", "Aspen"}) {
        const bool hazelW = std::string(model) == "HazelW";
        Zoom& r = family(model, !hazelW, !hazelW);
        SetRatios(r, "(20/Width)$0.10", "(20/Height)$0.10", "(10/Width)$0.05", "(10/Height)$0.05");
        r.SplitRow = "1500";
        r.SplitColumn = 1800;
    }
    Zoom& aspen = row("Aspen");
    aspen.SplitRows = true;
    aspen.SplitRow = "60+Height/2";
    aspen.SplitColumn = 2640;
    for (const char* model : {"CedarHi", "Willow"}) {
        SetRatios(family(model, true, true), "0.10", "0.10", "0.05", "0.05");
    }
    Zoom& cedarHi = row("CedarHi");
    cedarHi.TestDRZLines = false;
    cedarHi.Area = ROIFormula{"1", "0", "Height-2", "Width"};

    const auto mode = [this](const std::vector<std::string>& keys, const ModeArea& m) {
        for (const std::string& key : keys) {
            Zoom& r = row(key);
            r.Area = m.Area;
            r.DRZFirstColumn = 0;
            r.DRZFirstCount = m.FirstCount;
            r.DRZSecondColumn = m.SecondColumn;
            r.DRZSecondCount = m.SecondCount;
        }
    };
    mode(ModeKeys("Hazel", {1, 2, 6, 8}),
         {{"60+(((Height-1420)/2)$3)", "120", "Height-((Height-1420)$6)", "Width"}, 60, "Width+180", 60});
    mode(ModeKeys("Hazel", {3, 4, 5, 7, 9}),
         {{"60+(((Height-710)/2)$3)", "60", "Height-((Height-710)$6)", "Width"}, 30, "Width+90", 30});
    mode(ModeKeys("HazelW", {1, 2, 6, 8}),
         {{"(3$(10-Y0))+60", "0$(10-X0)", "((Height-3)#(1440-10-Y0))-(3$(10-Y0))",
           "((Width-0)#(1800-230-X0))-(0$(10-X0))"},
          0, "Width", 120});
    mode(ModeKeys("HazelW", {3, 4, 5, 7}),
         {{"(3$(5-Y0))+60", "0$(5-X0)", "((Height-3)#(720-5-Y0))-(3$(5-Y0))",
           "((Width-0)#(900-115-X0))-(0$(5-X0))"},
          0, "Width", 60});
    mode(ModeKeys("Aspen", {1, 2, 3, 4, 11, 12, 17, 18}),
         {{"60+(((Height/2)-952)$0)", "24", "Height-2*(((Height/2)-952)$0)", "Width"}, 24, "Width+24", 24});
    mode(ModeKeys("Aspen", {5, 6, 7, 8, 13, 14, 19, 20}),
         {{"60+(((Height/2)-476)$0)", "12", "Height-2*(((Height/2)-476)$0)", "Width"}, 12, "Width+12", 12});
    mode(ModeKeys("Aspen", {9, 10, 15, 16, 21, 22}),
         {{"60+(((Height/2)-317)$0)", "8", "Height-2*(((Height/2)-317)$0)", "Width"}, 8, "Width+8", 8});
    mode(ModeKeys("Willow", {1, 2, 4, 8}), {{"60", "12", "Height", "Width"}, 12, "Width+12", 12});
    mode(ModeKeys("Willow", {3, 5, 9, 11}), {{"60", "6", "Height", "Width"}, 6, "Width+6", 6});
    mode(ModeKeys("Willow", {10}), {{"60", "3", "Height", "Width"}, 3, "Width+3", 3});
}

const DMFlagParameters DMFlagZoomParametersSet::get(const std::string& key, const ROI& roi) {
    using orvane::detail::Store;
    Zoom zoom = lookup(key);
    zoom.X0 = roi.left;
    zoom.Y0 = roi.top;
    zoom.Height = roi.height;
    zoom.Width = roi.width;

    DMFlagParameters p;
    p.TestWholeFrame = zoom.TestWholeFrame;
    p.TestDRZLines = zoom.TestDRZLines;
    p.TestArea = zoom.TestArea;
    p.RetestWholeFrame = zoom.RetestWholeFrame;
    p.HorizontalRatio = evaluate_formula(zoom.HorizontalRatio, zoom);
    p.VerticalRatio = evaluate_formula(zoom.VerticalRatio, zoom);
    p.DRZRatio = zoom.DRZRatio;
    p.AreaHorizontalRatio = evaluate_formula(zoom.AreaHorizontalRatio, zoom);
    p.AreaVerticalRatio = evaluate_formula(zoom.AreaVerticalRatio, zoom);
    p.RetestHorizontalRatio = evaluate_formula(zoom.RetestHorizontalRatio, zoom);
    p.RetestVerticalRatio = evaluate_formula(zoom.RetestVerticalRatio, zoom);
    p.Area = evaluate_formula(zoom.Area, zoom);
    p.DRZFirstColumn = zoom.DRZFirstColumn;
    p.DRZFirstCount = zoom.DRZFirstCount;
    p.DRZSecondColumn = Store<std::int32_t>(evaluate_formula(zoom.DRZSecondColumn, zoom));
    p.DRZSecondCount = zoom.DRZSecondCount;
    p.SplitRows = zoom.SplitRows;
    p.SplitColumns = zoom.SplitColumns;
    p.SplitRow = Store<std::int32_t>(evaluate_formula(zoom.SplitRow, zoom));
    p.SplitColumn = zoom.SplitColumn;
    return p;
}
