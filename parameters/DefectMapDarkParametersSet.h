#ifndef ORVANE_PARAMETERS_DEFECTMAPDARKPARAMETERSSET_H
#define ORVANE_PARAMETERS_DEFECTMAPDARKPARAMETERSSET_H

#include "parameters/DefectMapDarkParameters.h"
#include "parameters/ParametersSet.h"

// The dark defect-map records, by model and mode; the area spans the readout lines
// at their full length. Every row has the band [0.5%, 65%] of 65536. The model rows
// have an empty area and answer for the modes that the table does not know. No
// default row: another model gets an all-zero record.
class DefectMapDarkParametersSet : public ParametersSet<DefectMapDarkParameters> {
public:
    DefectMapDarkParametersSet();
};

extern DefectMapDarkParametersSet s_DefectMapDarkParametersSet;

#endif
