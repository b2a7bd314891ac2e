#ifndef ORVANE_PARAMETERS_OFFSETTIMEGRIDPARAMETERSSET_H
#define ORVANE_PARAMETERS_OFFSETTIMEGRIDPARAMETERSSET_H

#include "parameters/OffsetParameters.h"
#include "parameters/ParametersSet.h"

// Rows "Birch" and "Cedar", no default row: another model gets a record with
// empty lists, on which a time-grid update fails at its first use of a list.
class OffsetTimeGridParametersSet : public ParametersSet<OffsetParameters> {
public:
    OffsetTimeGridParametersSet();
};

extern OffsetTimeGridParametersSet s_OffsetTimeGridParametersSet;

#endif
