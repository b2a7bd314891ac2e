#ifndef ORVANE_PARAMETERS_DEFECTMAPGAINPARAMETERS_H
#define ORVANE_PARAMETERS_DEFECTMAPGAINPARAMETERS_H

#include <cstdint>

// Parameters of CalibrationDefectMapGain. A default-constructed record is all zero.
struct DefectMapGainParameters {
    std::int32_t X0 = 0;             // measured area
    std::int32_t Y0 = 0;
    std::int32_t Width = 0;
    std::int32_t Height = 0;
    std::int32_t MedianWidth = 0;    // high-pass median window
    std::int32_t MedianHeight = 0;
    float ClipMin = 0.0f;            // band of acceptable absolute gain
    float ClipMax = 0.0f;
    float ThresholdMin = 0.0f;       // band of accepted ratio of gain to local median
    float ThresholdMax = 0.0f;
    std::int32_t QuantLevels = 0;    // quantisation levels of the high-pass median
};

#endif
