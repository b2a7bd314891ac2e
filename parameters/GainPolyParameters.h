#ifndef ORVANE_PARAMETERS_GAINPOLYPARAMETERS_H
#define ORVANE_PARAMETERS_GAINPOLYPARAMETERS_H

#include <cstdint>
#include <vector>

#include "image/ROI.h"

// Parameters of CalibrationGainPoly, with those of its denoising road.
// A default-constructed record is all zero and empty.
struct GainPolyParameters {
    float ClipMin = 0.0f;                  // bounds of the clipped average of a dose level
    float ClipMax = 0.0f;
    std::int32_t RowSigmaFactor = 0;       // denoising: rejection factor on lines as long as an area row
    std::int32_t ColumnSigmaFactor = 0;    // denoising: the same on lines as long as an area column
    std::int32_t MaskSigmas = 0;           // denoising: width of the band in which a pixel counts as noise
    std::int32_t RowWindow = 0;            // denoising: moving-average window on lines as long as an area row
    std::int32_t ColumnWindow = 0;         // denoising: the same on lines as long as an area column
    std::int32_t GfaSigmas = 0;            // rejection distance of the Gaussian-fit average, in sigmas
    float GfaTolerance = 0.0f;             // relative change at which that average stops
    std::vector<ROI> DenoiseAreas{};       // denoised each by itself
    std::vector<ROI> MeasureAreas{};       // areas whose levels make up the level of a dose
};

#endif
