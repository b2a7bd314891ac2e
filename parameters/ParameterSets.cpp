// The exported parameter sets, defined in this one file so that they are built at
// library load in this order.
#include "parameters/CalibrationClustersParametersSet.h"
#include "parameters/EchoLineParametersSet.h"
#include "parameters/GainPolyParametersSet.h"
#include "parameters/OffsetDynamicParametersSet.h"
#include "parameters/OffsetTimeGridParametersSet.h"

CalibrationClustersParametersSet s_clustersCalibrationParametersSet;
EchoLineParametersSet s_EchoLineParametersSet;
GainPolyParametersSet s_gainPolyParametersSet;
OffsetDynamicParametersSet s_OffsetDynamicParametersSet;
OffsetTimeGridParametersSet s_OffsetTimeGridParametersSet;
