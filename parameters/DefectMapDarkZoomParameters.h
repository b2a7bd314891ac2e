#ifndef ORVANE_PARAMETERS_DEFECTMAPDARKZOOMPARAMETERS_H
#define ORVANE_PARAMETERS_DEFECTMAPDARKZOOMPARAMETERS_H

#include <cstdint>

#include "parameters/ROIFormula.h"

// A row of the dark defect-map zoom set: what becomes a DefectMapDarkParameters for
// one image size. Height and Width are the formula variables, registered by pointer.
// A default-constructed record is all zero and empty (empty formulas give 0).
struct DefectMapDarkZoomParameters {
    std::int32_t Height = 0;      // the image size; written by get()
    std::int32_t Width = 0;
    ROIFormula Area{};
    float ThresholdMin = 0.0f;
    float ThresholdMax = 0.0f;
};

#endif
