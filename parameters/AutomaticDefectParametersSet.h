#ifndef ORVANE_PARAMETERS_AUTOMATICDEFECTPARAMETERSSET_H
#define ORVANE_PARAMETERS_AUTOMATICDEFECTPARAMETERSSET_H

#include "parameters/AutomaticDefectParameters.h"
#include "parameters/ParametersSet.h"

// Rows "Birch" and "Cedar", no default row: another model gets an all-zero record,
// whose window of 0 CalibrationAutomaticDefect refuses.
class AutomaticDefectParametersSet : public ParametersSet<AutomaticDefectParameters> {
public:
    AutomaticDefectParametersSet();
};

extern AutomaticDefectParametersSet s_automaticDefectParametersSet;

#endif
