#ifndef ORVANE_PARAMETERS_DMFLAGZOOMPARAMETERS_H
#define ORVANE_PARAMETERS_DMFLAGZOOMPARAMETERS_H

#include <cstdint>
#include <string>

#include "parameters/ROIFormula.h"

// A row of the flag zoom set: what becomes a DMFlagParameters for one region.
// std::string fields are formulas; X0, Y0, Height, Width are the formula variables,
// registered by pointer. A default-constructed record is all zero, false and empty
// (empty formulas give 0).
struct DMFlagZoomParameters {
    std::int32_t X0 = 0;       // the region, in panel coordinates; written by get()
    std::int32_t Y0 = 0;
    std::int32_t Height = 0;
    std::int32_t Width = 0;
    bool TestWholeFrame = false;
    bool TestDRZLines = false;
    bool TestArea = false;
    bool RetestWholeFrame = false;
    std::string HorizontalRatio{};
    std::string VerticalRatio{};
    float DRZRatio = 0.0f;
    std::string AreaHorizontalRatio{};
    std::string AreaVerticalRatio{};
    std::string RetestHorizontalRatio{};
    std::string RetestVerticalRatio{};
    ROIFormula Area{};
    std::int32_t DRZFirstColumn = 0;
    std::int32_t DRZFirstCount = 0;
    std::string DRZSecondColumn{};
    std::int32_t DRZSecondCount = 0;
    bool SplitRows = false;
    bool SplitColumns = false;
    std::string SplitRow{};
    std::int32_t SplitColumn = 0;
};

#endif
