#ifndef ORVANE_PARAMETERS_CALIBRATIONCLUSTERSPARAMETERS_H
#define ORVANE_PARAMETERS_CALIBRATIONCLUSTERSPARAMETERS_H

#include <cstdint>

// Parameters of CalibrationClusters. A default-constructed record is all zero.
struct CalibrationClustersParameters {
    std::int32_t PatchMargin = 0;  // half width of a strip without its centre and border columns; margin of the search
    std::int32_t MedianSize = 0;   // size argument of the median filter on a strip
    std::int32_t AverageSize = 0;  // size argument of the average filter on a strip
    float Threshold = 0.0f;        // level at which the cleaned offset change is cut
};

#endif
