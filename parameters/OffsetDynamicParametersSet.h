#ifndef ORVANE_PARAMETERS_OFFSETDYNAMICPARAMETERSSET_H
#define ORVANE_PARAMETERS_OFFSETDYNAMICPARAMETERSSET_H

#include "parameters/OffsetDynamicParameters.h"
#include "parameters/ParametersSet.h"

// One default row for every detector: Weight 0.125.
class OffsetDynamicParametersSet : public ParametersSet<OffsetDynamicParameters> {
public:
    OffsetDynamicParametersSet();
};

extern OffsetDynamicParametersSet s_OffsetDynamicParametersSet;

#endif
