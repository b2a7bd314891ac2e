#ifndef ORVANE_PARAMETERS_DEFECTMAPUNTYPICALPARAMETERSSET_H
#define ORVANE_PARAMETERS_DEFECTMAPUNTYPICALPARAMETERSSET_H

#include "parameters/DefectMapUntypicalParameters.h"
#include "parameters/ParametersSet.h"

// Rows for the models "LarchA", "LarchB", "CedarTa" and "CedarTb", no default row:
// another model gets an all-zero record.
class DefectMapUntypicalParametersSet : public ParametersSet<DefectMapUntypicalParameters> {
public:
    DefectMapUntypicalParametersSet();
};

extern DefectMapUntypicalParametersSet s_DefectMapUntypicalParametersSet;

#endif
