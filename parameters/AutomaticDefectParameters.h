#ifndef ORVANE_PARAMETERS_AUTOMATICDEFECTPARAMETERS_H
#define ORVANE_PARAMETERS_AUTOMATICDEFECTPARAMETERS_H

#include <cstdint>

#include "image/ROI.h"

// Parameters of CalibrationAutomaticDefect. A default-constructed record is all zero.
struct AutomaticDefectParameters {
    ROI Area{};                      // watched area
    std::int32_t WindowSize = 0;     // side of the square median window; odd
    std::int32_t WindowPixels = 0;   // size of the median scratch array: WindowSize squared
    std::int32_t ThresholdHigh = 0;  // a difference from the local median above this is a hit
    std::int32_t ThresholdLow = 0;   // a difference from the local median below this is a hit
    std::int32_t MinHits = 0;        // hits that condemn a pixel
};

#endif
