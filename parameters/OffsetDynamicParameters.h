#ifndef ORVANE_PARAMETERS_OFFSETDYNAMICPARAMETERS_H
#define ORVANE_PARAMETERS_OFFSETDYNAMICPARAMETERS_H

// Parameters of CalibrationOffsetDynamic.
struct OffsetDynamicParameters {
    float Weight = 0.0f;  // share of a new frame when it is blended into the offset
};

#endif
