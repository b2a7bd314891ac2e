#ifndef ORVANE_PARAMETERS_DEFECTMAPZOOMPARAMETERSSET_H
#define ORVANE_PARAMETERS_DEFECTMAPZOOMPARAMETERSSET_H

#include "parameters/DefectMapParameters.h"
#include "parameters/DefectMapZoomParameters.h"
#include "parameters/ParametersSet.h"

#include <string>

// The dose defect-map rows of zoomed acquisitions, whose area is given by formulas
// of the image size. The default row has the shared scalars, empty formulas (an
// empty area) and a median window of 0. The constructor registers the formula
// variables "Height" and "Width", in that order, unless they are registered already.
class DefectMapZoomParametersSet : public ParametersSet<DefectMapZoomParameters> {
public:
    DefectMapZoomParametersSet();

    // The record for an image of width x height: the row of lookup(key) with the
    // size written in, its four formulas evaluated and truncated toward zero (X0, Y0,
    // Width, Height), the other fields copied. The stored rows are not changed.
    const DefectMapParameters get(const std::string& key, int width, int height);
};

extern DefectMapZoomParametersSet s_defectMapZoomParametersSet;

#endif
