#include "parameters/GainLinearStandardZoomParametersSet.h"

#include "image/BufferExpression.h"
#include "parameters/FormulaCalculator.h"
#include "parameters/ModeKeys.h"

#include <initializer_list>
#include <string>
#include <vector>

using orvane::detail::ModeKeys;
using Zoom = GainLinearZoomParameters;

namespace {

void RegisterVariables() {
    auto& registry = parameter_func<Zoom>::instance();
    if (!registry.variables().empty()) {
        return;
    }
    registry.add_variable("X0", &Zoom::X0);
    registry.add_variable("Y0", &Zoom::Y0);
    registry.add_variable("Height", &Zoom::Height);
    registry.add_variable("Width", &Zoom::Width);
    registry.add_variable("Xc", &Zoom::Xc);
    registry.add_variable("Yc", &Zoom::Yc);
    registry.add_variable("Mpxc", &Zoom::Mpxc);
    registry.add_variable("Thlc", &Zoom::Thlc);
    registry.add_variable("modSize", &Zoom::modSize);
    registry.add_variable("cLeftLimit", &Zoom::cLeftLimit);
    registry.add_variable("lTopLimit", &Zoom::lTopLimit);
    registry.add_variable("cRightLimit", &Zoom::cRightLimit);
    registry.add_variable("lBotLimit", &Zoom::lBotLimit);
    registry.add_variable("l1", &Zoom::l1);
    registry.add_variable("l2", &Zoom::l2);
    registry.add_variable("l3", &Zoom::l3);
    registry.add_variable("l4", &Zoom::l4);
    registry.add_variable("c1", &Zoom::c1);
    registry.add_variable("c2", &Zoom::c2);
    registry.add_variable("c3", &Zoom::c3);
    registry.add_variable("c4", &Zoom::c4);
    registry.add_variable("nl", &Zoom::nl);
    registry.add_variable("nc", &Zoom::nc);
    registry.add_variable("nl1", &Zoom::nl1);
    registry.add_variable("nl2", &Zoom::nl2);
    registry.add_variable("nc1", &Zoom::nc1);
    registry.add_variable("nc2", &Zoom::nc2);
    registry.add_variable("nc3", &Zoom::nc3);
}

// Areas of "nl" x "nc" at each first row of `rows`, and within it each first column
// of `columns`.
std::vector<ROIFormula> Grid(std::initializer_list<const char*> rows, std::initializer_list<const char*> columns) {
    std::vector<ROIFormula> areas;
    for (const char* row : rows) {
        for (const char* column : columns) {
            areas.push_back(ROIFormula{row, column, "nl", "nc"});
        }
    }
    return areas;
}

// Two module rows by three module columns, each cut to its own size; the top margin
// of 60 rows is added here.
std::vector<ROIFormula> ModuleGrid() {
    return {{"l1+60", "c1", "nl1", "nc1"}, {"l1+60", "c2", "nl1", "nc2"}, {"l1+60", "c3", "nl1", "nc3"},
            {"l2+60", "c1", "nl2", "nc1"}, {"l2+60", "c2", "nl2", "nc2"}, {"l2+60", "c3", "nl2", "nc3"}};
}

// A fixed grid: margins, side (as text and as number), first rows and first columns.
struct FixedGrid {
    std::int32_t AreaY0;
    std::int32_t AreaX0;
    const char* nl;
    std::int32_t nc;
    std::vector<const char*> rows;
    std::vector<const char*> columns;
};

void SetFixedGrid(Zoom& r, const FixedGrid& g) {
    r.AreaY0 = g.AreaY0;
    r.AreaX0 = g.AreaX0;
    r.nl = g.nl;
    r.nc = g.nc;
    std::string* rows[] = {&r.l1, &r.l2, &r.l3, &r.l4};
    std::string* columns[] = {&r.c1, &r.c2, &r.c3, &r.c4};
    for (std::size_t i = 0; i < g.rows.size(); ++i) *rows[i] = g.rows[i];
    for (std::size_t i = 0; i < g.columns.size(); ++i) *columns[i] = g.columns[i];
}

}  // namespace

GainLinearStandardZoomParametersSet::GainLinearStandardZoomParametersSet() {
    RegisterVariables();

    // Every later row starts as a copy of this one, or of its stem.
    Zoom& common = row("");
    common.ClipMin = 0.25f;
    common.ClipMax = 4.0f;
    common.GfaSigmas = 3;
    common.GfaTolerance = 0.05f;

    const auto stem = [this](const char* model, std::int32_t areaY0, const std::vector<ROIFormula>& areas) -> Zoom& {
        Zoom& r = row(model);
        r.InvertGain = true;
        r.AreaHeight = "Height";
        r.AreaWidth = "Width";
        r.AreaY0 = areaY0;
        r.MeasureAreaFormulas = areas;
        return r;
    };
    Zoom& hazel = stem("Hazel", 60, Grid({"l1", "l2"}, {"c1", "c2", "c3"}));
    hazel.l1 = "(Height/2)-(1*nl)+60";
    hazel.l2 = "(Height/2)-(0*nl)+60";
    stem("Aspen", 60, Grid({"l1", "l2", "l3", "l4"}, {"c1", "c2", "c3", "c4"}));
    stem("CedarHi", 0, Grid({"l1", "l2", "l3", "l4"}, {"c1", "c2", "c3", "c4"}));
    stem("Willow", 60, Grid({"l1", "l2"}, {"c1", "c2"}));

    Zoom& module = stem("HazelW", 60, ModuleGrid());
    module.AreaX0 = 0;
    module.Xc = "@(X0+(Width/2))";
    module.Yc = "@(Y0+(Height/2))";
    module.Mpxc = "(@(Xc/modSize))*modSize";
    module.Thlc = "(@(Yc/modSize))*modSize";
    module.l1 = "(Thlc-modSize-Y0)$lTopLimit";
    module.l2 = "(Thlc-Y0)$lTopLimit";
    module.c1 = "(Mpxc-modSize-X0)$cLeftLimit";
    module.c2 = "(Mpxc-X0)$cLeftLimit";
    module.c3 = "(Mpxc+modSize-X0)$cLeftLimit";
    module.nl1 = "((Thlc-Y0)#(lBotLimit))-l1";
    module.nl2 = "((Thlc+modSize-Y0)#(lBotLimit))-l2";
    module.nc1 = "((Mpxc-X0)#(cRightLimit))-c1";
    module.nc2 = "((Mpxc+modSize-X0)#(cRightLimit))-c2";
    module.nc3 = "((Mpxc+2*modSize-X0)#(cRightLimit))-c3";

    const auto fixed = [this](const std::vector<std::string>& keys, const FixedGrid& g) {
        for (const std::string& key : keys) SetFixedGrid(row(key), g);
    };
    fixed(ModeKeys("Hazel", {1, 2, 6, 8}),
          {60, 120, "120", 120, {"(Height/2)-(1*nl)+60", "(Height/2)-(0*nl)+60"},
           {"(Width/2)-(1.5*nc)+120", "(Width/2)-(0.5*nc)+120", "(Width/2)+(0.5*nc)+120"}});
    fixed(ModeKeys("Hazel", {3, 4, 5, 7, 9}),
          {60, 60, "60", 60, {"(Height/2)-(1*nl)+60", "(Height/2)-(0*nl)+60"},
           {"(Width/2)-(1.5*nc)+60", "(Width/2)-(0.5*nc)+60", "(Width/2)+(0.5*nc)+60"}});
    fixed(ModeKeys("Aspen", {1, 2, 3, 4, 11, 12, 17, 18}),
          {60, 24, "120", 120, {"60+(Height/2)-240", "60+(Height/2)-120", "60+(Height/2)", "60+(Height/2)+120"},
           {"(Width/2)-240", "(Width/2)-120", "(Width/2)", "(Width/2)+120"}});
    fixed(ModeKeys("Aspen", {5, 6, 7, 8, 13, 14, 19, 20}),
          {60, 12, "60", 60, {"60+(Height/2)-120", "60+(Height/2)-60", "60+(Height/2)", "60+(Height/2)+60"},
           {"(Width/2)-120", "(Width/2)-60", "(Width/2)", "(Width/2)+60"}});
    fixed(ModeKeys("Aspen", {9, 10, 15, 16, 21, 22}),
          {60, 8, "40", 40, {"60+(Height/2)-80", "60+(Height/2)-40", "60+(Height/2)", "60+(Height/2)+40"},
           {"(Width/2)-80", "(Width/2)-40", "(Width/2)", "(Width/2)+40"}});
    fixed(ModeKeys("CedarHi", {9, 4, 6}),
          {0, 0, "60", 60, {"(Height/2)-120", "(Height/2)-60", "(Height/2)", "(Height/2)+60"},
           {"(Width/2)-120", "(Width/2)-60", "(Width/2)", "(Width/2)+60"}});
    fixed(ModeKeys("CedarHi", {2, 5}),
          {0, 0, "120", 120, {"(Height/2)-240", "(Height/2)-120", "(Height/2)", "(Height/2)+120"},
           {"(Width/2)-240", "(Width/2)-120", "(Width/2)", "(Width/2)+120"}});
    fixed(ModeKeys("CedarHi", {11, 8}),
          {0, 0, "40", 40, {"(Height/2)-80", "(Height/2)-40", "(Height/2)", "(Height/2)+40"},
           {"(Width/2)-80", "(Width/2)-40", "(Width/2)", "(Width/2)+40"}});
    fixed(ModeKeys("Willow", {1, 2, 4, 8}),
          {60, 12, "120", 120, {"(Height/2)-120", "(Height/2)"}, {"12+ (Width/2)-120", "12+(Width/2)"}});
    fixed(ModeKeys("Willow", {3, 5, 9, 11}),
          {60, 6, "60", 60, {"(Height/2)-60", "(Height/2)"}, {"6+ (Width/2)-60", "6+(Width/2)"}});
    fixed(ModeKeys("Willow", {10}),
          {60, 4, "40", 40, {"(Height/2)-40", "(Height/2)"}, {"4+ (Width/2)-40", "4+(Width/2)"}});
    fixed(ModeKeys("Willow", {12}),
          {60, 3, "30", 30, {"(Height/2)-30", "(Height/2)"}, {"3+ (Width/2)-30", "3+(Width/2)"}});

    // The module rows differ only in the module size and the usable limits.
    const auto modules = [this](const std::vector<std::string>& keys, std::int32_t modSize, const char* left,
                                const char* top, const char* right, const char* bottom) {
        for (const std::string& key : keys) {
            Zoom& r = row(key);
            r.modSize = modSize;
            r.cLeftLimit = left;
            r.lTopLimit = top;
            r.cRightLimit = right;
            r.lBotLimit = bottom;
        }
    };
    modules(ModeKeys("HazelW", {1, 2, 6, 8}), 120, "0$(10-X0)", "3$(10-Y0)", "(Width)#(1800-230-X0)",
            "(Height-3)#(1440-10-Y0)");
    modules(ModeKeys("HazelW", {3, 4, 5, 7}), 60, "0$(5-X0)", "3$(5-Y0)", "(Width)#(900-115-X0)",
            "(Height-3)#(720-5-Y0)");
}

const GainLinearParameters GainLinearStandardZoomParametersSet::get(const std::string& key, const ROI& roi) {
    using orvane::detail::Store;
    Zoom zoom = lookup(key);
    zoom.X0 = roi.left;
    zoom.Y0 = roi.top;
    zoom.Height = roi.height;
    zoom.Width = roi.width;

    GainLinearParameters p;
    p.InvertGain = zoom.InvertGain;
    p.Y0 = zoom.AreaY0;
    p.Height = Store<std::int32_t>(evaluate_formula(zoom.AreaHeight, zoom));
    p.X0 = zoom.AreaX0;
    p.Width = Store<std::int32_t>(evaluate_formula(zoom.AreaWidth, zoom));
    p.ClipMin = zoom.ClipMin;
    p.ClipMax = zoom.ClipMax;
    p.GfaSigmas = zoom.GfaSigmas;
    p.GfaTolerance = zoom.GfaTolerance;
    p.MeasureAreas.reserve(zoom.MeasureAreaFormulas.size());
    for (const ROIFormula& area : zoom.MeasureAreaFormulas) {
        p.MeasureAreas.push_back(evaluate_formula(area, zoom));
    }
    return p;
}
