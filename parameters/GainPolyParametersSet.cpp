#include "parameters/GainPolyParametersSet.h"

#include <initializer_list>

namespace {

// The scalar fields, the same in every row.
GainPolyParameters Scalars() {
    GainPolyParameters p;
    p.ClipMin = 0.25f;
    p.ClipMax = 4.0f;
    p.RowSigmaFactor = 4;
    p.ColumnSigmaFactor = 4;
    p.MaskSigmas = 6;
    p.RowWindow = 241;
    p.ColumnWindow = 241;
    p.GfaSigmas = 3;
    p.GfaTolerance = 0.05f;
    return p;
}

// 120 x 120 areas, for each top in order and within it each left in order.
std::vector<ROI> MeasureGrid(std::initializer_list<unsigned short> tops,
                             std::initializer_list<unsigned short> lefts) {
    std::vector<ROI> areas;
    for (unsigned short top : tops) {
        for (unsigned short left : lefts) {
            areas.push_back(ROI(top, left, 120, 120));
        }
    }
    return areas;
}

}  // namespace

GainPolyParametersSet::GainPolyParametersSet() {
    GainPolyParameters birch = Scalars();
    birch.DenoiseAreas = {ROI(60, 60, 1500, 1500), ROI(1561, 60, 1500, 1500),
                          ROI(60, 1561, 1500, 1500), ROI(1561, 1561, 1500, 1500)};
    birch.MeasureAreas = MeasureGrid({1320, 1440, 1561, 1681}, {1320, 1440, 1561, 1681});
    row("Birch") = birch;

    GainPolyParameters cedar = Scalars();
    cedar.DenoiseAreas = {ROI(3, 0, 1437, 2880), ROI(1441, 0, 1437, 2880)};
    cedar.MeasureAreas = MeasureGrid({1320, 1200, 1441, 1561}, {1200, 1320, 1440, 1560});
    row("Cedar") = cedar;
}
