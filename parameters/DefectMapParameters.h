#ifndef ORVANE_PARAMETERS_DEFECTMAPPARAMETERS_H
#define ORVANE_PARAMETERS_DEFECTMAPPARAMETERS_H

#include <cstdint>

// Parameters of CalibrationDefectMap. A default-constructed record is all zero.
struct DefectMapParameters {
    std::int32_t X0 = 0;             // measured area
    std::int32_t Y0 = 0;
    std::int32_t Width = 0;
    std::int32_t Height = 0;
    float ClipMax = 0.0f;            // clipping bounds of the input image
    float ClipMin = 0.0f;
    std::int32_t MedianWidth = 0;    // high-pass median window
    std::int32_t MedianHeight = 0;
    std::int32_t SpareLevel = 0;     // carried by the tables, read by no operation
    std::int32_t LogScale = 0;       // factor of the logarithmic high-pass result
    std::int32_t GfaMin = 0;         // high-pass values in [GfaMin, GfaMax] enter the statistic
    std::int32_t GfaMax = 0;
    std::int32_t ExcludeSigmas = 0;  // half-width of the accepted band, in sigmas
    std::int32_t GfaSigmas = 0;      // rejection distance of the statistic, in sigmas
    float GfaTolerance = 0.0f;       // relative change at which the statistic stops iterating
    std::int32_t QuantLevels = 0;    // quantisation levels of the high-pass median
};

#endif
