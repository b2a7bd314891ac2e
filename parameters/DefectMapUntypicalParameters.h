#ifndef ORVANE_PARAMETERS_DEFECTMAPUNTYPICALPARAMETERS_H
#define ORVANE_PARAMETERS_DEFECTMAPUNTYPICALPARAMETERS_H

#include <cstdint>

#include "image/ROI.h"

// Parameters of CalibrationDefectMapUntypical. A default-constructed record is all zero.
struct DefectMapUntypicalParameters {
    ROI Area{};                      // measured area
    std::int32_t MedianWidth = 0;    // high-pass median window
    std::int32_t MedianHeight = 0;
    std::int32_t QuantLevels = 0;    // quantisation levels of the high-pass median
    std::int32_t GfaSigmas = 0;      // rejection distance of the statistic, in sigmas
    float GfaTolerance = 0.0f;       // relative change at which the statistic stops iterating
    std::int32_t ExcludeSigmas = 0;  // half-width of the accepted band, in sigmas
};

#endif
