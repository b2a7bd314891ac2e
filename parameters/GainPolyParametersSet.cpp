#include "parameters/GainPolyParametersSet.h"

#include "parameters/MeasureGrid.h"

using orvane::detail::MeasureGrid;

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

}  // namespace

GainPolyParametersSet::GainPolyParametersSet() {
    GainPolyParameters birch = Scalars();
    birch.DenoiseAreas = {ROI(60, 60, 1500, 1500), ROI(1561, 60, 1500, 1500),
                          ROI(60, 1561, 1500, 1500), ROI(1561, 1561, 1500, 1500)};
    birch.MeasureAreas = MeasureGrid(120, {1320, 1440, 1561, 1681}, {1320, 1440, 1561, 1681});
    row("Birch") = birch;

    GainPolyParameters cedar = Scalars();
    cedar.DenoiseAreas = {ROI(3, 0, 1437, 2880), ROI(1441, 0, 1437, 2880)};
    cedar.MeasureAreas = MeasureGrid(120, {1320, 1200, 1441, 1561}, {1200, 1320, 1440, 1560});
    row("Cedar") = cedar;
}
