#ifndef ORVANE_PARAMETERS_GAINLINEARSTANDARDZOOMPARAMETERSSET_H
#define ORVANE_PARAMETERS_GAINLINEARSTANDARDZOOMPARAMETERSSET_H

#include "parameters/GainLinearParameters.h"
#include "parameters/GainLinearZoomParameters.h"
#include "parameters/ParametersSet.h"

#include <string>

// The linear-gain rows of zoomed acquisitions, for the models "Hazel", "HazelW",
// "Aspen", "CedarHi" and "Willow"; their measure areas are formulas of the region.
// Most rows place a fixed grid round the middle of the region; the "HazelW" rows
// take two module rows by three module columns round the module corner at or before
// the region's centre, shortened where they leave the usable part of the region.
// Another model gets the default row: no measure areas, an empty normalising area.
// The constructor registers the 28 formula variables, X0 to nc3, unless they are
// registered already.
class GainLinearStandardZoomParametersSet : public ParametersSet<GainLinearZoomParameters> {
public:
    GainLinearStandardZoomParametersSet();

    // The record for a region: the row of lookup(key) with the region written into
    // X0 (left), Y0 (top), Height and Width; InvertGain, the clipping and fit settings
    // copied; Y0 and X0 from AreaY0 and AreaX0; Height and Width from their formulas,
    // truncated toward zero; each measure area from its four formulas, truncated
    // toward zero with the low 16 bits kept. The stored rows are not changed.
    const GainLinearParameters get(const std::string& key, const ROI& roi);
};

extern GainLinearStandardZoomParametersSet s_gainLinearStandardZoomParametersSet;

#endif
