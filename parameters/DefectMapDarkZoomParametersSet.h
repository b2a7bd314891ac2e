#ifndef ORVANE_PARAMETERS_DEFECTMAPDARKZOOMPARAMETERSSET_H
#define ORVANE_PARAMETERS_DEFECTMAPDARKZOOMPARAMETERSSET_H

#include "parameters/DefectMapDarkParameters.h"
#include "parameters/DefectMapDarkZoomParameters.h"
#include "parameters/ParametersSet.h"

#include <string>

// The dark defect-map rows of zoomed acquisitions, whose area is given by formulas
// of the image size: the readout lines at their full length, margins included. The
// model rows have empty formulas (an empty area). No default row: another model gets
// an all-zero record. The constructor registers the formula variables "Height" and
// "Width", in that order, unless they are registered already.
class DefectMapDarkZoomParametersSet : public ParametersSet<DefectMapDarkZoomParameters> {
public:
    DefectMapDarkZoomParametersSet();

    // The record for an image of width x height: the row of lookup(key) with the
    // size written in, its area evaluated (each formula truncated toward zero, low 16
    // bits kept), the band copied. The stored rows are not changed.
    const DefectMapDarkParameters get(const std::string& key, int width, int height);
};

extern DefectMapDarkZoomParametersSet s_defectMapDarkZoomParametersSet;

#endif
