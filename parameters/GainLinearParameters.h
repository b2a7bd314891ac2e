#ifndef ORVANE_PARAMETERS_GAINLINEARPARAMETERS_H
#define ORVANE_PARAMETERS_GAINLINEARPARAMETERS_H

#include <cstdint>
#include <vector>

#include "image/ROI.h"

// Parameters of CalibrationGainLinear. The four fields of the normalising area are
// used as unsigned 16-bit values. A default-constructed record is all zero, false and empty.
struct GainLinearParameters {
    bool InvertGain = false;   // store the reciprocal of the gain
    std::int32_t Y0 = 0;       // normalising area
    std::int32_t Height = 0;
    std::int32_t X0 = 0;
    std::int32_t Width = 0;
    float ClipMin = 0.0f;      // the gain is limited to [ClipMin, ClipMax], before inversion
    float ClipMax = 0.0f;
    std::int32_t GfaSigmas = 0;   // rejection distance of the Gaussian-fit average, in sigmas
    float GfaTolerance = 0.0f;    // relative change of the mean at which that average stops
    std::vector<ROI> MeasureAreas{};  // areas whose levels make up the normalising mean
};

#endif
