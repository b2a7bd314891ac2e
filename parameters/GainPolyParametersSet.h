#ifndef ORVANE_PARAMETERS_GAINPOLYPARAMETERSSET_H
#define ORVANE_PARAMETERS_GAINPOLYPARAMETERSSET_H

#include "parameters/GainPolyParameters.h"
#include "parameters/ParametersSet.h"

// Rows "Birch" and "Cedar", no default row: another model gets a record with no
// areas, whose dose levels stay 0 and whose denoising changes nothing but the
// linear correction.
class GainPolyParametersSet : public ParametersSet<GainPolyParameters> {
public:
    GainPolyParametersSet();
};

extern GainPolyParametersSet s_gainPolyParametersSet;

#endif
