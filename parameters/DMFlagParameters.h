#ifndef ORVANE_PARAMETERS_DMFLAGPARAMETERS_H
#define ORVANE_PARAMETERS_DMFLAGPARAMETERS_H

#include <cstdint>

#include "image/ROI.h"

// Parameters of DefectMapFlag. A segment of n pixels is flagged when more than
// n * ratio of them are non-zero. A default-constructed record is all zero and false.
struct DMFlagParameters {
    bool TestWholeFrame = false;       // row and column tests on the whole frame
    bool TestDRZLines = false;         // test of the two DRZ column bands
    bool TestArea = false;             // row and column tests on Area
    bool RetestWholeFrame = false;     // the whole-frame tests again, after flagging
    float HorizontalRatio = 0.0f;
    float VerticalRatio = 0.0f;
    float DRZRatio = 0.0f;
    float AreaHorizontalRatio = 0.0f;
    float AreaVerticalRatio = 0.0f;
    float RetestHorizontalRatio = 0.0f;
    float RetestVerticalRatio = 0.0f;
    ROI Area{};
    std::int32_t DRZFirstColumn = 0;
    std::int32_t DRZFirstCount = 0;    // columns in the first DRZ band
    std::int32_t DRZSecondColumn = 0;
    std::int32_t DRZSecondCount = 0;   // columns in the second DRZ band
    bool SplitRows = false;            // the panel has a seam row
    bool SplitColumns = false;         // the panel has a seam column
    std::int32_t SplitRow = 0;         // read only with SplitRows; belongs to neither side
    std::int32_t SplitColumn = 0;      // read only with SplitColumns; belongs to neither side
};

#endif
