#ifndef ORVANE_PARAMETERS_CALIBRATIONCLUSTERSPARAMETERSSET_H
#define ORVANE_PARAMETERS_CALIBRATIONCLUSTERSPARAMETERSSET_H

#include "parameters/CalibrationClustersParameters.h"
#include "parameters/ParametersSet.h"

// One row, "Birch", and no default row: another model gets an all-zero record,
// whose window sizes of 0 make CalibrationClusters fail when it cuts a strip.
class CalibrationClustersParametersSet : public ParametersSet<CalibrationClustersParameters> {
public:
    CalibrationClustersParametersSet();
};

extern CalibrationClustersParametersSet s_clustersCalibrationParametersSet;

#endif
