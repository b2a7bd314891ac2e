#ifndef ORVANE_PARAMETERS_DEFECTMAPDARKPARAMETERS_H
#define ORVANE_PARAMETERS_DEFECTMAPDARKPARAMETERS_H

#include "image/ROI.h"

// Parameters of CalibrationDefectMapDark. A default-constructed record is all zero.
struct DefectMapDarkParameters {
    ROI Area{};                   // the area that reaches the reference
    float ThresholdMin = 0.0f;    // band of accepted mean dark level
    float ThresholdMax = 0.0f;
};

#endif
