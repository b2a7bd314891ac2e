#ifndef ORVANE_PARAMETERS_ECHOLINEPARAMETERSSET_H
#define ORVANE_PARAMETERS_ECHOLINEPARAMETERSSET_H

#include "parameters/EchoLineParameters.h"
#include "parameters/ParametersSet.h"

class EchoLineParametersSet : public ParametersSet<EchoLineParameters> {
public:
    EchoLineParametersSet();
};

extern EchoLineParametersSet s_EchoLineParametersSet;

#endif
