#ifndef ORVANE_PARAMETERS_OFFSETPARAMETERS_H
#define ORVANE_PARAMETERS_OFFSETPARAMETERS_H

#include <vector>

// Parameters of CalibrationOffsetTimeGrid: how much a new frame counts, by the
// temperature and time distance from the stored image. The lists have one length,
// at least 2; a default-constructed record has three empty lists.
struct OffsetParameters {
    std::vector<float> TemperatureSteps;  // ascending limits of temperature difference
    std::vector<int> TimeSteps;           // ascending limits of time difference, in steps of 60 "image.time" units
    std::vector<float> Coefficients;      // entry i+1: share of a frame in the class ending at step i+1
};

#endif
