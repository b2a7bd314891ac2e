// The exported parameter sets, defined in this one file so that they are built at
// library load in this order.
#include "parameters/AutomaticDefectParametersSet.h"
#include "parameters/CalibrationClustersParametersSet.h"
#include "parameters/DefectMapDarkParametersSet.h"
#include "parameters/DefectMapDarkZoomParametersSet.h"
#include "parameters/DefectMapGainParametersSet.h"
#include "parameters/DefectMapParametersSet.h"
#include "parameters/DefectMapUntypicalParametersSet.h"
#include "parameters/DefectMapZoomParametersSet.h"
#include "parameters/EchoLineParametersSet.h"
#include "parameters/GainPolyParametersSet.h"
#include "parameters/OffsetDynamicParametersSet.h"
#include "parameters/OffsetTimeGridParametersSet.h"

AutomaticDefectParametersSet s_automaticDefectParametersSet;
CalibrationClustersParametersSet s_clustersCalibrationParametersSet;
DefectMapParametersSet s_defectMapParametersSet;
DefectMapZoomParametersSet s_defectMapZoomParametersSet;
DefectMapUntypicalParametersSet s_DefectMapUntypicalParametersSet;
DefectMapDarkParametersSet s_DefectMapDarkParametersSet;
DefectMapDarkZoomParametersSet s_defectMapDarkZoomParametersSet;
DefectMapGainParametersSet s_defectMapGainParametersSet;
EchoLineParametersSet s_EchoLineParametersSet;
GainPolyParametersSet s_gainPolyParametersSet;
OffsetDynamicParametersSet s_OffsetDynamicParametersSet;
OffsetTimeGridParametersSet s_OffsetTimeGridParametersSet;
